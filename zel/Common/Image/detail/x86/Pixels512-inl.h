// What the colour conversions add for registers of four lanes.
#pragma once

#include <cstdint>

#include "zel/Common/Image/detail/ShuffledPixels-inl.h"

namespace zel::image::ZEL_LEVEL {
namespace {

/// Word 4 j + k of either half comes from lane k, where U has words 0..3 and V words 4..7.
constexpr auto kChromaPlaces =
    MakePlaces<std::uint16_t>([](int i) { return 8 * (i % 4) + i % 16 / 4 + i / 16 * 4; });

/// Output kOut is made of two vectors whose lanes have 3 dwords each.
template <int kOut>
constexpr auto kClosePlaces = MakePlaces<std::uint32_t>([](int i) {
  const int dword = 16 * kOut + i;  // of the 48
  return dword / 12 * 16 + dword % 12 / 3 * 4 + dword % 3 - 16 * kOut;
});

struct Pixels512 : ShuffledPixels {
  ZEL_INLINE static void StoreChroma(std::uint8_t* u, std::uint8_t* v, Reg uv) {
    const Reg samples = Permute16(uv, Load(kChromaPlaces.at));
    StoreHalf(u, Low(samples));
    StoreHalf(v, High(samples));
  }
  ZEL_INLINE static void StoreBgr24(std::uint8_t* p, const Reg (&v)[4]) {
    const Reg a = Close(v[0]), b = Close(v[1]), c = Close(v[2]), d = Close(v[3]);
    Store(p, Permute32(a, b, Load(kClosePlaces<0>.at)));
    Store(p + 64, Permute32(b, c, Load(kClosePlaces<1>.at)));
    Store(p + 128, Permute32(c, d, Load(kClosePlaces<2>.at)));
  }
  ZEL_INLINE static void LoadGroups24(const std::uint8_t* p, Reg (&v)[4]) {
    const Reg groups = _mm512_setr_epi32(0, 1, 2, 3, 3, 4, 5, 6, 6, 7, 8, 9, 9, 10, 11, 12);
    for (int i = 0; i < 3; ++i) v[i] = Permute32(Load(p + 48 * i), groups);
    v[3] = Permute32(Load(p + 128),
                     _mm512_setr_epi32(4, 5, 6, 7, 7, 8, 9, 10, 10, 11, 12, 13, 13, 14, 15, 15));
  }
};

/// Swapping bytes is bound by loads and stores; half-width ones cross fewer cache lines.
struct Steps512 : CommonSteps<Pixels512, avx2::kConvert> {
  static constexpr bool kSwapsNarrower = true;
};

}  // namespace
}  // namespace zel::image::ZEL_LEVEL
