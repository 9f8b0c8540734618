// SSE2: what every x86 processor that we run on has.
#include <emmintrin.h>

#include "zel/audio/detail/KernelsScalar.h"
#include "zel/audio/detail/KernelsX86.h"

namespace zel::audio {
namespace {

__m128i Load(const short* p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}
void Store(short* p, __m128i v) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v);
}
int LoadPair(const short* p) {
  int v;
  __builtin_memcpy(&v, p, sizeof v);
  return v;
}

// Channels.

void MonoToStereo(const short* in, int frames, short* out) {
  for (; frames >= 8; frames -= 8, in += 8, out += 16) {
    const __m128i v = Load(in);
    Store(out, _mm_unpacklo_epi16(v, v));
    Store(out + 8, _mm_unpackhi_epi16(v, v));
  }
  kKernelsScalar.channels[0][1](in, frames, out);
}

// Sums of neighbours, each halved toward zero.
__m128i HalvedPairs(__m128i v) {
  v = _mm_srai_epi16(_mm_sub_epi16(v, _mm_srai_epi16(v, 15)), 1);
  return _mm_madd_epi16(v, _mm_set1_epi16(1));
}

void StereoToMono(const short* in, int frames, short* out) {
  for (; frames >= 8; frames -= 8, in += 16, out += 8) {
    Store(out, _mm_packs_epi32(HalvedPairs(Load(in)), HalvedPairs(Load(in + 8))));
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
    if constexpr (In == 1) {
      Store(out, _mm_cvtsi32_si128(static_cast<unsigned short>(*in) * 0x10001U));
    } else if constexpr (In == 2) {
      Store(out, _mm_cvtsi32_si128(LoadPair(in)));
    } else {
      Store(out, _mm_and_si128(Load(in), mask));
    }
  }
  kKernelsScalar.channels[In - 1][2](in, frames, out);
}

// Rates.

void Positions(int first, int count, int n, int t, std::int32_t* k, double* f) {
  const __m128d one = _mm_set1_pd(1), samples = _mm_set1_pd(n), all = _mm_set1_pd(t);
  __m128d j = _mm_set_pd(first + 2.0, first + 1.0);
  int i = 0;
  for (; i + 2 <= count; i += 2, j = _mm_add_pd(j, _mm_set1_pd(2))) {
    const __m128d x = _mm_sub_pd(_mm_div_pd(_mm_mul_pd(j, samples), all), one);
    const __m128i before = _mm_sub_epi32(_mm_cvttpd_epi32(_mm_add_pd(x, one)), _mm_set1_epi32(1));
    const __m128d low = _mm_max_pd(_mm_cvtepi32_pd(before), _mm_set1_pd(-1));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(k + i), _mm_cvttpd_epi32(low));
    const __m128d inside = _mm_min_pd(_mm_max_pd(x, low), _mm_add_pd(low, one));
    _mm_storeu_pd(f + i, _mm_sub_pd(inside, low));
  }
  PositionsScalar(first + i, count - i, n, t, k + i, f + i);
}

// The interpolated samples of four pairs of neighbours (a, b), as 32-bit sums.
__m128i Between(__m128i pairs, __m128d f0, __m128d f1) {
  const __m128i d = _mm_madd_epi16(pairs, _mm_set1_epi32(0x0001FFFF));  // b - a
  const __m128i a = _mm_srai_epi32(_mm_slli_epi32(pairs, 16), 16);
  const __m128d high = _mm_cvtepi32_pd(_mm_unpackhi_epi64(d, d));
  const __m128i steps = _mm_unpacklo_epi64(_mm_cvttpd_epi32(_mm_mul_pd(_mm_cvtepi32_pd(d), f0)),
                                           _mm_cvttpd_epi32(_mm_mul_pd(high, f1)));
  return _mm_add_epi32(a, steps);
}

__m128i Pack(__m128i low, __m128i high) {
  return _mm_max_epi16(_mm_packs_epi32(low, high), _mm_set1_epi16(-kFullScale));
}

__m128i MonoFour(const short* in, const std::int32_t* k, const double* f) {
  const __m128i pairs = _mm_set_epi32(LoadPair(in + k[3]), LoadPair(in + k[2]), LoadPair(in + k[1]),
                                      LoadPair(in + k[0]));
  return Between(pairs, _mm_loadu_pd(f), _mm_loadu_pd(f + 2));
}

__m128i StereoTwo(const short* in, const std::int32_t* k, const double* f) {
  const auto load = [&](int i) {
    return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(in + std::ptrdiff_t{2} * k[i]));
  };
  __m128i pairs = _mm_unpacklo_epi64(load(0), load(1));
  pairs = _mm_shufflehi_epi16(_mm_shufflelo_epi16(pairs, 0xD8), 0xD8);
  return Between(pairs, _mm_set1_pd(f[0]), _mm_set1_pd(f[1]));
}

void InterpolateMany(const short* in, const std::int32_t* k, const double* f, int count,
                     int channels, short* out) {
  int i = 0;
  for (; (count - i) * channels >= 8; ++i, out += channels) {
    const short* from = in + static_cast<std::ptrdiff_t>(k[i]) * channels;
    const __m128i a = Load(from), b = Load(from + channels);
    const __m128d at = _mm_set1_pd(f[i]);
    Store(out, Pack(Between(_mm_unpacklo_epi16(a, b), at, at),
                    Between(_mm_unpackhi_epi16(a, b), at, at)));
  }
  InterpolateScalar(in, k + i, f + i, count - i, channels, out);
}

