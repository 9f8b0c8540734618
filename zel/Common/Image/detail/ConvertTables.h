// The kernel tables of the levels, for the choice among them and for kernels that leave narrow rows
// to the level below.
#pragma once

namespace zel::image {

struct ConvertKernels;

extern const ConvertKernels kConvertScalar;
extern const ConvertKernels kConvertSse2;
extern const ConvertKernels kConvertSsse3;
extern const ConvertKernels kConvertAvx2;
extern const ConvertKernels kConvertAvx512;
extern const ConvertKernels kConvertAvx512Vbmi;

}  // namespace zel::image
