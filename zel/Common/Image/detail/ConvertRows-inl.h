// The vector kernels of the colour conversions, for whatever vector the including file defines.
// That file opens the anonymous namespace, so that nothing here is seen outside it, and defines
// beforehand:
//
//   V                        the vector; ZEL_LANES lanes of 16 bytes
//   ZEL_MM(op), ZEL_SI(op)   the intrinsics: _mm256_##op, _mm256_##op##_si256
//   Load, Store              a vector, at any address
//   Widen(p)                 half a vector of bytes as 16-bit words
//   StoreHalves(p, q, v)     the lower half at p, the upper half at q
//   MaddBytes(a, b)          per word: unsigned bytes of a times signed bytes of b, the two added
//   Spread(v), Gather(v)     dword L*j + k (L lanes) to place j of lane k, and back: interleaving
//   within
//                            lanes then gives the order of memory
//   SpreadHalves, GatherHalves   the same for qwords
//   StoreBgr24(p, v)         4 vectors of pixels of 4 bytes, as pixels of 3 bytes
//   LoadGroups24(p, v)       pixels of 3 bytes to 4 vectors; each lane begins with 4 pixels
//   Deal<bytes>(v)           4 pixels in each lane to 4 words of blue and green, 4 words of red and
//   any byte StoreChroma(u, v, uv)    per lane 8 samples of U, then of V, of pixels as LoadPairs
//   orders them SwapBytes(v)             the bytes of each word exchanged ZEL_OWN_FROM_BLOCK if
//   defined, FromBlock and ToPackedBlock ZEL_OWN_FROM_BLOCK32     if defined, FromBlock32, which is
//   used for pixels of 4 bytes ZEL_OWN_COLORS           if defined, SpreadChroma, Chroma24,
//   LoadPacked24, PackedChroma24,
//                            StorePackedColors and KeepFourth
//   ZEL_OWN_INDEXED          if defined, ColorTables and FromIndexedRows
//   ZEL_NARROWER_SWAP        if defined, `swap` is kNarrower's, and SwapBytes is not needed
//   kNarrower                the kernels for rows that are shorter than a vector
//
// Loads and stores stay within the row: its end is converted by a vector that overlaps the one
// before. An odd last column is converted with each pair of rows, while the caches hold them.

constexpr std::ptrdiff_t kPixels = 16 * ZEL_LANES;

#define ZEL_INLINE inline __attribute__((always_inline))
#define ZEL_INLINE_LAMBDA __attribute__((always_inline))

ZEL_INLINE V Zero() {
  return ZEL_SI(setzero)();
}
ZEL_INLINE V Words(int value) {
  return ZEL_MM(set1_epi16)(static_cast<short>(value));
}
ZEL_INLINE V Dwords(std::uint32_t value) {
  return ZEL_MM(set1_epi32)(static_cast<int>(value));
}
/// A byte for each even place, one for each odd place.
ZEL_INLINE V BytePairs(int even, int odd) {
  return Words((even & 0xff) | (odd & 0xff) << 8);
}
ZEL_INLINE V And(V a, V b) {
  return ZEL_SI(and)(a, b);
}
ZEL_INLINE V Or(V a, V b) {
  return ZEL_SI(or)(a, b);
}
ZEL_INLINE V Xor(V a, V b) {
  return ZEL_SI(xor)(a, b);
}
ZEL_INLINE V Add(V a, V b) {
  return ZEL_MM(add_epi16)(a, b);
}
ZEL_INLINE V Sub(V a, V b) {
  return ZEL_MM(sub_epi16)(a, b);
}
ZEL_INLINE V Mul(V a, int factor) {
  return factor == 1 ? a : ZEL_MM(mullo_epi16)(a, Words(factor));
}
template <int kBits>
ZEL_INLINE V ShiftLeft(V a) {
  return ZEL_MM(slli_epi16)(a, kBits);
}
template <int kBits>
ZEL_INLINE V ShiftRight(V a) {
  return ZEL_MM(srli_epi16)(a, kBits);
}
template <int kBits>
ZEL_INLINE V ShiftRightSigned(V a) {
  return ZEL_MM(srai_epi16)(a, kBits);
}
/// Words to bytes with saturation, within lanes: a's, then b's.
ZEL_INLINE V Pack(V a, V b) {
  return ZEL_MM(packus_epi16)(a, b);
}
ZEL_INLINE V InterleaveLo8(V a, V b) {
  return ZEL_MM(unpacklo_epi8)(a, b);
}
ZEL_INLINE V InterleaveHi8(V a, V b) {
  return ZEL_MM(unpackhi_epi8)(a, b);
}
ZEL_INLINE V InterleaveLo16(V a, V b) {
  return ZEL_MM(unpacklo_epi16)(a, b);
}
ZEL_INLINE V InterleaveHi16(V a, V b) {
  return ZEL_MM(unpackhi_epi16)(a, b);
}

