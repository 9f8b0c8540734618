// The vector kernels, written once over the widest registers that the flags of the including file
// allow: 128 (SSE2, SSSE3), 256 (AVX2) or 512 bits (AVX-512). Everything here has internal linkage,
// for the reason given in KernelsX86.h.
//
// "In order": packing and unpacking work within lanes of 16 bytes, so that in wider registers two
// packed halves come out interleaved by lanes; InOrder puts them right.

#if defined(__GNUC__) && !defined(__clang__)
// The compiler's own AVX-512 header gives its undefined registers this warning.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#include <immintrin.h>

#include "zel/audio/detail/AudioScalar.h"
#include "zel/audio/detail/x86/AudioX86.h"

namespace zel::audio {
namespace {

// Registers ---------------------------------------------------------------------------------------

#if defined(__AVX512BW__)

#define ZEL_OP(name) _mm512_##name
using Reg = __m512i;
using Doubles = __m512d;
using Flags = __mmask32;  // Of samples; not 0 means some.

inline Reg Load(const void* p) {
  return _mm512_loadu_si512(p);
}
inline void Store(void* p, Reg v) {
  _mm512_storeu_si512(p, v);
}
inline void StoreHalf(void* p, __m256i v) {
  _mm256_storeu_si256(static_cast<__m256i*>(p), v);
}
inline Reg Join(__m256i low, __m256i high) {
  return _mm512_inserti64x4(_mm512_castsi256_si512(low), high, 1);
}
inline Doubles LowDoubles(Reg v) {
  return _mm512_cvtepi32_pd(_mm512_castsi512_si256(v));
}
inline Doubles HighDoubles(Reg v) {
  return _mm512_cvtepi32_pd(_mm512_extracti64x4_epi64(v, 1));
}
inline Reg InOrder(Reg v) {
  return _mm512_permutexvar_epi64(_mm512_set_epi64(7, 5, 3, 1, 6, 4, 2, 0), v);
}
inline Flags Equal(Reg a, Reg b) {
  return _mm512_cmpeq_epi16_mask(a, b);
}
inline bool Any(Flags flags) {
  return flags != 0;
}

#elif defined(__AVX2__)

#define ZEL_OP(name) _mm256_##name
using Reg = __m256i;
using Doubles = __m256d;
using Flags = Reg;

inline Reg Load(const void* p) {
  return _mm256_loadu_si256(static_cast<const Reg*>(p));
}
inline void Store(void* p, Reg v) {
  _mm256_storeu_si256(static_cast<Reg*>(p), v);
}
inline void StoreHalf(void* p, __m128i v) {
  _mm_storeu_si128(static_cast<__m128i*>(p), v);
}
inline Reg Join(__m128i low, __m128i high) {
  return _mm256_inserti128_si256(_mm256_castsi128_si256(low), high, 1);
}
inline Doubles LowDoubles(Reg v) {
  return _mm256_cvtepi32_pd(_mm256_castsi256_si128(v));
}
inline Doubles HighDoubles(Reg v) {
  return _mm256_cvtepi32_pd(_mm256_extracti128_si256(v, 1));
}
inline Reg InOrder(Reg v) {
  return _mm256_permute4x64_epi64(v, 0xD8);
}
inline Flags Equal(Reg a, Reg b) {
  return _mm256_cmpeq_epi16(a, b);
}
inline bool Any(Flags flags) {
  return _mm256_testz_si256(flags, flags) == 0;
}

#else

#define ZEL_OP(name) _mm_##name
using Reg = __m128i;
using Doubles = __m128d;
using Flags = Reg;

inline Reg Load(const void* p) {
  return _mm_loadu_si128(static_cast<const Reg*>(p));
}
inline void Store(void* p, Reg v) {
  _mm_storeu_si128(static_cast<Reg*>(p), v);
}
inline void StoreHalf(void* p, __m128i v) {
  _mm_storel_epi64(static_cast<Reg*>(p), v);
}
inline Reg Join(__m128i low, __m128i high) {
  return _mm_unpacklo_epi64(low, high);
}
inline Doubles LowDoubles(Reg v) {
  return _mm_cvtepi32_pd(v);
}
inline Doubles HighDoubles(Reg v) {
  return _mm_cvtepi32_pd(_mm_unpackhi_epi64(v, v));
}
inline Reg InOrder(Reg v) {
  return v;
}
inline Flags Equal(Reg a, Reg b) {
  return _mm_cmpeq_epi16(a, b);
}
inline bool Any(Flags flags) {
  return _mm_movemask_epi8(flags) != 0;
}

#endif

constexpr int kSamples = sizeof(Reg) / 2;  // Samples, pairs of samples, doubles in a register.
constexpr int kPairs = sizeof(Reg) / 4;
constexpr int kDoubles = sizeof(Reg) / 8;

inline Reg Truncate(Doubles low, Doubles high) {
  return Join(ZEL_OP(cvttpd_epi32)(low), ZEL_OP(cvttpd_epi32)(high));
}

// Channels ----------------------------------------------------------------------------------------

#if defined(__AVX512BW__)

// Sample numbers: 0, 0, 1, 1 ... from `first` on, or every second from `first` on.
inline Reg Ascending() {
  const __m256i bytes = _mm256_set_epi64x(0x1F1E1D1C1B1A1918, 0x1716151413121110,
                                          0x0F0E0D0C0B0A0908, 0x0706050403020100);
  return _mm512_cvtepu8_epi16(bytes);
}
inline Reg EachTwice(int first) {
  return _mm512_add_epi16(_mm512_srli_epi16(Ascending(), 1),
                          _mm512_set1_epi16(static_cast<short>(first)));
}
inline Reg EverySecond(int first) {
  return _mm512_add_epi16(_mm512_slli_epi16(Ascending(), 1),
                          _mm512_set1_epi16(static_cast<short>(first)));
}

inline void StoreTwice(short* out, Reg v) {
  Store(out, _mm512_permutexvar_epi16(EachTwice(0), v));
  Store(out + kSamples, _mm512_permutexvar_epi16(EachTwice(kSamples / 2), v));
}

#else

inline void StoreTwice(short* out, Reg v) {
  v = InOrder(v);
  Store(out, ZEL_OP(unpacklo_epi16)(v, v));
  Store(out + kSamples, ZEL_OP(unpackhi_epi16)(v, v));
}

#endif

void MonoToStereo(const short* in, int frames, short* out) {
  for (; frames >= kSamples; frames -= kSamples, in += kSamples, out += 2 * kSamples) {
    StoreTwice(out, Load(in));
  }
  kKernelsScalar.channels[0][1](in, frames, out);
}

// Halves, toward zero.
inline Reg Halve(Reg v) {
  return ZEL_OP(srai_epi16)(ZEL_OP(sub_epi16)(v, ZEL_OP(srai_epi16)(v, 15)), 1);
}

inline Reg MonoOfStereo(const short* in) {
  Reg first = Load(in), second = Load(in + kSamples);
#if defined(__AVX512BW__)
  // Left to itself, g++ loads both twice, which costs as much as all the rest.
  asm("" : "+v"(first), "+v"(second));
  const Reg left = _mm512_permutex2var_epi16(first, EverySecond(0), second);
  const Reg right = _mm512_permutex2var_epi16(first, EverySecond(1), second);
  return _mm512_add_epi16(Halve(left), Halve(right));
#else
  const Reg ones = ZEL_OP(set1_epi16)(1);
  return InOrder(ZEL_OP(packs_epi32)(ZEL_OP(madd_epi16)(Halve(first), ones),
                                     ZEL_OP(madd_epi16)(Halve(second), ones)));
#endif
}

void StereoToMono(const short* in, int frames, short* out) {
  for (; frames >= 2 * kSamples; frames -= 2 * kSamples, in += 4 * kSamples, out += 2 * kSamples) {
    const Reg first = MonoOfStereo(in), second = MonoOfStereo(in + 2 * kSamples);
    Store(out, first);
    Store(out + kSamples, second);
  }
  if (frames >= kSamples) {
    Store(out, MonoOfStereo(in));
    frames -= kSamples, in += 2 * kSamples, out += kSamples;
  }
  kKernelsScalar.channels[1][0](in, frames, out);
}

// Each store writes two samples of the next frame, which come after it; the scalar kernel makes the
// last frames, which have nothing behind them.
template <int In>
void SpreadToSix(const short* in, int frames, short* out) {
  constexpr int kBehind = In == 1 ? 1 : 2;
  const __m128i mask = _mm_set_epi16(0, 0, In > 5 ? -1 : 0, In > 4 ? -1 : 0, In > 3 ? -1 : 0,
                                     In > 2 ? -1 : 0, -1, -1);
  for (; frames > kBehind; --frames, in += In, out += 6) {
    __m128i v;
    if constexpr (In == 1) {
      v = _mm_cvtsi32_si128(static_cast<unsigned short>(*in) * 0x10001U);
    } else if constexpr (In == 2) {
      v = _mm_loadu_si32(in);
    } else {
      v = _mm_and_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(in)), mask);
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), v);
  }
  kKernelsScalar.channels[In - 1][2](in, frames, out);
}

