#include "tools/zel/picture/Envelope.h"

#include <algorithm>
#include <cmath>

namespace zel::tool {

void Envelope::Add(const short* samples, std::int64_t frames) {
  for (std::int64_t i = 0; i < frames;) {
    if (frames_ == length_ * kStretches) Halve();
    const std::int64_t inside = frames_ % length_;
    if (inside == 0) stretches_.resize(stretches_.size() + channels_, {32767, -32768, 0});
    const std::int64_t count = std::min(length_ - inside, frames - i);
    Stretch* stretch = stretches_.data() + stretches_.size() - channels_;
    for (int channel = 0; channel < channels_; ++channel, ++stretch) {
      const short* sample = samples + i * channels_ + channel;
      int low = stretch->low;
      int high = stretch->high;
      std::int64_t squares = 0;
      for (std::int64_t k = 0; k < count; ++k, sample += channels_) {
        low = std::min<int>(low, *sample);
        high = std::max<int>(high, *sample);
        squares += *sample * *sample;
      }
      *stretch = {static_cast<short>(low), static_cast<short>(high),
                  stretch->squares + static_cast<double>(squares)};
    }
    i += count;
    frames_ += count;
  }
}

void Envelope::Halve() {
  const std::size_t merged = stretches_.size() / 2;
  for (std::size_t i = 0; i < merged; ++i) {
    const std::size_t channels = static_cast<std::size_t>(channels_);
    const Stretch& first = stretches_[i / channels * 2 * channels + i % channels];
    const Stretch& second = (&first)[channels];
    stretches_[i] = {std::min(first.low, second.low), std::max(first.high, second.high),
                     first.squares + second.squares};
  }
  stretches_.resize(merged);
  length_ *= 2;
}

Envelope::Span Envelope::Over(int channel, double from, double to) const {
  Span span{1, -1, 0};
  if (to <= 0 || from >= static_cast<double>(frames_)) return span;
  const auto length = static_cast<double>(length_);
  const auto begin = static_cast<std::int64_t>(std::max(from, 0.0) / length);
  const auto end = std::clamp(static_cast<std::int64_t>(std::ceil(to / length)), begin + 1,
                              (frames_ + length_ - 1) / length_);
  const int first = channel < 0 ? 0 : channel;
  const int last = channel < 0 ? channels_ - 1 : channel;
  double squares = 0;
  for (std::int64_t i = begin; i < end; ++i) {
    for (int c = first; c <= last; ++c) {
      const Stretch& stretch = stretches_[static_cast<std::size_t>(i * channels_ + c)];
      span.low = std::min(span.low, stretch.low / 32768.0);
      span.high = std::max(span.high, stretch.high / 32768.0);
      squares += stretch.squares;
    }
  }
  const std::int64_t count = std::min(end * length_, frames_) - begin * length_;
  span.rms = std::sqrt(squares / static_cast<double>(count * (last - first + 1))) / 32768;
  return span;
}

}  // namespace zel::tool
