// The vector kernels of the colour conversions, in the operations of the level that the file
// includes before this one (zel/detail/Registers-inl.h).
//
// Loads and stores stay within the row: its end is converted by a register that overlaps the one
// before. An odd last column is converted with each pair of rows, while the caches hold them.
//
// The kernels are templates over `Steps`. CommonSteps below has a default for most steps. A level
// derives from it and redefines the steps that it can do faster. CommonSteps itself derives from
// the steps that each register set adds:
//
//   Deal<bytes>(v)           4 pixels in each lane to 4 words of blue and green, 4 words of red and
//                            any byte
//   LoadGroups24(p, v)       pixels of 3 bytes to 4 registers; each lane begins with 4 pixels
//   StoreBgr24(p, v)         4 registers of pixels of 4 bytes, as pixels of 3 bytes
//   StoreChroma(u, v, uv)    per lane 8 samples of U, then of V, of pixels as LoadPairs orders them
//   SwapBytes(v)             the bytes of each word exchanged
#pragma once

#include <cstddef>
#include <cstdint>

#include "zel/Common/Image/detail/ConvertKernels.h"
#include "zel/Common/Image/detail/ConvertWeights.h"

namespace zel::image::ZEL_LEVEL {
namespace {

using namespace ::zel::ZEL_LEVEL;

/// Pixels that a register holds a byte of.
constexpr std::ptrdiff_t kPixels = kRegBytes;
constexpr std::ptrdiff_t kNoHead = 0;

/// A constant as an argument. (The standard library's would leave functions for other files.)
template <int kValue>
struct Constant {
  ZEL_INLINE constexpr operator int() const { return kValue; }  // NOLINT: meant to convert.
};

// Rows -------------------------------------------------------------------------------------------

/// Pixels of `bytes` bytes from `p` to the next aligned address; 0 if there is none, or if a row of
/// `width` is too short to gain.
ZEL_INLINE std::ptrdiff_t Head(const std::uint8_t* p, int bytes, std::ptrdiff_t width) {
  const auto gap = static_cast<std::ptrdiff_t>(-reinterpret_cast<std::uintptr_t>(p) % kRegBytes);
  return width >= 8 * kPixels && gap % (2 * bytes) == 0 ? gap / bytes : 0;
}

// Hardware prefetch follows a row but not the step to the next one, least of all backwards. So each
// row prefetches the next.

/// True for pictures larger than the near caches whose rows fit them.
ZEL_INLINE bool WorthPrefetching(std::ptrdiff_t width, std::ptrdiff_t rows) {
  return width * rows >= std::ptrdiff_t{1} << 17 && width <= std::ptrdiff_t{1} << 14;
}
/// Prefetches the cache lines of 64 pixels of kBytes bytes.
template <int kBytes, bool kToWrite>
ZEL_INLINE void Prefetch(const std::uint8_t* p) {
  for (int i = 0; i < kBytes; ++i) __builtin_prefetch(p + 64 * i, kToWrite);
}
/// True for one of the steps in each 64 pixels.
ZEL_INLINE bool PrefetchesAt(std::ptrdiff_t x) {
  return (x & 63) < kPixels;
}

/// Calls `step(row, count, prefetch)` for every pair of rows and for an odd last one. `prefetch`
/// says whether to prefetch the next pair, that is, whether the picture is large. `count` and
/// `prefetch` are constants, so that small pictures pay nothing for large ones.
template <typename Step>
ZEL_INLINE void InPairs(std::ptrdiff_t width, std::ptrdiff_t rows, Step step) {
  std::ptrdiff_t row = 0;
  if (WorthPrefetching(width, rows)) {
    for (; row + 3 < rows; row += 2) step(row, Constant<2>(), Constant<true>());
  }
  for (; row + 1 < rows; row += 2) step(row, Constant<2>(), Constant<false>());
  if (row < rows) step(row, Constant<1>(), Constant<false>());
}
/// Calls `step(row, prefetch)` for every row, in the same way.
template <typename Step>
ZEL_INLINE void InRows(std::ptrdiff_t width, std::ptrdiff_t rows, Step step) {
  std::ptrdiff_t row = 0;
  if (WorthPrefetching(width, rows)) {
    for (; row + 1 < rows; ++row) step(row, Constant<true>());
  }
  for (; row < rows; ++row) step(row, Constant<false>());
}

/// Larger pictures leave every cache before they are read again. Memory then handles one row at a
/// time faster than two, if rows go forward.
constexpr std::ptrdiff_t kBeyondCaches = std::ptrdiff_t{1} << 22;

/// Prefetches the planes' next pair of rows.
template <bool kAlpha, bool kToWrite, typename Byte>
ZEL_INLINE void PrefetchPlanes(const Planes<Byte>& planes, std::ptrdiff_t x) {
  for (int row = 2; row < 4; ++row) {
    Prefetch<1, kToWrite>(planes.y + row * planes.pitchY + x);
    if (kAlpha) Prefetch<1, kToWrite>(planes.a + row * planes.pitchY + x);
  }
  Prefetch<1, kToWrite>(planes.u + planes.pitchU + x / 2);
  Prefetch<1, kToWrite>(planes.v + planes.pitchV + x / 2);
}
template <int kBytes, bool kToWrite, typename Byte>
ZEL_INLINE void PrefetchPixels(PixelRows<Byte> pixels, std::ptrdiff_t x) {
  for (int row = 2; row < 4; ++row) Prefetch<kBytes, kToWrite>(pixels[row] + kBytes * x);
}

/// The second row of a pair, with its chroma.
ZEL_INLINE YuvSource SecondRow(YuvSource pair) {
  pair.y += pair.pitchY;
  if (pair.a) pair.a += pair.pitchY;
  return pair;
}

// YUV to RGB -------------------------------------------------------------------------------------
//
// 9536 is 64 * 149 and 1192 is 8 * 149, so that both conversions become (149 Y + c) >> 7 with c,
// the chroma term, floored after the division by 64 or 8: exact, and within 16 bits but for blue. c
// is a multiple of the sample and a small remainder with a shift of its own.

struct ToRgbExact {
  static constexpr int kBlueMul = 74, kBlueAdd = 7, kBlueShift = 5, kBlueBase = 35447;
  static constexpr int kGreenMulU = 3, kGreenMulV = 4, kGreenAdd = 33, kGreenShift = 6,
                       kGreenBase = 17342;
  static constexpr int kRedMul = 18, kRedAdd = 17, kRedShift = 6, kRedBase = -28533;
};
struct ToRgbSimple {
  static constexpr int kBlueMul = 17, kBlueAdd = 0, kBlueShift = 3, kBlueBase = 35360;
  static constexpr int kGreenMulU = 1, kGreenMulV = 1, kGreenAdd = 7, kGreenShift = 3,
                       kGreenBase = 17424;
  static constexpr int kRedMul = 1, kRedAdd = 0, kRedShift = 2, kRedBase = -28464;
};

/// Moves 149 Y and the terms of green and red so that each fits a signed word.
constexpr int kLumaBias = 8192;

/// The chroma of kPixels pixels as words that hold U and V, in the order of memory.
ZEL_INLINE Reg ChromaPairs(const std::uint8_t* u, const std::uint8_t* v) {
  return Or(LoadBytesAs16(u), ShiftLeft16<8>(LoadBytesAs16(v)));
}

/// Chroma terms, a word each. Blue's lies in -35447..30422: its positive and negative parts are
/// apart.
struct Chroma {
  Reg bluePlus, blueMinus, green, red;
};

/// Chroma terms from words that hold U and V.
template <typename F>
ZEL_INLINE Chroma ChromaTerms(Reg uv) {
  const auto weigh = [uv](int u, int v)
                         ZEL_INLINE_LAMBDA { return MulAddBytes(uv, SetPairs8(u, v)); };
  const auto twice = [](Reg v) ZEL_INLINE_LAMBDA { return Add16(v, v); };
  // Blue: 256 U - (base - (mul U + add >> shift)).
  const Reg blue = ShiftLeft16<8>(uv);
  const Reg blueBase =
      Sub16(Set16(F::kBlueBase),
            ShiftRight16<F::kBlueShift>(Add16(weigh(F::kBlueMul, 0), Set16(F::kBlueAdd))));
  const Reg greenRest =
      ShiftRight16<F::kGreenShift>(Add16(weigh(F::kGreenMulU, F::kGreenMulV), Set16(F::kGreenAdd)));
  const Reg green = Sub16(Set16(F::kGreenBase + kLumaBias), twice(weigh(25, 52)));
  const Reg red = Add16(Set16(F::kRedBase + kLumaBias), twice(weigh(0, 102)));
  const Reg redRest = ShiftRight16<F::kRedShift>(Add16(weigh(0, F::kRedMul), Set16(F::kRedAdd)));
  return {SubSatU16(blue, blueBase), SubSatU16(blueBase, blue), Sub16(green, greenRest),
          Add16(red, redRest)};
}

template <bool kHigh>
ZEL_INLINE Reg Twice(Reg a) {
  return kHigh ? InterleaveHigh16(a, a) : InterleaveLow16(a, a);
}
/// Terms of single pixels from terms of pairs: those of the lower or upper 8 pixels of every lane.
template <bool kHigh>
ZEL_INLINE Chroma Twice(const Chroma& c) {
  return {Twice<kHigh>(c.bluePlus), Twice<kHigh>(c.blueMinus), Twice<kHigh>(c.green),
          Twice<kHigh>(c.red)};
}

/// Words that saturate to the colours' bytes.
struct Color {
  Reg blue, green, red;
};

ZEL_INLINE Color Colors(Reg y, const Chroma& c) {
  const Reg luma = Mul16(y, Set16(149));
  const Reg biased = Sub16(luma, Set16(kLumaBias));
  // What saturates in between is beyond 0..255 anyway.
  return {ShiftRight16<7>(SubSatU16(AddSatU16(luma, c.bluePlus), c.blueMinus)),
          ShiftRightSigned16<7>(AddSat16(biased, c.green)),
          ShiftRightSigned16<7>(AddSat16(biased, c.red))};
}

enum class Fourth { kNone, kKept, kOpaque, kAlpha };

/// Bytes of the channels, spread over the lanes, to 4 vectors of pixels in the order of memory.
ZEL_INLINE void Interleave(Reg blue, Reg green, Reg red, Reg fourth, Reg (&pixels)[4]) {
  const Reg bgLo = InterleaveLow8(blue, green), bgHi = InterleaveHigh8(blue, green);
  const Reg rxLo = InterleaveLow8(red, fourth), rxHi = InterleaveHigh8(red, fourth);
  pixels[0] = InterleaveLow16(bgLo, rxLo);
  pixels[1] = InterleaveHigh16(bgLo, rxLo);
  pixels[2] = InterleaveLow16(bgHi, rxHi);
  pixels[3] = InterleaveHigh16(bgHi, rxHi);
}

/// A word for each of kPixels pixels. The loading and the storing function agree on which pixels
/// are in which half, and in what order.
struct Luma {
  Reg lo, hi;
};
/// The same of what a pixel has several words for.
template <typename T>
struct Halves {
  T lo, hi;
};

ZEL_INLINE Luma WidenHalves(Reg bytes) {
  return {InterleaveLow8(bytes, Zero()), InterleaveHigh8(bytes, Zero())};
}
ZEL_INLINE Halves<Chroma> TwiceHalves(const Chroma& c) {
  return {Twice<false>(c), Twice<true>(c)};
}
ZEL_INLINE Halves<Color> ColorsOf(const Luma& luma, const Halves<Chroma>& chroma) {
  return {Colors(luma.lo, chroma.lo), Colors(luma.hi, chroma.hi)};
}
/// Four vectors of pixels in the order of memory, from halves in the order of Spread.
ZEL_INLINE void Interleave(const Halves<Color>& c, Reg fourth, Reg (&pixels)[4]) {
  Interleave(PackU8(c.lo.blue, c.hi.blue), PackU8(c.lo.green, c.hi.green),
             PackU8(c.lo.red, c.hi.red), fourth, pixels);
}

// RGB to YUV -------------------------------------------------------------------------------------
//
// A factor f is split into 2^n h + l with both within a signed byte, so that the weighted sum
// shifted by n + m is (sum of h's + (sum of l's >> n)) >> m: exact, and both sums fit 16 bits. See
// ConvertWeights.h.

/// The weighted sums of pixels as words, without the whole part of the offset.
template <const Weights& kW>
ZEL_INLINE Reg Weigh(Reg bg, Reg r) {
  Reg high =
      Add16(MulAddBytes(bg, SetPairs8(kW.highB, kW.highG)), MulAddBytes(r, SetPairs8(kW.highR, 0)));
  if (kW.rounding() != 0) high = Add16(high, Set16(kW.rounding()));
  const Reg low =
      Add16(MulAddBytes(bg, SetPairs8(kW.lowB, kW.lowG)), MulAddBytes(r, SetPairs8(kW.lowR, 0)));
  return ShiftRightSigned16<kW.highShift>(Add16(high, ShiftRightSigned16<kW.lowShift>(low)));
}

/// Luma bytes of kPixels pixels from words of Weigh: adds the offset.
template <typename F>
ZEL_INLINE Reg LumaBytes(const Reg (&y)[2]) {
  return Add8(Gather32(PackU8(y[0], y[1])), SetPairs8(F::kY.whole(), F::kY.whole()));
}
/// Chroma samples as words, with their offset: the means of neighbours in `sums`, which hold the
/// words of Weigh summed over kRows rows.
template <typename F, int kRows>
ZEL_INLINE Reg Means(const Reg (&sums)[2]) {
  static_assert(F::kU.whole() == F::kV.whole());
  const Reg ones = Set16(1);
  const Reg pairs = Pack16(MulAdd16(sums[0], ones), MulAdd16(sums[1], ones));
  return Add16(ShiftRightSigned16<kRows>(pairs), Set16(F::kU.whole()));
}

// Packed 4:2:2 -----------------------------------------------------------------------------------

/// kPixels pixels of packed 4:2:2: their luma, and their chroma as U, V, U, V ..., in the order of
/// memory.
struct Packed {
  Reg luma, chroma;
};

template <bool kLumaFirst>
ZEL_INLINE Packed LoadPacked(const std::uint8_t* src) {
  const Reg low = Set16(0xff);
  const Reg first = Load(src), second = Load(src + kRegBytes);
  const Reg even = Gather64(PackU8(And(first, low), And(second, low)));
  const Reg odd = Gather64(PackU8(ShiftRight16<8>(first), ShiftRight16<8>(second)));
  return kLumaFirst ? Packed{even, odd} : Packed{odd, even};
}

template <bool kLumaFirst>
ZEL_INLINE void StorePacked(std::uint8_t* dst, Reg luma, Reg chroma) {
  const Reg y = Spread64(luma), uv = Spread64(chroma);
  Store(dst, kLumaFirst ? InterleaveLow8(y, uv) : InterleaveLow8(uv, y));
  Store(dst + kRegBytes, kLumaFirst ? InterleaveHigh8(y, uv) : InterleaveHigh8(uv, y));
}

// Steps ------------------------------------------------------------------------------------------

/// `kBelow` has the kernels for rows that are shorter than a register.
template <class Pixels, const ConvertKernels& kBelow>
struct CommonSteps : Pixels {
  static constexpr const ConvertKernels& kNarrower = kBelow;
  /// Whether `swap` uses kNarrower's kernel for rows of every length.
  static constexpr bool kSwapsNarrower = false;
  /// Whether `fromIndexed` works in registers, and so uses kNarrower's kernel for rows shorter than
  /// a register.
  static constexpr bool kIndexedInRegisters = false;

