// Steps of the resizers for registers of one lane.
#pragma once

#include "zel/Common/Image/detail/ResizeRows-inl.h"

namespace zel::image::ZEL_LEVEL {
namespace {

template <class Base>
struct Steps128 : Base {
  /// From pixels a, b in 64 bits each: pairs of their bytes.
  ZEL_INLINE static Reg PairChannels(Reg pixels) {
    const Reg split = _mm_shuffle_epi32(pixels, _MM_SHUFFLE(3, 1, 2, 0));  // a a b b
    return InterleaveLow8(split, _mm_srli_si128(split, 8));
  }
};

}  // namespace
}  // namespace zel::image::ZEL_LEVEL
