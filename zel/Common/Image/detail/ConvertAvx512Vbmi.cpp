// Bytes go anywhere in one step here: for pixels of 3 bytes, pairs of channels and colour tables.
// And products of pairs of words are added to dwords, which hold the weighted sums as they are.
#include "zel/Common/Image/detail/ConvertKernels.h"
#include "zel/Common/Image/detail/ConvertTables.h"
#include "zel/Common/Image/detail/ConvertWeights.h"

#if defined(__AVX512VBMI__) && defined(__AVX512VNNI__)
#include <immintrin.h>

#include <type_traits>

namespace zel::image {
namespace {

const ConvertKernels& kNarrower = kConvertAvx2;

#include "zel/Common/Image/detail/ConvertAvx512.inc"

#define ZEL_OWN_PACKED24
inline V Order24(V v) {
  return v;
}
inline V LoadPacked24(const std::uint8_t* p) {
  return Load(p);
}
inline V OrderPacked24(V v) {
  return GatherHalves(v);
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

#define ZEL_OWN_FROM_BLOCK
/// Where byte kByte of each dword of two vectors goes: to the first 32 bytes.
template <int kByte>
constexpr auto kNarrowPlaces = MakePlaces<std::uint8_t>([](int i) { return 4 * i % 128 + kByte; });
template <int kByte>
inline __m256i Narrow(V first, V second) {
  return _mm512_castsi512_si256(
      _mm512_permutex2var_epi8(first, Load(kNarrowPlaces<kByte>.at), second));
}

/// 16 pixels as words of blue and red, and of green twice: its factor for Y would not fit one word.
struct Pixels16 {
  V blue_red, green;
};
/// Bytes kFirst and kSecond of each pixel of 3 bytes, from byte kSkip of the vector on.
template <int kFirst, int kSecond, int kSkip>
constexpr auto kWords24Places = MakePlaces<std::uint8_t>([](int i) {
  return 3 * (i / 4) + (i % 4 < 2 ? kFirst : kSecond) + kSkip;
});
/// The group `i` of 4 that begin at `src`. With pixels of 3 bytes the last one's vector ends with
/// it.
template <int kBytes, int i>
inline Pixels16 LoadPixels16(const std::uint8_t* src) {
  if constexpr (kBytes == 4) {
    const V pixels = Load(src + 64 * i);
    return {
        _mm512_and_si512(pixels, _mm512_set1_epi32(0xff00ff)),
        Shuffle(pixels, _mm_setr_epi8(1, -1, 1, -1, 5, -1, 5, -1, 9, -1, 9, -1, 13, -1, 13, -1))};
  } else {
    constexpr int kSkip = i == 3 ? 16 : 0;
    constexpr __mmask64 kLowBytes = 0x5555555555555555;
    const V pixels = Load(src + 48 * i - kSkip);
    return {_mm512_maskz_permutexvar_epi8(kLowBytes, Load(kWords24Places<0, 2, kSkip>.at), pixels),
            _mm512_maskz_permutexvar_epi8(kLowBytes, Load(kWords24Places<1, 1, kSkip>.at), pixels)};
  }
}

/// A weighted sum, scaled so that its floor is byte 2 of the dword.
template <const Weights& kW>
inline V Weigh32(const Pixels16& pixels) {
  constexpr int kScale = 1 << (16 - kW.low_shift - kW.high_shift), kHigh = kScale << kW.low_shift;
  constexpr int kB = kW.high_b * kHigh + kW.low_b * kScale;
  constexpr int kG = kW.high_g * kHigh + kW.low_g * kScale;
  constexpr int kR = kW.high_r * kHigh + kW.low_r * kScale;
  const auto pair = [](int even, int odd) {
    return _mm512_set1_epi32(static_cast<int>((even & 0xffffU) | static_cast<unsigned>(odd) << 16));
  };
  return _mm512_dpwssd_epi32(
      _mm512_dpwssd_epi32(_mm512_set1_epi32(kW.offset * kHigh), pixels.blue_red, pair(kB, kR)),
      pixels.green, pair(kG / 2, kG - kG / 2));
}

/// The 2 x 2 blocks of 16 pixels: byte 2 of the dwords of two rows, 4 in each dword of the first
/// half.
constexpr auto kBlockPlaces = MakePlaces<std::uint8_t>(
    [](int i) { return i % 4 / 2 * 64 + 8 * (i / 4 % 8) + i % 2 * 4 + 2; });
/// The means of the blocks of 32 pixels, byte 1 of each dword.
inline V BlockMeans(const V (&upper)[2], const V (&lower)[2]) {
  const V places = Load(kBlockPlaces.at);
  const V blocks = _mm512_inserti64x4(
      _mm512_permutex2var_epi8(upper[0], places, lower[0]),
      _mm512_castsi512_si256(_mm512_permutex2var_epi8(upper[1], places, lower[1])), 1);
  return _mm512_dpbusd_epi32(_mm512_setzero_si512(), blocks, _mm512_set1_epi8(64));
}

inline void StoreHalf(std::uint8_t* p, __m256i v) {
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v);
}
/// Half of the block, pixels 32 * kHalf on: its luma and alpha; the chroma of the means is
/// returned.
template <typename F, int kBytes, bool kAlpha, int kRows, int kHalf>
inline void FromHalfBlock(PixelSource src, const YuvTarget& dst, V& mean_u, V& mean_v) {
  V u[kRows][2], v[kRows][2];
  for (int row = 0; row < kRows; ++row) {
    const Pixels16 pixels[2] = {LoadPixels16<kBytes, 2 * kHalf>(src[row]),
                                LoadPixels16<kBytes, 2 * kHalf + 1>(src[row])};
    const std::ptrdiff_t luma = row * dst.pitch_y + 32 * kHalf;
    StoreHalf(dst.y + luma, Narrow<2>(Weigh32<F::kY>(pixels[0]), Weigh32<F::kY>(pixels[1])));
    if constexpr (kAlpha) {
      const std::uint8_t* const p = src[row] + 128 * kHalf;
      StoreHalf(dst.a + luma, Narrow<3>(Load(p), Load(p + 64)));
    }
    for (int i = 0; i < 2; ++i) {
      u[row][i] = Weigh32<F::kU>(pixels[i]);
      v[row][i] = Weigh32<F::kV>(pixels[i]);
    }
  }
  mean_u = BlockMeans(u[0], u[kRows - 1]);
  mean_v = BlockMeans(v[0], v[kRows - 1]);
}
template <typename F, int kBytes, bool kAlpha, int kRows>
inline void FromBlock(PixelSource src, const YuvTarget& dst) {
  V u[2], v[2];
  FromHalfBlock<F, kBytes, kAlpha, kRows, 0>(src, dst, u[0], v[0]);
  FromHalfBlock<F, kBytes, kAlpha, kRows, 1>(src, dst, u[1], v[1]);
  StoreHalf(dst.u, Narrow<1>(u[0], u[1]));
  StoreHalf(dst.v, Narrow<1>(v[0], v[1]));
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
struct ColorTables {
  Table y, u, v;

  explicit ColorTables(const Palette& palette) : y(palette.y), u(palette.u), v(palette.v) {}
};
template <int kRows>
inline void FromIndexedRows(PixelSource src, const YuvTarget& dst, std::ptrdiff_t width,
                            const ColorTables& colors) {
  const V ones = _mm512_set1_epi8(1);
  for (std::ptrdiff_t x = 0; x < width; x += 64) {
    if (x > width - 64) x = width - 64;
    V sum_u = _mm512_setzero_si512(), sum_v = sum_u;
    for (int row = 0; row < kRows; ++row) {
      const V indexes = Load(src[row] + x);
      Store(dst.y + row * dst.pitch_y + x, colors.y[indexes]);
      sum_u = _mm512_add_epi16(sum_u, _mm512_maddubs_epi16(colors.u[indexes], ones));
      sum_v = _mm512_add_epi16(sum_v, _mm512_maddubs_epi16(colors.v[indexes], ones));
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