// Rates -------------------------------------------------------------------------------------------

void Positions(int first, int count, int n, int t, std::int32_t* k, double* f) {
  alignas(64) static constexpr double numbers[] = {1, 2, 3, 4, 5, 6, 7, 8};
  const Doubles one = ZEL_OP(set1_pd)(1), samples = ZEL_OP(set1_pd)(n), all = ZEL_OP(set1_pd)(t);
  Doubles j = ZEL_OP(set1_pd)(first) + ZEL_OP(load_pd)(numbers);
  int i = 0;
  for (; count - i >= kDoubles; i += kDoubles, j = j + ZEL_OP(set1_pd)(kDoubles)) {
    const Doubles x = j * samples / all - one;
    const Doubles whole = ZEL_OP(cvtepi32_pd)(ZEL_OP(cvttpd_epi32)(x + one));
    const Doubles low = ZEL_OP(max_pd)(whole - one, ZEL_OP(set1_pd)(-1));
    StoreHalf(k + i, ZEL_OP(cvttpd_epi32)(low));
    ZEL_OP(storeu_pd)(f + i, ZEL_OP(min_pd)(ZEL_OP(max_pd)(x, low), low + one) - low);
  }
  PositionsScalar(first + i, count - i, n, t, k + i, f + i);
}

// The interpolated samples of pairs of neighbours (a, b), as 32-bit sums.
inline Reg Between(Reg pairs, Doubles f0, Doubles f1) {
  const Reg d = ZEL_OP(madd_epi16)(pairs, ZEL_OP(set1_epi32)(0x0001FFFF));  // b - a
  const Reg a = ZEL_OP(srai_epi32)(ZEL_OP(slli_epi32)(pairs, 16), 16);
  return ZEL_OP(add_epi32)(a, Truncate(LowDoubles(d) * f0, HighDoubles(d) * f1));
}

