// Mixing in blocks against one call for everything.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "tools/zel/sound/BlockMixer.h"
#include "zel/audio/IntermixAudio.h"

namespace zel::tool {
namespace {

using Sound = std::vector<short>;

/// Expects blocks of up to 3,000 samples to be what one call gives.
void ExpectOneCall(std::vector<Sound> inputs, std::mt19937* random) {
  const auto count = static_cast<int>(inputs.size());
  const auto length = static_cast<int>(inputs[0].size());
  std::vector<short*> starts;
  for (Sound& input : inputs) starts.push_back(input.data());
  Sound whole(inputs[0].size());
  IntermixAudio(starts.data(), count, length, whole.data());
  BlockMixer mixer(count, 3000);
  for (int at = 0, size = 0; at < length; at += size) {
    size = std::min(static_cast<int>((*random)() % 3000) + 1, length - at);
    for (int i = 0; i < count; ++i) std::copy_n(starts[i] + at, size, mixer.Input(i));
    const short* mix = mixer.Mix(size);
    ASSERT_TRUE(std::equal(mix, mix + size, &whole[at])) << count << " inputs, at " << at;
  }
}

TEST(BlockMixerTest, EqualsOneCall) {
  std::mt19937 random(11);
  // Bursts of all loudnesses, each after anything from no recovery to a full one.
  for (int count = 1; count <= BlockMixer::kMostInputs; count += 1 + count / 8) {
    const std::size_t recovery = 441'000 / static_cast<std::size_t>(count) + 2;
    Sound sound(40'000 + 3 * recovery);
    for (short& sample : sound) sample = static_cast<short>(static_cast<int>(random() % 401) - 200);
    for (std::size_t at = 0; at < sound.size();) {
      const auto loud = static_cast<int>(32'768 >> random() % 4) - static_cast<int>(random() % 2);
      const int level = random() % 2 != 0 ? std::min(loud, 32'767) : -loud;
      const std::size_t end = std::min(sound.size(), at + 1 + random() % 3);
      std::fill(&sound[at], sound.data() + end, static_cast<short>(level));
      at = end + (random() % 2 != 0 ? recovery : random() % recovery);
    }
    ExpectOneCall(std::vector<Sound>(static_cast<std::size_t>(count), sound), &random);
  }
  // After a recovery to a hair above 1, the scaled sum may be more than the inputs can add up to.
  for (const short first : {20'000, 12'345, -20'000}) {
    for (const short peak : {32'767, -32'768}) {
      Sound sound(90'000);
      sound[0] = first;
      sound[75'125] = peak;
      std::vector<Sound> inputs(8, sound);
      std::fill(inputs[0].begin() + 75'126, inputs[0].end(), short{20'000});
      ExpectOneCall(inputs, &random);
    }
  }
}

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
