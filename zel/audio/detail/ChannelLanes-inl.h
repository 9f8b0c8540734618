// The mixing rules from 3 to 8 channels down to 1 or 2, for levels that have byte shuffles and
// pairwise sums.
//
// A lane holds one frame. Its samples are put in their output channel's half (or stay, for one
// output channel), each is divided in its place, and neighbours are added, exactly, in 32 bits.
#pragma once

#include "zel/audio/detail/AudioRows-inl.h"

namespace zel::audio::ZEL_LEVEL {
namespace {

/// Which sample each place of a lane takes (-1: none), and what it is divided by.
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

// Division toward zero of signed words, as
//   sign = x < 0 ? -1 : 0;  y = x + (sign & bias);
//   q = ((y & keep) + high half of y * factor >> shift) - (sign & correction).
// Powers of two are exact once negative numbers are biased. (The half is taken as y - ceil(y / 2),
// because 1/2 is not a possible factor.) The other factors are rounded up, which makes negative
// quotients come out one too low; 5 and 7 need a factor of 17 bits, hence the shift.
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

template <int kIn, int kOut>
constexpr LaneDivision kDivision = MakeDivision(kOut == 1 ? kMonoRules[kIn - 3]
                                                          : kStereoRules[kIn - 3]);

/// One frame in each lane of `x`, mixed: the 32-bit sums of neighbouring terms.
template <int kIn, int kOut>
ZEL_INLINE Reg MixTerms(Reg x) {
  constexpr const LaneDivision& d = kDivision<kIn, kOut>;
  const auto constant = [](const void* p) ZEL_INLINE_LAMBDA { return EachLane(LoadLane(p)); };
  x = ShuffleBytes(x, constant(d.shuffle));
  const Reg sign = ShiftRightSigned16<15>(x);
  if constexpr (d.biased) x = Add16(x, And(sign, constant(d.bias)));
  Reg q = MulHigh16(x, constant(d.factor));
  if constexpr (d.shifted) q = ShiftRightSigned16<1>(q);
  if constexpr (d.kept) q = Add16(q, And(x, constant(d.keep)));
  if constexpr (d.corrected) q = Sub16(q, And(sign, constant(d.correction)));
  return MulAdd16(q, Set16(1));
}

/// Frames that are `frames` apart, the first at `in`, one to a lane.
template <int kIn>
ZEL_INLINE Reg LoadFrameLanes(const short* in, int frames) {
  return LoadLanes([=](int i) ZEL_INLINE_LAMBDA { return in + i * frames * kIn; });
}

/// Four sums of neighbours each from m[0] to m[3], as samples.
template <int kIn>
ZEL_INLINE Reg PackTerms(const Reg* m) {
  const Reg v = Pack16(AddPairs32(m[0], m[1]), AddPairs32(m[2], m[3]));
  return kIn == 6 ? Max16(v, Set16(-kFullScale)) : v;
}

/// Loads reach beyond a frame of fewer than 8 samples: the last two frames are left to the scalar
/// kernel.
template <class Base>
struct LaneSteps : Base {
  template <int kIn, int kOut>
  static void Mix(const short* in, int frames, short* out) {
    constexpr int kBlock = kSamples / kOut;  // Frames that make a register.
    constexpr int kApart = 8 / kOut;         // Frames from a lane to the next.
    const auto step = [=](int x) ZEL_INLINE_LAMBDA {
      Reg m[kApart];
      for (int i = 0; i < kApart; ++i) {
        m[i] = MixTerms<kIn, kOut>(LoadFrameLanes<kIn>(in + (x + i) * kIn, kApart));
      }
      if constexpr (kOut == 1) {
        for (int i = 0; i < 4; ++i) m[i] = AddPairs32(m[2 * i], m[2 * i + 1]);
      }
      Store(out + x * kOut, PackTerms<kIn>(m));
      return true;
    };
    CoverThenPlain(frames, kBlock, kBlock + 2, step, [=](int x) {
      plain::kKernels.channels[kIn - 1][kOut - 1](in + x * kIn, frames - x, out + x * kOut);
    });
  }
};

}  // namespace
}  // namespace zel::audio::ZEL_LEVEL
