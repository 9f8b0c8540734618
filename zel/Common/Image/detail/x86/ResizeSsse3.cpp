#include "zel/detail/x86/Ssse3-inl.h"

#include "zel/Common/Image/detail/ResizeLanes-inl.h"
#include "zel/Common/Image/detail/x86/ImageX86.h"
#include "zel/Common/Image/detail/x86/ResizeSteps128-inl.h"

namespace zel::image::ssse3 {

constinit const ResizeKernels kResize = MakeKernels<Steps128<LaneSteps>>();

}  // namespace zel::image::ssse3
