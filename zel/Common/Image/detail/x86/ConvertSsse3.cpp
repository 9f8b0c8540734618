#include "zel/detail/x86/Ssse3-inl.h"

#include "zel/Common/Image/detail/ShuffledPixels-inl.h"
#include "zel/Common/Image/detail/x86/ImageX86.h"
#include "zel/Common/Image/detail/x86/Pixels128-inl.h"

namespace zel::image::ssse3 {

constinit const ConvertKernels kConvert =
    MakeKernels<CommonSteps<Pixels128<ShuffledPixels>, plain::kConvert>>();

}  // namespace zel::image::ssse3
