// The vector kernels of the audio room, in the operations of the level that the file includes
// before this one (zel/detail/Registers-inl.h).
//
// The kernels are templates over `Steps`. CommonSteps below has a default for most steps. A level
// derives from it and redefines the steps that it can do faster. The steps without a default are
// those that each register set adds:
//
//   MonoPairs(in, k)         for each k[i], the samples k[i] and k[i] + 1 of a mono input, side by
//                            side
//   StereoPairs(in, k)       for each k[i], the left samples of frames k[i] and k[i] + 1, then the
//                            right ones; half as many frames as in mono
//   StereoFractions(f)       f[0], f[0], f[1], f[1] ...
//   EightSamples(from, channels, f)
//                            eight samples interpolated between those at `from` and those
//                            `channels` samples later; f is the fraction of the way
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "zel/audio/detail/AudioScalar.h"

namespace zel::audio::ZEL_LEVEL {
namespace {

using namespace ::zel::ZEL_LEVEL;

constexpr int kSamples = kRegBytes / 2;  // Samples, pairs of samples, doubles in a register.
constexpr int kPairs = kRegBytes / 4;
constexpr int kDoubles = kRegBytes / 8;

// Arithmetic --------------------------------------------------------------------------------------

/// Halves, toward zero.
ZEL_INLINE Reg Halve(Reg v) {
  return ShiftRightSigned16<1>(Sub16(v, ShiftRightSigned16<15>(v)));
}

/// The interpolated samples of pairs of neighbours (a, b), as 32-bit sums.
ZEL_INLINE Reg Between(Reg pairs, Doubles f0, Doubles f1) {
  const Reg d = MulAdd16(pairs, Set32(0x0001FFFF));  // b - a
  const Reg a = ShiftRightSigned32<16>(ShiftLeft32<16>(pairs));
  return Add32(a, Truncate(LowToDoubles(d) * f0, HighToDoubles(d) * f1));
}

/// 32-bit sums as samples, interleaved by lanes.
ZEL_INLINE Reg ToSamples(Reg low, Reg high) {
  return Max16(Pack16(low, high), Set16(-kFullScale));
}

/// 32-bit sums of a register of samples: lower halves of the lanes in `low`, upper in `high`.
struct Sums {
  Reg low, high;
};

/// `kBelow` is the next lower level. It supplies what this level cannot improve.
template <const Kernels& kBelow>
struct CommonSteps {
  /// How many registers of a mix are summed up at once, so that each pointer is read once for all.
  static constexpr int kMixRegisters = 4;

