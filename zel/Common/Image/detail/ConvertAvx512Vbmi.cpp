// Bytes go anywhere in one step here: for pixels of 3 bytes, pairs of channels and colour tables.
#include "zel/Common/Image/detail/ConvertKernels.h"
#include "zel/Common/Image/detail/ConvertTables.h"

#ifdef __AVX512VBMI__
#include <immintrin.h>

namespace zel::image {
namespace {

const ConvertKernels& kNarrower = kConvertAvx2;

#include "zel/Common/Image/detail/ConvertAvx512.inc"

#define ZEL_OWN_PACKED24
inline V Order24(V v) {
  return v;
}
/// Byte i of output kOut: from blue's bytes (0..63) or green's (64..127), or the place in red.
template <int kOut>
constexpr auto kPackPlaces = MakePlaces<std::uint8_t>([](int i) {
  const int byte = 64 * kOut + i;
  return byte / 3 + (byte % 3 == 1 ? 64 : 0);
});
template <int kOut>
constexpr std::uint64_t RedPlaces() {
  std::uint64_t mask = 0;
  for (int i = 0; i < 64; ++i) mask |= std::uint64_t{(64 * kOut + i) % 3 == 2} << i;
  return mask;
}
template <int kOut>
inline void StorePart24(std::uint8_t* p, V blue, V green, V red) {
  const V places = Load(kPackPlaces<kOut>.at);
  const V bg = _mm512_permutex2var_epi8(blue, places, green);
  Store(p + 64 * kOut, _mm512_mask_permutexvar_epi8(bg, RedPlaces<kOut>(), places, red));
}
inline void StorePlanes24(std::uint8_t* p, V blue, V green, V red) {
  StorePart24<0>(p, blue, green, red);
  StorePart24<1>(p, blue, green, red);
  StorePart24<2>(p, blue, green, red);
}

#define ZEL_OWN_PAIRS
/// The bytes of a pair, of 32 pixels that begin in the first of two vectors. (With 3 bytes a pixel
/// the second vector begins 32 bytes after the first.) See LoadPairs of ConvertRows.inc for the
/// order.
template <int kBytes, int kChannel>
constexpr auto kPairPlaces = MakePlaces<std::uint8_t>([](int i) {
  const int word = i / 2, lane = word / 8, in_lane = word % 8;
  const int pixel = 4 * lane + in_lane % 4 + in_lane / 4 * 16;
  const int last = kBytes - 1, channel = kChannel + i % 2 < last ? kChannel + i % 2 : last;
  const int byte = kBytes * pixel + channel;
  return kBytes == 3 && byte >= 64 ? byte + 32 : byte;
});
template <int kBytes>
inline void LoadPairs(const std::uint8_t* src, V (&bg)[2], V (&r)[2]) {
  for (int i = 0; i < 2; ++i) {
    const std::uint8_t* const p = src + 32 * kBytes * i;
    const V first = Load(p), second = Load(p + (kBytes == 3 ? 32 : 64));
    bg[i] = _mm512_permutex2var_epi8(first, Load(kPairPlaces<kBytes, 0>.at), second);
    r[i] = _mm512_permutex2var_epi8(first, Load(kPairPlaces<kBytes, 2>.at), second);
  }
}

#define ZEL_OWN_INDEXED
/// A table of 256 bytes in registers.
struct Table {
  V part[4];

  explicit Table(const std::uint8_t* bytes)
      : part{Load(bytes), Load(bytes + 64), Load(bytes + 128), Load(bytes + 192)} {}
  V operator[](V indexes) const {
    return _mm512_mask_blend_epi8(_mm512_movepi8_mask(indexes),
                                  _mm512_permutex2var_epi8(part[0], indexes, part[1]),
                                  _mm512_permutex2var_epi8(part[2], indexes, part[3]));
  }
};
template <int kRows>
inline void FromIndexedRows(RgbSource src, const YuvTarget& dst, std::ptrdiff_t width,
                            const Palette& palette) {
  const Table y(palette.y), u(palette.u), v(palette.v);
  const V ones = _mm512_set1_epi8(1);
  for (std::ptrdiff_t x = 0; x < width; x += 64) {
    if (x > width - 64) x = width - 64;
    V sum_u = _mm512_setzero_si512(), sum_v = sum_u;
    for (int row = 0; row < kRows; ++row) {
      const V indexes = Load(src[row] + x);
      Store(dst.y[row] + x, y[indexes]);
      sum_u = _mm512_add_epi16(sum_u, _mm512_maddubs_epi16(u[indexes], ones));
      sum_v = _mm512_add_epi16(sum_v, _mm512_maddubs_epi16(v[indexes], ones));
    }
    const __m256i mean_u = _mm512_cvtepi16_epi8(_mm512_srli_epi16(sum_u, kRows));
    const __m256i mean_v = _mm512_cvtepi16_epi8(_mm512_srli_epi16(sum_v, kRows));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst.u + x / 2), mean_u);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst.v + x / 2), mean_v);
  }
}

#include "zel/Common/Image/detail/ConvertRows.inc"

}  // namespace

const ConvertKernels kConvertAvx512Vbmi = kKernels;

}  // namespace zel::image
#endif
