#include "zel/Common/Image/detail/ConvertKernels.h"
#include "zel/Common/Image/detail/ConvertTables.h"
#include "zel/Common/Image/detail/ConvertWeights.h"

#ifdef __AVX2__
#include <immintrin.h>

#include <type_traits>

namespace zel::image {
namespace {

const ConvertKernels& kNarrower = kConvertSsse3;

using V = __m256i;
#define ZEL_LANES 2
#define ZEL_MM(op) _mm256_##op
#define ZEL_SI(op) _mm256_##op##_si256

inline V Load(const std::uint8_t* p) {
  return _mm256_loadu_si256(reinterpret_cast<const V*>(p));
}
inline void Store(std::uint8_t* p, V v) {
  _mm256_storeu_si256(reinterpret_cast<V*>(p), v);
}
inline V Widen(const std::uint8_t* p) {
  return _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
}
inline void StoreHalves(std::uint8_t* p, std::uint8_t* q, V v) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(p), _mm256_castsi256_si128(v));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(q), _mm256_extracti128_si256(v, 1));
}
inline V MaddBytes(V a, V b) {
  return _mm256_maddubs_epi16(a, b);
}
inline V Spread(V v) {
  return _mm256_permutevar8x32_epi32(v, _mm256_setr_epi32(0, 2, 4, 6, 1, 3, 5, 7));
}
inline V Gather(V v) {
  return _mm256_permutevar8x32_epi32(v, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
}
inline V SpreadHalves(V v) {
  return _mm256_permute4x64_epi64(v, _MM_SHUFFLE(3, 1, 2, 0));
}
inline V GatherHalves(V v) {
  return SpreadHalves(v);
}
inline V Shuffle(V v, __m128i places) {
  return _mm256_shuffle_epi8(v, _mm256_broadcastsi128_si256(places));
}
inline void StoreChroma(std::uint8_t* u, std::uint8_t* v, V uv) {
  StoreHalves(u, v,
              Shuffle(GatherHalves(uv),
                      _mm_setr_epi8(0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15)));
}
inline void StoreBgr24(std::uint8_t* p, const V (&v)[4]) {
  const __m128i close = _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
  // Each vector has 6 dwords now: 0, 1, 2, 4, 5, 6. They are put where a blend finds them.
  const V a =
      _mm256_permutevar8x32_epi32(Shuffle(v[0], close), _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 0, 0));
  const V b =
      _mm256_permutevar8x32_epi32(Shuffle(v[1], close), _mm256_setr_epi32(2, 4, 5, 6, 0, 0, 0, 1));
  const V c =
      _mm256_permutevar8x32_epi32(Shuffle(v[2], close), _mm256_setr_epi32(5, 6, 0, 0, 0, 1, 2, 4));
  const V d =
      _mm256_permutevar8x32_epi32(Shuffle(v[3], close), _mm256_setr_epi32(0, 0, 0, 1, 2, 4, 5, 6));
  Store(p, _mm256_blend_epi32(a, b, 0xc0));
  Store(p + 32, _mm256_blend_epi32(b, c, 0xf0));
  Store(p + 64, _mm256_blend_epi32(c, d, 0xfc));
}
inline void LoadGroups24(const std::uint8_t* p, V (&v)[4]) {
  const V groups = _mm256_setr_epi32(0, 1, 2, 3, 3, 4, 5, 6);
  for (int i = 0; i < 3; ++i) v[i] = _mm256_permutevar8x32_epi32(Load(p + 24 * i), groups);
  v[3] = _mm256_permutevar8x32_epi32(Load(p + 64), _mm256_setr_epi32(2, 3, 4, 5, 5, 6, 7, 7));
}
template <int kBytes>
inline V Deal(V v) {
  return Shuffle(v, kBytes == 3
                        ? _mm_setr_epi8(0, 1, 3, 4, 6, 7, 9, 10, 2, -1, 5, -1, 8, -1, 11, -1)
                        : _mm_setr_epi8(0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 6, 7, 10, 11, 14, 15));
}
inline V SwapBytes(V v) {
  return Shuffle(v, _mm_setr_epi8(1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14));
}

#include "zel/Common/Image/detail/ConvertRows.inc"

}  // namespace

const ConvertKernels kConvertAvx2 = kKernels;

}  // namespace zel::image
#endif