// 32-bit sums as samples, interleaved by lanes.
inline Reg ToSamples(Reg low, Reg high) {
  return ZEL_OP(max_epi16)(ZEL_OP(packs_epi32)(low, high), ZEL_OP(set1_epi16)(-kFullScale));
}

// Mono: the pairs of kPairs neighbouring output frames. Stereo: left and right in turn, those of
// half as many. Where the input frames lie close together, they come from one load and a shuffle.
#if defined(__AVX512BW__)

inline Reg MonoPairs(const short* in, const std::int32_t* k) {
  const Reg at = Load(k);
  if (k[15] - k[0] > 30) return _mm512_i32gather_epi32(at, in, 2);
  const Reg offset = _mm512_sub_epi32(at, _mm512_set1_epi32(k[0]));
  const Reg index =
      _mm512_add_epi32(offset | _mm512_slli_epi32(offset, 16), _mm512_set1_epi32(0x00010000));
  return _mm512_permutexvar_epi16(index, Load(in + k[0]));
}

inline Reg StereoPairs(const short* in, const std::int32_t* k) {
  const __m256i at = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(k));
  if (k[7] - k[0] > 14) {
    const Reg frames = _mm512_i32gather_epi64(at, in, 4);
    return _mm512_shufflehi_epi16(_mm512_shufflelo_epi16(frames, 0xD8), 0xD8);
  }
  // Samples l, l + 2, l + 1, l + 3 of each frame, whose left sample is l.
  const Reg left =
      _mm512_cvtepu32_epi64(_mm256_slli_epi32(_mm256_sub_epi32(at, _mm256_set1_epi32(k[0])), 1));
  const Reg index = _mm512_add_epi16(
      _mm512_shuffle_epi8(left, _mm512_broadcast_i32x4(_mm_set_epi8(9, 8, 9, 8, 9, 8, 9, 8,  //
                                                                    1, 0, 1, 0, 1, 0, 1, 0))),
      _mm512_set1_epi64(0x0003000100020000));
  return _mm512_permutexvar_epi16(index, Load(in + std::ptrdiff_t{2} * k[0]));
}

