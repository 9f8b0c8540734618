// AVX-512 (F, BW, DQ, VL): whole windows of input permuted by sample.
#include <immintrin.h>

#include "zel/audio/detail/KernelsScalar.h"
#include "zel/audio/detail/KernelsX86.h"

namespace zel::audio {
namespace {

__m512i Load(const short* p) {
  return _mm512_loadu_si512(p);
}
void Store(short* p, __m512i v) {
  _mm512_storeu_si512(p, v);
}
__m256i LoadPositions(const std::int32_t* k) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(k));
}
__m512i Join(__m256i low, __m256i high) {
  return _mm512_inserti64x4(_mm512_castsi256_si512(low), high, 1);
}

// Channels.

__m512i HalvedPairs(__m512i v) {
  v = _mm512_srai_epi16(_mm512_sub_epi16(v, _mm512_srai_epi16(v, 15)), 1);
  return _mm512_madd_epi16(v, _mm512_set1_epi16(1));
}

void StereoToMono(const short* in, int frames, short* out) {
  const __m512i order = _mm512_set_epi64(7, 5, 3, 1, 6, 4, 2, 0);
  for (; frames >= 32; frames -= 32, in += 64, out += 32) {
    const __m512i v = _mm512_packs_epi32(HalvedPairs(Load(in)), HalvedPairs(Load(in + 32)));
    Store(out, _mm512_permutexvar_epi64(order, v));
  }
  kKernelsScalar.channels[1][0](in, frames, out);
}

// Rates.

void Positions(int first, int count, int n, int t, std::int32_t* k, double* f) {
  const __m512d one = _mm512_set1_pd(1), samples = _mm512_set1_pd(n), all = _mm512_set1_pd(t);
  __m512d j = _mm512_add_pd(_mm512_set1_pd(first), _mm512_set_pd(8, 7, 6, 5, 4, 3, 2, 1));
  int i = 0;
  for (; i + 8 <= count; i += 8, j = _mm512_add_pd(j, _mm512_set1_pd(8))) {
    const __m512d x = _mm512_sub_pd(_mm512_div_pd(_mm512_mul_pd(j, samples), all), one);
    const __m256i before = _mm256_max_epi32(
        _mm256_sub_epi32(_mm512_cvttpd_epi32(_mm512_add_pd(x, one)), _mm256_set1_epi32(1)),
        _mm256_set1_epi32(-1));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(k + i), before);
    const __m512d low = _mm512_cvtepi32_pd(before);
    const __m512d inside = _mm512_min_pd(_mm512_max_pd(x, low), _mm512_add_pd(low, one));
    _mm512_storeu_pd(f + i, _mm512_sub_pd(inside, low));
  }
  PositionsScalar(first + i, count - i, n, t, k + i, f + i);
}

// The interpolated samples of sixteen pairs of neighbours (a, b), as 32-bit values.
__m512i Between(__m512i pairs, __m512d f0, __m512d f1) {
  const __m512i d = _mm512_madd_epi16(pairs, _mm512_set1_epi32(0x0001FFFF));  // b - a
  const __m512i a = _mm512_srai_epi32(_mm512_slli_epi32(pairs, 16), 16);
  const __m512d low = _mm512_cvtepi32_pd(_mm512_castsi512_si256(d));
  const __m512d high = _mm512_cvtepi32_pd(_mm512_extracti64x4_epi64(d, 1));
  const __m512i steps = Join(_mm512_cvttpd_epi32(_mm512_mul_pd(low, f0)),
                             _mm512_cvttpd_epi32(_mm512_mul_pd(high, f1)));
  return _mm512_max_epi32(_mm512_add_epi32(a, steps), _mm512_set1_epi32(-kFullScale));
}

// A window of 32 samples from the first position on usually covers 16 positions (up to some twofold
// reduction); where it does not, the pairs are gathered.
__m512i MonoSixteen(const short* in, const std::int32_t* k, const double* f) {
  const __m512i at = _mm512_loadu_si512(k);
  __m512i pairs;
  if (k[15] - k[0] <= 30) {
    const __m512i rel = _mm512_sub_epi32(at, _mm512_set1_epi32(k[0]));
    const __m512i index = _mm512_add_epi32(_mm512_or_si512(rel, _mm512_slli_epi32(rel, 16)),
                                           _mm512_set1_epi32(0x00010000));
    pairs = _mm512_permutexvar_epi16(index, Load(in + k[0]));
  } else {
    pairs = _mm512_i32gather_epi32(at, in, 2);
  }
  return Between(pairs, _mm512_loadu_pd(f), _mm512_loadu_pd(f + 8));
}

