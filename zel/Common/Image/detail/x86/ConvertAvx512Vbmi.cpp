// Bytes go anywhere in one step here: for pixels of 3 bytes, pairs of channels and colour tables.
// And products of pairs of words are added to dwords, which hold the weighted sums as they are.
//
// Where 512-bit operations take two steps, those with three sources are the dearest. Hence there
// are as few of them as possible, permutations of two vectors included.
#include "zel/Common/Image/detail/ConvertKernels.h"
#include "zel/Common/Image/detail/ConvertTables.h"
#include "zel/Common/Image/detail/ConvertWeights.h"

#if defined(__AVX512VBMI__) && defined(__AVX512VNNI__)
#include <immintrin.h>

#include <type_traits>

namespace zel::image {
namespace {

const ConvertKernels& kNarrower = kConvertAvx2;

#include "zel/Common/Image/detail/x86/ConvertAvx512-inl.h"

#define ZEL_OWN_COLORS
inline V KeepFourth(V pixels, V old) {
  constexpr int kFirstOrSecondAndThird = 0xf8;
  return _mm512_ternarylogic_epi32(pixels, old, _mm512_set1_epi32(-1 << 24),
                                   kFirstOrSecondAndThird);
}

/// Where U and V of word i are, if 32 samples of U are followed by those of V.
template <typename F>
constexpr auto MakeChromaPlaces(F sample) {
  return MakePlaces<std::uint8_t>([=](int i) { return i % 2 * 32 + sample(i / 2); });
}
inline V JoinChroma(const std::uint8_t* u, const std::uint8_t* v, const std::uint8_t* places) {
  const auto load = [](const std::uint8_t* p) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
  };
  const V both = _mm512_inserti64x4(_mm512_castsi256_si512(load(u)), load(v), 1);
  return _mm512_permutexvar_epi8(Load(places), both);
}
constexpr auto kSpreadChromaPlaces =
    MakeChromaPlaces([](int i) { return i % 8 / 2 * 8 + i / 8 * 2 + i % 2; });
inline V SpreadChroma(const std::uint8_t* u, const std::uint8_t* v) {
  return JoinChroma(u, v, kSpreadChromaPlaces.at);
}

// For pixels of 3 bytes the halves are the first and the second half, in the order of memory.
constexpr auto kChroma24Places =
    MakeChromaPlaces([](int i) { return i % 8 / 4 * 16 + i / 8 * 4 + i % 4; });
inline V Chroma24(const std::uint8_t* u, const std::uint8_t* v) {
  return JoinChroma(u, v, kChroma24Places.at);
}
inline V LoadPacked24(const std::uint8_t* p) {
  return Load(p);
}
/// Where the chroma of 4 groups of each half is, for each lane.
template <bool kLumaFirst>
constexpr auto kPackedChromaPlaces = MakePlaces<std::uint8_t>([](int i) {
  return i % 16 / 8 * 64 + i / 16 * 16 + i % 8 * 2 + (kLumaFirst ? 1 : 0);
});
template <bool kLumaFirst>
inline V PackedChroma24(V first, V second) {
  return _mm512_permutex2var_epi8(first, Load(kPackedChromaPlaces<kLumaFirst>.at), second);
}

/// Where byte i of 64 pixels of 3 bytes is, when their channels are packed two by two into three
/// vectors: the first half's blue, green and red, then the second half's.
constexpr int PackedColorAt(int i) {
  const int pixel = i / 3, channel = i % 3 + pixel / 32 * 3;
  return channel / 2 * 64 + pixel % 32 / 8 * 16 + channel % 2 * 8 + pixel % 8;
}
/// The same for the bytes of output kOut, counted from vector kFirst on.
template <int kOut, int kFirst>
constexpr auto kColorPlaces = MakePlaces<std::uint8_t>([](int i) {
  return (PackedColorAt(64 * kOut + i) - 64 * kFirst) % 128;
});
/// The bytes of output 1 that come from the third vector.
constexpr std::uint64_t ThirdVectorOfMiddle() {
  std::uint64_t mask = 0;
  for (int i = 0; i < 64; ++i) mask |= std::uint64_t{PackedColorAt(64 + i) >= 128} << i;
  return mask;
}
inline void StorePackedColors(std::uint8_t* p, V first, V second, V third) {
  Store(p, _mm512_permutex2var_epi8(first, Load(kColorPlaces<0, 0>.at), second));
  const V places = Load(kColorPlaces<1, 0>.at);
  Store(p + 64, _mm512_mask_permutexvar_epi8(_mm512_permutex2var_epi8(first, places, second),
                                             ThirdVectorOfMiddle(), places, third));
  Store(p + 128, _mm512_permutex2var_epi8(second, Load(kColorPlaces<2, 1>.at), third));
}

#define ZEL_OWN_FROM_BLOCK
// Of 32 pixels, one vector has the even ones and one the odd ones, a dword each, so that the chroma
// of a block is added up within a dword.

/// The even pixel in a dword of the first vector; the same dword of the second has the next pixel.
constexpr int EvenPixelAt(int dword) {
  return dword % 4 / 2 * 16 + dword / 4 * 4 + dword % 2 * 2;
}
constexpr int DwordOf(int even_pixel) {
  int dword = 0;
  while (EvenPixelAt(dword) != even_pixel) ++dword;
  return dword;
}

struct Pixels32 {
  V even, odd;
};
/// 16 pixels of 3 bytes, which begin `kSkip` bytes after the vector, as dwords with any fourth
/// byte.
template <int kSkip>
constexpr auto kWiden24Places = MakePlaces<std::uint8_t>([](int i) {
  return (i / 4 * 3 + i % 4 + kSkip) % 64;
});
template <int kBytes>
inline Pixels32 LoadPixels32(const std::uint8_t* src) {
  V first = Load(src), second = Load(src + 32 * kBytes - 64);
  if constexpr (kBytes == 3) {
    first = _mm512_permutexvar_epi8(Load(kWiden24Places<0>.at), first);
    second = _mm512_permutexvar_epi8(Load(kWiden24Places<16>.at), second);
  }
  const __m512 a = _mm512_castsi512_ps(first), b = _mm512_castsi512_ps(second);
  return {_mm512_castps_si512(_mm512_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0))),
          _mm512_castps_si512(_mm512_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1)))};
}

