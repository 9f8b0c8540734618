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

// Mixes in blocks of up to `room` samples.
// @return the first sample that differs from one call
std::size_t FirstDifference(std::vector<Sound> inputs, int room, std::mt19937* random = nullptr) {
  const auto count = static_cast<int>(inputs.size());
  BlockMixer mixer(count, room);
  Sound blocks;
  while (blocks.size() < inputs[0].size()) {
    const auto wanted = static_cast<std::size_t>(random != nullptr ? (*random)() % room + 1 : room);
    const std::size_t at = blocks.size(), size = std::min(wanted, inputs[0].size() - at);
    for (int i = 0; i < count; ++i) {
      std::copy_n(inputs[static_cast<std::size_t>(i)].data() + at, size, mixer.Input(i));
    }
    const short* mix = mixer.Mix(static_cast<int>(size));
    blocks.insert(blocks.end(), mix, mix + size);
  }
  std::vector<short*> starts;
  for (Sound& input : inputs) starts.push_back(input.data());
  Sound whole(blocks.size());
  IntermixAudio(starts.data(), count, static_cast<int>(whole.size()), whole.data());
  return static_cast<std::size_t>(std::mismatch(whole.begin(), whole.end(), blocks.begin()).first -
                                  whole.begin());
}

// Bursts of all loudnesses, each after anything from no recovery to a full one.
TEST(BlockMixerTest, EqualsOneCall) {
  std::mt19937 random(11);
  for (int count = 1; count <= BlockMixer::kMostInputs; count += 1 + count / 8) {
    const std::size_t recovery = 441'000 / static_cast<std::size_t>(count) + 2;
    const std::size_t length = 40'000 + 3 * recovery;
    Sound sound(length);
    for (short& sample : sound) sample = static_cast<short>(static_cast<int>(random() % 401) - 200);
    for (std::size_t at = 0; at < length;) {
      const auto loud = static_cast<int>(32'768 >> random() % 4) - static_cast<int>(random() % 2);
      const int level = random() % 2 != 0 ? std::min(loud, 32'767) : -loud;
      const std::size_t end = std::min(length, at + 1 + random() % 3);
      std::fill(&sound[at], sound.data() + end, static_cast<short>(level));
      at = end + (random() % 2 != 0 ? recovery : random() % recovery);
    }
    const std::vector<Sound> inputs(static_cast<std::size_t>(count), sound);
    EXPECT_EQ(FirstDifference(inputs, 3000, &random), length) << count << " inputs";
  }
}

// After a recovery to a hair above 1, the scaled sum may be more than the inputs can add up to.
TEST(BlockMixerTest, CarriesSumsThatTheInputsCannotReach) {
  constexpr std::size_t kLength = 90'000;
  for (const short first : {20'000, 12'345, -20'000}) {
    for (const int peak : {32'767, -32'768}) {
      Sound sound(kLength);
      sound[0] = first;
      sound[75'125] = static_cast<short>(peak);
      std::vector<Sound> inputs(8, sound);
      std::fill(inputs[0].begin() + 75'126, inputs[0].end(), short{20'000});
      EXPECT_EQ(FirstDifference(inputs, 16'384), kLength) << first << ", " << peak;
    }
  }
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