// Eight frames; the left samples in the lower half, the right ones in the upper.
__m512i StereoEight(const short* in, const std::int32_t* k, const double* f) {
  const __m256i at = LoadPositions(k);
  const short* from = in + std::ptrdiff_t{2} * k[0];
  const __m256i rel = _mm256_sub_epi32(at, _mm256_set1_epi32(k[0]));
  __m512i pairs;
  if (k[7] - k[0] <= 14) {
    const __m256i twice = _mm256_add_epi32(rel, rel);
    const __m256i left = _mm256_add_epi32(_mm256_or_si256(twice, _mm256_slli_epi32(twice, 16)),
                                          _mm256_set1_epi32(0x00020000));
    const __m256i right = _mm256_add_epi32(left, _mm256_set1_epi32(0x00010001));
    pairs = _mm512_permutexvar_epi16(Join(left, right), Load(from));
  } else {
    const __m256i a = _mm256_i32gather_epi32(reinterpret_cast<const int*>(from), rel, 4);
    const __m256i b = _mm256_i32gather_epi32(reinterpret_cast<const int*>(from + 2), rel, 4);
    pairs = Join(_mm256_mask_blend_epi16(0xAAAA, a, _mm256_slli_epi32(b, 16)),
                 _mm256_mask_blend_epi16(0xAAAA, _mm256_srli_epi32(a, 16), b));
  }
  const __m512d at8 = _mm512_loadu_pd(f);
  return Between(pairs, at8, at8);
}

// Samples whose lower halves are the left and whose upper halves the right channel's.
__m256i Interleave(__m512i v) {
  return _mm256_mask_blend_epi16(0xAAAA, _mm512_castsi512_si256(v),
                                 _mm256_slli_epi32(_mm512_extracti64x4_epi64(v, 1), 16));
}

void InterpolateMany(const short* in, const std::int32_t* k, const double* f, int count,
                     int channels, short* out) {
  int i = 0;
  for (; (count - i) * channels >= 8; ++i, out += channels) {
    const auto* from = in + static_cast<std::ptrdiff_t>(k[i]) * channels;
    const __m256i a =
        _mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(from)));
    const __m256i b =
        _mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(from + channels)));
    const __m256i step = _mm512_cvttpd_epi32(
        _mm512_mul_pd(_mm512_cvtepi32_pd(_mm256_sub_epi32(b, a)), _mm512_set1_pd(f[i])));
    const __m256i v = _mm256_max_epi32(_mm256_add_epi32(a, step), _mm256_set1_epi32(-kFullScale));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm256_cvtepi32_epi16(v));
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
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i),
                          _mm512_cvtepi32_epi16(MonoSixteen(in, k + i, f + i)));
    }
  } else if (channels == 2 && count >= 8) {
    for (int i = 0; i < count; i += 8) {
      i = KeepWithin(i, count - 8);
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + 2 * i),
                          Interleave(StereoEight(in, k + i, f + i)));
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
    const __m512i v = MonoSixteen(in, k + i, f + i);
    Store(out + 2 * i, _mm512_mask_blend_epi16(0xAAAAAAAA, v, _mm512_slli_epi32(v, 16)));
  }
}

// Mixing.

// The exact sums of samples i ... i + 31 (modulo 2^32), in the order that packs to theirs.
void Sums(const MixInputs& in, int i, __m512i* low, __m512i* high) {
  const __m512i ones = _mm512_set1_epi16(1);
  *low = *high = _mm512_setzero_si512();
  for (int n = 0; n < in.count; n += 2) {
    const __m512i a = Load(in.inputs[n] + i);
    const __m512i b = n + 1 < in.count ? Load(in.inputs[n + 1] + i) : _mm512_setzero_si512();
    *low = _mm512_add_epi32(*low, _mm512_madd_epi16(_mm512_unpacklo_epi16(a, b), ones));
    *high = _mm512_add_epi32(*high, _mm512_madd_epi16(_mm512_unpackhi_epi16(a, b), ones));
  }
}

bool Fits(__m512i low, __m512i high) {
  const __m512i limit = _mm512_set1_epi32(2 * kFullScale), shift = _mm512_set1_epi32(kFullScale);
  return (_mm512_cmpgt_epu32_mask(_mm512_add_epi32(low, shift), limit) |
          _mm512_cmpgt_epu32_mask(_mm512_add_epi32(high, shift), limit)) == 0;
}