inline Doubles StereoFractions(const double* f) {
  return _mm512_permutexvar_pd(_mm512_set_epi64(3, 3, 2, 2, 1, 1, 0, 0),
                               _mm512_castpd256_pd512(_mm256_loadu_pd(f)));
}

#else

inline __m128i LoadPairs(const short* in, const std::int32_t* k) {
  return _mm_unpacklo_epi64(
      _mm_unpacklo_epi32(_mm_loadu_si32(in + k[0]), _mm_loadu_si32(in + k[1])),
      _mm_unpacklo_epi32(_mm_loadu_si32(in + k[2]), _mm_loadu_si32(in + k[3])));
}

inline __m128i LoadFrames(const short* in, const std::int32_t* k) {
  return _mm_unpacklo_epi64(_mm_loadu_si64(in + std::ptrdiff_t{2} * k[0]),
                            _mm_loadu_si64(in + std::ptrdiff_t{2} * k[1]));
}

inline Reg PairChannels(Reg frames) {
  return ZEL_OP(shufflehi_epi16)(ZEL_OP(shufflelo_epi16)(frames, 0xD8), 0xD8);
}

#if defined(__AVX2__)

inline Reg MonoPairs(const short* in, const std::int32_t* k) {
  if (k[3] - k[0] > 6 || k[7] - k[4] > 6) return Join(LoadPairs(in, k), LoadPairs(in, k + 4));
  const Reg at = Load(k);
  // From each lane's first frame on, in bytes: every pair's first, four times.
  const Reg offset = _mm256_slli_epi32(_mm256_sub_epi32(at, _mm256_shuffle_epi32(at, 0)), 1);
  const Reg first =
      _mm256_shuffle_epi8(offset, _mm256_broadcastsi128_si256(_mm_set_epi8(
                                      12, 12, 12, 12, 8, 8, 8, 8, 4, 4, 4, 4, 0, 0, 0, 0)));
  const Reg frames = Join(_mm_loadu_si128(reinterpret_cast<const __m128i*>(in + k[0])),
                          _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + k[4])));
  return _mm256_shuffle_epi8(frames, _mm256_add_epi8(first, _mm256_set1_epi32(0x03020100)));
}
inline Reg StereoPairs(const short* in, const std::int32_t* k) {
  return PairChannels(Join(LoadFrames(in, k), LoadFrames(in, k + 2)));
}
inline Doubles StereoFractions(const double* f) {
  return _mm256_permute4x64_pd(_mm256_castpd128_pd256(_mm_loadu_pd(f)), 0x50);
}

#else

inline Reg MonoPairs(const short* in, const std::int32_t* k) {
  return LoadPairs(in, k);
}
inline Reg StereoPairs(const short* in, const std::int32_t* k) {
  return PairChannels(LoadFrames(in, k));
}
inline Doubles StereoFractions(const double* f) {
  return _mm_set1_pd(*f);
}

