// One instruction permutes bytes across the register: for pixels of 3 bytes, pairs of channels and
// colour tables. Another adds products of pairs of words to dwords, which hold whole weighted sums.
//
// On processors that split 512-bit operations, three-source instructions cost most. Use few of
// them, permutations of two vectors included.
#include "zel/detail/x86/Avx512Vbmi-inl.h"

#include "zel/Common/Image/detail/x86/ImageX86.h"
#include "zel/Common/Image/detail/x86/Pixels512-inl.h"

namespace zel::image::avx512vbmi {
namespace {

/// Where U and V of word i are, if 32 samples of U are followed by those of V.
template <typename F>
constexpr auto MakeChromaPlaces(F sample) {
  return MakePlaces<std::uint8_t>([=](int i) { return i % 2 * 32 + sample(i / 2); });
}
ZEL_INLINE Reg JoinChroma(const std::uint8_t* u, const std::uint8_t* v,
                          const std::uint8_t* places) {
  return Permute8(Join(LoadHalf(u), LoadHalf(v)), Load(places));
}
constexpr auto kSpreadChromaPlaces =
    MakeChromaPlaces([](int i) { return i % 8 / 2 * 8 + i / 8 * 2 + i % 2; });

constexpr auto kChroma24Places =
    MakeChromaPlaces([](int i) { return i % 8 / 4 * 16 + i / 8 * 4 + i % 4; });
/// Where the chroma of 4 groups of each half is, for each lane.
template <bool kLumaFirst>
constexpr auto kPackedChromaPlaces = MakePlaces<std::uint8_t>([](int i) {
  return i % 16 / 8 * 64 + i / 16 * 16 + i % 8 * 2 + (kLumaFirst ? 1 : 0);
});
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
// Of 32 pixels, one vector has the even ones and one the odd ones, a dword each, so that the chroma
// of a block is added up within a dword.

/// The even pixel in a dword of the first vector; the same dword of the second has the next pixel.
constexpr int EvenPixelAt(int dword) {
  return dword % 4 / 2 * 16 + dword / 4 * 4 + dword % 2 * 2;
}
constexpr int DwordOf(int evenPixel) {
  int dword = 0;
  while (EvenPixelAt(dword) != evenPixel) ++dword;
  return dword;
}

struct Pixels32 {
  Reg even, odd;
};
/// 16 pixels of 3 bytes, which begin `kSkip` bytes after the vector, as dwords with any fourth
/// byte.
template <int kSkip>
constexpr auto kWiden24Places = MakePlaces<std::uint8_t>([](int i) {
  return (i / 4 * 3 + i % 4 + kSkip) % 64;
});
template <int kBytes>
ZEL_INLINE Pixels32 LoadPixels32(const std::uint8_t* src) {
  Reg first = Load(src), second = Load(src + 32 * kBytes - 64);
  if constexpr (kBytes == 3) {
    first = Permute8(first, Load(kWiden24Places<0>.at));
    second = Permute8(second, Load(kWiden24Places<16>.at));
  }
  return {Even32(first, second), Odd32(first, second)};
}

template <int kByte>
constexpr auto kPixelPlaces = MakePlaces<std::uint8_t>([](int i) {
  return i % 2 * 64 + 4 * DwordOf(i % 32 / 2 * 2) + kByte;
});
/// Byte kByte of each of 32 dwords, in the order of the pixels.
template <int kByte>
ZEL_INLINE Half BytesOf(const Pixels32& dwords) {
  return Low(Permute8(dwords.even, dwords.odd, Load(kPixelPlaces<kByte>.at)));
}

/// 16 pixels as pairs of words: blue and red, green twice, and blue and red less green.
struct Pixels16 {
  Reg blueRed, green, differences;