/// Pixels of `bytes` bytes from `p` to where vectors are aligned; 0 if none is, or is worth an
/// overlap in a row of `width`.
ZEL_INLINE std::ptrdiff_t Head(const std::uint8_t* p, int bytes, std::ptrdiff_t width) {
  const auto gap =
      static_cast<std::ptrdiff_t>(-reinterpret_cast<std::uintptr_t>(p) % (16 * ZEL_LANES));
  return width >= 8 * kPixels && gap % (2 * bytes) == 0 ? gap / bytes : 0;
}

/// Calls `step(x)` so that vectors of kPixels cover `width` pixels, which are at least that many.
/// With a `head`, the second vector begins there, within the first.
template <typename Step>
ZEL_INLINE void Cover(std::ptrdiff_t width, std::ptrdiff_t head, Step step) {
  if (head > 0) step(0);
  for (std::ptrdiff_t x = head; x < width; x += kPixels) {
    if (x > width - kPixels) x = width - kPixels;
    step(x);
  }
}

// The processor foresees a row's next bytes, but not where the next row begins, least of all where
// rows go backwards. While a row is converted, the one that follows is therefore asked for.

/// Whether that pays: for pictures that the nearest caches do not hold, with rows that they do.
ZEL_INLINE bool WorthAsking(std::ptrdiff_t width, std::ptrdiff_t rows) {
  return width * rows >= std::ptrdiff_t{1} << 17 && width <= std::ptrdiff_t{1} << 14;
}
/// Asks for the cache lines of 64 pixels of kBytes bytes.
template <int kBytes, bool kToWrite>
ZEL_INLINE void Ask(const std::uint8_t* p) {
  for (int i = 0; i < kBytes; ++i) __builtin_prefetch(p + 64 * i, kToWrite);
}
/// Of the steps of Cover, one in each 64 pixels.
ZEL_INLINE bool AsksAt(std::ptrdiff_t x) {
  return (x & 63) < kPixels;
}

/// Calls `step(row, count, ask)` for every pair of rows and for an odd last one. `ask` says whether
/// to ask for the next pair, that is, whether the picture is large; `count` and `ask` are
/// constants, so that small pictures pay nothing for large ones.
template <typename Step>
ZEL_INLINE void InPairs(std::ptrdiff_t width, std::ptrdiff_t rows, Step step) {
  using One = std::integral_constant<int, 1>;
  using Two = std::integral_constant<int, 2>;
  std::ptrdiff_t row = 0;
  if (WorthAsking(width, rows)) {
    for (; row + 3 < rows; row += 2) step(row, Two(), std::true_type());
  }
  for (; row + 1 < rows; row += 2) step(row, Two(), std::false_type());
  if (row < rows) step(row, One(), std::false_type());
}
/// Calls `step(row, ask)` for every row, in the same way.
template <typename Step>
ZEL_INLINE void InRows(std::ptrdiff_t width, std::ptrdiff_t rows, Step step) {
  std::ptrdiff_t row = 0;
  if (WorthAsking(width, rows)) {
    for (; row + 1 < rows; ++row) step(row, std::true_type());
  }
  for (; row < rows; ++row) step(row, std::false_type());
}

/// Pictures of more pixels than this leave every cache before they are read again. Memory takes and
/// gives their rows faster one after the other than two at once, where rows go forward.
constexpr std::ptrdiff_t kBeyondCaches = std::ptrdiff_t{1} << 22;

/// Asks for the planes' next pair of rows.
template <bool kAlpha, bool kToWrite, typename Byte>
ZEL_INLINE void AskPlanes(const Planes<Byte>& planes, std::ptrdiff_t x) {
  for (int row = 2; row < 4; ++row) {
    Ask<1, kToWrite>(planes.y + row * planes.pitch_y + x);
    if (kAlpha) Ask<1, kToWrite>(planes.a + row * planes.pitch_y + x);
  }
  Ask<1, kToWrite>(planes.u + planes.pitch_u + x / 2);
  Ask<1, kToWrite>(planes.v + planes.pitch_v + x / 2);
}
template <int kBytes, bool kToWrite, typename Byte>
ZEL_INLINE void AskPixels(PixelRows<Byte> pixels, std::ptrdiff_t x) {
  for (int row = 2; row < 4; ++row) Ask<kBytes, kToWrite>(pixels[row] + kBytes * x);
}

/// The second row of a pair, with its chroma.
ZEL_INLINE YuvSource SecondRow(YuvSource pair) {
  pair.y += pair.pitch_y;
  if (pair.a) pair.a += pair.pitch_y;
  return pair;
}

// --- YUV to RGB
// --------------------------------------------------------------------------------------
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

/// Words with a byte of U and a byte of V, of kPixels pixels.
ZEL_INLINE V ChromaPairs(const std::uint8_t* u, const std::uint8_t* v) {
  return Or(Widen(u), ShiftLeft<8>(Widen(v)));
}

/// Chroma terms, a word each. Blue's lies in -35447..30422: its positive and negative parts are
/// apart.
struct Chroma {
  V blue_plus, blue_minus, green, red;
};

