// The mixing rules from 3 to 8 channels down to 1 or 2, said for vectors of 8 samples.
//
// A vector holds one frame. Its samples are put in their output channel's half (or stay, for one
// output channel), each is divided in its lane, and neighbours are added, exactly, in 32 bits.
#include "zel/audio/detail/AudioRows-inl.h"

namespace zel::audio {
namespace {

// Which sample each lane takes (-1: none), and what it is divided by.
struct LaneRule {
  int source[8];
  int divisor[8];
};

inline constexpr LaneRule kMonoRules[] = {
    {{0, 1, 2, -1, -1, -1, -1, -1}, {3, 3, 3, 1, 1, 1, 1, 1}},
    {{0, 1, 2, 3, -1, -1, -1, -1}, {4, 4, 4, 4, 1, 1, 1, 1}},
    {{0, 1, 2, 3, 4, -1, -1, -1}, {5, 5, 5, 5, 5, 5, 5, 5}},
    {{0, 1, 2, 3, 4, 5, -1, -1}, {2, 2, 2, 2, 4, 4, 1, 1}},
    {{0, 1, 2, 3, 4, 5, 6, -1}, {7, 7, 7, 7, 7, 7, 7, 7}},
    {{0, 1, 2, 3, 4, 5, 6, 7}, {8, 8, 8, 8, 8, 8, 8, 8}},
};

inline constexpr LaneRule kStereoRules[] = {
    {{0, -1, -1, -1, 1, 2, -1, -1}, {1, 1, 1, 1, 2, 2, 1, 1}},
    {{0, 1, 2, 3, 0, 1, 2, 3}, {4, 4, 4, 4, 4, 4, 4, 4}},
    {{0, 1, -1, -1, 2, 3, 4, -1}, {2, 2, 1, 1, 3, 3, 3, 1}},
    {{0, 2, 3, 4, 1, 2, 3, 5}, {1, 2, 2, 4, 1, 2, 2, 4}},
    {{0, 1, 2, -1, 3, 4, 5, 6}, {3, 3, 3, 1, 4, 4, 4, 4}},
    {{0, 1, 2, 3, 4, 5, 6, 7}, {4, 4, 4, 4, 4, 4, 4, 4}},
};

// Division toward zero in 16-bit lanes, as
//   sign = x < 0 ? -1 : 0;  y = x + (sign & bias);
//   q = ((y & keep) + high half of y * factor >> shift) - (sign & correction).
// Powers of two are exact once negative numbers are biased (the half is taken as y - ceil(y / 2),
// for want of a factor of 1/2). The other factors are rounded up, which makes negative quotients
// come out one too low; 5 and 7 need a factor of 17 bits, hence the shift.
struct LaneDivision {
  alignas(16) signed char shuffle[16];
  alignas(16) short bias[8];
  alignas(16) short keep[8];
  alignas(16) short factor[8];
  alignas(16) short correction[8];
  bool biased = false, kept = false, corrected = false, shifted = false;
};

constexpr LaneDivision MakeDivision(const LaneRule& rule) {
  LaneDivision d = {};
  for (int i = 0; i < 8; ++i) {
    const int source = rule.source[i];
    d.shuffle[2 * i] = static_cast<signed char>(source < 0 ? -1 : 2 * source);
    d.shuffle[2 * i + 1] = static_cast<signed char>(source < 0 ? -1 : 2 * source + 1);
    const int divisor = rule.divisor[i];
    const bool power = (divisor & (divisor - 1)) == 0;
    d.shifted = d.shifted || divisor == 5 || divisor == 7;
    d.bias[i] = static_cast<short>(power ? divisor - 1 : 0);
    d.keep[i] = static_cast<short>(divisor <= 2 ? -1 : 0);
    d.factor[i] = static_cast<short>(divisor == 1   ? 0
                                     : divisor == 2 ? -32768
                                     : power        ? 65536 / divisor
                                     : divisor == 3 ? 65536 / 3 + 1
                                                    : 131072 / divisor + 1);
    d.correction[i] = static_cast<short>(power ? 0 : -1);
    d.biased = d.biased || d.bias[i] != 0;
    d.kept = d.kept || d.keep[i] != 0;
    d.corrected = d.corrected || !power;
  }
  return d;
}

template <int In, int Out>
constexpr LaneDivision kDivision = MakeDivision(Out == 1 ? kMonoRules[In - 3]
                                                         : kStereoRules[In - 3]);

#if defined(__AVX2__)
inline Reg LoadLanes(const short* p, int stride) {
  const auto lane = [](const short* at) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
  };
  return Join(lane(p), lane(p + stride));
}
inline Reg Constant(const void* p) {
  return _mm256_broadcastsi128_si256(_mm_load_si128(static_cast<const __m128i*>(p)));
}
#else
inline Reg LoadLanes(const short* p, int) {
  return Load(p);
}
inline Reg Constant(const void* p) {
  return Load(p);
}
#endif

// One frame in each 16-byte lane of `x`, mixed: the 32-bit sums of neighbouring terms.
template <int In, int Out>
inline Reg MixTerms(Reg x) {
  constexpr const LaneDivision& d = kDivision<In, Out>;
  x = ZEL_OP(shuffle_epi8)(x, Constant(d.shuffle));
  const Reg sign = ZEL_OP(srai_epi16)(x, 15);
  if constexpr (d.biased) x = ZEL_OP(add_epi16)(x, sign & Constant(d.bias));
  Reg q = ZEL_OP(mulhi_epi16)(x, Constant(d.factor));
  if constexpr (d.shifted) q = ZEL_OP(srai_epi16)(q, 1);
  if constexpr (d.kept) q = ZEL_OP(add_epi16)(q, x & Constant(d.keep));
  if constexpr (d.corrected) q = ZEL_OP(sub_epi16)(q, sign & Constant(d.correction));
  return ZEL_OP(madd_epi16)(q, ZEL_OP(set1_epi16)(1));
}

// Four sums of neighbours each from m[0] to m[3], as samples.
template <int In>
inline Reg PackTerms(const Reg* m) {
  const Reg v = ZEL_OP(packs_epi32)(ZEL_OP(hadd_epi32)(m[0], m[1]), ZEL_OP(hadd_epi32)(m[2], m[3]));
  return In == 6 ? ZEL_OP(max_epi16)(v, ZEL_OP(set1_epi16)(-kFullScale)) : v;
}

// Loads reach beyond a frame of fewer than 8 samples: the last two frames are left to the scalar
// kernel.
template <int In>
void MixToStereo(const short* in, int frames, short* out) {
  constexpr int kBlock = kSamples / 2;
  for (; frames >= kBlock + 2; frames -= kBlock, in += kBlock * In, out += kSamples) {
    Reg m[4];
    for (int i = 0; i < 4; ++i) m[i] = MixTerms<In, 2>(LoadLanes(in + i * In, 4 * In));
    Store(out, PackTerms<In>(m));
  }
  kKernelsScalar.channels[In - 1][1](in, frames, out);
}

template <int In>
void MixToMono(const short* in, int frames, short* out) {
  for (; frames >= kSamples + 2; frames -= kSamples, in += kSamples * In, out += kSamples) {
    Reg m[8];
    for (int i = 0; i < 8; ++i) m[i] = MixTerms<In, 1>(LoadLanes(in + i * In, 8 * In));
    for (int i = 0; i < 4; ++i) m[i] = ZEL_OP(hadd_epi32)(m[2 * i], m[2 * i + 1]);
    Store(out, PackTerms<In>(m));
  }
  kKernelsScalar.channels[In - 1][0](in, frames, out);
}

template <int In>
inline void SetLaneKernel(Kernels* kernels) {
  kernels->channels[In - 1][0] = MixToMono<In>;
  kernels->channels[In - 1][1] = MixToStereo<In>;
}

inline void SetLaneKernels(Kernels* kernels) {
  SetLaneKernel<3>(kernels);
  SetLaneKernel<4>(kernels);
  SetLaneKernel<5>(kernels);
  SetLaneKernel<6>(kernels);
  SetLaneKernel<7>(kernels);
  SetLaneKernel<8>(kernels);
}

}  // namespace
}  // namespace zel::audio
