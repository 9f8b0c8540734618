// Steps of the resizers for levels that have byte shuffles: windows of a lane.
#pragma once

#include <cstddef>
#include <cstdint>

#include "zel/Common/Image/detail/ResizeRows-inl.h"

namespace zel::image::ZEL_LEVEL {
namespace {

struct LaneSteps : CommonSteps {
  static constexpr ResizeWindow kByteWindow = {16, 16};
  static constexpr std::size_t kBases = kLanes;

  /// Each lane from its own base on.
  template <int kWindows>
  ZEL_INLINE static Reg PermuteBytes(const unsigned char* source, const std::int32_t* base,
                                     const std::uint8_t* index) {
    const auto window = [=](int i) ZEL_INLINE_LAMBDA { return source + base[i]; };
    const auto next = [=](int i) ZEL_INLINE_LAMBDA { return source + 16 + base[i]; };
    const Reg low = LoadLanes(window);
    const Reg at = Load(index);
    if constexpr (kWindows == 1) return ShuffleBytes(low, at);
    // The shuffle gives 0 where bit 7 is set: for indices from 16 on, and for those below 16.
    const Reg high = LoadLanes(next);
    return Or(ShuffleBytes(low, AddSatU8(at, Set8(0x70))), ShuffleBytes(high, Sub8(at, Set8(16))));
  }

  /// From pixels a, b in 64 bits each: pairs of their bytes.
  ZEL_INLINE static Reg PairChannels(Reg pixels) {
    return ShuffleBytes(pixels,
                        EachLane(MakeLane(0, 4, 1, 5, 2, 6, 3, 7, 8, 12, 9, 13, 10, 14, 11, 15)));
  }
};

}  // namespace
}  // namespace zel::image::ZEL_LEVEL
