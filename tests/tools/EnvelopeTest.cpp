// The bounded envelope against the samples themselves.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "tools/zel/picture/Envelope.h"

namespace zel::tool {
namespace {

/// The span of the frames from `begin` to `end`, computed sample by sample.
Envelope::Span Model(const std::vector<short>& samples, int channels, int channel,
                     std::int64_t begin, std::int64_t end) {
  Envelope::Span span{1, -1, 0};
  int count = 0;
  for (std::int64_t i = begin * channels; i < end * channels; ++i) {
    if (channel >= 0 && i % channels != channel) continue;
    const double sample = samples[static_cast<std::size_t>(i)] / 32768.0;
    span = {std::min(span.low, sample), std::max(span.high, sample), span.rms + sample * sample};
    ++count;
  }
  span.rms = std::sqrt(span.rms / count);
  return span;
}

TEST(EnvelopeTest, KnowsRangeAndPowerWithinAStretch) {
  constexpr int channels = 3;
  std::mt19937 random(7);
  constexpr std::int64_t few = Envelope::kStretches;
  for (const std::int64_t frames : {std::int64_t{1}, few, few + 1, few * 5 + 77}) {
    std::vector<short> samples(static_cast<std::size_t>(frames * channels));
    for (std::size_t i = 0; i < samples.size(); ++i) {
      samples[i] = static_cast<short>(static_cast<short>(random()) * std::sin(i * 1e-4));
    }
    Envelope envelope(channels);
    for (std::int64_t at = 0, count; at < frames; at += count) {
      count = std::min<std::int64_t>(frames - at, random() % 5000);
      envelope.Add(samples.data() + at * channels, count);
    }
    ASSERT_EQ(envelope.frames(), frames);
    std::int64_t stretch = 1;
    while (stretch * few < frames) stretch *= 2;
    for (int trial = 0; trial < 60; ++trial) {
      const std::int64_t from = static_cast<std::int64_t>(random()) % frames;
      const std::int64_t to = from + 1 + static_cast<std::int64_t>(random()) % frames;
      const int channel = trial % (channels + 1) - 1;
      const Envelope::Span wanted = Model(samples, channels, channel, from / stretch * stretch,
                                          std::min((to + stretch - 1) / stretch * stretch, frames));
      const Envelope::Span span =
          envelope.Over(channel, static_cast<double>(from), static_cast<double>(to));
      EXPECT_EQ(span.low, wanted.low);
      EXPECT_EQ(span.high, wanted.high);
      EXPECT_NEAR(span.rms, wanted.rms, 1e-12);
    }
    for (const double from : {-5.0, frames * 1.0}) {
      const Envelope::Span nothing = envelope.Over(0, from, from + 5);
      EXPECT_LT(nothing.high, nothing.low);
    }
  }
}

}  // namespace
}  // namespace zel::tool
