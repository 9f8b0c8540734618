#include "zel/detail/x86/Sse2-inl.h"

#include "zel/Common/Image/detail/x86/ImageX86.h"
#include "zel/Common/Image/detail/x86/ResizeSteps128-inl.h"

namespace zel::image::sse2 {
namespace {

struct Steps : Steps128<CommonSteps> {
  ZEL_INLINE static Reg Difference(Reg pairs, Reg a) {
    return ShiftLeft16<4>(Sub16(ShiftRight16<8>(pairs), a));
  }
};

}  // namespace

constinit const ResizeKernels kResize = MakeKernels<Steps>();

}  // namespace zel::image::sse2