  /// Pixels whose fourth bytes are 0, with those of `old`.
  ZEL_INLINE static Reg KeepFourth(Reg pixels, Reg old) {
    return Or(pixels, And(old, Set32(-1 << 24)));
  }

  // Pixels of 3 bytes: kPixels of them as halves, in an order that these five agree on.

  ZEL_INLINE static Luma Luma24(const std::uint8_t* src) {
    return WidenHalves(Spread32(Load(src)));
  }
  /// Words that hold U and V, each for two pixels.
  ZEL_INLINE static Reg Chroma24(const std::uint8_t* u, const std::uint8_t* v) {
    return SpreadChroma(u, v);
  }
  /// A register of packed 4:2:2, whose luma is a half of the order of Luma24.
  ZEL_INLINE static Reg LoadPacked24(const std::uint8_t* src) { return Spread64(Load(src)); }
  /// As Chroma24.
  template <bool kLumaFirst>
  ZEL_INLINE static Reg PackedChroma24(Reg first, Reg second) {
    const Reg low = Set16(0xff);
    return kLumaFirst ? PackU8(ShiftRight16<8>(first), ShiftRight16<8>(second))
                      : PackU8(And(first, low), And(second, low));
  }
  ZEL_INLINE static void StoreColors24(std::uint8_t* dst, const Halves<Color>& colors) {
    Reg pixels[4];
    Interleave(colors, Zero(), pixels);
    Pixels::StoreBgr24(dst, pixels);
  }