  /// Each sample twice.
  ZEL_INLINE static void StoreTwice(short* out, Reg v) {
    v = Gather64(v);
    Store(out, InterleaveLow16(v, v));
    Store(out + kSamples, InterleaveHigh16(v, v));
  }
  /// kSamples samples of one channel from twice as many of two.
  ZEL_INLINE static Reg MonoOfStereo(const short* in) {
    const Reg ones = Set16(1);
    return Gather64(
        Pack16(MulAdd16(Halve(Load(in)), ones), MulAdd16(Halve(Load(in + kSamples)), ones)));
  }
  /// Whether all sums are within full scale.
  ZEL_INLINE static bool Fit(const Sums& sums) {
    const Reg top = Set32(kFullScale), bottom = Set32(-kFullScale);
    return !Any(Or(Or(Greater32(sums.low, top), Greater32(sums.high, top)),
                   Or(Greater32(bottom, sums.low), Greater32(bottom, sums.high))));
  }
  /// The mixing rules from 3 to 8 channels to 1 or 2.
  template <int kIn, int kOut>
  static void Mix(const short* in, int frames, short* out) {
    kBelow.channels[kIn - 1][kOut - 1](in, frames, out);
  }
};

// Channels ----------------------------------------------------------------------------------------

template <class Steps>
void MonoToStereo(const short* in, int frames, short* out) {
  if (frames < kSamples) return plain::kKernels.channels[0][1](in, frames, out);
  Cover(frames, kSamples, 0,
        [=](int i) ZEL_INLINE_LAMBDA { Steps::StoreTwice(out + 2 * i, Load(in + i)); });
}

template <class Steps>
void StereoToMono(const short* in, int frames, short* out) {
  if (frames < kSamples) return plain::kKernels.channels[1][0](in, frames, out);
  if (frames < 2 * kSamples) {
    return Cover(frames, kSamples, 0,
                 [=](int i) ZEL_INLINE_LAMBDA { Store(out + i, Steps::MonoOfStereo(in + 2 * i)); });
  }
  Cover(frames, 2 * kSamples, 0, [=](int i) ZEL_INLINE_LAMBDA {
    const Reg first = Steps::MonoOfStereo(in + 2 * i);
    const Reg second = Steps::MonoOfStereo(in + 2 * i + 2 * kSamples);
    Store(out + i, first);
    Store(out + i + kSamples, second);
  });
}

/// Each store also writes two samples of the next frame, which overwrites them later. The scalar
/// kernel does the last frames.
template <int kIn>
void SpreadToSix(const short* in, int frames, short* out) {
  constexpr int kBehind = kIn == 1 ? 1 : 2;
  constexpr int k2 = kIn > 2 ? -1 : 0, k3 = kIn > 3 ? -1 : 0;
  constexpr int k4 = kIn > 4 ? -1 : 0, k5 = kIn > 5 ? -1 : 0;
  const Lane mask = MakeLane(-1, -1, -1, -1, k2, k2, k3, k3, k4, k4, k5, k5, 0, 0, 0, 0);
  const auto step = [=](int i) ZEL_INLINE_LAMBDA {
    const short* const frame = in + kIn * i;
    Lane v;
    if constexpr (kIn == 1) {
      v = LaneFrom32(static_cast<unsigned short>(*frame) * 0x10001U);
    } else if constexpr (kIn == 2) {
      std::uint32_t both;
      std::memcpy(&both, frame, sizeof(both));
      v = LaneFrom32(both);
    } else {
      v = And(LoadLane(frame), mask);
    }
    StoreLane(out + 6 * i, v);
    return true;
  };
  CoverThenPlain(frames, 1, kBehind + 1, step, [=](int i) {
    plain::kKernels.channels[kIn - 1][2](in + kIn * i, frames - i, out + 6 * i);
  });
}

// Rates -------------------------------------------------------------------------------------------

void Positions(int first, int count, int n, int t, std::int32_t* k, double* f) {
  if (count < kDoubles) return plain::Positions(first, count, n, t, k, f);
  static constexpr double numbers[] = {1, 2, 3, 4, 5, 6, 7, 8};
  const Doubles one = SetDoubles(1), samples = SetDoubles(n), all = SetDoubles(t);
  const Doubles start = SetDoubles(first) + LoadDoubles(numbers);
  Cover(count, kDoubles, 0, [=](int i) ZEL_INLINE_LAMBDA {
    const Doubles x = (start + SetDoubles(i)) * samples / all - one;
    const Doubles whole = ToDoubles(Truncate(x + one));
    const Doubles low = Max(whole - one, SetDoubles(-1));
    StoreHalf(k + i, Truncate(low));
    StoreDoubles(f + i, Min(Max(x, low), low + one) - low);
  });
}

/// kSamples samples: as many frames of one channel, half as many of two.
template <class Steps>
ZEL_INLINE Reg MonoSamples(const short* in, const std::int32_t* k, const double* f) {
  const auto half = [=](int i) ZEL_INLINE_LAMBDA {
    return Between(Steps::MonoPairs(in, k + i), LoadDoubles(f + i), LoadDoubles(f + i + kDoubles));
  };
  return Gather64(ToSamples(half(0), half(kPairs)));
}
template <class Steps>
ZEL_INLINE Reg StereoSamples(const short* in, const std::int32_t* k, const double* f) {
  const auto half = [=](int i) ZEL_INLINE_LAMBDA {
    return Between(Steps::StereoPairs(in, k + i), Steps::StereoFractions(f + i),
                   Steps::StereoFractions(f + i + kDoubles / 2));
  };
  return Gather64(ToSamples(half(0), half(kPairs / 2)));
}

/// Up to 8 channels, a frame at a time. A store may reach into the next frames, which overwrite
/// those samples later. The scalar kernel does the last frames.
template <class Steps>
ZEL_INLINE void InterpolateMany(const short* in, const std::int32_t* k, const double* f, int count,
                                int channels, short* out) {
  const auto step = [=](int i) ZEL_INLINE_LAMBDA {
    const short* from = in + static_cast<std::ptrdiff_t>(k[i]) * channels;
    StoreLane(out + i * channels, Steps::EightSamples(from, channels, f[i]));
    return true;
  };
  const int reach = (8 + channels - 1) / channels;  // Frames that a store touches.
  CoverThenPlain(count, 1, reach, step, [=](int i) {
    plain::Interpolate(in, k + i, f + i, count - i, channels, out + i * channels);
  });
}

template <class Steps>
void Interpolate(const short* in, const std::int32_t* k, const double* f, int count, int channels,
                 short* out) {
  if (channels == 1 && count >= kSamples) {
    Cover(count, kSamples, 0,
          [=](int i) ZEL_INLINE_LAMBDA { Store(out + i, MonoSamples<Steps>(in, k + i, f + i)); });
  } else if (channels == 2 && count >= kPairs) {
    Cover(count, kPairs, 0, [=](int i) ZEL_INLINE_LAMBDA {
      Store(out + 2 * i, StereoSamples<Steps>(in, k + i, f + i));
    });
  } else if (channels <= 8) {
    InterpolateMany<Steps>(in, k, f, count, channels, out);
  } else {
    plain::Interpolate(in, k, f, count, channels, out);
  }
}

template <class Steps>
void InterpolateMonoToStereo(const short* in, const std::int32_t* k, const double* f, int count,
                             short* out) {
  if (count < kSamples) return plain::InterpolateMonoToStereo(in, k, f, count, out);
  Cover(count, kSamples, 0, [=](int i) ZEL_INLINE_LAMBDA {
    Steps::StoreTwice(out + 2 * i, MonoSamples<Steps>(in, k + i, f + i));
  });
}

// Mixing ------------------------------------------------------------------------------------------
//
// The output may be one of the inputs, so nothing may be mixed twice: the scalar kernel does the
// end.

/// The exact sums of samples i ... i + kSamples - 1 (modulo 2^32).
template <bool kTwo>
ZEL_INLINE Sums ExactSums(const MixInputs& in, int i) {
  const Reg ones = Set16(1);
  const int count = kTwo ? 2 : in.count;
  Sums sums = {};
  for (int n = 0; n < count; n += 2) {
    const Reg a = Load(in.inputs[n] + i);
    const Reg b = n + 1 < count ? Load(in.inputs[n + 1] + i) : Zero();
    sums.low = Add32(sums.low, MulAdd16(InterleaveLow16(a, b), ones));
    sums.high = Add32(sums.high, MulAdd16(InterleaveHigh16(a, b), ones));
  }
  return sums;
}

/// The sums of kMixRegisters registers with saturation. They are exact, and fit, if the result is
/// true.
///
/// Two sums start 1 apart. They meet only if a sum saturates or is -32,768, and then stay equal.
/// One comparison at the end shows it.
template <class Steps, bool kTwo>
ZEL_INLINE bool SaturatingSums(const MixInputs& in, int i, Reg* sum) {
  Reg below[Steps::kMixRegisters];
  for (int v = 0; v < Steps::kMixRegisters; ++v) {
    sum[v] = Load(in.inputs[0] + i + v * kSamples);
    below[v] = SubSat16(sum[v], Set16(1));
  }
  const int count = kTwo ? 2 : in.count;
  for (int n = 1; n < count; ++n) {
    const short* from = in.inputs[n] + i;
    for (int v = 0; v < Steps::kMixRegisters; ++v) {
      const Reg x = Load(from + v * kSamples);
      // Mixes of many inputs wait for the second-level cache, so prefetch what comes next.
      // (Prefetching beyond an input's end does no harm.)
      __builtin_prefetch(from + (v + 8) * kSamples);
      sum[v] = AddSat16(sum[v], x);
      below[v] = AddSat16(below[v], x);
    }
  }
  Flags equal = Equal16(sum[0], below[0]);
  for (int v = 1; v < Steps::kMixRegisters; ++v) equal = Or(equal, Equal16(sum[v], below[v]));
  return !Any(equal);
}

template <class Steps, bool kTwo>
int MixUnityOf(const MixInputs& in, int i, int end, short* out) {
  const auto exactly = [&] {
    const Sums sums = ExactSums<kTwo>(in, i);
    if (!Steps::Fit(sums)) return false;
    Store(out + i, Pack16(sums.low, sums.high));
    i += kSamples;
    return true;
  };
  constexpr int kBlock = kSamples * Steps::kMixRegisters;
  while (end - i >= kBlock) {  // (i + kBlock may pass INT_MAX.)
    Reg sum[Steps::kMixRegisters];
    if (SaturatingSums<Steps, kTwo>(in, i, sum)) {
      for (int v = 0; v < Steps::kMixRegisters; ++v, i += kSamples) Store(out + i, sum[v]);
    } else {
      for (int v = 0; v < Steps::kMixRegisters; ++v) {
        if (!exactly()) return plain::MixUnity(in, i, end, out);
      }
    }
  }
  while (end - i >= kSamples && exactly()) {
  }
  return plain::MixUnity(in, i, end, out);
}

template <class Steps>
int MixUnity(const MixInputs& in, int i, int end, short* out) {
  return in.count == 2 ? MixUnityOf<Steps, true>(in, i, end, out)
                       : MixUnityOf<Steps, false>(in, i, end, out);
}

/// Sample numbers in the order in which Sums' halves become doubles: of a lane's eight samples the
/// lower four are in `low`.
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

/// The gains of a register of samples.
struct Gains {
  Doubles at[4];