  ZEL_INLINE explicit Pixels16(Reg dwords)
      : blueRed(And(dwords, Set32(0xff00ff))),
        green(ShuffledPixels::Shuffle(
            dwords, MakeLane(1, -1, 1, -1, 5, -1, 5, -1, 9, -1, 9, -1, 13, -1, 13, -1))),
        differences(Sub16(blueRed, green)) {}
};

/// Luma in byte 2 of each dword, without the whole part of its offset.
template <const Weights& kW>
ZEL_INLINE Reg WeighLuma(const Pixels16& p) {
  using S = Scaled<kW, 16>;
  const Reg factors = SetPairs16(S::kB, S::kR);
  const Reg blueRed = S::kRounding == 0 ? MulAdd16(p.blueRed, factors)
                                        : AddMulAdd16(Set32(S::kRounding), p.blueRed, factors);
  // Green's factor would not fit one word.
  return AddMulAdd16(blueRed, p.green, SetPairs16(S::kG / 2, S::kG - S::kG / 2));
}

/// Adds the chroma of one more pixel to the floor of `sum`. The sum's whole units begin at bit 14,
/// so that the mean of four is byte 2 of each dword, still without the whole part of the offset.
template <const Weights& kW>
ZEL_INLINE Reg AddChroma(Reg sum, const Pixels16& p) {
  using S = Scaled<kW, 14>;
  static_assert(S::kRest == 0 || (S::kRest == 1 && S::kRounding == 0));
  const Reg whole = Set32(-1 << 14);
  Reg start;
  if constexpr (S::kRest == 0 && S::kRounding == 0) {
    start = And(sum, whole);
  } else {
    constexpr int kFirstWhereSecondElseThird = 0xe2;
    start = _mm512_ternarylogic_epi32(sum, whole, S::kRest == 1 ? p.green : Set32(S::kRounding),
                                      kFirstWhereSecondElseThird);
  }
  return AddMulAdd16(start, p.differences, SetPairs16(S::kB, S::kR));
}

struct ChromaSums {
  Reg u = Zero(), v = u;
};
/// Converts 32 pixels of kRows rows but for their chroma. A row without a partner counts twice.
template <typename F, int kBytes, bool kAlpha, int kRows>
ZEL_INLINE ChromaSums FromHalfBlock(PixelSource src, std::uint8_t* y, std::uint8_t* a,
                                    std::ptrdiff_t pitch) {
  ChromaSums sums;
  for (int row = 0; row < 2; ++row) {
    const Pixels32 pixels = LoadPixels32<kBytes>(src[kRows == 2 ? row : 0]);
    const Pixels16 even(pixels.even), odd(pixels.odd);
    sums.u = AddChroma<F::kU>(AddChroma<F::kU>(sums.u, even), odd);
    sums.v = AddChroma<F::kV>(AddChroma<F::kV>(sums.v, even), odd);
    if (row == kRows) break;
    if (kAlpha) StoreHalf(a + row * pitch, BytesOf<3>(pixels));
    const Half luma = BytesOf<2>({WeighLuma<F::kY>(even), WeighLuma<F::kY>(odd)});
    StoreHalf(y + row * pitch, _mm256_add_epi8(luma, _mm256_set1_epi8(F::kY.whole())));
  }
  return sums;
}

/// Where the chroma of 32 blocks is, 16 of them in each of two sums.
constexpr auto kMeanPlaces =
    MakePlaces<std::uint8_t>([](int i) { return i % 32 / 16 * 64 + 4 * DwordOf(i % 16 * 2) + 2; });
template <const Weights& kW>
ZEL_INLINE void StoreMeans(std::uint8_t* p, Reg first, Reg second) {
  const Half means = Low(Permute8(first, second, Load(kMeanPlaces.at)));
  StoreHalf(p, _mm256_add_epi8(means, _mm256_set1_epi8(static_cast<char>(kW.whole()))));
}
/// The order of 16 dwords by pixels.
constexpr auto kDwordPlaces =
    MakePlaces<std::uint32_t>([](int i) { return static_cast<std::uint32_t>(DwordOf(2 * i)); });
/// `bits` moved up, or down if negative.
template <int kUp>
ZEL_INLINE Reg Move(Reg bits) {
  if constexpr (kUp > 0) {
    return ShiftLeft32<kUp>(bits);
  } else {
    return ShiftRight32<-kUp>(bits);
  }
}
template <bool kLumaFirst>
ZEL_INLINE void ToPackedHalf(const std::uint8_t* src, std::uint8_t* dst) {
  const Pixels32 pixels = LoadPixels32<3>(src);
  const Pixels16 even(pixels.even), odd(pixels.odd);
  // Luma begins at bit 16, the mean of two pixels' chroma at bit 15.
  constexpr int kLuma = kLumaFirst ? 0 : 8, kChroma = kLumaFirst ? 8 : 0;
  const Reg y0 = Move<kLuma - 16>(WeighLuma<ToYuvExact::kY>(even));
  const Reg y1 = Move<kLuma>(WeighLuma<ToYuvExact::kY>(odd));
  const Reg none = Zero();
  const Reg u =
      Move<kChroma - 15>(AddChroma<ToYuvExact::kU>(AddChroma<ToYuvExact::kU>(none, even), odd));
  const Reg v =
      Move<kChroma + 1>(AddChroma<ToYuvExact::kV>(AddChroma<ToYuvExact::kV>(none, even), odd));
  constexpr std::uint64_t kEvenBytes = 0x5555555555555555, kHighWords = 0xcccccccccccccccc;
  const Reg y = _mm512_mask_blend_epi8(kHighWords, y0, y1);
  const Reg uv = _mm512_mask_blend_epi8(kHighWords, u, v);
  const Reg groups = _mm512_mask_blend_epi8(kLumaFirst ? kEvenBytes : ~kEvenBytes, uv, y);
  constexpr int kY = ToYuvExact::kY.whole(), kUv = ToYuvExact::kU.whole();
  const int offset = kLumaFirst ? kY | kUv << 8 : kUv | kY << 8;
  Store(dst, Add8(Permute32(groups, Load(kDwordPlaces.at)), SetPairs16(offset, offset)));
}
/// A table of 256 bytes in registers.
struct Table {
  Reg part[4];