  /// The chroma of kPixels pixels as words that hold U and V, in the order of Spread32.
  ZEL_INLINE static Reg SpreadChroma(const std::uint8_t* u, const std::uint8_t* v) {
    return Spread32(ChromaPairs(u, v));
  }

  /// kPixels pixels to words of blue and green, and of red and a fourth byte. Lane k of bg[i] has
  /// the four pixels that begin at L * 8 i + 4 k, and the four that begin L * 4 pixels later (L
  /// lanes).
  template <int kBytes>
  ZEL_INLINE static void LoadPairs(const std::uint8_t* src, Reg (&bg)[2], Reg (&r)[2]) {
    Reg pixels[4];
    if constexpr (kBytes == 3) {
      Pixels::LoadGroups24(src, pixels);
    } else {
      for (int i = 0; i < 4; ++i) pixels[i] = Load(src + kRegBytes * i);
    }
    for (int i = 0; i < 2; ++i) {
      const Reg first = Pixels::template Deal<kBytes>(pixels[2 * i]),
                second = Pixels::template Deal<kBytes>(pixels[2 * i + 1]);
      bg[i] = InterleaveLow64(first, second);
      r[i] = InterleaveHigh64(first, second);
    }
  }
  /// Converts kPixels pixels of kRows rows; `dst` begins with them.
  template <typename F, int kBytes, bool kAlpha, int kRows>
  ZEL_INLINE static void FromBlock(PixelSource src, const YuvTarget& dst) {
    Reg u[2], v[2];
    for (int row = 0; row < kRows; ++row) {
      Reg bg[2], r[2], y[2];
      LoadPairs<kBytes>(src[row], bg, r);
      for (int i = 0; i < 2; ++i) {
        y[i] = Weigh<F::kY>(bg[i], r[i]);
        const Reg pixelU = Weigh<F::kU>(bg[i], r[i]), pixelV = Weigh<F::kV>(bg[i], r[i]);
        u[i] = row == 0 ? pixelU : Add16(u[i], pixelU);
        v[i] = row == 0 ? pixelV : Add16(v[i], pixelV);
      }
      Store(dst.y + row * dst.pitchY, LumaBytes<F>(y));
      if (kAlpha) {
        Store(dst.a + row * dst.pitchY,
              Gather32(PackU8(ShiftRight16<8>(r[0]), ShiftRight16<8>(r[1]))));
      }
    }
    Pixels::StoreChroma(dst.u, dst.v, PackU8(Means<F, kRows>(u), Means<F, kRows>(v)));
  }
  /// Converts kPixels pixels.
  template <bool kLumaFirst>
  ZEL_INLINE static void ToPackedBlock(const std::uint8_t* src, std::uint8_t* dst) {
    using F = ToYuvExact;
    Reg bg[2], r[2], y[2], u[2], v[2];
    LoadPairs<3>(src, bg, r);
    for (int i = 0; i < 2; ++i) {
      y[i] = Weigh<F::kY>(bg[i], r[i]);
      u[i] = Weigh<F::kU>(bg[i], r[i]);
      v[i] = Weigh<F::kV>(bg[i], r[i]);
    }
    StorePacked<kLumaFirst>(dst, LumaBytes<F>(y),
                            Gather32(Or(Means<F, 1>(u), ShiftLeft16<8>(Means<F, 1>(v)))));
  }
  struct ColorTables {
    const std::uint32_t* packed;

