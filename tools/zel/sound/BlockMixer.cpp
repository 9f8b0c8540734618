#include "tools/zel/sound/BlockMixer.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <cstdlib>

#include "zel/audio/IntermixAudio.h"

namespace zel::tool {
namespace {

constexpr int kFullScale = 32767;
constexpr int kLoudest = 32768;     // Magnitude of the largest sample.
constexpr int kRecovery = 441'000;  // Samples of one input from gain 0 to 1.

// Step and gains are the same as IntermixAudio's to the last bit.
double Step(int inputs) {
  return inputs * 2.2675736961451247e-06;
}

double GainAfter(int scaled) {
  return static_cast<double>(kFullScale) / scaled;
}

}  // namespace

Overflow OverflowBefore(int inputs, int scaled) {
  const int full = inputs * kLoudest;
  for (int first = kFullScale + 1; first <= full; ++first) {
    int steps = 0;
    double gain = GainAfter(first);
    while (gain < 1) {
      gain += Step(inputs);
      ++steps;
    }
    if (static_cast<int>(full * gain) == scaled) return {first, steps};
  }
  assert(!"no such overflow");
  return {};
}

BlockMixer::BlockMixer(int inputs, int room)
    : full_(inputs * kLoudest),
      step_(Step(inputs)),
      longestLead_(2 * (kRecovery / inputs + 3)),
      buffers_(static_cast<std::size_t>(inputs),
               std::vector<short>(static_cast<std::size_t>(longestLead_ + room))),
      starts_(buffers_.size()),
      mix_(static_cast<std::size_t>(longestLead_ + room)) {
  assert(inputs <= kMostInputs);
}

short* BlockMixer::Input(int index) {
  return buffers_[static_cast<std::size_t>(index)].data() + longestLead_;
}

/// Makes the inputs add up to `sum`, `at` samples before the block.
void BlockMixer::SetLead(int at, int sum) {
  int left = sum;
  for (std::size_t i = 0; i < buffers_.size(); ++i) {
    const int share = left / static_cast<int>(buffers_.size() - i);
    *(Input(static_cast<int>(i)) - at) = static_cast<short>(share);
    left -= share;
  }
}

const short* BlockMixer::Mix(int samples) {
  const int last = last_.scaled != 0 ? 1 + last_.steps : 0;
  const int lead = before_.scaled != 0 ? last + 1 + before_.steps : last;
  // The gain depends on magnitudes only, and negative samples reach further.
  if (lead > last) SetLead(lead, -before_.scaled);
  if (last > 0) SetLead(last, -std::min(last_.scaled, full_));
  for (std::size_t i = 0; i < starts_.size(); ++i) starts_[i] = Input(static_cast<int>(i)) - lead;
  IntermixAudio(starts_.data(), static_cast<int>(starts_.size()), lead + samples, mix_.data());
  if (lead > last) SetLead(lead, 0);
  if (last > 0) SetLead(last, 0);
  Follow(mix_.data() + lead, samples);
  return mix_.data() + lead;
}

/// Follows the gain, the last overflow and the steps since through the block.
void BlockMixer::Follow(const short* mix, int samples) {
  const int old = last_.scaled;
  for (int i = 0; i < samples; ++i) {
    if (gain_ < 1) {
      gain_ += step_;
      ++last_.steps;
    }
    if (std::abs(mix[i]) != kFullScale) continue;
    int sum = 0;
    for (const auto& buffer : buffers_) sum += *(buffer.data() + longestLead_ + i);
    const int scaled = std::abs(static_cast<int>(sum * gain_));
    if (scaled <= kFullScale) continue;
    last_ = {scaled, 0};
    gain_ = GainAfter(scaled);
  }
  if (last_.scaled == old) return;
  const auto inputs = static_cast<int>(buffers_.size());
  before_ = last_.scaled > full_ ? OverflowBefore(inputs, last_.scaled) : Overflow{};
}

}  // namespace zel::tool