#endif
#endif

// kSamples samples: as many frames of one channel, half as many of two.
inline Reg MonoSamples(const short* in, const std::int32_t* k, const double* f) {
  const auto half = [=](int i) {
    return Between(MonoPairs(in, k + i), ZEL_OP(loadu_pd)(f + i),
                   ZEL_OP(loadu_pd)(f + i + kDoubles));
  };
  return InOrder(ToSamples(half(0), half(kPairs)));
}

inline Reg StereoSamples(const short* in, const std::int32_t* k, const double* f) {
  const auto half = [=](int i) {
    return Between(StereoPairs(in, k + i), StereoFractions(f + i),
                   StereoFractions(f + i + kDoubles / 2));
  };
  return InOrder(ToSamples(half(0), half(kPairs / 2)));
}

// Eight samples of one frame (or the next), all at one fraction.
inline __m128i EightSamples(const short* from, int channels, double f) {
  const auto* first = reinterpret_cast<const __m128i*>(from);
  const auto* second = reinterpret_cast<const __m128i*>(from + channels);
  const Doubles at = ZEL_OP(set1_pd)(f);
#if defined(__AVX2__)
  const __m256i a = _mm256_cvtepi16_epi32(_mm_loadu_si128(first));
  const __m256i d = _mm256_sub_epi32(_mm256_cvtepi16_epi32(_mm_loadu_si128(second)), a);
#if defined(__AVX512BW__)
  const __m256i step = _mm512_cvttpd_epi32(_mm512_cvtepi32_pd(d) * at);
  return _mm256_cvtepi32_epi16(
      _mm256_max_epi32(_mm256_add_epi32(a, step), _mm256_set1_epi32(-kFullScale)));
#else
  const __m256i v = _mm256_add_epi32(a, Truncate(LowDoubles(d) * at, HighDoubles(d) * at));
  return _mm_max_epi16(_mm_packs_epi32(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1)),
                       _mm_set1_epi16(-kFullScale));
#endif
#else
  const __m128i a = _mm_loadu_si128(first), b = _mm_loadu_si128(second);
  return ToSamples(Between(_mm_unpacklo_epi16(a, b), at, at),
                   Between(_mm_unpackhi_epi16(a, b), at, at));
#endif
}

void InterpolateMany(const short* in, const std::int32_t* k, const double* f, int count,
                     int channels, short* out) {
  int i = 0;
  for (; (count - i) * channels >= 8; ++i, out += channels) {
    const short* from = in + static_cast<std::ptrdiff_t>(k[i]) * channels;
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), EightSamples(from, channels, f[i]));
  }
  InterpolateScalar(in, k + i, f + i, count - i, channels, out);
}

// Calls body(i) for every `step`th of `count`, at least `step`. The last call goes back to end
// where the others would not, and makes some samples twice.
template <class Body>
inline void ForEachVector(int count, int step, Body body) {
  int i = 0;
  for (; i < count - step; i += step) body(i);
  body(count - step);
}

void Interpolate(const short* in, const std::int32_t* k, const double* f, int count, int channels,
                 short* out) {
  if (channels == 1 && count >= kSamples) {
    ForEachVector(count, kSamples, [=](int i) { Store(out + i, MonoSamples(in, k + i, f + i)); });
  } else if (channels == 2 && count >= kPairs) {
    ForEachVector(count, kPairs,
                  [=](int i) { Store(out + 2 * i, StereoSamples(in, k + i, f + i)); });
  } else if (channels <= 8) {
    InterpolateMany(in, k, f, count, channels, out);
  } else {
    InterpolateScalar(in, k, f, count, channels, out);
  }
}

void InterpolateMonoToStereo(const short* in, const std::int32_t* k, const double* f, int count,
                             short* out) {
  if (count < kSamples) return InterpolateMonoToStereoScalar(in, k, f, count, out);
  ForEachVector(count, kSamples,
                [=](int i) { StoreTwice(out + 2 * i, MonoSamples(in, k + i, f + i)); });
}

