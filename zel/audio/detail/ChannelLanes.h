// The mixing rules from 3 to 8 channels down to 1 or 2, said for vectors of 8 samples.
//
// A vector holds one frame. Its samples are put in their output channel's half (or stay, for one
// output channel), each is divided in its lane, and neighbours are added, exactly, in 32 bits. The
// including file says in which instruction set: everything here has internal linkage.
#pragma once

#include "zel/audio/detail/KernelsScalar.h"

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

// One frame in each 16-byte lane of `x`, mixed: the 32-bit sums of neighbouring terms.
template <class O, int In, int Out>
inline typename O::V MixTerms(typename O::V x) {
  constexpr const LaneDivision& d = kDivision<In, Out>;
  x = O::Shuffle(x, O::Constant(d.shuffle));
  const typename O::V sign = O::template ShiftRight<15>(x);
  if constexpr (d.biased) x = O::Add(x, O::And(sign, O::Constant(d.bias)));
  typename O::V q = O::MultiplyHigh(x, O::Constant(d.factor));
  if constexpr (d.shifted) q = O::template ShiftRight<1>(q);
  if constexpr (d.kept) q = O::Add(q, O::And(x, O::Constant(d.keep)));
  if constexpr (d.corrected) q = O::Subtract(q, O::And(sign, O::Constant(d.correction)));
  return O::MultiplyAdd(q, O::Set(1));
}

// Loads reach beyond a frame of fewer than 8 samples: the last two frames are left to the scalar
// kernel.
template <class O, int In>
void MixToStereo(const short* in, int frames, short* out) {
  constexpr int kBlock = 4 * O::kLanes;
  for (; frames >= kBlock + 2; frames -= kBlock, in += kBlock * In, out += kBlock * 2) {
    typename O::V m[4];
    for (int i = 0; i < 4; ++i) m[i] = MixTerms<O, In, 2>(O::LoadLanes(in + i * In, 4 * In));
    typename O::V v = O::Pack(O::AddPairs(m[0], m[1]), O::AddPairs(m[2], m[3]));
    if constexpr (In == 6) v = O::Max(v, O::Set(-kFullScale));
    O::Store(out, v);
  }
  kKernelsScalar.channels[In - 1][1](in, frames, out);
}

template <class O, int In>
void MixToMono(const short* in, int frames, short* out) {
  constexpr int kBlock = 8 * O::kLanes;
  for (; frames >= kBlock + 2; frames -= kBlock, in += kBlock * In, out += kBlock) {
    typename O::V m[8];
    for (int i = 0; i < 8; ++i) m[i] = MixTerms<O, In, 1>(O::LoadLanes(in + i * In, 8 * In));
    for (int i = 0; i < 4; ++i) m[i] = O::AddPairs(m[2 * i], m[2 * i + 1]);
    typename O::V v = O::Pack(O::AddPairs(m[0], m[1]), O::AddPairs(m[2], m[3]));
    if constexpr (In == 6) v = O::Max(v, O::Set(-kFullScale));
    O::Store(out, v);
  }
  kKernelsScalar.channels[In - 1][0](in, frames, out);
}

template <class O>
void SetLaneKernels(Kernels* kernels) {
  kernels->channels[2][0] = MixToMono<O, 3>;
  kernels->channels[3][0] = MixToMono<O, 4>;
  kernels->channels[4][0] = MixToMono<O, 5>;
  kernels->channels[5][0] = MixToMono<O, 6>;
  kernels->channels[6][0] = MixToMono<O, 7>;
  kernels->channels[7][0] = MixToMono<O, 8>;
  kernels->channels[2][1] = MixToStereo<O, 3>;
  kernels->channels[3][1] = MixToStereo<O, 4>;
  kernels->channels[4][1] = MixToStereo<O, 5>;
  kernels->channels[5][1] = MixToStereo<O, 6>;
  kernels->channels[6][1] = MixToStereo<O, 7>;
  kernels->channels[7][1] = MixToStereo<O, 8>;
}

}  // namespace
}  // namespace zel::audio
