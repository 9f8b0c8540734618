// What the colour conversions add for levels that have byte shuffles.
#pragma once

#include "zel/Common/Image/detail/ConvertRows-inl.h"

namespace zel::image::ZEL_LEVEL {
namespace {

struct ShuffledPixels {
  ZEL_INLINE static Reg Shuffle(Reg v, Lane places) { return ShuffleBytes(v, EachLane(places)); }
  template <int kBytes>
  ZEL_INLINE static Reg Deal(Reg v) {
    return Shuffle(v, kBytes == 3 ? MakeLane(0, 1, 3, 4, 6, 7, 9, 10, 2, -1, 5, -1, 8, -1, 11, -1)
                                  : MakeLane(0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 6, 7, 10, 11, 14, 15));
  }
  /// Pixels of 4 bytes to 12 bytes in each lane, the rest of the lane 0.
  ZEL_INLINE static Reg Close(Reg v) {
    return Shuffle(v, MakeLane(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1));
  }
  ZEL_INLINE static Reg SwapBytes(Reg v) {
    return Shuffle(v, MakeLane(1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14));
  }
};

}  // namespace
}  // namespace zel::image::ZEL_LEVEL