/// Of words with a byte of U and a byte of V.
template <typename F>
ZEL_INLINE Chroma ChromaTerms(V uv) {
  const auto weigh = [uv](int u, int v)
                         ZEL_INLINE_LAMBDA { return MaddBytes(uv, BytePairs(u, v)); };
  const auto twice = [](V v) ZEL_INLINE_LAMBDA { return Add(v, v); };
  // Blue: 256 U - (base - (mul U + add >> shift)).
  const V blue = ShiftLeft<8>(uv);
  const V blue_base =
      Sub(Words(F::kBlueBase),
          ShiftRight<F::kBlueShift>(Add(weigh(F::kBlueMul, 0), Words(F::kBlueAdd))));
  const V green_rest =
      ShiftRight<F::kGreenShift>(Add(weigh(F::kGreenMulU, F::kGreenMulV), Words(F::kGreenAdd)));
  const V green = Sub(Words(F::kGreenBase + kLumaBias), twice(weigh(25, 52)));
  const V red = Add(Words(F::kRedBase + kLumaBias), twice(weigh(0, 102)));
  const V red_rest = ShiftRight<F::kRedShift>(Add(weigh(0, F::kRedMul), Words(F::kRedAdd)));
  return {ZEL_MM(subs_epu16)(blue, blue_base), ZEL_MM(subs_epu16)(blue_base, blue),
          Sub(green, green_rest), Add(red, red_rest)};
}

template <bool kHigh>
ZEL_INLINE V Twice(V a) {
  return kHigh ? InterleaveHi16(a, a) : InterleaveLo16(a, a);
}
/// A word for each of the lower or upper 8 pixels of every lane.
template <bool kHigh>
ZEL_INLINE Chroma Twice(const Chroma& c) {
  return {Twice<kHigh>(c.blue_plus), Twice<kHigh>(c.blue_minus), Twice<kHigh>(c.green),
          Twice<kHigh>(c.red)};
}

/// Words that saturate to the colours' bytes.
struct Color {
  V blue, green, red;
};

ZEL_INLINE Color Colors(V y, const Chroma& c) {
  const V luma = Mul(y, 149);
  const V biased = Sub(luma, Words(kLumaBias));
  // What saturates in between is beyond 0..255 anyway.
  return {ShiftRight<7>(ZEL_MM(subs_epu16)(ZEL_MM(adds_epu16)(luma, c.blue_plus), c.blue_minus)),
          ShiftRightSigned<7>(ZEL_MM(adds_epi16)(biased, c.green)),
          ShiftRightSigned<7>(ZEL_MM(adds_epi16)(biased, c.red))};
}

#ifndef ZEL_OWN_COLORS
/// Pixels whose fourth bytes are 0, with those of `old`.
ZEL_INLINE V KeepFourth(V pixels, V old) {
  return Or(pixels, And(old, Dwords(0xff000000U)));
}
#endif
/// Stores 3 of every 4 bytes; the fourth ones are 0 in `pixels`. What is there is stored again:
/// stores with a mask of bytes take longer than that.
ZEL_INLINE void StoreKept(std::uint8_t* p, V pixels) {
  Store(p, KeepFourth(pixels, Load(p)));
}

enum class Fourth { kNone, kKept, kOpaque, kAlpha };

/// Bytes of the channels, spread over the lanes, to 4 vectors of pixels in the order of memory.
ZEL_INLINE void Interleave(V blue, V green, V red, V fourth, V (&pixels)[4]) {
  const V bg_lo = InterleaveLo8(blue, green), bg_hi = InterleaveHi8(blue, green);
  const V rx_lo = InterleaveLo8(red, fourth), rx_hi = InterleaveHi8(red, fourth);
  pixels[0] = InterleaveLo16(bg_lo, rx_lo);
  pixels[1] = InterleaveHi16(bg_lo, rx_lo);
  pixels[2] = InterleaveLo16(bg_hi, rx_hi);
  pixels[3] = InterleaveHi16(bg_hi, rx_hi);
}

/// A word for each of kPixels pixels; which of them are in which half, and in what order, is for
/// the loading and the storing function to agree on.
struct Luma {
  V lo, hi;
};
/// The same of what a pixel has several words for.
template <typename T>
struct Halves {
  T lo, hi;
};

ZEL_INLINE Luma WidenHalves(V bytes) {
  return {InterleaveLo8(bytes, Zero()), InterleaveHi8(bytes, Zero())};
}
ZEL_INLINE Halves<Chroma> TwiceHalves(const Chroma& c) {
  return {Twice<false>(c), Twice<true>(c)};
}
ZEL_INLINE Halves<Color> ColorsOf(const Luma& luma, const Halves<Chroma>& chroma) {
  return {Colors(luma.lo, chroma.lo), Colors(luma.hi, chroma.hi)};
}
/// Four vectors of pixels in the order of memory, from halves in the order of Spread.
ZEL_INLINE void Interleave(const Halves<Color>& c, V fourth, V (&pixels)[4]) {
  Interleave(Pack(c.lo.blue, c.hi.blue), Pack(c.lo.green, c.hi.green), Pack(c.lo.red, c.hi.red),
             fourth, pixels);
}

