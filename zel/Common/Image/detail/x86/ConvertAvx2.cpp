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

#define ZEL_OWN_FROM_BLOCK32
// Pixels of 4 bytes are weighted as dwords. Two vectors have the even and the odd ones of 16
// pixels, so that the chroma of a block is added up within a dword: fewer steps than with words,
// whose factors need two parts each. Lane k of the even ones has pixels 4 k, 4 k + 2, 4 k + 8 and 4
// k + 10.

/// A pair of words in each dword.
inline V WordPairs(int even, int odd) {
  return _mm256_set1_epi32(static_cast<int>((even & 0xffffU) | static_cast<unsigned>(odd) << 16));
}
/// The low words of `low`, the high words of `high`.
inline V JoinWords(V low, V high) {
  return _mm256_blend_epi16(low, high, 0xaa);
}

/// 8 pixels as pairs of words: blue and red, green twice, and blue and red less green. And, in low
/// words only, 4 times green and up to 3, which is too little to reach the unit of what are
/// multiples of 4 otherwise.
struct Pixels8 {
  V blue_red, green, differences, green4;

  explicit Pixels8(V dwords)
      : blue_red(_mm256_and_si256(dwords, _mm256_set1_epi32(0xff00ff))),
        green(Shuffle(dwords,
                      _mm_setr_epi8(1, -1, 1, -1, 5, -1, 5, -1, 9, -1, 9, -1, 13, -1, 13, -1))),
        differences(_mm256_sub_epi16(blue_red, green)),
        green4(_mm256_srli_epi16(dwords, 6)) {}
};

/// Luma without its offset, in the third byte of each dword.
inline V WeighLuma(const Pixels8& p) {
  using S = Scaled<ToYuvExact::kY, 16>;
  // Green's factor would not fit one word.
  return _mm256_add_epi32(_mm256_madd_epi16(p.blue_red, WordPairs(S::kB, S::kR)),
                          _mm256_madd_epi16(p.green, WordPairs(S::kG / 2, S::kG - S::kG / 2)));
}
/// Adds the chroma of one more pixel to the floor of `sum`, whose whole units are the high word.
template <const Weights& kW>
inline V AddChroma(V sum, const Pixels8& p) {
  using S = Scaled<kW, 16>;
  static_assert(S::kRounding == 0 && (S::kRest == 0 || S::kRest == 4));
  const V start = JoinWords(S::kRest == 0 ? _mm256_setzero_si256() : p.green4, sum);
  return _mm256_add_epi32(start, _mm256_madd_epi16(p.differences, WordPairs(S::kB, S::kR)));
}
/// Means of the blocks of 32 pixels, as signed words.
inline V BlockMeans(const V (&sums)[2]) {
  return _mm256_packs_epi32(_mm256_srai_epi32(sums[0], 18), _mm256_srai_epi32(sums[1], 18));
}
/// Stores words of 16 pixels each, as bytes.
inline void StoreWords(std::uint8_t* p, const V (&words)[2], int offset) {
  const V bytes = _mm256_permutevar8x32_epi32(_mm256_packus_epi16(words[0], words[1]),
                                              _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
  Store(p, _mm256_add_epi8(bytes, _mm256_set1_epi8(static_cast<char>(offset))));
}

template <bool kAlpha, int kRows>
inline void FromBlock32(PixelSource src, const YuvTarget& dst) {
  using F = ToYuvExact;
  V u[2] = {_mm256_setzero_si256(), _mm256_setzero_si256()}, v[2] = {u[0], u[1]};
  for (int row = 0; row < 2; ++row) {
    V luma[2], alpha[2];
    for (int half = 0; half < 2; ++half) {
      // A row without a partner counts twice.
      const std::uint8_t* const p = src[kRows == 2 ? row : 0] + 64 * half;
      const __m256 first = _mm256_castsi256_ps(Load(p)), second = _mm256_castsi256_ps(Load(p + 32));
      const V evens =
          _mm256_castps_si256(_mm256_shuffle_ps(first, second, _MM_SHUFFLE(2, 0, 2, 0)));
      const V odds = _mm256_castps_si256(_mm256_shuffle_ps(first, second, _MM_SHUFFLE(3, 1, 3, 1)));
      const Pixels8 even(evens), odd(odds);
      u[half] = AddChroma<F::kU>(AddChroma<F::kU>(u[half], even), odd);
      v[half] = AddChroma<F::kV>(AddChroma<F::kV>(v[half], even), odd);
      luma[half] = JoinWords(_mm256_srli_epi32(WeighLuma(even), 16), WeighLuma(odd));
      alpha[half] = JoinWords(_mm256_srli_epi32(evens, 24), _mm256_srli_epi32(odds, 8));
    }
    if (row == kRows) break;
    StoreWords(dst.y + row * dst.pitch_y, luma, F::kY.whole());
    if (kAlpha) StoreWords(dst.a + row * dst.pitch_y, alpha, 0);
  }
  const V means =
      _mm256_xor_si256(_mm256_packs_epi16(BlockMeans(u), BlockMeans(v)), _mm256_set1_epi8(-128));
  StoreChroma(dst.u, dst.v, means);
}

#include "zel/Common/Image/detail/ConvertRows-inl.h"

}  // namespace

const ConvertKernels kConvertAvx2 = kKernels;

}  // namespace zel::image
#endif