inline void StoreHalf(std::uint8_t* p, __m256i v) {
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v);
}
template <int kByte>
constexpr auto kPixelPlaces = MakePlaces<std::uint8_t>([](int i) {
  return i % 2 * 64 + 4 * DwordOf(i % 32 / 2 * 2) + kByte;
});
/// Byte kByte of each of 32 dwords, in the order of the pixels.
template <int kByte>
inline __m256i BytesOf(const Pixels32& dwords) {
  return _mm512_castsi512_si256(
      _mm512_permutex2var_epi8(dwords.even, Load(kPixelPlaces<kByte>.at), dwords.odd));
}

/// A pair of words in each dword.
inline V WordPairs(int even, int odd) {
  return _mm512_set1_epi32(static_cast<int>((even & 0xffffU) | static_cast<unsigned>(odd) << 16));
}
/// 16 pixels as pairs of words: blue and red, green twice, and blue and red less green.
struct Pixels16 {
  V blue_red, green, differences;

  explicit Pixels16(V dwords)
      : blue_red(_mm512_and_si512(dwords, _mm512_set1_epi32(0xff00ff))),
        green(Shuffle(dwords,
                      _mm_setr_epi8(1, -1, 1, -1, 5, -1, 5, -1, 9, -1, 9, -1, 13, -1, 13, -1))),
        differences(_mm512_sub_epi16(blue_red, green)) {}
};

/// Luma in byte 2 of each dword, without the whole part of its offset.
template <const Weights& kW>
inline V WeighLuma(const Pixels16& p) {
  using S = Scaled<kW, 16>;
  const V factors = WordPairs(S::kB, S::kR);
  const V blue_red =
      S::kRounding == 0 ? _mm512_madd_epi16(p.blue_red, factors)
                        : _mm512_dpwssd_epi32(_mm512_set1_epi32(S::kRounding), p.blue_red, factors);
  // Green's factor would not fit one word.
  return _mm512_dpwssd_epi32(blue_red, p.green, WordPairs(S::kG / 2, S::kG - S::kG / 2));
}

/// Adds the chroma of one more pixel to the floor of `sum`. The sum's whole units begin at bit 14,
/// so that the mean of four is byte 2 of each dword, still without the whole part of the offset.
template <const Weights& kW>
inline V AddChroma(V sum, const Pixels16& p) {
  using S = Scaled<kW, 14>;
  static_assert(S::kRest == 0 || (S::kRest == 1 && S::kRounding == 0));
  const V whole = _mm512_set1_epi32(-1 << 14);
  V start;
  if constexpr (S::kRest == 0 && S::kRounding == 0) {
    start = _mm512_and_si512(sum, whole);
  } else {
    constexpr int kFirstWhereSecondElseThird = 0xe2;
    start = _mm512_ternarylogic_epi32(sum, whole,
                                      S::kRest == 1 ? p.green : _mm512_set1_epi32(S::kRounding),
                                      kFirstWhereSecondElseThird);
  }
  return _mm512_dpwssd_epi32(start, p.differences, WordPairs(S::kB, S::kR));
}