#ifdef ZEL_OWN_COLORS
ZEL_INLINE Luma Luma24(const std::uint8_t* src) {
  return {Widen(src), Widen(src + kPixels / 2)};
}
ZEL_INLINE void StoreColors24(std::uint8_t* dst, const Halves<Color>& colors) {
  StorePackedColors(dst, Pack(colors.lo.blue, colors.lo.green), Pack(colors.lo.red, colors.hi.blue),
                    Pack(colors.hi.green, colors.hi.red));
}
#else
ZEL_INLINE Luma Luma24(const std::uint8_t* src) {
  return WidenHalves(Spread(Load(src)));
}
/// Words with a byte of U and a byte of V, of kPixels pixels, in the order of Spread.
ZEL_INLINE V SpreadChroma(const std::uint8_t* u, const std::uint8_t* v) {
  return Spread(ChromaPairs(u, v));
}
/// The same in the order of Luma24, when each stands for two pixels.
ZEL_INLINE V Chroma24(const std::uint8_t* u, const std::uint8_t* v) {
  return SpreadChroma(u, v);
}
/// A vector of packed 4:2:2, whose luma is a half of the order of Luma24.
ZEL_INLINE V LoadPacked24(const std::uint8_t* src) {
  return SpreadHalves(Load(src));
}
/// As Chroma24.
template <bool kLumaFirst>
ZEL_INLINE V PackedChroma24(V first, V second) {
  const V low = Words(0xff);
  return kLumaFirst ? Pack(ShiftRight<8>(first), ShiftRight<8>(second))
                    : Pack(And(first, low), And(second, low));
}
ZEL_INLINE void StoreColors24(std::uint8_t* dst, const Halves<Color>& colors) {
  V pixels[4];
  Interleave(colors, Zero(), pixels);
  StoreBgr24(dst, pixels);
}
#endif

template <typename F, Fourth kFourth, int kRows, bool kAsk>
ZEL_INLINE void ToRgbRows(const YuvSource& src, PixelTarget dst, std::ptrdiff_t width) {
  const std::ptrdiff_t head = kFourth == Fourth::kNone ? 0 : Head(dst[0], 4, width);
  Cover(width, head, [&](std::ptrdiff_t x) ZEL_INLINE_LAMBDA {
    if (kAsk && AsksAt(x)) {
      AskPlanes<kFourth == Fourth::kAlpha, false>(src, x);
      if constexpr (kFourth == Fourth::kOpaque || kFourth == Fourth::kAlpha) {
        // Nearer, where whole cache lines are overwritten.
        for (int row = 0; row < kRows; ++row) Ask<4, true>(dst[row] + 4 * (x + 128));
      } else {
        AskPixels<kFourth == Fourth::kNone ? 3 : 4, true>(dst, x);
      }
    }
    constexpr auto kChroma = kFourth == Fourth::kNone ? Chroma24 : SpreadChroma;
    const Halves<Chroma> chroma =
        TwiceHalves(ChromaTerms<F>(kChroma(src.u + x / 2, src.v + x / 2)));
    for (int row = 0; row < kRows; ++row) {
      const std::ptrdiff_t luma = row * src.pitch_y + x;
      if constexpr (kFourth == Fourth::kNone) {
        StoreColors24(dst[row] + 3 * x, ColorsOf(Luma24(src.y + luma), chroma));
      } else {
        const Halves<Color> colors = ColorsOf(WidenHalves(Spread(Load(src.y + luma))), chroma);
        const V fourth = kFourth == Fourth::kAlpha    ? Spread(Load(src.a + luma))
                         : kFourth == Fourth::kOpaque ? Words(-1)
                                                      : Zero();
        V pixels[4];
        Interleave(colors, fourth, pixels);
        for (int i = 0; i < 4; ++i) {
          std::uint8_t* const at = dst[row] + 4 * x + 16 * ZEL_LANES * i;
          if (kFourth == Fourth::kKept) {
            StoreKept(at, pixels[i]);
          } else {
            Store(at, pixels[i]);
          }
        }
      }
    }
  });
}

template <typename F, Fourth kFourth, ConvertKernels::ToRgb ConvertKernels::*kMember>
void ToRgb(const YuvSource& src, PixelTarget dst, std::ptrdiff_t width, std::ptrdiff_t rows) {
  const std::ptrdiff_t even = width & ~std::ptrdiff_t{1};
  if (even < kPixels) return (kNarrower.*kMember)(src, dst, width, rows);
  InPairs(width, rows, [&](std::ptrdiff_t row, auto count, auto ask) ZEL_INLINE_LAMBDA {
    const YuvSource pair = src.From(row, 0);
    if (ask && width * rows > kBeyondCaches && src.pitch_y > 0 && dst.pitch > 0) {
      ToRgbRows<F, kFourth, 1, false>(pair, {dst[row], dst.pitch}, even);
      ToRgbRows<F, kFourth, 1, false>(SecondRow(pair), {dst[row + 1], dst.pitch}, even);
    } else {
      ToRgbRows<F, kFourth, count, ask>(pair, {dst[row], dst.pitch}, even);
    }
    if (even == width) return;
    constexpr int kBytes = kFourth == Fourth::kNone ? 3 : 4;
    (kConvertScalar.*kMember)(src.From(row, even), {dst[row] + kBytes * even, dst.pitch}, 1, count);
  });
}

