// What the colour conversions add for registers of one lane.
#pragma once

#include <cstdint>

#include "zel/Common/Image/detail/ConvertRows-inl.h"

namespace zel::image::ZEL_LEVEL {
namespace {

/// `Base` has Deal, Close and SwapBytes.
template <class Base>
struct Pixels128 : Base {
  ZEL_INLINE static void StoreChroma(std::uint8_t* u, std::uint8_t* v, Reg uv) {
    StoreHalf(u, Low(uv));
    StoreHalf(v, High(uv));
  }
  ZEL_INLINE static void LoadGroups24(const std::uint8_t* p, Reg (&v)[4]) {
    const Reg a = Load(p), b = Load(p + 16), c = Load(p + 32);
    v[0] = a;
    v[1] = Or(_mm_srli_si128(a, 12), _mm_slli_si128(b, 4));
    v[2] = Or(_mm_srli_si128(b, 8), _mm_slli_si128(c, 8));
    v[3] = _mm_srli_si128(c, 4);
  }
  ZEL_INLINE static void StoreBgr24(std::uint8_t* p, const Reg (&v)[4]) {
    const Reg a = Base::Close(v[0]), b = Base::Close(v[1]);
    const Reg c = Base::Close(v[2]), d = Base::Close(v[3]);
    Store(p, Or(a, _mm_slli_si128(b, 12)));
    Store(p + 16, Or(_mm_srli_si128(b, 4), _mm_slli_si128(c, 8)));
    Store(p + 32, Or(_mm_srli_si128(c, 8), _mm_slli_si128(d, 4)));
  }
};

}  // namespace
}  // namespace zel::image::ZEL_LEVEL
