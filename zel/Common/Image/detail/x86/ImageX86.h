// The tables of the levels of x86. Each file of kernels is compiled for its level. Only its table
// is visible to other files; zel/detail/Registers-inl.h says why.
#pragma once

#include "zel/Common/Image/detail/ConvertKernels.h"
#include "zel/Common/Image/detail/ResizeKernels.h"

namespace zel::image {

namespace sse2 {
extern const ConvertKernels kConvert;
extern const ResizeKernels kResize;
}  // namespace sse2
namespace ssse3 {
extern const ConvertKernels kConvert;
extern const ResizeKernels kResize;
}  // namespace ssse3
namespace avx2 {
extern const ConvertKernels kConvert;
extern const ResizeKernels kResize;
}  // namespace avx2
namespace avx512 {
extern const ConvertKernels kConvert;
extern const ResizeKernels kResize;
}  // namespace avx512
namespace avx512vbmi {
extern const ConvertKernels kConvert;
extern const ResizeKernels kResize;
}  // namespace avx512vbmi

}  // namespace zel::image