// --- RGB to YUV
// --------------------------------------------------------------------------------------
//
// A factor f is split into 2^n h + l with both within a signed byte, so that the weighted sum
// shifted by n + m is (sum of h's + (sum of l's >> n)) >> m: exact, and both sums fit 16 bits. See
// ConvertWeights.h.

#ifndef ZEL_OWN_FROM_BLOCK
/// Without the whole part of the offset.
template <const Weights& kW>
ZEL_INLINE V Weigh(V bg, V r) {
  V high =
      Add(MaddBytes(bg, BytePairs(kW.high_b, kW.high_g)), MaddBytes(r, BytePairs(kW.high_r, 0)));
  if (kW.rounding() != 0) high = Add(high, Words(kW.rounding()));
  const V low =
      Add(MaddBytes(bg, BytePairs(kW.low_b, kW.low_g)), MaddBytes(r, BytePairs(kW.low_r, 0)));
  return ShiftRightSigned<kW.high_shift>(Add(high, ShiftRightSigned<kW.low_shift>(low)));
}

/// kPixels pixels to words of blue and green, and of red and a fourth byte. Lane k of bg[i] has the
/// four pixels that begin at L * 8 i + 4 k, and the four that begin L * 4 pixels later (L lanes).
template <int kBytes>
ZEL_INLINE void LoadPairs(const std::uint8_t* src, V (&bg)[2], V (&r)[2]) {
  V pixels[4];
  if constexpr (kBytes == 3) {
    LoadGroups24(src, pixels);
  } else {
    for (int i = 0; i < 4; ++i) pixels[i] = Load(src + 16 * ZEL_LANES * i);
  }
  for (int i = 0; i < 2; ++i) {
    const V first = Deal<kBytes>(pixels[2 * i]), second = Deal<kBytes>(pixels[2 * i + 1]);
    bg[i] = ZEL_MM(unpacklo_epi64)(first, second);
    r[i] = ZEL_MM(unpackhi_epi64)(first, second);
  }
}
/// The luma bytes of kPixels pixels that Weigh left without their offset.
template <typename F>
ZEL_INLINE V LumaBytes(const V (&y)[2]) {
  return ZEL_MM(add_epi8)(Gather(Pack(y[0], y[1])), BytePairs(F::kY.whole(), F::kY.whole()));
}
/// Means of neighbours, with their offset: the sums of words over kRows rows, two words of each
/// lane's 16.
template <typename F, int kRows>
ZEL_INLINE V Means(const V (&sums)[2]) {
  static_assert(F::kU.whole() == F::kV.whole());
  const V ones = Words(1);
  const V pairs =
      ZEL_MM(packs_epi32)(ZEL_MM(madd_epi16)(sums[0], ones), ZEL_MM(madd_epi16)(sums[1], ones));
  return Add(ShiftRightSigned<kRows>(pairs), Words(F::kU.whole()));
}

/// Converts kPixels pixels of kRows rows; `dst` begins with them.
template <typename F, int kBytes, bool kAlpha, int kRows>
ZEL_INLINE void FromBlock(PixelSource src, const YuvTarget& dst) {
  V u[2], v[2];
  for (int row = 0; row < kRows; ++row) {
    V bg[2], r[2], y[2];
    LoadPairs<kBytes>(src[row], bg, r);
    for (int i = 0; i < 2; ++i) {
      y[i] = Weigh<F::kY>(bg[i], r[i]);
      const V pixel_u = Weigh<F::kU>(bg[i], r[i]), pixel_v = Weigh<F::kV>(bg[i], r[i]);
      u[i] = row == 0 ? pixel_u : Add(u[i], pixel_u);
      v[i] = row == 0 ? pixel_v : Add(v[i], pixel_v);
    }
    Store(dst.y + row * dst.pitch_y, LumaBytes<F>(y));
    if (kAlpha) {
      Store(dst.a + row * dst.pitch_y, Gather(Pack(ShiftRight<8>(r[0]), ShiftRight<8>(r[1]))));
    }
  }
  StoreChroma(dst.u, dst.v, Pack(Means<F, kRows>(u), Means<F, kRows>(v)));
}
#endif

template <typename F, int kBytes, bool kAlpha, int kRows, bool kAsk>
ZEL_INLINE void FromRgbRows(PixelSource src, const YuvTarget& dst, std::ptrdiff_t width) {
  const std::ptrdiff_t head = kBytes == 4 ? Head(src[0], 4, width) : 0;
  Cover(width, head, [&](std::ptrdiff_t x) ZEL_INLINE_LAMBDA {
    if (kAsk && AsksAt(x)) {
      AskPixels<kBytes, false>(src, x);
      AskPlanes<kAlpha, true>(dst, x);
    }
    const PixelSource block = {src[0] + kBytes * x, src.pitch};
#ifdef ZEL_OWN_FROM_BLOCK32
    if constexpr (kBytes == 4) return FromBlock32<kAlpha, kRows>(block, dst.From(0, x));
#endif
    FromBlock<F, kBytes, kAlpha, kRows>(block, dst.From(0, x));
  });
}