// Mixing ------------------------------------------------------------------------------------------

// Of one vector of samples, the lower and the upper half of every lane.
struct Sums {
  Reg low, high;
};

// Mixes of many inputs wait for the second-level cache: what comes next is asked for in time.
// (Asking for what lies beyond an input's end does no harm.)
inline void FetchAhead(const short* p) {
  _mm_prefetch(reinterpret_cast<const char*>(p + 8 * kSamples), _MM_HINT_T0);
}

// The exact sums of samples i ... i + kSamples - 1 (modulo 2^32).
template <bool Two>
inline Sums ExactSums(const MixInputs& in, int i) {
  const Reg ones = ZEL_OP(set1_epi16)(1);
  const int count = Two ? 2 : in.count;
  Sums sums = {};
  for (int n = 0; n < count; n += 2) {
    const Reg a = Load(in.inputs[n] + i);
    const Reg b = n + 1 < count ? Load(in.inputs[n + 1] + i) : Reg{};
    const auto add = [&](Reg sum, Reg pairs) {
      return ZEL_OP(add_epi32)(sum, ZEL_OP(madd_epi16)(pairs, ones));
    };
    sums.low = add(sums.low, ZEL_OP(unpacklo_epi16)(a, b));
    sums.high = add(sums.high, ZEL_OP(unpackhi_epi16)(a, b));
  }
  return sums;
}

inline bool Fit(const Sums& sums) {
#if defined(__AVX512BW__)
  const Reg limit = _mm512_set1_epi32(2 * kFullScale), shift = _mm512_set1_epi32(kFullScale);
  return (_mm512_cmpgt_epu32_mask(_mm512_add_epi32(sums.low, shift), limit) |
          _mm512_cmpgt_epu32_mask(_mm512_add_epi32(sums.high, shift), limit)) == 0;
#else
  const Reg top = ZEL_OP(set1_epi32)(kFullScale), bottom = ZEL_OP(set1_epi32)(-kFullScale);
  return !Any(ZEL_OP(cmpgt_epi32)(sums.low, top) | ZEL_OP(cmpgt_epi32)(sums.high, top) |
              ZEL_OP(cmpgt_epi32)(bottom, sums.low) | ZEL_OP(cmpgt_epi32)(bottom, sums.high));
#endif
}

// Vectors at once, so that each pointer is read once for all of them.
constexpr int kMixVectors = sizeof(Reg) == 16 ? 2 : 4;

// The sums of kMixVectors vectors with saturation. They are exact, and fit, if the result is true.
//
// That takes sums from two starts that are 1 apart. They stay apart unless a sum on the way
// saturates, or is -32768; once they are equal they stay equal. So one comparison at the end tells.
template <bool Two>
inline bool SaturatingSums(const MixInputs& in, int i, Reg* sum) {
  Reg below[kMixVectors];
  for (int v = 0; v < kMixVectors; ++v) {
    sum[v] = Load(in.inputs[0] + i + v * kSamples);
    below[v] = ZEL_OP(subs_epi16)(sum[v], ZEL_OP(set1_epi16)(1));
  }
  const int count = Two ? 2 : in.count;
  for (int n = 1; n < count; ++n) {
    const short* from = in.inputs[n] + i;
    for (int v = 0; v < kMixVectors; ++v) {
      const Reg x = Load(from + v * kSamples);
      FetchAhead(from + v * kSamples);
      sum[v] = ZEL_OP(adds_epi16)(sum[v], x);
      below[v] = ZEL_OP(adds_epi16)(below[v], x);
    }
  }
  Flags equal = Equal(sum[0], below[0]);
  for (int v = 1; v < kMixVectors; ++v) equal |= Equal(sum[v], below[v]);
  return !Any(equal);
}

