// The bounded envelope against the samples themselves.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "tools/zel/picture/Envelope.h"

namespace zel::tool {
namespace {

TEST(EnvelopeTest, KnowsRangeAndPowerWithinAStretch) {
  constexpr int channels = 3;
  std::mt19937 random(7);
  const auto below = [&](int most) { return static_cast<int>(random() % most); };
  constexpr int few = Envelope::kStretches;
  for (const int frames : {1, few, few + 1, few * 5 + 77}) {
    std::vector<short> samples(static_cast<std::size_t>(frames) * channels);
    for (std::size_t i = 0; i < samples.size(); ++i) {
      samples[i] = static_cast<short>(static_cast<short>(random()) * std::sin(i * 1e-4));
    }
    Envelope envelope(channels);
    for (int at = 0, count = 0; at < frames; at += count) {
      count = std::min(frames - at, below(5000));
      envelope.Add(samples.data() + at * channels, count);
    }
    int stretch = 1;
    while (stretch * few < frames) stretch *= 2;
    for (int trial = 0; trial < 60; ++trial) {
      const int from = below(frames), to = from + 1 + below(frames);
      const int channel = trial % (channels + 1) - 1;
      Envelope::Span wanted{1, -1, 0};
      int count = 0;
      const int end = std::min((to + stretch - 1) / stretch * stretch, frames) * channels;
      for (int i = from / stretch * stretch * channels; i < end; ++i) {
        if (channel >= 0 && i % channels != channel) continue;
        const double sample = samples[i] / 32768.0;
        wanted = {std::min(wanted.low, sample), std::max(wanted.high, sample),
                  wanted.rms + sample * sample};
        ++count;
      }
      const Envelope::Span span = envelope.Over(channel, from, to);
      EXPECT_TRUE(span.low == wanted.low && span.high == wanted.high) << from << " to " << to;
      EXPECT_NEAR(span.rms, std::sqrt(wanted.rms / count), 1e-12);
    }
    for (const double from : {-5.0, frames * 1.0}) {
      EXPECT_EQ(envelope.Over(0, from, from + 5).high, -1) << "nothing there";
    }
  }
}

}  // namespace
}  // namespace zel::tool