template <typename F, int kBytes, bool kAlpha, ConvertKernels::FromRgb ConvertKernels::*kMember>
void FromRgb(PixelSource src, const YuvTarget& dst, std::ptrdiff_t width, std::ptrdiff_t rows) {
  const std::ptrdiff_t even = width & ~std::ptrdiff_t{1};
  if (even < kPixels) return (kNarrower.*kMember)(src, dst, width, rows);
  InPairs(width, rows, [&](std::ptrdiff_t row, auto count, auto ask) ZEL_INLINE_LAMBDA {
    FromRgbRows<F, kBytes, kAlpha, count, ask>({src[row], src.pitch}, dst.From(row, 0), even);
    if (even == width) return;
    (kConvertScalar.*kMember)({src[row] + kBytes * even, src.pitch}, dst.From(row, even), 1, count);
  });
}

// --- Indexed pictures
// --------------------------------------------------------------------------------

int Highest(const std::uint8_t* bytes, std::ptrdiff_t count) {
  if (count < kPixels) return kNarrower.highest(bytes, count);
  V highest = Zero();
  Cover(count, 0, [&](std::ptrdiff_t x) { highest = ZEL_MM(max_epu8)(highest, Load(bytes + x)); });
  std::uint8_t each[kPixels];
  Store(each, highest);
  return kConvertScalar.highest(each, kPixels);
}

#ifndef ZEL_OWN_INDEXED
template <int kRows>
ZEL_INLINE void FromIndexedRows(PixelSource src, const YuvTarget& dst, std::ptrdiff_t width,
                                const std::uint32_t* packed) {
  for (std::ptrdiff_t x = 0; x < width; x += 2) {
    std::uint32_t sum = 0;
    for (int row = 0; row < kRows; ++row) {
      const std::uint8_t* const in = src[row] + x;
      std::uint8_t* const y = dst.y + row * dst.pitch_y + x;
      const std::uint32_t left = packed[in[0]], right = packed[in[1]];
      y[0] = static_cast<std::uint8_t>(left);
      y[1] = static_cast<std::uint8_t>(right);
      sum += left + right;
    }
    dst.u[x / 2] = static_cast<std::uint8_t>(sum >> (10 + kRows));
    dst.v[x / 2] = static_cast<std::uint8_t>(sum >> (20 + kRows));
  }
}
#endif

template <int kRows>
ZEL_INLINE void FromIndexedColumn(PixelSource src, const YuvTarget& dst, const Palette& palette) {
  std::uint32_t sum = 0;
  for (int row = 0; row < kRows; ++row) {
    const std::uint32_t color = palette.packed[*src[row]];
    dst.y[row * dst.pitch_y] = static_cast<std::uint8_t>(color);
    sum += color;
  }
  *dst.u = static_cast<std::uint8_t>(sum >> (9 + kRows));
  *dst.v = static_cast<std::uint8_t>(sum >> (19 + kRows));
}

void FromIndexed(PixelSource src, const YuvTarget& dst, std::ptrdiff_t width, std::ptrdiff_t rows,
                 const Palette& palette) {
  const std::ptrdiff_t even = width & ~std::ptrdiff_t{1};
#ifdef ZEL_OWN_INDEXED
  if (even < kPixels) return kNarrower.from_indexed(src, dst, width, rows, palette);
  const ColorTables colors(palette);
#else
  const std::uint32_t* const colors = palette.packed;
#endif
  InPairs(width, rows, [&](std::ptrdiff_t row, auto count, auto) ZEL_INLINE_LAMBDA {
    FromIndexedRows<count>({src[row], src.pitch}, dst.From(row, 0), even, colors);
    if (even == width) return;
    FromIndexedColumn<count>({src[row] + even, src.pitch}, dst.From(row, even), palette);
  });
}

// --- Packed 4:2:2
// ------------------------------------------------------------------------------------

/// kPixels pixels of packed 4:2:2: their luma, and their chroma as U, V, U, V ..., in the order of
/// memory.
struct Packed {
  V luma, chroma;
};

template <bool kLumaFirst>
ZEL_INLINE Packed LoadPacked(const std::uint8_t* src) {
  const V low = Words(0xff);
  const V first = Load(src), second = Load(src + 16 * ZEL_LANES);
  const V even = GatherHalves(Pack(And(first, low), And(second, low)));
  const V odd = GatherHalves(Pack(ShiftRight<8>(first), ShiftRight<8>(second)));
  return kLumaFirst ? Packed{even, odd} : Packed{odd, even};
}

template <bool kLumaFirst>
ZEL_INLINE void StorePacked(std::uint8_t* dst, V luma, V chroma) {
  const V y = SpreadHalves(luma), uv = SpreadHalves(chroma);
  Store(dst, kLumaFirst ? InterleaveLo8(y, uv) : InterleaveLo8(uv, y));
  Store(dst + 16 * ZEL_LANES, kLumaFirst ? InterleaveHi8(y, uv) : InterleaveHi8(uv, y));
}

