// AVX2: 16 samples or 4 doubles at a time.
#include <immintrin.h>

#include "zel/audio/detail/ChannelLanes.h"
#include "zel/audio/detail/KernelsX86.h"

namespace zel::audio {
namespace {

__m256i Load(const short* p) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}
__m128i LoadHalf(const short* p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}
void Store(short* p, __m256i v) {
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v);
}
__m256i Join(__m128i low, __m128i high) {
  return _mm256_inserti128_si256(_mm256_castsi128_si256(low), high, 1);
}

// Channels.

struct Ops {
  using V = __m256i;
  static constexpr int kLanes = 2;
  static V LoadLanes(const short* p, int stride) { return Join(LoadHalf(p), LoadHalf(p + stride)); }
  static void Store(short* p, V v) { audio::Store(p, v); }
  static V Constant(const void* p) {
    return _mm256_broadcastsi128_si256(_mm_load_si128(static_cast<const __m128i*>(p)));
  }
  static V Set(short s) { return _mm256_set1_epi16(s); }
  static V Shuffle(V v, V bytes) { return _mm256_shuffle_epi8(v, bytes); }
  template <int Bits>
  static V ShiftRight(V v) {
    return _mm256_srai_epi16(v, Bits);
  }
  static V And(V a, V b) { return _mm256_and_si256(a, b); }
  static V Add(V a, V b) { return _mm256_add_epi16(a, b); }
  static V Subtract(V a, V b) { return _mm256_sub_epi16(a, b); }
  static V Max(V a, V b) { return _mm256_max_epi16(a, b); }
  static V MultiplyHigh(V a, V b) { return _mm256_mulhi_epi16(a, b); }
  static V MultiplyAdd(V a, V b) { return _mm256_madd_epi16(a, b); }
  static V AddPairs(V a, V b) { return _mm256_hadd_epi32(a, b); }
  static V Pack(V a, V b) { return _mm256_packs_epi32(a, b); }
};

// Two 16-byte lanes that each hold half of what belongs together: 0 2 1 3 in quarters.
__m256i Reorder(__m256i v) {
  return _mm256_permute4x64_epi64(v, 0xD8);
}

void StoreTwice(short* out, __m256i v) {
  v = Reorder(v);
  Store(out, _mm256_unpacklo_epi16(v, v));
  Store(out + 16, _mm256_unpackhi_epi16(v, v));
}

void MonoToStereo(const short* in, int frames, short* out) {
  for (; frames >= 16; frames -= 16, in += 16, out += 32) StoreTwice(out, Load(in));
  kKernelsScalar.channels[0][1](in, frames, out);
}

__m256i HalvedPairs(__m256i v) {
  v = _mm256_srai_epi16(_mm256_sub_epi16(v, _mm256_srai_epi16(v, 15)), 1);
  return _mm256_madd_epi16(v, _mm256_set1_epi16(1));
}

void StereoToMono(const short* in, int frames, short* out) {
  for (; frames >= 16; frames -= 16, in += 32, out += 16) {
    Store(out, Reorder(_mm256_packs_epi32(HalvedPairs(Load(in)), HalvedPairs(Load(in + 16)))));
  }
  kKernelsScalar.channels[1][0](in, frames, out);
}

// Rates.

void Positions(int first, int count, int n, int t, std::int32_t* k, double* f) {
  const __m256d one = _mm256_set1_pd(1), samples = _mm256_set1_pd(n), all = _mm256_set1_pd(t);
  __m256d j = _mm256_add_pd(_mm256_set1_pd(first), _mm256_set_pd(4, 3, 2, 1));
  int i = 0;
  for (; i + 4 <= count; i += 4, j = _mm256_add_pd(j, _mm256_set1_pd(4))) {
    const __m256d x = _mm256_sub_pd(_mm256_div_pd(_mm256_mul_pd(j, samples), all), one);
    const __m128i before =
        _mm_max_epi32(_mm_sub_epi32(_mm256_cvttpd_epi32(_mm256_add_pd(x, one)), _mm_set1_epi32(1)),
                      _mm_set1_epi32(-1));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(k + i), before);
    const __m256d low = _mm256_cvtepi32_pd(before);
    const __m256d inside = _mm256_min_pd(_mm256_max_pd(x, low), _mm256_add_pd(low, one));
    _mm256_storeu_pd(f + i, _mm256_sub_pd(inside, low));
  }
  PositionsScalar(first + i, count - i, n, t, k + i, f + i);
}

