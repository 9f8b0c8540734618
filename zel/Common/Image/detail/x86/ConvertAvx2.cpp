#include "zel/detail/x86/Avx2-inl.h"

#include "zel/Common/Image/detail/ShuffledPixels-inl.h"
#include "zel/Common/Image/detail/x86/ImageX86.h"

namespace zel::image::avx2 {
namespace {

struct Pixels : ShuffledPixels {
  ZEL_INLINE static void StoreChroma(std::uint8_t* u, std::uint8_t* v, Reg uv) {
    const Reg pairs =
        Shuffle(Gather64(uv), MakeLane(0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15));
    StoreHalf(u, Low(pairs));
    StoreHalf(v, High(pairs));
  }
  ZEL_INLINE static void StoreBgr24(std::uint8_t* p, const Reg (&v)[4]) {
    // Each vector has 6 dwords now: 0, 1, 2, 4, 5, 6. They are put where a blend finds them.
    const Reg a = Permute32(Close(v[0]), _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 0, 0));
    const Reg b = Permute32(Close(v[1]), _mm256_setr_epi32(2, 4, 5, 6, 0, 0, 0, 1));
    const Reg c = Permute32(Close(v[2]), _mm256_setr_epi32(5, 6, 0, 0, 0, 1, 2, 4));
    const Reg d = Permute32(Close(v[3]), _mm256_setr_epi32(0, 0, 0, 1, 2, 4, 5, 6));
    Store(p, _mm256_blend_epi32(a, b, 0xc0));
    Store(p + 32, _mm256_blend_epi32(b, c, 0xf0));
    Store(p + 64, _mm256_blend_epi32(c, d, 0xfc));
  }
  ZEL_INLINE static void LoadGroups24(const std::uint8_t* p, Reg (&v)[4]) {
    const Reg groups = _mm256_setr_epi32(0, 1, 2, 3, 3, 4, 5, 6);
    for (int i = 0; i < 3; ++i) v[i] = Permute32(Load(p + 24 * i), groups);
    v[3] = Permute32(Load(p + 64), _mm256_setr_epi32(2, 3, 4, 5, 5, 6, 7, 7));
  }
};

// Pixels of 4 bytes are weighted as dwords. Two vectors have the even and the odd ones of 16
// pixels, so that the chroma of a block is added up within a dword: fewer steps than with words,
// whose factors need two parts each. Lane k of the even ones has pixels 4 k, 4 k + 2, 4 k + 8 and
// 4 k + 10.

/// The low words of `low`, the high words of `high`.
ZEL_INLINE Reg JoinWords(Reg low, Reg high) {
  return _mm256_blend_epi16(low, high, 0xaa);
}

/// 8 pixels as pairs of words: blue and red, green twice, and blue and red less green. `green4`
/// holds 4 x green plus 0 to 3 in the low words. The excess is too small to change a sum of
/// multiples of 4.
struct Pixels8 {
  Reg blueRed, green, differences, green4;

  ZEL_INLINE explicit Pixels8(Reg dwords)
      : blueRed(And(dwords, Set32(0xff00ff))),
        green(ShuffledPixels::Shuffle(
            dwords, MakeLane(1, -1, 1, -1, 5, -1, 5, -1, 9, -1, 9, -1, 13, -1, 13, -1))),
        differences(Sub16(blueRed, green)),
        green4(ShiftRight16<6>(dwords)) {}
};

/// Luma without its offset, in the third byte of each dword.
ZEL_INLINE Reg WeighLuma(const Pixels8& p) {
  using S = Scaled<ToYuvExact::kY, 16>;
  // Green's factor would not fit one word.
  return Add32(MulAdd16(p.blueRed, SetPairs16(S::kB, S::kR)),
               MulAdd16(p.green, SetPairs16(S::kG / 2, S::kG - S::kG / 2)));
}
/// Adds the chroma of one more pixel to the floor of `sum`, whose whole units are the high word.
template <const Weights& kW>
ZEL_INLINE Reg AddChroma(Reg sum, const Pixels8& p) {
  using S = Scaled<kW, 16>;
  static_assert(S::kRounding == 0 && (S::kRest == 0 || S::kRest == 4));
  const Reg start = JoinWords(S::kRest == 0 ? Zero() : p.green4, sum);
  return Add32(start, MulAdd16(p.differences, SetPairs16(S::kB, S::kR)));
}
/// Means of the blocks of 32 pixels, as signed words.
ZEL_INLINE Reg BlockMeans(const Reg (&sums)[2]) {
  return Pack16(ShiftRightSigned32<18>(sums[0]), ShiftRightSigned32<18>(sums[1]));
}
/// Stores words of 16 pixels each, as bytes.
ZEL_INLINE void StoreWords(std::uint8_t* p, const Reg (&words)[2], int offset) {
  const Reg bytes = Gather32(PackU8(words[0], words[1]));
  Store(p, Add8(bytes, Set8(offset)));
}

template <bool kAlpha, int kRows>
ZEL_INLINE void FromBlock32(PixelSource src, const YuvTarget& dst) {
  using F = ToYuvExact;
  Reg u[2] = {Zero(), Zero()}, v[2] = {u[0], u[1]};
  for (int row = 0; row < 2; ++row) {
    Reg luma[2], alpha[2];
    for (int half = 0; half < 2; ++half) {
      // A row without a partner counts twice.
      const std::uint8_t* const p = src[kRows == 2 ? row : 0] + 64 * half;
      const Reg first = Load(p), second = Load(p + 32);
      const Reg evens = Even32(first, second), odds = Odd32(first, second);
      const Pixels8 even(evens), odd(odds);
      u[half] = AddChroma<F::kU>(AddChroma<F::kU>(u[half], even), odd);
      v[half] = AddChroma<F::kV>(AddChroma<F::kV>(v[half], even), odd);
      luma[half] = JoinWords(ShiftRight32<16>(WeighLuma(even)), WeighLuma(odd));
      alpha[half] = JoinWords(ShiftRight32<24>(evens), ShiftRight32<8>(odds));
    }
    if (row == kRows) break;
    StoreWords(dst.y + row * dst.pitchY, luma, F::kY.whole());
    if (kAlpha) StoreWords(dst.a + row * dst.pitchY, alpha, 0);
  }
  const Reg means = Xor(_mm256_packs_epi16(BlockMeans(u), BlockMeans(v)), Set8(-128));
  Pixels::StoreChroma(dst.u, dst.v, means);
}

using Common = CommonSteps<Pixels, ssse3::kConvert>;
struct Steps : Common {
  template <typename F, int kBytes, bool kAlpha, int kRows>
  ZEL_INLINE static void FromBlock(PixelSource src, const YuvTarget& dst) {
    if constexpr (kBytes == 4) {
      FromBlock32<kAlpha, kRows>(src, dst);
    } else {
      Common::FromBlock<F, kBytes, kAlpha, kRows>(src, dst);
    }
  }
};

}  // namespace

constinit const ConvertKernels kConvert = MakeKernels<Steps>();

}  // namespace zel::image::avx2