template <bool kLumaFirst, int kRows, bool kAsk>
ZEL_INLINE void SplitRows(PixelSource src, const YuvTarget& dst, std::ptrdiff_t width) {
  const V low = Words(0xff);
  Cover(width, Head(src[0], 2, width), [&](std::ptrdiff_t x) ZEL_INLINE_LAMBDA {
    if (kAsk && AsksAt(x)) {
      AskPixels<2, false>(src, x);
      AskPlanes<false, true>(dst, x);
    }
    V chroma[kRows];
    for (int row = 0; row < kRows; ++row) {
      const Packed packed = LoadPacked<kLumaFirst>(src[row] + 2 * x);
      Store(dst.y + row * dst.pitch_y + x, packed.luma);
      chroma[row] = packed.chroma;
    }
    if (kRows == 2) {
      // The average rounds up; the lowest bit of the difference tells where it did.
      const V other = chroma[kRows - 1];
      const V rounded = And(Xor(chroma[0], other), ZEL_MM(set1_epi8)(1));
      chroma[0] = ZEL_MM(sub_epi8)(ZEL_MM(avg_epu8)(chroma[0], other), rounded);
    }
    StoreHalves(dst.u + x / 2, dst.v + x / 2,
                GatherHalves(Pack(And(chroma[0], low), ShiftRight<8>(chroma[0]))));
  });
}

template <bool kLumaFirst>
void SplitAll(PixelSource src, const YuvTarget& dst, std::ptrdiff_t width, std::ptrdiff_t rows) {
  InPairs(width, rows, [&](std::ptrdiff_t row, auto count, auto ask) ZEL_INLINE_LAMBDA {
    SplitRows<kLumaFirst, count, ask>({src[row], src.pitch}, dst.From(row, 0), width);
  });
}

void Split(PixelSource src, const YuvTarget& dst, std::ptrdiff_t width, std::ptrdiff_t rows,
           bool luma_first) {
  if (width < kPixels) return kNarrower.split(src, dst, width, rows, luma_first);
  (luma_first ? SplitAll<true> : SplitAll<false>)(src, dst, width, rows);
}

template <bool kLumaFirst, int kRows>
ZEL_INLINE void MergeRows(const YuvSource& src, PixelTarget dst, std::ptrdiff_t width) {
  Cover(width, Head(dst[0], 2, width), [&](std::ptrdiff_t x) ZEL_INLINE_LAMBDA {
    const V chroma = ChromaPairs(src.u + x / 2, src.v + x / 2);
    for (int row = 0; row < kRows; ++row) {
      StorePacked<kLumaFirst>(dst[row] + 2 * x, Load(src.y + row * src.pitch_y + x), chroma);
    }
  });
}

template <bool kLumaFirst>
void MergeAll(const YuvSource& src, PixelTarget dst, std::ptrdiff_t width, std::ptrdiff_t rows) {
  InPairs(width, rows, [&](std::ptrdiff_t row, auto count, auto large) ZEL_INLINE_LAMBDA {
    const YuvSource pair = src.From(row, 0);
    if (!large) return MergeRows<kLumaFirst, count>(pair, {dst[row], dst.pitch}, width);
    // Next to nothing is computed, so that one row after the other pays sooner here.
    MergeRows<kLumaFirst, 1>(pair, {dst[row], dst.pitch}, width);
    MergeRows<kLumaFirst, 1>(SecondRow(pair), {dst[row + 1], dst.pitch}, width);
  });
}

void Merge(const YuvSource& src, PixelTarget dst, std::ptrdiff_t width, std::ptrdiff_t rows,
           bool luma_first) {
  if (width < kPixels) return kNarrower.merge(src, dst, width, rows, luma_first);
  (luma_first ? MergeAll<true> : MergeAll<false>)(src, dst, width, rows);
}

template <bool kLumaFirst>
void PackedToBgr24All(PixelSource src, PixelTarget dst, std::ptrdiff_t width, std::ptrdiff_t rows) {
  InRows(width, rows, [&](std::ptrdiff_t row, auto ask) ZEL_INLINE_LAMBDA {
    Cover(width, 0, [&](std::ptrdiff_t x) ZEL_INLINE_LAMBDA {
      if (ask && AsksAt(x)) {
        Ask<2, false>(src[row + 1] + 2 * x);
        Ask<3, true>(dst[row + 1] + 3 * x);
      }
      const V first = LoadPacked24(src[row] + 2 * x);
      const V second = LoadPacked24(src[row] + 2 * x + 16 * ZEL_LANES);
      const Chroma chroma = ChromaTerms<ToRgbExact>(PackedChroma24<kLumaFirst>(first, second));
      const auto luma = [](V v) ZEL_INLINE_LAMBDA {
        return kLumaFirst ? And(v, Words(0xff)) : ShiftRight<8>(v);
      };
      StoreColors24(dst[row] + 3 * x, ColorsOf({luma(first), luma(second)}, TwiceHalves(chroma)));
    });
  });
}

