// The steps of registers of one lane.
#pragma once

#include <cstddef>
#include <cstdint>

#include "zel/audio/detail/AudioRows-inl.h"
#include "zel/audio/detail/x86/Frames-inl.h"

namespace zel::audio::ZEL_LEVEL {
namespace {

template <const Kernels& kBelow>
struct Steps128 : CommonSteps<kBelow> {
  static constexpr int kMixRegisters = 2;

  ZEL_INLINE static Reg MonoPairs(const short* in, const std::int32_t* k) {
    return LoadPairs(in, k);
  }
  ZEL_INLINE static Reg StereoPairs(const short* in, const std::int32_t* k) {
    return ShuffleQuads<0, 2, 1, 3>(LoadFrames(in, k));
  }
  ZEL_INLINE static Doubles StereoFractions(const double* f) { return SetDoubles(*f); }
  ZEL_INLINE static Lane EightSamples(const short* from, int channels, double f) {
    const Reg a = Load(from), b = Load(from + channels);
    const Doubles at = SetDoubles(f);
    return ToSamples(Between(InterleaveLow16(a, b), at, at),
                     Between(InterleaveHigh16(a, b), at, at));
  }
};

}  // namespace
}  // namespace zel::audio::ZEL_LEVEL