// The interpolated samples of eight pairs of neighbours (a, b), as 32-bit sums.
__m256i Between(__m256i pairs, __m256d f0, __m256d f1) {
  const __m256i d = _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x0001FFFF));  // b - a
  const __m256i a = _mm256_srai_epi32(_mm256_slli_epi32(pairs, 16), 16);
  const __m256d low = _mm256_cvtepi32_pd(_mm256_castsi256_si128(d));
  const __m256d high = _mm256_cvtepi32_pd(_mm256_extracti128_si256(d, 1));
  return _mm256_add_epi32(a, Join(_mm256_cvttpd_epi32(_mm256_mul_pd(low, f0)),
                                  _mm256_cvttpd_epi32(_mm256_mul_pd(high, f1))));
}

__m256i Pack(__m256i low, __m256i high) {
  return _mm256_max_epi16(_mm256_packs_epi32(low, high), _mm256_set1_epi16(-kFullScale));
}

// Pairs of four neighbouring output frames: one load and a shuffle where they lie within 8 samples.
__m128i MonoPairs(const short* in, const std::int32_t* k) {
  const std::int32_t first = k[0];
  if (k[3] - first <= 6) {
    const __m128i at =
        _mm_sub_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(k)), _mm_set1_epi32(first));
    const __m128i bytes =
        _mm_add_epi32(_mm_mullo_epi32(at, _mm_set1_epi32(0x02020202)), _mm_set1_epi32(0x03020100));
    return _mm_shuffle_epi8(LoadHalf(in + first), bytes);
  }
  const auto load = [&](int i) {
    int v;
    __builtin_memcpy(&v, in + k[i], sizeof v);
    return v;
  };
  return _mm_set_epi32(load(3), load(2), load(1), load(0));
}

__m256i MonoEight(const short* in, const std::int32_t* k, const double* f) {
  return Between(Join(MonoPairs(in, k), MonoPairs(in, k + 4)), _mm256_loadu_pd(f),
                 _mm256_loadu_pd(f + 4));
}

// Two frames' fractions, for both channels.
__m256d StereoFractions(const double* f) {
  return _mm256_permute4x64_pd(_mm256_castpd128_pd256(_mm_loadu_pd(f)), 0x50);
}

__m256i StereoFour(const short* in, const std::int32_t* k, const double* f) {
  const auto load = [&](int i) {
    return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(in + std::ptrdiff_t{2} * k[i]));
  };
  const __m256i frames =
      Join(_mm_unpacklo_epi64(load(0), load(1)), _mm_unpacklo_epi64(load(2), load(3)));
  const __m256i pairs =
      _mm256_shuffle_epi8(frames, _mm256_broadcastsi128_si256(_mm_set_epi8(
                                      15, 14, 11, 10, 13, 12, 9, 8, 7, 6, 3, 2, 5, 4, 1, 0)));
  return Between(pairs, StereoFractions(f), StereoFractions(f + 2));
}