  ZEL_INLINE Gains(double gain, double step) {
    static constexpr SampleNumbers numbers = NumbersOfSums();
    for (int i = 0; i < 4; ++i) {
      at[i] = SetDoubles(gain) + SetDoubles(step) * LoadDoubles(numbers.of + i * kDoubles);
    }
  }
  ZEL_INLINE void Advance(double by) {
    for (Doubles& gains : at) gains = gains + SetDoubles(by);
  }
  ZEL_INLINE Sums Scale(const Sums& s) const {
    return {Truncate(LowToDoubles(s.low) * at[0], HighToDoubles(s.low) * at[1]),
            Truncate(LowToDoubles(s.high) * at[2], HighToDoubles(s.high) * at[3])};
  }
};

template <class Steps, bool kTwo>
int MixGainOf(const MixInputs& in, int i, int end, double gain, double step, short* out) {
  Gains gains(gain, step);
  const auto mix = [&](int x) ZEL_INLINE_LAMBDA {
    const Sums sums = gains.Scale(ExactSums<kTwo>(in, i + x));
    if (!Steps::Fit(sums)) return false;
    Store(out + i + x, Pack16(sums.low, sums.high));
    gains.Advance(kSamples * step);
    return true;
  };
  return CoverThenPlain(end - i, kSamples, kSamples, mix, [&](int x) {
    return plain::MixGain(in, i + x, end, gain + x * step, step, out);
  });
}

template <class Steps>
int MixGain(const MixInputs& in, int i, int end, double gain, double step, short* out) {
  return in.count == 2 ? MixGainOf<Steps, true>(in, i, end, gain, step, out)
                       : MixGainOf<Steps, false>(in, i, end, gain, step, out);
}

template <class Steps>
constexpr Kernels MakeKernels() {
  return {{{nullptr, MonoToStereo<Steps>, SpreadToSix<1>},
           {StereoToMono<Steps>, nullptr, SpreadToSix<2>},
           {Steps::template Mix<3, 1>, Steps::template Mix<3, 2>, SpreadToSix<3>},
           {Steps::template Mix<4, 1>, Steps::template Mix<4, 2>, SpreadToSix<4>},
           {Steps::template Mix<5, 1>, Steps::template Mix<5, 2>, SpreadToSix<5>},
           {Steps::template Mix<6, 1>, Steps::template Mix<6, 2>, nullptr},
           {Steps::template Mix<7, 1>, Steps::template Mix<7, 2>, SpreadToSix<7>},
           {Steps::template Mix<8, 1>, Steps::template Mix<8, 2>, SpreadToSix<8>}},
          Positions,
          Interpolate<Steps>,
          InterpolateMonoToStereo<Steps>,
          MixUnity<Steps>,
          MixGain<Steps>};
}

}  // namespace
}  // namespace zel::audio::ZEL_LEVEL
