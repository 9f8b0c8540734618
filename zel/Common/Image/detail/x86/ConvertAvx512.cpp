#include "zel/Common/Image/detail/ConvertKernels.h"
#include "zel/Common/Image/detail/ConvertTables.h"
#include "zel/Common/Image/detail/ConvertWeights.h"

#ifdef __AVX512BW__
#include <immintrin.h>

#include <type_traits>

namespace zel::image {
namespace {

const ConvertKernels& kNarrower = kConvertAvx2;

#include "zel/Common/Image/detail/x86/ConvertAvx512-inl.h"

/// Output kOut is made of two vectors whose lanes have 3 dwords each.
template <int kOut>
constexpr auto kClosePlaces = MakePlaces<std::uint32_t>([](int i) {
  const int dword = 16 * kOut + i;  // of the 48
  return dword / 12 * 16 + dword % 12 / 3 * 4 + dword % 3 - 16 * kOut;
});

inline void StoreBgr24(std::uint8_t* p, const V (&v)[4]) {
  const __m128i close = _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
  const V a = Shuffle(v[0], close), b = Shuffle(v[1], close), c = Shuffle(v[2], close),
          d = Shuffle(v[3], close);
  Store(p, _mm512_permutex2var_epi32(a, Load(kClosePlaces<0>.at), b));
  Store(p + 64, _mm512_permutex2var_epi32(b, Load(kClosePlaces<1>.at), c));
  Store(p + 128, _mm512_permutex2var_epi32(c, Load(kClosePlaces<2>.at), d));
}
inline void LoadGroups24(const std::uint8_t* p, V (&v)[4]) {
  const V groups = _mm512_setr_epi32(0, 1, 2, 3, 3, 4, 5, 6, 6, 7, 8, 9, 9, 10, 11, 12);
  for (int i = 0; i < 3; ++i) v[i] = _mm512_permutexvar_epi32(groups, Load(p + 48 * i));
  v[3] = _mm512_permutexvar_epi32(
      _mm512_setr_epi32(4, 5, 6, 7, 7, 8, 9, 10, 10, 11, 12, 13, 13, 14, 15, 15), Load(p + 128));
}
template <int kBytes>
inline V Deal(V v) {
  return Shuffle(v, kBytes == 3
                        ? _mm_setr_epi8(0, 1, 3, 4, 6, 7, 9, 10, 2, -1, 5, -1, 8, -1, 11, -1)
                        : _mm_setr_epi8(0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 6, 7, 10, 11, 14, 15));
}

#include "zel/Common/Image/detail/ConvertRows-inl.h"

}  // namespace

const ConvertKernels kConvertAvx512 = kKernels;

}  // namespace zel::image
#endif