void InterpolateMany(const short* in, const std::int32_t* k, const double* f, int count,
                     int channels, short* out) {
  int i = 0;
  for (; (count - i) * channels >= 8; ++i, out += channels) {
    const short* from = in + static_cast<std::ptrdiff_t>(k[i]) * channels;
    const __m256i a = _mm256_cvtepi16_epi32(LoadHalf(from));
    const __m256i d = _mm256_sub_epi32(_mm256_cvtepi16_epi32(LoadHalf(from + channels)), a);
    const __m256d at = _mm256_broadcast_sd(f + i);
    const __m256d low = _mm256_cvtepi32_pd(_mm256_castsi256_si128(d));
    const __m256d high = _mm256_cvtepi32_pd(_mm256_extracti128_si256(d, 1));
    const __m128i v = _mm_packs_epi32(
        _mm_add_epi32(_mm256_castsi256_si128(a), _mm256_cvttpd_epi32(_mm256_mul_pd(low, at))),
        _mm_add_epi32(_mm256_extracti128_si256(a, 1),
                      _mm256_cvttpd_epi32(_mm256_mul_pd(high, at))));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out),
                     _mm_max_epi16(v, _mm_set1_epi16(-kFullScale)));
  }
  InterpolateScalar(in, k + i, f + i, count - i, channels, out);
}

// The last vector goes back to end where the output ends, and makes some samples twice.
int KeepWithin(int i, int last) {
  return i < last ? i : last;
}

void Interpolate(const short* in, const std::int32_t* k, const double* f, int count, int channels,
                 short* out) {
  if (channels == 1 && count >= 16) {
    for (int i = 0; i < count; i += 16) {
      i = KeepWithin(i, count - 16);
      Store(out + i,
            Reorder(Pack(MonoEight(in, k + i, f + i), MonoEight(in, k + i + 8, f + i + 8))));
    }
  } else if (channels == 2 && count >= 8) {
    for (int i = 0; i < count; i += 8) {
      i = KeepWithin(i, count - 8);
      Store(out + 2 * i,
            Reorder(Pack(StereoFour(in, k + i, f + i), StereoFour(in, k + i + 4, f + i + 4))));
    }
  } else if (channels <= 8) {
    InterpolateMany(in, k, f, count, channels, out);
  } else {
    InterpolateScalar(in, k, f, count, channels, out);
  }
}

void InterpolateMonoToStereo(const short* in, const std::int32_t* k, const double* f, int count,
                             short* out) {
  if (count < 16) return InterpolateMonoToStereoScalar(in, k, f, count, out);
  for (int i = 0; i < count; i += 16) {
    i = KeepWithin(i, count - 16);
    const __m256i v = Pack(MonoEight(in, k + i, f + i), MonoEight(in, k + i + 8, f + i + 8));
    StoreTwice(out + 2 * i, Reorder(v));
  }
}

// Mixing.

// The exact sums of samples i ... i + 15 (modulo 2^32), in the order that packs to theirs.
void Sums(const MixInputs& in, int i, __m256i* low, __m256i* high) {
  const __m256i ones = _mm256_set1_epi16(1);
  *low = *high = _mm256_setzero_si256();
  for (int n = 0; n < in.count; n += 2) {
    const __m256i a = Load(in.inputs[n] + i);
    const __m256i b = n + 1 < in.count ? Load(in.inputs[n + 1] + i) : _mm256_setzero_si256();
    *low = _mm256_add_epi32(*low, _mm256_madd_epi16(_mm256_unpacklo_epi16(a, b), ones));
    *high = _mm256_add_epi32(*high, _mm256_madd_epi16(_mm256_unpackhi_epi16(a, b), ones));
  }
}

bool Fits(__m256i low, __m256i high) {
  const __m256i top = _mm256_set1_epi32(kFullScale), bottom = _mm256_set1_epi32(-kFullScale);
  const __m256i out = _mm256_or_si256(
      _mm256_or_si256(_mm256_cmpgt_epi32(low, top), _mm256_cmpgt_epi32(high, top)),
      _mm256_or_si256(_mm256_cmpgt_epi32(bottom, low), _mm256_cmpgt_epi32(bottom, high)));
  return _mm256_testz_si256(out, out) != 0;
}

// One vector of the mix where its exact sums fit.
bool MixExactly(const MixInputs& in, int i, short* out) {
  __m256i low, high;
  Sums(in, i, &low, &high);
  if (!Fits(low, high)) return false;
  Store(out + i, _mm256_packs_epi32(low, high));
  return true;
}

// Vectors at once, so that each pointer is read once for all of them.
constexpr int kMixVectors = 4;