bool MixExactly(const MixInputs& in, int i, short* out) {
  __m512i low, high;
  Sums(in, i, &low, &high);
  if (!Fits(low, high)) return false;
  Store(out + i, _mm512_packs_epi32(low, high));
  return true;
}

constexpr int kMixVectors = 4;

// The check is that of the SSE2 kernel: saturating sums from two starts, equal if any saturated.
template <bool Two>
int MixUnity(const MixInputs& in, int i, int end, short* out) {
  constexpr int kBlock = 32 * kMixVectors;
  for (; i + kBlock <= end; i += kBlock) {
    __m512i sum[kMixVectors], below[kMixVectors];
    for (int v = 0; v < kMixVectors; ++v) {
      sum[v] = Load(in.inputs[0] + i + 32 * v);
      below[v] = _mm512_subs_epi16(sum[v], _mm512_set1_epi16(1));
    }
    const int count = Two ? 2 : in.count;
    for (int n = 1; n < count; ++n) {
      const short* from = in.inputs[n] + i;
      for (int v = 0; v < kMixVectors; ++v) {
        const __m512i x = Load(from + 32 * v);
        sum[v] = _mm512_adds_epi16(sum[v], x);
        below[v] = _mm512_adds_epi16(below[v], x);
      }
    }
    __mmask32 equal = 0;
    for (int v = 0; v < kMixVectors; ++v) equal |= _mm512_cmpeq_epi16_mask(sum[v], below[v]);
    if (equal == 0) {
      for (int v = 0; v < kMixVectors; ++v) Store(out + i + 32 * v, sum[v]);
    } else {
      for (int v = 0; v < kMixVectors; ++v) {
        if (!MixExactly(in, i + 32 * v, out)) return MixUnityScalar(in, i + 32 * v, end, out);
      }
    }
  }
  for (; i + 32 <= end && MixExactly(in, i, out); i += 32) {
  }
  return MixUnityScalar(in, i, end, out);
}

int MixUnityAny(const MixInputs& in, int i, int end, short* out) {
  return in.count == 2 ? MixUnity<true>(in, i, end, out) : MixUnity<false>(in, i, end, out);
}

__m512i Scale(__m512i sums, __m512d g0, __m512d g1) {
  const __m512d low = _mm512_cvtepi32_pd(_mm512_castsi512_si256(sums));
  const __m512d high = _mm512_cvtepi32_pd(_mm512_extracti64x4_epi64(sums, 1));
  return Join(_mm512_cvttpd_epi32(_mm512_mul_pd(low, g0)),
              _mm512_cvttpd_epi32(_mm512_mul_pd(high, g1)));
}

int MixGain(const MixInputs& in, int i, int end, double gain, double step, short* out) {
  const int first = i;
  // The sums come in fours: 0-3, 8-11, 16-19, 24-27 and then those between.
  const __m512d base = _mm512_set1_pd(gain), each = _mm512_set1_pd(step);
  const auto at = [&](__m512d offsets) {
    return _mm512_add_pd(base, _mm512_mul_pd(each, offsets));
  };
  __m512d g0 = at(_mm512_set_pd(11, 10, 9, 8, 3, 2, 1, 0));
  const __m512d four = _mm512_set1_pd(4 * step), sixteen = _mm512_set1_pd(16 * step);
  for (; i + 32 <= end; i += 32) {
    const __m512d g1 = _mm512_add_pd(g0, four), g2 = _mm512_add_pd(g0, sixteen),
                  g3 = _mm512_add_pd(g1, sixteen);
    __m512i low, high;
    Sums(in, i, &low, &high);
    low = Scale(low, g0, g2);
    high = Scale(high, g1, g3);
    if (!Fits(low, high)) break;
    Store(out + i, _mm512_packs_epi32(low, high));
    g0 = _mm512_add_pd(g2, sixteen);
  }
  return MixGainScalar(in, i, end, gain + (i - first) * step, step, out);
}

}  // namespace

void SetAvx512Kernels(Kernels* kernels) {
  kernels->channels[1][0] = StereoToMono;
  kernels->positions = Positions;
  kernels->interpolate = Interpolate;
  kernels->interpolateMonoToStereo = InterpolateMonoToStereo;
  kernels->mixUnity = MixUnityAny;
  kernels->mixGain = MixGain;
}

}  // namespace zel::audio
