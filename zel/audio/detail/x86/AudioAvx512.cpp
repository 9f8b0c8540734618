// Whole windows of input are permuted by sample. The mixing rules stay with AVX2: there are no
// pairwise sums here.
#include "zel/detail/x86/Avx512-inl.h"

#include "zel/audio/detail/AudioRows-inl.h"
#include "zel/audio/detail/x86/AudioX86.h"

namespace zel::audio::avx512 {
namespace {

/// Sample numbers: 0, 0, 1, 1 ... from `first` on, or every second from `first` on.
ZEL_INLINE Reg Ascending() {
  return _mm512_cvtepu8_epi16(_mm256_set_epi64x(0x1F1E1D1C1B1A1918, 0x1716151413121110,
                                                0x0F0E0D0C0B0A0908, 0x0706050403020100));
}
ZEL_INLINE Reg EachTwice(int first) {
  return Add16(ShiftRight16<1>(Ascending()), Set16(first));
}
ZEL_INLINE Reg EverySecond(int first) {
  return Add16(ShiftLeft16<1>(Ascending()), Set16(first));
}

struct Steps : CommonSteps<avx2::kKernels> {
  ZEL_INLINE static void StoreTwice(short* out, Reg v) {
    Store(out, Permute16(v, EachTwice(0)));
    Store(out + kSamples, Permute16(v, EachTwice(kSamples / 2)));
  }
  ZEL_INLINE static Reg MonoOfStereo(const short* in) {
    Reg first = Load(in), second = Load(in + kSamples);
    // Without this, g++ loads both registers twice, which doubles the time.
    asm("" : "+v"(first), "+v"(second));
    const Reg left = Permute16(first, second, EverySecond(0));
    const Reg right = Permute16(first, second, EverySecond(1));
    return Add16(Halve(left), Halve(right));
  }
  ZEL_INLINE static bool Fit(const Sums& sums) {
    // From -full scale to 0: one unsigned comparison for both ends.
    const Reg limit = Set32(2 * kFullScale), shift = Set32(kFullScale);
    return (_mm512_cmpgt_epu32_mask(Add32(sums.low, shift), limit) |
            _mm512_cmpgt_epu32_mask(Add32(sums.high, shift), limit)) == 0;
  }

  /// Where the input frames lie close together, they come from one load and a permutation.
  ZEL_INLINE static Reg MonoPairs(const short* in, const std::int32_t* k) {
    const Reg at = Load(k);
    if (k[15] - k[0] > 30) return _mm512_i32gather_epi32(at, in, 2);
    const Reg offset = Sub32(at, Set32(k[0]));
    return Permute16(Load(in + k[0]),
                     Add32(Or(offset, ShiftLeft32<16>(offset)), Set32(0x00010000)));
  }
  ZEL_INLINE static Reg StereoPairs(const short* in, const std::int32_t* k) {
    const Half at = LoadHalf(k);
    if (k[7] - k[0] > 14) {
      return ShuffleQuads<0, 2, 1, 3>(_mm512_i32gather_epi64(at, in, 4));
    }
    // Samples l, l + 2, l + 1, l + 3 of each frame, whose left sample is l.
    const Reg left =
        _mm512_cvtepu32_epi64(_mm256_slli_epi32(_mm256_sub_epi32(at, _mm256_set1_epi32(k[0])), 1));
    const Reg index = Add16(
        ShuffleBytes(left, EachLane(MakeLane(0, 1, 0, 1, 0, 1, 0, 1, 8, 9, 8, 9, 8, 9, 8, 9))),
        Set64(0x0003000100020000));
    return Permute16(Load(in + std::ptrdiff_t{2} * k[0]), index);
  }
  ZEL_INLINE static Doubles StereoFractions(const double* f) {
    return _mm512_permutexvar_pd(_mm512_set_epi64(3, 3, 2, 2, 1, 1, 0, 0),
                                 _mm512_castpd256_pd512(_mm256_loadu_pd(f)));
  }
  ZEL_INLINE static Lane EightSamples(const short* from, int channels, double f) {
    const Half a = _mm256_cvtepi16_epi32(LoadLane(from));
    const Half d = _mm256_sub_epi32(_mm256_cvtepi16_epi32(LoadLane(from + channels)), a);
    const Half step = Truncate(ToDoubles(d) * SetDoubles(f));
    return _mm256_cvtepi32_epi16(
        _mm256_max_epi32(_mm256_add_epi32(a, step), _mm256_set1_epi32(-kFullScale)));
  }
};

}  // namespace

constinit const Kernels kKernels = MakeKernels<Steps>();

}  // namespace zel::audio::avx512
