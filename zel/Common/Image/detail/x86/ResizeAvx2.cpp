#include "zel/detail/x86/Avx2-inl.h"

#include "zel/Common/Image/detail/ResizeLanes-inl.h"
#include "zel/Common/Image/detail/x86/ImageX86.h"

namespace zel::image::avx2 {
namespace {

struct Steps : LaneSteps {
  static constexpr ResizeWindow kPixelWindow = {8, 8};

  template <int kWindows>
  ZEL_INLINE static Reg PermutePixels(const unsigned char* source, const std::int32_t* base,
                                      const std::uint8_t* index) {
    const unsigned char* p = source + std::size_t{4} * static_cast<unsigned>(base[0]);
    const Reg at = LoadBytesAs32(index);
    const Reg low = Permute32(Load(p), at);
    if constexpr (kWindows == 1) return low;
    const Reg high = Permute32(Load(p + kRegBytes), at);
    return _mm256_blendv_epi8(low, high, Greater32(at, Set32(7)));
  }
};

}  // namespace

constinit const ResizeKernels kResize = MakeKernels<Steps>();

}  // namespace zel::image::avx2