    ZEL_INLINE explicit ColorTables(const Palette& palette) : packed(palette.packed) {}
  };
  template <int kRows>
  ZEL_INLINE static void FromIndexedRows(PixelSource src, const YuvTarget& dst,
                                         std::ptrdiff_t width, const ColorTables& colors) {
    for (std::ptrdiff_t x = 0; x < width; x += 2) {
      std::uint32_t sum = 0;
      for (int row = 0; row < kRows; ++row) {
        const std::uint8_t* const in = src[row] + x;
        std::uint8_t* const y = dst.y + row * dst.pitchY + x;
        const std::uint32_t left = colors.packed[in[0]], right = colors.packed[in[1]];
        y[0] = static_cast<std::uint8_t>(left);
        y[1] = static_cast<std::uint8_t>(right);
        sum += left + right;
      }
      dst.u[x / 2] = static_cast<std::uint8_t>(sum >> (10 + kRows));
      dst.v[x / 2] = static_cast<std::uint8_t>(sum >> (20 + kRows));
    }
  }
};

// Kernels ----------------------------------------------------------------------------------------

/// Stores 3 of every 4 bytes; the fourth ones are 0 in `pixels`. A masked store takes longer, so
/// the fourth bytes are stored again.
template <class Steps>
ZEL_INLINE void StoreKept(std::uint8_t* p, Reg pixels) {
  Store(p, Steps::KeepFourth(pixels, Load(p)));
}

template <class Steps, typename F, Fourth kFourth, int kRows, bool kPrefetch>
ZEL_INLINE void ToRgbRows(const YuvSource& src, PixelTarget dst, std::ptrdiff_t width) {
  const std::ptrdiff_t head = kFourth == Fourth::kNone ? 0 : Head(dst[0], 4, width);
  Cover<kLongStep>(width, kPixels, head, [&](std::ptrdiff_t x) ZEL_INLINE_LAMBDA {
    if (kPrefetch && PrefetchesAt(x)) {
      PrefetchPlanes<kFourth == Fourth::kAlpha, false>(src, x);
      if constexpr (kFourth == Fourth::kOpaque || kFourth == Fourth::kAlpha) {
        // Prefetch less far ahead where whole cache lines are overwritten.
        for (int row = 0; row < kRows; ++row) Prefetch<4, true>(dst[row] + 4 * (x + 128));
      } else {
        PrefetchPixels<kFourth == Fourth::kNone ? 3 : 4, true>(dst, x);
      }
    }
    const Halves<Chroma> chroma = TwiceHalves(ChromaTerms<F>(
        kFourth == Fourth::kNone ? Steps::Chroma24(src.u + x / 2, src.v + x / 2)
                                 : Steps::SpreadChroma(src.u + x / 2, src.v + x / 2)));
    for (int row = 0; row < kRows; ++row) {
      const std::ptrdiff_t luma = row * src.pitchY + x;
      if constexpr (kFourth == Fourth::kNone) {
        Steps::StoreColors24(dst[row] + 3 * x, ColorsOf(Steps::Luma24(src.y + luma), chroma));
      } else {
        const Halves<Color> colors = ColorsOf(WidenHalves(Spread32(Load(src.y + luma))), chroma);
        const Reg fourth = kFourth == Fourth::kAlpha    ? Spread32(Load(src.a + luma))
                           : kFourth == Fourth::kOpaque ? Set16(-1)
                                                        : Zero();
        Reg pixels[4];
        Interleave(colors, fourth, pixels);
        for (int i = 0; i < 4; ++i) {
          std::uint8_t* const at = dst[row] + 4 * x + kRegBytes * i;
          if (kFourth == Fourth::kKept) {
            StoreKept<Steps>(at, pixels[i]);
          } else {
            Store(at, pixels[i]);
          }
        }
      }
    }
  });
}

template <class Steps, typename F, Fourth kFourth, ConvertKernels::ToRgb ConvertKernels::*kMember>
void ToRgb(const YuvSource& src, PixelTarget dst, std::ptrdiff_t width, std::ptrdiff_t rows) {
  const std::ptrdiff_t even = width & ~std::ptrdiff_t{1};
  if (even < kPixels) return (Steps::kNarrower.*kMember)(src, dst, width, rows);
  InPairs(width, rows, [&](std::ptrdiff_t row, auto count, auto prefetch) ZEL_INLINE_LAMBDA {
    const YuvSource pair = src.From(row, 0);
    if (prefetch && width * rows > kBeyondCaches && src.pitchY > 0 && dst.pitch > 0) {
      ToRgbRows<Steps, F, kFourth, 1, false>(pair, {dst[row], dst.pitch}, even);
      ToRgbRows<Steps, F, kFourth, 1, false>(SecondRow(pair), {dst[row + 1], dst.pitch}, even);
    } else {
      ToRgbRows<Steps, F, kFourth, count, prefetch>(pair, {dst[row], dst.pitch}, even);
    }
    if (even == width) return;
    constexpr int kBytes = kFourth == Fourth::kNone ? 3 : 4;
    (plain::kConvert.*kMember)(src.From(row, even), {dst[row] + kBytes * even, dst.pitch}, 1,
                               count);
  });
}

template <class Steps, typename F, int kBytes, bool kAlpha, int kRows, bool kPrefetch>
ZEL_INLINE void FromRgbRows(PixelSource src, const YuvTarget& dst, std::ptrdiff_t width) {
  const std::ptrdiff_t head = kBytes == 4 ? Head(src[0], 4, width) : 0;
  Cover<kLongStep>(width, kPixels, head, [&](std::ptrdiff_t x) ZEL_INLINE_LAMBDA {
    if (kPrefetch && PrefetchesAt(x)) {
      PrefetchPixels<kBytes, false>(src, x);
      PrefetchPlanes<kAlpha, true>(dst, x);
    }
    const PixelSource block = {src[0] + kBytes * x, src.pitch};
    Steps::template FromBlock<F, kBytes, kAlpha, kRows>(block, dst.From(0, x));
  });
}

template <class Steps, typename F, int kBytes, bool kAlpha,
          ConvertKernels::FromRgb ConvertKernels::*kMember>
void FromRgb(PixelSource src, const YuvTarget& dst, std::ptrdiff_t width, std::ptrdiff_t rows) {
  const std::ptrdiff_t even = width & ~std::ptrdiff_t{1};
  if (even < kPixels) return (Steps::kNarrower.*kMember)(src, dst, width, rows);
  InPairs(width, rows, [&](std::ptrdiff_t row, auto count, auto prefetch) ZEL_INLINE_LAMBDA {
    FromRgbRows<Steps, F, kBytes, kAlpha, count, prefetch>({src[row], src.pitch}, dst.From(row, 0),
                                                           even);
    if (even == width) return;
    (plain::kConvert.*kMember)({src[row] + kBytes * even, src.pitch}, dst.From(row, even), 1,
                               count);
  });
}

// Indexed pictures -------------------------------------------------------------------------------

template <class Steps>
int Highest(const std::uint8_t* bytes, std::ptrdiff_t count) {
  if (count < kPixels) return Steps::kNarrower.highest(bytes, count);
  Reg highest = Zero();
  Cover(count, kPixels, kNoHead,
        [&](std::ptrdiff_t x) ZEL_INLINE_LAMBDA { highest = MaxU8(highest, Load(bytes + x)); });
  std::uint8_t each[kPixels];
  Store(each, highest);
  return plain::kConvert.highest(each, kPixels);
}

template <int kRows>
ZEL_INLINE void FromIndexedColumn(PixelSource src, const YuvTarget& dst, const Palette& palette) {
  std::uint32_t sum = 0;
  for (int row = 0; row < kRows; ++row) {
    const std::uint32_t color = palette.packed[*src[row]];
    dst.y[row * dst.pitchY] = static_cast<std::uint8_t>(color);
    sum += color;
  }
  *dst.u = static_cast<std::uint8_t>(sum >> (9 + kRows));
  *dst.v = static_cast<std::uint8_t>(sum >> (19 + kRows));
}

template <class Steps>
void FromIndexed(PixelSource src, const YuvTarget& dst, std::ptrdiff_t width, std::ptrdiff_t rows,
                 const Palette& palette) {
  const std::ptrdiff_t even = width & ~std::ptrdiff_t{1};
  if (Steps::kIndexedInRegisters && even < kPixels) {
    return Steps::kNarrower.fromIndexed(src, dst, width, rows, palette);
  }
  const typename Steps::ColorTables colors(palette);
  InPairs(width, rows, [&](std::ptrdiff_t row, auto count, auto) ZEL_INLINE_LAMBDA {
    Steps::template FromIndexedRows<count>({src[row], src.pitch}, dst.From(row, 0), even, colors);
    if (even == width) return;
    FromIndexedColumn<count>({src[row] + even, src.pitch}, dst.From(row, even), palette);
  });
}

template <bool kLumaFirst, int kRows, bool kPrefetch>
ZEL_INLINE void SplitRows(PixelSource src, const YuvTarget& dst, std::ptrdiff_t width) {
  const Reg low = Set16(0xff);
  Cover<kLongStep>(width, kPixels, Head(src[0], 2, width), [&](std::ptrdiff_t x) ZEL_INLINE_LAMBDA {
    if (kPrefetch && PrefetchesAt(x)) {
      PrefetchPixels<2, false>(src, x);
      PrefetchPlanes<false, true>(dst, x);
    }
    Reg chroma[kRows];
    for (int row = 0; row < kRows; ++row) {
      const Packed packed = LoadPacked<kLumaFirst>(src[row] + 2 * x);
      Store(dst.y + row * dst.pitchY + x, packed.luma);
      chroma[row] = packed.chroma;
    }
    if (kRows == 2) {
      // The average rounds up; the lowest bit of the difference tells where it did.
      const Reg other = chroma[kRows - 1];
      const Reg rounded = And(Xor(chroma[0], other), Set8(1));
      chroma[0] = Sub8(AverageU8(chroma[0], other), rounded);
    }
    const Reg uv = Gather64(PackU8(And(chroma[0], low), ShiftRight16<8>(chroma[0])));
    StoreHalf(dst.u + x / 2, Low(uv));
    StoreHalf(dst.v + x / 2, High(uv));
  });
}

template <bool kLumaFirst>
void SplitAll(PixelSource src, const YuvTarget& dst, std::ptrdiff_t width, std::ptrdiff_t rows) {
  InPairs(width, rows, [&](std::ptrdiff_t row, auto count, auto prefetch) ZEL_INLINE_LAMBDA {
    SplitRows<kLumaFirst, count, prefetch>({src[row], src.pitch}, dst.From(row, 0), width);
  });
}

template <class Steps>
void Split(PixelSource src, const YuvTarget& dst, std::ptrdiff_t width, std::ptrdiff_t rows,
           bool lumaFirst) {
  if (width < kPixels) return Steps::kNarrower.split(src, dst, width, rows, lumaFirst);
  (lumaFirst ? SplitAll<true> : SplitAll<false>)(src, dst, width, rows);
}

template <bool kLumaFirst, int kRows>
ZEL_INLINE void MergeRows(const YuvSource& src, PixelTarget dst, std::ptrdiff_t width) {
  Cover<kLongStep>(width, kPixels, Head(dst[0], 2, width), [&](std::ptrdiff_t x) ZEL_INLINE_LAMBDA {
    const Reg chroma = ChromaPairs(src.u + x / 2, src.v + x / 2);
    for (int row = 0; row < kRows; ++row) {
      StorePacked<kLumaFirst>(dst[row] + 2 * x, Load(src.y + row * src.pitchY + x), chroma);
    }
  });
}

template <bool kLumaFirst>
void MergeAll(const YuvSource& src, PixelTarget dst, std::ptrdiff_t width, std::ptrdiff_t rows) {
  InPairs(width, rows, [&](std::ptrdiff_t row, auto count, auto prefetch) ZEL_INLINE_LAMBDA {
    const YuvSource pair = src.From(row, 0);
    if (!prefetch) return MergeRows<kLumaFirst, count>(pair, {dst[row], dst.pitch}, width);
    // There is little to compute, so one row at a time pays sooner.
    MergeRows<kLumaFirst, 1>(pair, {dst[row], dst.pitch}, width);
    MergeRows<kLumaFirst, 1>(SecondRow(pair), {dst[row + 1], dst.pitch}, width);
  });
}

template <class Steps>
void Merge(const YuvSource& src, PixelTarget dst, std::ptrdiff_t width, std::ptrdiff_t rows,
           bool lumaFirst) {
  if (width < kPixels) return Steps::kNarrower.merge(src, dst, width, rows, lumaFirst);
  (lumaFirst ? MergeAll<true> : MergeAll<false>)(src, dst, width, rows);
}

/// Calls step(from, to) for every kPixels pixels of every row, whose pixels take kFrom bytes in
/// `src` and kTo bytes in `dst`.
template <int kFrom, int kTo, typename Step>
ZEL_INLINE void InBlocks(PixelSource src, PixelTarget dst, std::ptrdiff_t width,
                         std::ptrdiff_t rows, Step step) {
  InRows(width, rows, [&](std::ptrdiff_t row, auto prefetch) ZEL_INLINE_LAMBDA {
    Cover<kLongStep>(width, kPixels, kNoHead, [&](std::ptrdiff_t x) ZEL_INLINE_LAMBDA {
      if (prefetch && PrefetchesAt(x)) {
        Prefetch<kFrom, false>(src[row + 1] + kFrom * x);
        Prefetch<kTo, true>(dst[row + 1] + kTo * x);
      }
      step(src[row] + kFrom * x, dst[row] + kTo * x);
    });
  });
}

template <class Steps, bool kLumaFirst>
void PackedToBgr24All(PixelSource src, PixelTarget dst, std::ptrdiff_t width, std::ptrdiff_t rows) {
  const auto block = [](const std::uint8_t* from, std::uint8_t* to) ZEL_INLINE_LAMBDA {
    const Reg first = Steps::LoadPacked24(from);
    const Reg second = Steps::LoadPacked24(from + kRegBytes);
    const Chroma chroma =
        ChromaTerms<ToRgbExact>(Steps::template PackedChroma24<kLumaFirst>(first, second));
    const auto luma = [](Reg v) ZEL_INLINE_LAMBDA {
      return kLumaFirst ? And(v, Set16(0xff)) : ShiftRight16<8>(v);
    };
    Steps::StoreColors24(to, ColorsOf({luma(first), luma(second)}, TwiceHalves(chroma)));
  };
  InBlocks<2, 3>(src, dst, width, rows, block);
}

template <class Steps>
void PackedToBgr24(PixelSource src, PixelTarget dst, std::ptrdiff_t width, std::ptrdiff_t rows,
                   bool lumaFirst) {
  if (width < kPixels) return Steps::kNarrower.packedToBgr24(src, dst, width, rows, lumaFirst);
  (lumaFirst ? PackedToBgr24All<Steps, true> : PackedToBgr24All<Steps, false>)(src, dst, width,
                                                                               rows);
}

template <class Steps, bool kLumaFirst>
void Bgr24ToPackedAll(PixelSource src, PixelTarget dst, std::ptrdiff_t width, std::ptrdiff_t rows) {
  InBlocks<3, 2>(src, dst, width, rows,
                 [](const std::uint8_t* from, std::uint8_t* to)
                     ZEL_INLINE_LAMBDA { Steps::template ToPackedBlock<kLumaFirst>(from, to); });
}

template <class Steps>
void Bgr24ToPacked(PixelSource src, PixelTarget dst, std::ptrdiff_t width, std::ptrdiff_t rows,
                   bool lumaFirst) {
  if (width < kPixels) return Steps::kNarrower.bgr24ToPacked(src, dst, width, rows, lumaFirst);
  (lumaFirst ? Bgr24ToPackedAll<Steps, true> : Bgr24ToPackedAll<Steps, false>)(src, dst, width,
                                                                               rows);
}

template <class Steps>
void Swap(PixelSource src, PixelTarget dst, std::ptrdiff_t count, std::ptrdiff_t rows) {
  constexpr std::ptrdiff_t kWords = kPixels / 2;
  if (Steps::kSwapsNarrower || count < kWords) return Steps::kNarrower.swap(src, dst, count, rows);
  for (std::ptrdiff_t row = 0; row < rows; ++row) {
    const std::uint8_t* const in = src[row];
    std::uint8_t* const out = dst[row];
    CoverInPlace(
        count, kWords, Head(out, 2, count),
        [=](std::ptrdiff_t i) ZEL_INLINE_LAMBDA { return Steps::SwapBytes(Load(in + 2 * i)); },
        [=](std::ptrdiff_t i, Reg v) ZEL_INLINE_LAMBDA { Store(out + 2 * i, v); });
  }
}

template <class Steps>
constexpr ConvertKernels MakeKernels() {
  return {
      ToRgb<Steps, ToRgbExact, Fourth::kNone, &ConvertKernels::toBgr24>,
      ToRgb<Steps, ToRgbExact, Fourth::kKept, &ConvertKernels::toBgrx32>,
      ToRgb<Steps, ToRgbExact, Fourth::kOpaque, &ConvertKernels::toOpaque32>,
      ToRgb<Steps, ToRgbExact, Fourth::kAlpha, &ConvertKernels::toBgra32>,
      ToRgb<Steps, ToRgbSimple, Fourth::kNone, &ConvertKernels::toBgr24Simple>,
      FromRgb<Steps, ToYuvExact, 3, false, &ConvertKernels::fromBgr24>,
      FromRgb<Steps, ToYuvExact, 4, false, &ConvertKernels::fromBgrx32>,
      FromRgb<Steps, ToYuvExact, 4, true, &ConvertKernels::fromBgra32>,
      FromRgb<Steps, ToYuvSimple, 3, false, &ConvertKernels::fromBgr24Simple>,
      Highest<Steps>,
      FromIndexed<Steps>,
      Split<Steps>,
      Merge<Steps>,
      PackedToBgr24<Steps>,
      Bgr24ToPacked<Steps>,
      Swap<Steps>,
  };
}

}  // namespace
}  // namespace zel::image::ZEL_LEVEL
