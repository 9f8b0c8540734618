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
  constexpr std::int64_t few = Envelope::kStretches;
  for (const std::int64_t frames :
       {std::int64_t{1}, std::int64_t{1000}, few, few + 1, few * 5 + 77}) {
    std::vector<short> samples(static_cast<std::size_t>(frames * channels));
    for (std::size_t i = 0; i < samples.size(); ++i) {
      const double loud =
          std::sin(static_cast<double>(i) * 9 / static_cast<double>(samples.size()));
      samples[i] = static_cast<short>(static_cast<short>(random()) * loud);
    }
    Envelope envelope(channels);
    for (std::int64_t at = 0; at < frames;) {
      const std::int64_t count = std::min<std::int64_t>(frames - at, random() % 5000);
      envelope.Add(samples.data() + at * channels, count);
      at += count;
    }
    ASSERT_EQ(envelope.frames(), frames);
    std::int64_t stretch = 1;
    while (stretch * Envelope::kStretches < frames) stretch *= 2;
    for (int trial = 0; trial < 60; ++trial) {
      const std::int64_t from = static_cast<std::int64_t>(random()) % frames;
      const std::int64_t to = from + 1 + static_cast<std::int64_t>(random()) % frames;
      const int channel = trial % (channels + 1) - 1;
      int low = 32767;
      int high = -32768;
      double squares = 0;
      double count = 0;
      const std::int64_t end = std::min((to + stretch - 1) / stretch * stretch, frames);
      for (std::int64_t i = from / stretch * stretch; i < end; ++i) {
        for (int c = 0; c < channels; ++c) {
          if (channel >= 0 && c != channel) continue;
          const int sample = samples[static_cast<std::size_t>(i * channels + c)];
          low = std::min(low, sample);
          high = std::max(high, sample);
          squares += sample * sample;
          ++count;
        }
      }
      const Envelope::Span span =
          envelope.Over(channel, static_cast<double>(from), static_cast<double>(to));
      EXPECT_EQ(span.low, low / 32768.0);
      EXPECT_EQ(span.high, high / 32768.0);
      EXPECT_NEAR(span.rms, std::sqrt(squares / count) / 32768, 1e-12);
    }
    for (const auto& [from, to] : {std::pair{-5.0, 0.0}, std::pair{frames * 1.0, frames + 9.0}}) {
      const Envelope::Span nothing = envelope.Over(0, from, to);
      EXPECT_LT(nothing.high, nothing.low);
    }
  }
}

}  // namespace
}  // namespace zel::tool