// The check is that of the SSE2 kernel: saturating sums from two starts, equal if any saturated.
template <bool Two>
int MixUnity(const MixInputs& in, int i, int end, short* out) {
  constexpr int kBlock = 16 * kMixVectors;
  for (; i + kBlock <= end; i += kBlock) {
    __m256i sum[kMixVectors], below[kMixVectors];
    for (int v = 0; v < kMixVectors; ++v) {
      sum[v] = Load(in.inputs[0] + i + 16 * v);
      below[v] = _mm256_subs_epi16(sum[v], _mm256_set1_epi16(1));
    }
    const int count = Two ? 2 : in.count;
    for (int n = 1; n < count; ++n) {
      const short* from = in.inputs[n] + i;
      for (int v = 0; v < kMixVectors; ++v) {
        const __m256i x = Load(from + 16 * v);
        sum[v] = _mm256_adds_epi16(sum[v], x);
        below[v] = _mm256_adds_epi16(below[v], x);
      }
    }
    __m256i equal = _mm256_setzero_si256();
    for (int v = 0; v < kMixVectors; ++v) {
      equal = _mm256_or_si256(equal, _mm256_cmpeq_epi16(sum[v], below[v]));
    }
    if (_mm256_testz_si256(equal, equal) != 0) {
      for (int v = 0; v < kMixVectors; ++v) Store(out + i + 16 * v, sum[v]);
    } else {
      for (int v = 0; v < kMixVectors; ++v) {
        if (!MixExactly(in, i + 16 * v, out)) return MixUnityScalar(in, i + 16 * v, end, out);
      }
    }
  }
  for (; i + 16 <= end && MixExactly(in, i, out); i += 16) {
  }
  return MixUnityScalar(in, i, end, out);
}

int MixUnityAny(const MixInputs& in, int i, int end, short* out) {
  return in.count == 2 ? MixUnity<true>(in, i, end, out) : MixUnity<false>(in, i, end, out);
}

__m256i Scale(__m256i sums, __m256d g0, __m256d g1) {
  const __m256d low = _mm256_cvtepi32_pd(_mm256_castsi256_si128(sums));
  const __m256d high = _mm256_cvtepi32_pd(_mm256_extracti128_si256(sums, 1));
  return Join(_mm256_cvttpd_epi32(_mm256_mul_pd(low, g0)),
              _mm256_cvttpd_epi32(_mm256_mul_pd(high, g1)));
}

int MixGain(const MixInputs& in, int i, int end, double gain, double step, short* out) {
  const int first = i;
  // Gains of samples 0-3, 4-7, 8-11 and 12-15; the sums come as 0-3, 8-11 and 4-7, 12-15.
  const __m256d four = _mm256_set1_pd(4 * step);
  __m256d g0 = _mm256_add_pd(_mm256_set1_pd(gain),
                             _mm256_mul_pd(_mm256_set1_pd(step), _mm256_set_pd(3, 2, 1, 0)));
  for (; i + 16 <= end; i += 16) {
    const __m256d g1 = _mm256_add_pd(g0, four), g2 = _mm256_add_pd(g1, four),
                  g3 = _mm256_add_pd(g2, four);
    __m256i low, high;
    Sums(in, i, &low, &high);
    low = Scale(low, g0, g2);
    high = Scale(high, g1, g3);
    if (!Fits(low, high)) break;
    Store(out + i, _mm256_packs_epi32(low, high));
    g0 = _mm256_add_pd(g3, four);
  }
  return MixGainScalar(in, i, end, gain + (i - first) * step, step, out);
}

}  // namespace

void SetAvx2Kernels(Kernels* kernels) {
  SetLaneKernels<Ops>(kernels);
  kernels->channels[0][1] = MonoToStereo;
  kernels->channels[1][0] = StereoToMono;
  kernels->positions = Positions;
  kernels->interpolate = Interpolate;
  kernels->interpolateMonoToStereo = InterpolateMonoToStereo;
  kernels->mixUnity = MixUnityAny;
  kernels->mixGain = MixGain;
}

}  // namespace zel::audio