// The last vector goes back to end where the output ends, and makes some samples twice.
int KeepWithin(int i, int last) {
  return i < last ? i : last;
}

void Interpolate(const short* in, const std::int32_t* k, const double* f, int count, int channels,
                 short* out) {
  if (channels == 1 && count >= 8) {
    for (int i = 0; i < count; i += 8) {
      i = KeepWithin(i, count - 8);
      Store(out + i, Pack(MonoFour(in, k + i, f + i), MonoFour(in, k + i + 4, f + i + 4)));
    }
  } else if (channels == 2 && count >= 4) {
    for (int i = 0; i < count; i += 4) {
      i = KeepWithin(i, count - 4);
      Store(out + 2 * i, Pack(StereoTwo(in, k + i, f + i), StereoTwo(in, k + i + 2, f + i + 2)));
    }
  } else if (channels <= 8) {
    InterpolateMany(in, k, f, count, channels, out);
  } else {
    InterpolateScalar(in, k, f, count, channels, out);
  }
}

void InterpolateMonoToStereo(const short* in, const std::int32_t* k, const double* f, int count,
                             short* out) {
  if (count < 8) return InterpolateMonoToStereoScalar(in, k, f, count, out);
  for (int i = 0; i < count; i += 8) {
    i = KeepWithin(i, count - 8);
    const __m128i v = Pack(MonoFour(in, k + i, f + i), MonoFour(in, k + i + 4, f + i + 4));
    Store(out + 2 * i, _mm_unpacklo_epi16(v, v));
    Store(out + 2 * i + 8, _mm_unpackhi_epi16(v, v));
  }
}

// Mixing.

// The exact sums of samples i ... i + 7 (modulo 2^32).
void Sums(const MixInputs& in, int i, __m128i* low, __m128i* high) {
  const __m128i ones = _mm_set1_epi16(1);
  *low = *high = _mm_setzero_si128();
  for (int n = 0; n < in.count; n += 2) {
    const __m128i a = Load(in.inputs[n] + i);
    const __m128i b = n + 1 < in.count ? Load(in.inputs[n + 1] + i) : _mm_setzero_si128();
    *low = _mm_add_epi32(*low, _mm_madd_epi16(_mm_unpacklo_epi16(a, b), ones));
    *high = _mm_add_epi32(*high, _mm_madd_epi16(_mm_unpackhi_epi16(a, b), ones));
  }
}

bool Fits(__m128i low, __m128i high) {
  const __m128i top = _mm_set1_epi32(kFullScale), bottom = _mm_set1_epi32(-kFullScale);
  const __m128i out =
      _mm_or_si128(_mm_or_si128(_mm_cmpgt_epi32(low, top), _mm_cmpgt_epi32(high, top)),
                   _mm_or_si128(_mm_cmplt_epi32(low, bottom), _mm_cmplt_epi32(high, bottom)));
  return _mm_movemask_epi8(out) == 0;
}

// Sums with saturation, from two starts that are 1 apart. They stay apart unless a sum on the way
// saturates, or is -32768; once they are equal they stay equal. So at the end one comparison tells
// whether the sums are exact and fit.
int MixUnity(const MixInputs& in, int i, int end, short* out) {
  for (; i + 8 <= end; i += 8) {
    __m128i sum = Load(in.inputs[0] + i);
    __m128i below = _mm_subs_epi16(sum, _mm_set1_epi16(1));
    for (int n = 1; n < in.count; ++n) {
      const __m128i v = Load(in.inputs[n] + i);
      sum = _mm_adds_epi16(sum, v);
      below = _mm_adds_epi16(below, v);
    }
    if (_mm_movemask_epi8(_mm_cmpeq_epi16(sum, below)) != 0) {
      __m128i low, high;
      Sums(in, i, &low, &high);
      if (!Fits(low, high)) break;
      sum = _mm_packs_epi32(low, high);
    }
    Store(out + i, sum);
  }
  return MixUnityScalar(in, i, end, out);
}

__m128i Scale(__m128i sums, __m128d g0, __m128d g1) {
  const __m128d high = _mm_cvtepi32_pd(_mm_unpackhi_epi64(sums, sums));
  return _mm_unpacklo_epi64(_mm_cvttpd_epi32(_mm_mul_pd(_mm_cvtepi32_pd(sums), g0)),
                            _mm_cvttpd_epi32(_mm_mul_pd(high, g1)));
}

int MixGain(const MixInputs& in, int i, int end, double gain, double step, short* out) {
  const int first = i;
  const __m128d two = _mm_set1_pd(2 * step);
  __m128d g = _mm_set_pd(gain + step, gain);
  for (; i + 8 <= end; i += 8) {
    const __m128d g1 = _mm_add_pd(g, two), g2 = _mm_add_pd(g1, two), g3 = _mm_add_pd(g2, two);
    __m128i low, high;
    Sums(in, i, &low, &high);
    low = Scale(low, g, g1);
    high = Scale(high, g2, g3);
    if (!Fits(low, high)) break;
    Store(out + i, _mm_packs_epi32(low, high));
    g = _mm_add_pd(g3, two);
  }
  return MixGainScalar(in, i, end, gain + (i - first) * step, step, out);
}

}  // namespace

void SetSse2Kernels(Kernels* kernels) {
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
  kernels->mixUnity = MixUnity;
  kernels->mixGain = MixGain;
}

}  // namespace zel::audio
