#include "tools/zel/BlockMixer.h"

#include <cmath>
#include <cstdlib>

#include "zel/audio/IntermixAudio.h"

namespace zel::tool {
namespace {

constexpr int kFullScale = 32767;
constexpr int kRecovery = 441'000;  // Samples of one input from gain 0 to 1.

}  // namespace

// The step is computed as IntermixAudio does it, to the last bit.
BlockMixer::BlockMixer(int inputs, int room)
    : step_(inputs * 2.2675736961451247e-06),
      longestLead_(kRecovery / inputs + 3),
      buffers_(static_cast<std::size_t>(inputs),
               std::vector<short>(static_cast<std::size_t>(longestLead_ + room))),
      starts_(buffers_.size()),
      mix_(static_cast<std::size_t>(longestLead_ + room)) {}

short* BlockMixer::Input(int index) {
  return buffers_[static_cast<std::size_t>(index)].data() + longestLead_;
}

const short* BlockMixer::Mix(int samples) {
  const int lead = overflow_ != 0 ? 1 + since_ : 0;
  const auto inputs = static_cast<int>(buffers_.size());
  int left = overflow_;
  for (int i = 0; i < inputs; ++i) {
    short* const start = starts_[static_cast<std::size_t>(i)] = Input(i) - lead;
    const int share = left / (inputs - i);
    if (lead > 0) *start = static_cast<short>(share);
    left -= share;
  }
  IntermixAudio(starts_.data(), inputs, lead + samples, mix_.data());
  if (lead > 0) {
    for (short* start : starts_) *start = 0;
  }
  Follow(mix_.data() + lead, samples);
  return mix_.data() + lead;
}

/// Brings gain, overflow and steps to where the block leaves them.
void BlockMixer::Follow(const short* mix, int samples) {
  for (int i = 0; i < samples; ++i) {
    if (gain_ < 1) {
      gain_ += step_;
      ++since_;
    }
    if (std::abs(mix[i]) != kFullScale) continue;
    int sum = 0;
    for (const auto& buffer : buffers_) sum += *(buffer.data() + longestLead_ + i);
    const int scaled = static_cast<int>(sum * gain_);
    if (std::abs(scaled) <= kFullScale) continue;
    overflow_ = scaled;
    gain_ = static_cast<double>(kFullScale) / std::abs(scaled);
    since_ = 0;
  }
}

}  // namespace zel::tool
