#include "zel/detail/x86/Avx512Vbmi-inl.h"

#include "zel/Common/Image/detail/x86/ImageX86.h"
#include "zel/Common/Image/detail/x86/ResizeSteps512-inl.h"

namespace zel::image::avx512vbmi {
namespace {

struct Steps : Steps512 {
  static constexpr ResizeWindow kByteWindow = {64, 64};
  static constexpr std::size_t kBases = 1;

  template <int kWindows>
  ZEL_INLINE static Reg PermuteBytes(const unsigned char* source, const std::int32_t* base,
                                     const std::uint8_t* index) {
    const Reg low = Load(source + base[0]);
    if constexpr (kWindows == 1) return Permute8(low, Load(index));
    return Permute8(low, Load(source + base[0] + 64), Load(index));
  }
};

}  // namespace

constinit const ResizeKernels kResize = MakeKernels<Steps>();

}  // namespace zel::image::avx512vbmi
