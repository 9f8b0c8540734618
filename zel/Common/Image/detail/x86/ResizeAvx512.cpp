#include "zel/detail/x86/Avx512-inl.h"

#include "zel/Common/Image/detail/x86/ImageX86.h"
#include "zel/Common/Image/detail/x86/ResizeSteps512-inl.h"

namespace zel::image::avx512 {

constinit const ResizeKernels kResize = MakeKernels<Steps512>();

}  // namespace zel::image::avx512
