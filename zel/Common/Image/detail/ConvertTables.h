// The kernel tables of the levels, for the choice among them and for kernels that leave narrow rows
// to the level below.
#pragma once

namespace zel::image {

struct ConvertKernels;

extern const ConvertKernels kConvertScalar;

}  // namespace zel::image
