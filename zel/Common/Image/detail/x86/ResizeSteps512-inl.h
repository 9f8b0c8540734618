// Steps of the resizers for registers of four lanes: windows of a whole register of pixels.
#pragma once

#include <cstddef>
#include <cstdint>

#include "zel/Common/Image/detail/ResizeLanes-inl.h"

namespace zel::image::ZEL_LEVEL {
namespace {

struct Steps512 : LaneSteps {
  static constexpr ResizeWindow kPixelWindow = {16, 16};

  template <int kWindows>
  ZEL_INLINE static Reg PermutePixels(const unsigned char* source, const std::int32_t* base,
                                      const std::uint8_t* index) {
    const unsigned char* p = source + std::size_t{4} * static_cast<unsigned>(base[0]);
    const Reg at = LoadBytesAs32(index);
    if constexpr (kWindows == 1) return Permute32(Load(p), at);
    return Permute32(Load(p), Load(p + kRegBytes), at);
  }
};

}  // namespace
}  // namespace zel::image::ZEL_LEVEL
