#include "zel/audio/IntermixAudio.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "zel/audio/detail/AudioKernels.h"
#include "zel/audio/detail/AudioScalar.h"

using zel::audio::kFullScale;

namespace {

// With a gain between 1 and this, sums within full scale come out unchanged and all others still
// overflow.
constexpr double kUnityEnd = 1.0 + 1.0 / 65536;

// Counts the gains after `gain` that are exactly `*rounded` apart and below 1. Each gain is the
// rounded sum of its predecessor and `step`; within one binade that rounding is always the same.
int EvenGains(double gain, double step, int wanted, double* rounded) {
  const double next = gain + step;
  const double afterNext = next + step;
  *rounded = next - gain;
  double top = 1.0;
  while (top * 0.5 > gain) top *= 0.5;
  // (Two rounded steps differ only if one is a tie, which rounds to the even gain.)
  if (!(afterNext < top) || afterNext - next != *rounded) return 0;
  const double fitting = (top - afterNext) / *rounded;
  return fitting < wanted ? static_cast<int>(fitting) : wanted;
}

}  // namespace

void IntermixAudio(short** ppInputs, int nInputs, int nSamples, short* pOutput) {
  if (nSamples <= 0) return;
  if (nInputs <= 0) {
    std::memset(pOutput, 0, static_cast<std::size_t>(nSamples) * sizeof(short));
    return;
  }
  const auto& kernels = zel::audio::ActiveKernels();
  const zel::audio::MixInputs in = {ppInputs, nInputs};
  const double step = nInputs * 2.2675736961451247e-06;  // 1 / 441,000
  double gain = 1.0;
  for (int i = 0; i < nSamples;) {
    // Mix a stretch without overflow at once ...
    if (gain >= 1.0) {
      i = gain <= kUnityEnd ? kernels.mixUnity(in, i, nSamples, pOutput)
                            : kernels.mixGain(in, i, nSamples, gain, 0.0, pOutput);
      if (i == nSamples) return;
    } else {
      double rounded;
      const int count = EvenGains(gain, step, nSamples - i, &rounded);
      if (count > 0) {
        const int end = kernels.mixGain(in, i, i + count, gain + rounded, rounded, pOutput);
        gain += rounded * (end - i);
        i = end;
        if (i == nSamples) return;
      }
    }
    // ... then the sample that ended it.
    if (gain < 1.0) gain += step;
    const double scaled = zel::audio::plain::MixSum(in, i) * gain;
    // Clamp: with hundreds of thousands of inputs the gain can exceed 1 enough to leave an int.
    int v = static_cast<int>(std::clamp<double>(scaled, std::numeric_limits<int>::min(),
                                                std::numeric_limits<int>::max()));
    if (v > kFullScale) {
      gain = static_cast<double>(kFullScale) / v;
      v = kFullScale;
    } else if (v < -kFullScale) {
      gain = static_cast<double>(-kFullScale) / v;
      v = -kFullScale;
    }
    pOutput[i++] = static_cast<short>(v);
  }
}