struct ChromaSums {
  V u = _mm512_setzero_si512(), v = u;
};
/// Converts 32 pixels of kRows rows but for their chroma. A row without a partner counts twice.
template <typename F, int kBytes, bool kAlpha, int kRows>
inline ChromaSums FromHalfBlock(PixelSource src, std::uint8_t* y, std::uint8_t* a,
                                std::ptrdiff_t pitch) {
  ChromaSums sums;
  for (int row = 0; row < 2; ++row) {
    const Pixels32 pixels = LoadPixels32<kBytes>(src[kRows == 2 ? row : 0]);
    const Pixels16 even(pixels.even), odd(pixels.odd);
    sums.u = AddChroma<F::kU>(AddChroma<F::kU>(sums.u, even), odd);
    sums.v = AddChroma<F::kV>(AddChroma<F::kV>(sums.v, even), odd);
    if (row == kRows) break;
    if (kAlpha) StoreHalf(a + row * pitch, BytesOf<3>(pixels));
    const __m256i luma = BytesOf<2>({WeighLuma<F::kY>(even), WeighLuma<F::kY>(odd)});
    StoreHalf(y + row * pitch, _mm256_add_epi8(luma, _mm256_set1_epi8(F::kY.whole())));
  }
  return sums;
}

/// Where the chroma of 32 blocks is, 16 of them in each of two sums.
constexpr auto kMeanPlaces =
    MakePlaces<std::uint8_t>([](int i) { return i % 32 / 16 * 64 + 4 * DwordOf(i % 16 * 2) + 2; });
template <const Weights& kW>
inline void StoreMeans(std::uint8_t* p, V first, V second) {
  const __m256i means =
      _mm512_castsi512_si256(_mm512_permutex2var_epi8(first, Load(kMeanPlaces.at), second));
  StoreHalf(p, _mm256_add_epi8(means, _mm256_set1_epi8(static_cast<char>(kW.whole()))));
}
template <typename F, int kBytes, bool kAlpha, int kRows>
inline void FromBlock(PixelSource src, const YuvTarget& dst) {
  const auto half = [&](int x) {
    return FromHalfBlock<F, kBytes, kAlpha, kRows>({src.bytes + kBytes * x, src.pitch}, dst.y + x,
                                                   kAlpha ? dst.a + x : nullptr, dst.pitch_y);
  };
  const ChromaSums first = half(0), second = half(32);
  StoreMeans<F::kU>(dst.u, first.u, second.u);
  StoreMeans<F::kV>(dst.v, first.v, second.v);
}

/// The order of 16 dwords by pixels.
constexpr auto kDwordPlaces =
    MakePlaces<std::uint32_t>([](int i) { return static_cast<std::uint32_t>(DwordOf(2 * i)); });
/// `bits` moved up, or down if negative.
template <int kUp>
inline V Move(V bits) {
  return kUp > 0 ? _mm512_slli_epi32(bits, kUp > 0 ? kUp : 0)
                 : _mm512_srli_epi32(bits, kUp < 0 ? -kUp : 0);
}
template <bool kLumaFirst>
inline void ToPackedHalf(const std::uint8_t* src, std::uint8_t* dst) {
  const Pixels32 pixels = LoadPixels32<3>(src);
  const Pixels16 even(pixels.even), odd(pixels.odd);
  // Luma begins at bit 16, the mean of two pixels' chroma at bit 15.
  constexpr int kLuma = kLumaFirst ? 0 : 8, kChroma = kLumaFirst ? 8 : 0;
  const V y0 = Move<kLuma - 16>(WeighLuma<ToYuvExact::kY>(even));
  const V y1 = Move<kLuma>(WeighLuma<ToYuvExact::kY>(odd));
  const V none = _mm512_setzero_si512();
  const V u =
      Move<kChroma - 15>(AddChroma<ToYuvExact::kU>(AddChroma<ToYuvExact::kU>(none, even), odd));
  const V v =
      Move<kChroma + 1>(AddChroma<ToYuvExact::kV>(AddChroma<ToYuvExact::kV>(none, even), odd));
  constexpr std::uint64_t kEvenBytes = 0x5555555555555555, kHighWords = 0xcccccccccccccccc;
  const V y = _mm512_mask_blend_epi8(kHighWords, y0, y1);
  const V uv = _mm512_mask_blend_epi8(kHighWords, u, v);
  const V groups = _mm512_mask_blend_epi8(kLumaFirst ? kEvenBytes : ~kEvenBytes, uv, y);
  constexpr int kY = ToYuvExact::kY.whole(), kUv = ToYuvExact::kU.whole();
  const int offset = kLumaFirst ? kY | kUv << 8 : kUv | kY << 8;
  Store(dst, _mm512_add_epi8(_mm512_permutexvar_epi32(Load(kDwordPlaces.at), groups),
                             WordPairs(offset, offset)));
}
template <bool kLumaFirst>
inline void ToPackedBlock(const std::uint8_t* src, std::uint8_t* dst) {
  ToPackedHalf<kLumaFirst>(src, dst);
  ToPackedHalf<kLumaFirst>(src + 96, dst + 64);
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

#include "zel/Common/Image/detail/ConvertRows-inl.h"

}  // namespace

const ConvertKernels kConvertAvx512Vbmi = kKernels;

}  // namespace zel::image
#endif
