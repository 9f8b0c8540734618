#include <gtest/gtest.h>

#include "tools/zel/sound/BlockMixer.h"

namespace zel::tool {
namespace {

TEST(BlockMixerTest, HasALeadToEverySumThatTheInputsCannotReach) {
  for (int count = 1; count <= BlockMixer::kMostInputs; ++count) {
    const double step = count * 2.2675736961451247e-06;
    const int full = count * 32'768, most = static_cast<int>(full * (1 + step));
    for (int scaled = full + 1; scaled <= most; ++scaled) {
      const Overflow before = OverflowBefore(count, scaled);
      EXPECT_TRUE(before.scaled >= 32'768 && before.scaled <= full);
      double gain = 32'767.0 / before.scaled;
      for (int i = 0; i < before.steps; ++i) gain += gain < 1 ? step : 0;
      EXPECT_EQ(static_cast<int>(full * gain), scaled) << count << " inputs";
    }
  }
}

}  // namespace
}  // namespace zel::tool