template <bool Two>
int MixUnity(const MixInputs& in, int i, int end, short* out) {
  const auto exactly = [&] {
    const Sums sums = ExactSums<Two>(in, i);
    if (!Fit(sums)) return false;
    Store(out + i, ZEL_OP(packs_epi32)(sums.low, sums.high));
    i += kSamples;
    return true;
  };
  constexpr int kBlock = kSamples * kMixVectors;
  while (end - i >= kBlock) {  // (i + kBlock may pass INT_MAX.)
    Reg sum[kMixVectors];
    if (SaturatingSums<Two>(in, i, sum)) {
      for (int v = 0; v < kMixVectors; ++v, i += kSamples) Store(out + i, sum[v]);
    } else {
      for (int v = 0; v < kMixVectors; ++v) {
        if (!exactly()) return MixUnityScalar(in, i, end, out);
      }
    }
  }
  while (end - i >= kSamples && exactly()) {
  }
  return MixUnityScalar(in, i, end, out);
}

int MixUnityAny(const MixInputs& in, int i, int end, short* out) {
  return in.count == 2 ? MixUnity<true>(in, i, end, out) : MixUnity<false>(in, i, end, out);
}

// The numbers of a Sums' samples as the doubles that its halves' low and high parts become: of a
// lane's eight samples the lower four are in `low`.
struct SampleNumbers {
  alignas(64) double of[4 * kDoubles];
};
constexpr SampleNumbers NumbersOfSums() {
  SampleNumbers numbers = {};
  for (int s = 0; s < kSamples; ++s) {
    numbers.of[s / 4 % 2 * kPairs + s / 8 * 4 + s % 4] = s;
  }
  return numbers;
}

struct Gains {
  Doubles at[4];

  Gains(double gain, double step) {
    static constexpr SampleNumbers numbers = NumbersOfSums();
    for (int i = 0; i < 4; ++i) {
      at[i] = ZEL_OP(set1_pd)(gain) +
              ZEL_OP(set1_pd)(step) * ZEL_OP(load_pd)(numbers.of + i * kDoubles);
    }
  }
  void Advance(double by) {
    for (Doubles& gains : at) gains = gains + ZEL_OP(set1_pd)(by);
  }
  Sums Scale(const Sums& s) const {
    return {Truncate(LowDoubles(s.low) * at[0], HighDoubles(s.low) * at[1]),
            Truncate(LowDoubles(s.high) * at[2], HighDoubles(s.high) * at[3])};
  }
};

template <bool Two>
int MixGain(const MixInputs& in, int i, int end, double gain, double step, short* out) {
  const int first = i;
  Gains gains(gain, step);
  for (; end - i >= kSamples; i += kSamples) {
    const Sums sums = gains.Scale(ExactSums<Two>(in, i));
    if (!Fit(sums)) break;
    Store(out + i, ZEL_OP(packs_epi32)(sums.low, sums.high));
    gains.Advance(kSamples * step);
  }
  return MixGainScalar(in, i, end, gain + (i - first) * step, step, out);
}

int MixGainAny(const MixInputs& in, int i, int end, double gain, double step, short* out) {
  return in.count == 2 ? MixGain<true>(in, i, end, gain, step, out)
                       : MixGain<false>(in, i, end, gain, step, out);
}

inline void SetKernels(Kernels* kernels) {
  kernels->channels[0][1] = MonoToStereo;
  kernels->channels[1][0] = StereoToMono;
  kernels->channels[0][2] = SpreadToSix<1>;
  kernels->channels[1][2] = SpreadToSix<2>;
  kernels->channels[2][2] = SpreadToSix<3>;
  kernels->channels[3][2] = SpreadToSix<4>;
  kernels->channels[4][2] = SpreadToSix<5>;
  kernels->channels[6][2] = SpreadToSix<7>;
  kernels->channels[7][2] = SpreadToSix<8>;
  kernels->positions = Positions;
  kernels->interpolate = Interpolate;
  kernels->interpolateMonoToStereo = InterpolateMonoToStereo;
  kernels->mixUnity = MixUnityAny;
  kernels->mixGain = MixGainAny;
}

}  // namespace
}  // namespace zel::audio