  ZEL_INLINE explicit Table(const std::uint8_t* bytes)
      : part{Load(bytes), Load(bytes + 64), Load(bytes + 128), Load(bytes + 192)} {}
  ZEL_INLINE Reg operator[](Reg indexes) const {
    return _mm512_mask_blend_epi8(_mm512_movepi8_mask(indexes), Permute8(part[0], part[1], indexes),
                                  Permute8(part[2], part[3], indexes));
  }
};

struct Steps : Steps512 {
  ZEL_INLINE static Reg KeepFourth(Reg pixels, Reg old) {
    constexpr int kFirstOrSecondAndThird = 0xf8;
    return _mm512_ternarylogic_epi32(pixels, old, Set32(-1 << 24), kFirstOrSecondAndThird);
  }

  ZEL_INLINE static Reg SpreadChroma(const std::uint8_t* u, const std::uint8_t* v) {
    return JoinChroma(u, v, kSpreadChromaPlaces.at);
  }

  // Of pixels of 3 bytes, the halves are the first and the second half, in the order of memory.

  ZEL_INLINE static Luma Luma24(const std::uint8_t* src) {
    return {LoadBytesAs16(src), LoadBytesAs16(src + kPixels / 2)};
  }
  ZEL_INLINE static Reg Chroma24(const std::uint8_t* u, const std::uint8_t* v) {
    return JoinChroma(u, v, kChroma24Places.at);
  }
  ZEL_INLINE static Reg LoadPacked24(const std::uint8_t* p) { return Load(p); }
  template <bool kLumaFirst>
  ZEL_INLINE static Reg PackedChroma24(Reg first, Reg second) {
    return Permute8(first, second, Load(kPackedChromaPlaces<kLumaFirst>.at));
  }
  ZEL_INLINE static void StoreColors24(std::uint8_t* dst, const Halves<Color>& colors) {
    const Reg first = PackU8(colors.lo.blue, colors.lo.green);
    const Reg second = PackU8(colors.lo.red, colors.hi.blue);
    const Reg third = PackU8(colors.hi.green, colors.hi.red);
    Store(dst, Permute8(first, second, Load(kColorPlaces<0, 0>.at)));
    const Reg places = Load(kColorPlaces<1, 0>.at);
    Store(dst + 64, _mm512_mask_permutexvar_epi8(Permute8(first, second, places),
                                                 ThirdVectorOfMiddle(), places, third));
    Store(dst + 128, Permute8(second, third, Load(kColorPlaces<2, 1>.at)));
  }

  template <typename F, int kBytes, bool kAlpha, int kRows>
  ZEL_INLINE static void FromBlock(PixelSource src, const YuvTarget& dst) {
    const auto half = [&](int x) ZEL_INLINE_LAMBDA {
      return FromHalfBlock<F, kBytes, kAlpha, kRows>({src.bytes + kBytes * x, src.pitch}, dst.y + x,
                                                     kAlpha ? dst.a + x : nullptr, dst.pitchY);
    };
    const ChromaSums first = half(0), second = half(32);
    StoreMeans<F::kU>(dst.u, first.u, second.u);
    StoreMeans<F::kV>(dst.v, first.v, second.v);
  }

  template <bool kLumaFirst>
  ZEL_INLINE static void ToPackedBlock(const std::uint8_t* src, std::uint8_t* dst) {
    ToPackedHalf<kLumaFirst>(src, dst);
    ToPackedHalf<kLumaFirst>(src + 96, dst + 64);
  }

  static constexpr bool kIndexedInRegisters = true;
  struct ColorTables {
    Table y, u, v;

    ZEL_INLINE explicit ColorTables(const Palette& palette)
        : y(palette.y), u(palette.u), v(palette.v) {}
  };
  template <int kRows>
  ZEL_INLINE static void FromIndexedRows(PixelSource src, const YuvTarget& dst,
                                         std::ptrdiff_t width, const ColorTables& colors) {
    const Reg ones = Set8(1);
    Cover<kLongStep>(width, kPixels, kNoHead, [&](std::ptrdiff_t x) ZEL_INLINE_LAMBDA {
      Reg sumU = Zero(), sumV = sumU;
      for (int row = 0; row < kRows; ++row) {
        const Reg indexes = Load(src[row] + x);
        Store(dst.y + row * dst.pitchY + x, colors.y[indexes]);
        sumU = Add16(sumU, MulAddBytes(colors.u[indexes], ones));
        sumV = Add16(sumV, MulAddBytes(colors.v[indexes], ones));
      }
      StoreHalf(dst.u + x / 2, _mm512_cvtepi16_epi8(ShiftRight16<kRows>(sumU)));
      StoreHalf(dst.v + x / 2, _mm512_cvtepi16_epi8(ShiftRight16<kRows>(sumV)));
    });
  }
};

}  // namespace

constinit const ConvertKernels kConvert = MakeKernels<Steps>();

}  // namespace zel::image::avx512vbmi