void PackedToBgr24(PixelSource src, PixelTarget dst, std::ptrdiff_t width, std::ptrdiff_t rows,
                   bool luma_first) {
  if (width < kPixels) return kNarrower.packed_to_bgr24(src, dst, width, rows, luma_first);
  (luma_first ? PackedToBgr24All<true> : PackedToBgr24All<false>)(src, dst, width, rows);
}

#ifndef ZEL_OWN_FROM_BLOCK
/// Converts kPixels pixels.
template <bool kLumaFirst>
ZEL_INLINE void ToPackedBlock(const std::uint8_t* src, std::uint8_t* dst) {
  using F = ToYuvExact;
  V bg[2], r[2], y[2], u[2], v[2];
  LoadPairs<3>(src, bg, r);
  for (int i = 0; i < 2; ++i) {
    y[i] = Weigh<F::kY>(bg[i], r[i]);
    u[i] = Weigh<F::kU>(bg[i], r[i]);
    v[i] = Weigh<F::kV>(bg[i], r[i]);
  }
  StorePacked<kLumaFirst>(dst, LumaBytes<F>(y),
                          Gather(Or(Means<F, 1>(u), ShiftLeft<8>(Means<F, 1>(v)))));
}
#endif

template <bool kLumaFirst>
void Bgr24ToPackedAll(PixelSource src, PixelTarget dst, std::ptrdiff_t width, std::ptrdiff_t rows) {
  InRows(width, rows, [&](std::ptrdiff_t row, auto ask) ZEL_INLINE_LAMBDA {
    Cover(width, 0, [&](std::ptrdiff_t x) ZEL_INLINE_LAMBDA {
      if (ask && AsksAt(x)) {
        Ask<3, false>(src[row + 1] + 3 * x);
        Ask<2, true>(dst[row + 1] + 2 * x);
      }
      ToPackedBlock<kLumaFirst>(src[row] + 3 * x, dst[row] + 2 * x);
    });
  });
}

void Bgr24ToPacked(PixelSource src, PixelTarget dst, std::ptrdiff_t width, std::ptrdiff_t rows,
                   bool luma_first) {
  if (width < kPixels) return kNarrower.bgr24_to_packed(src, dst, width, rows, luma_first);
  (luma_first ? Bgr24ToPackedAll<true> : Bgr24ToPackedAll<false>)(src, dst, width, rows);
}

#ifdef ZEL_NARROWER_SWAP
void Swap(PixelSource src, PixelTarget dst, std::ptrdiff_t count, std::ptrdiff_t rows) {
  kNarrower.swap(src, dst, count, rows);
}
#else
void Swap(PixelSource src, PixelTarget dst, std::ptrdiff_t count, std::ptrdiff_t rows) {
  constexpr std::ptrdiff_t kWords = kPixels / 2;
  if (count < kWords) return kNarrower.swap(src, dst, count, rows);
  for (std::ptrdiff_t row = 0; row < rows; ++row) {
    const std::uint8_t* const in = src[row];
    std::uint8_t* const out = dst[row];
    // In place, what overlaps must be loaded before anything is stored.
    const V first = SwapBytes(Load(in)), last = SwapBytes(Load(in + 2 * (count - kWords)));
    const std::ptrdiff_t head = Head(out, 2, count);
    std::ptrdiff_t i = head;
    for (; i <= count - 2 * kWords; i += 2 * kWords) {
      const V one = SwapBytes(Load(in + 2 * i)), two = SwapBytes(Load(in + 2 * (i + kWords)));
      Store(out + 2 * i, one);
      Store(out + 2 * (i + kWords), two);
    }
    if (i <= count - kWords) {
      Store(out + 2 * i, SwapBytes(Load(in + 2 * i)));
      i += kWords;
    }
    if (head > 0) Store(out, first);
    if (i < count) Store(out + 2 * (count - kWords), last);
  }
}
#endif

constexpr ConvertKernels kKernels = {
    ToRgb<ToRgbExact, Fourth::kNone, &ConvertKernels::to_bgr24>,
    ToRgb<ToRgbExact, Fourth::kKept, &ConvertKernels::to_bgrx32>,
    ToRgb<ToRgbExact, Fourth::kOpaque, &ConvertKernels::to_opaque32>,
    ToRgb<ToRgbExact, Fourth::kAlpha, &ConvertKernels::to_bgra32>,
    ToRgb<ToRgbSimple, Fourth::kNone, &ConvertKernels::to_bgr24_simple>,
    FromRgb<ToYuvExact, 3, false, &ConvertKernels::from_bgr24>,
    FromRgb<ToYuvExact, 4, false, &ConvertKernels::from_bgrx32>,
    FromRgb<ToYuvExact, 4, true, &ConvertKernels::from_bgra32>,
    FromRgb<ToYuvSimple, 3, false, &ConvertKernels::from_bgr24_simple>,
    Highest,
    FromIndexed,
    Split,
    Merge,
    PackedToBgr24,
    Bgr24ToPacked,
    Swap,
};
