#include "zel/audio/AudioConverter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <random>
#include <stdexcept>

#include "tests/audio/ConverterModel.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

std::vector<short> Noise(std::mt19937& random, int n) {
  std::vector<short> v(static_cast<size_t>(n));
  for (short& s : v) {
    const auto r = random();
    s = r % 16 == 0 ? SHRT_MIN : r % 16 == 1 ? SHRT_MAX : static_cast<short>(r >> 8);
  }
  return v;
}

std::vector<short> Take(CAudioConverter& c, int n) {
  std::vector<short> out(static_cast<size_t>(n));
  out.resize(static_cast<size_t>(c.Get(out.data(), n)));
  return out;
}

std::vector<short> Convert(CAudioConverter& c, const std::vector<short>& in) {
  c.Put(in.data(), static_cast<int>(in.size()));
  return Take(c, c.GetValidSize());
}

struct Rates {
  int in, out;
};
constexpr Rates kRates[] = {{44100, 44100}, {44100, 48000}, {48000, 44100}, {22050, 44100},
                            {44100, 22050}, {8000, 48000},  {96000, 8000},  {11025, 7},
                            {3, 8000},      {44100, 44101}, {1, 3}};
constexpr int kBlocks[] = {1, 2, 0, 7, 1024, 13, 1, 1, 4099, 96, -5, 1023, 1024, 12, 30000};

class AllPairs : public testing::TestWithParam<Rates> {};

TEST_P(AllPairs, GiveTheModelsSamplesAndCapacities) {
  const auto [inRate, outRate] = GetParam();
  for (int in = 1; in <= 9; ++in) {
    for (int out : {1, 2, 6, in, 3, 8, 40}) {
      SCOPED_TRACE(testing::Message() << in << " to " << out << " channels");
      std::mt19937 random(static_cast<unsigned>(in * 100 + out));
      CAudioConverter c(in, out, inRate, outRate, 500);
      ConverterModel model(in, out, inRate, outRate, 500);
      for (int block : kBlocks) {
        if (static_cast<double>(block) * outRate / inRate > 200000) block %= 10;
        const auto data = Noise(random, std::max(block, 0));
        ASSERT_EQ(c.Put(data.data(), block), model.Put(data)) << "block of " << block;
        ASSERT_EQ(c.GetValidSize(), model.Held());
        ASSERT_EQ(c.GetFreeSize(), model.Free()) << "block of " << block;
        const int wanted = static_cast<int>(random() % 3) * model.Held() / 2;
        ASSERT_EQ(Take(c, wanted), model.Get(wanted)) << "block of " << block;
        if (random() % 8 == 0) {
          c.Reset();
          model.Reset();
        }
      }
      ASSERT_EQ(Take(c, c.GetValidSize()), model.queue());
    }
  }
}

INSTANTIATE_TEST_SUITE_P(AudioConverter, AllPairs, testing::ValuesIn(kRates), [](const auto& i) {
  return std::to_string(i.param.in) + "to" + std::to_string(i.param.out);
});

TEST(AudioConverter, RandomBlocksOfEqualAndChangingSizes) {
  std::mt19937 random(7);
  for (int round = 0; round < 60; ++round) {
    const int channels[] = {1, 2, 6};
    const int in = 1 + static_cast<int>(random() % 8), out = channels[random() % 3];
    const int inRate = 7000 + static_cast<int>(random() % 90000);
    const int outRate = random() % 4 == 0 ? inRate : 7000 + static_cast<int>(random() % 90000);
    SCOPED_TRACE(testing::Message() << in << " to " << out << ", " << inRate << " to " << outRate);
    CAudioConverter c(in, out, inRate, outRate, 0);
    ConverterModel model(in, out, inRate, outRate, 0x100000);
    int block = 0;
    for (int i = 0; i < 30; ++i) {
      if (random() % 4 == 0 || i == 0) block = static_cast<int>(random() % 3000) + 1;
      const auto data = Noise(random, block);
      ASSERT_EQ(c.Put(data.data(), block), model.Put(data));
      const int wanted = static_cast<int>(random() % 4000);
      ASSERT_EQ(Take(c, wanted), model.Get(wanted));
      ASSERT_EQ(c.GetFreeSize() + c.GetValidSize(), 0x100000);
    }
  }
}

TEST(AudioConverter, BlocksLongerThanAnyPositionTable) {
  for (int channels : {1, 2, 6}) {
    std::mt19937 random(1);
    CAudioConverter c(1, channels, 44100, 48000, 0);
    ConverterModel model(1, channels, 44100, 48000, 0x100000);
    for (int block : {300, 200000, 9000, 300, 7525, 7527}) {
      const auto data = Noise(random, block);
      ASSERT_EQ(c.Put(data.data(), block), model.Put(data));
      ASSERT_EQ(Take(c, c.GetValidSize()), model.Get(model.Held()));
    }
  }
}

// A queue that is never empty walks through its memory; what it holds must survive every move.
TEST(AudioConverter, LongQueuesStayInOrder) {
  CAudioConverter c(2, 1, 44100, 44100, 1000);
  short next = 0, expected = 0;
  for (int i = 0; i < 20000; ++i) {
    const int frames = 1 + i * 7 % 300;
    std::vector<short> in;
    for (int n = 0; n < frames; ++n, next = static_cast<short>((next + 1) & 0x3fff)) {
      in.insert(in.end(), 2, static_cast<short>(next * 2));
    }
    c.Put(in.data(), frames * 2);
    const int keep = i % 5000 < 2500 ? 100 : 60000;
    for (short s : Take(c, std::max(c.GetValidSize() - keep, i % 100))) {
      ASSERT_EQ(s, expected * 2);
      expected = static_cast<short>((expected + 1) & 0x3fff);
    }
  }
}

TEST(AudioConverter, KnownValues) {
  CAudioConverter same(2, 2, 44100, 44100, 0);
  EXPECT_EQ(same.GetFreeSize(), 1048576);
  EXPECT_THAT(Convert(same, {1, -32768, 32767}), ElementsAre(1, -32768, 32767));

  CAudioConverter fold(6, 2, 44100, 44100, 0);
  EXPECT_THAT(Convert(fold, {30000, 0, 30000, 0, 0, 0}), ElementsAre(32767, 15000));
  EXPECT_THAT(Convert(fold, {-32768, 1, -1, -3, 3, -5}), ElementsAre(-32767, -1));

  CAudioConverter spread(3, 6, 44100, 44100, 0);
  EXPECT_THAT(Convert(spread, {1, 2, 3, 4, 5, 6, 7, 8, 9}),
              ElementsAre(1, 2, 3, 0, 0, 0, 4, 5, 6, 0, 0, 0, 7, 8, 9, 0, 0, 0));

  CAudioConverter five(5, 2, 44100, 44100, 0);
  EXPECT_THAT(Convert(five, {2, 4, 3, 6, 9, -2, -4, -3, -6, -9, 99, 99}),
              ElementsAre(3, 6, -3, -6));

  CAudioConverter lacking(3, 3 + 1, 44100, 44100, 0);
  EXPECT_THAT(Convert(lacking, {1, 2, 3, 4, 5}), ElementsAre(0, 0, 0, 0, 0));

  std::vector<short> ramp(100);
  for (int i = 0; i < 100; ++i) ramp[static_cast<size_t>(i)] = static_cast<short>(100 * i + 7);
  CAudioConverter half(1, 1, 44100, 22050, 0);
  const auto halved = Convert(half, ramp);
  ASSERT_EQ(halved.size(), 50u);
  for (size_t j = 0; j < 50; ++j) EXPECT_EQ(halved[j], ramp[2 * j + 1]);

  CAudioConverter twice(1, 1, 22050, 44100, 0);
  const auto doubled = Convert(twice, ramp);
  ASSERT_EQ(doubled.size(), 200u);
  EXPECT_THAT(std::vector<short>(doubled.begin(), doubled.begin() + 4), ElementsAre(3, 7, 57, 107));
  // The last frame goes on into the next block, also over a Reset.
  twice.Reset();
  EXPECT_EQ(twice.GetValidSize(), 0);
  EXPECT_THAT(Convert(twice, {9907 + 200}), ElementsAre(9907 + 100, 9907 + 200));
  EXPECT_EQ(twice.GetInputChannels(), 1);
  EXPECT_EQ(twice.GetInputSampleRate(), 22050);
}

TEST(AudioConverter, KeepsToTheRatioWithoutDrift) {
  CAudioConverter c(1, 1, 44100, 48000, 0);
  const std::vector<short> in(100);
  std::vector<int> counts;
  long total = 0;
  for (int i = 1; i <= 20000; ++i) {
    c.Put(in.data(), 100);
    const int made = c.GetValidSize();
    c.Reset();
    if (i <= 4) counts.push_back(made);
    total += made;
    ASSERT_NEAR(static_cast<double>(total), i * 100.0 * 48000 / 44100, 1.0);
  }
  EXPECT_THAT(counts, ElementsAre(109, 109, 109, 108));
}

TEST(AudioConverter, GrowsByTwiceTheEstimateAnd4096) {
  CAudioConverter c(1, 1, 44100, 44100, 600);
  std::vector<short> in(100, 5);
  EXPECT_EQ(c.Put(in.data(), 100), 100);  // Estimate 600: just fits.
  EXPECT_EQ(c.GetFreeSize(), 500);
  EXPECT_EQ(c.Put(in.data(), 100), 200);
  EXPECT_EQ(c.GetFreeSize(), 600 + 2 * 600 + 4096 - 200);
  EXPECT_THAT(Take(c, 999), ElementsAreArray(std::vector<short>(200, 5)));

  // 653 are estimated, and what the first block's rounding left makes the second one yield 654.
  CAudioConverter tight(1, 6, 44100, 48000, 653);
  EXPECT_EQ(tight.Put(in.data(), 100), 648);
  tight.Reset();
  EXPECT_EQ(tight.Put(in.data(), 100), 654);
  EXPECT_EQ(tight.GetFreeSize(), 653 + 2 * 653 + 4096 - 654);

  // A conversion without the counting may be asked for at any time, and makes its own room.
  CAudioConverter direct(1, 6, 8000, 48000, 1);
  EXPECT_EQ(direct.ConvertData(in.data(), 100), 3600);
  EXPECT_EQ(direct.GetValidSize(), 0);
  EXPECT_EQ(direct.GetFreeSize(), 1 + 2 * 3600 + 4096);
  EXPECT_EQ(direct.ConvertData(nullptr, 0), 0);
  EXPECT_EQ(direct.ConvertData(nullptr, -1), 0);
  EXPECT_EQ(direct.Get(in.data(), -1), 0);
}

TEST(AudioConverter, RefusesWhatCannotBe) {
  for (const auto& a : std::vector<std::vector<int>>{{0, 2, 44100, 44100, 0},
                                                     {2, 0, 44100, 44100, 0},
                                                     {2, -1, 44100, 44100, 0},
                                                     {2, 2, 0, 44100, 0},
                                                     {2, 2, 44100, 0, 0},
                                                     {2, 2, 44100, INT_MIN, 0},
                                                     {2, 2, 44100, 44100, -1}}) {
    EXPECT_THROW(CAudioConverter(a[0], a[1], a[2], a[3], a[4]), std::invalid_argument);
  }
}

TEST(AudioConverter, SizesBeyondIntThrowAndChangeNothing) {
  const std::vector<short> in = {100, 200, 300, 400};
  const std::vector<short> old = {1, 2};
  struct Case {
    int inChannels, outChannels, inRate, outRate, samples;
  };
  for (const Case& t : {Case{1, 6, 1, INT_MAX, 4}, Case{1, 1, 1, INT_MAX / 4, 4},
                        Case{1, 6, 44100, 44100, INT_MAX}, Case{2, 2, 44100, 44100, INT_MAX},
                        Case{9, 9, 8000, 48000, INT_MAX}, Case{2, 3, 44100, 48000, INT_MAX}}) {
    CAudioConverter c(t.inChannels, t.outChannels, t.inRate, t.outRate, 100);
    const int free = c.GetFreeSize();
    EXPECT_THROW(c.Put(in.data(), t.samples), std::bad_alloc);
    EXPECT_EQ(c.GetFreeSize(), free);
    EXPECT_EQ(c.GetValidSize(), 0);
  }
  for (const Case& t : {Case{1, 6, 44100, 44100, INT_MAX}, Case{1, 1, 1, INT_MAX / 4, 10}}) {
    CAudioConverter c(t.inChannels, t.outChannels, t.inRate, t.outRate, 100);
    EXPECT_THROW(c.ConvertData(in.data(), t.samples), std::bad_alloc);
    EXPECT_EQ(c.GetFreeSize(), 100);
  }
  // The conversion goes on as if the refused block had never been.
  CAudioConverter c(1, 1, 22050, 44100, 100);
  EXPECT_EQ(c.Put(in.data(), 4), 8);
  EXPECT_THROW(c.Put(in.data(), INT_MAX), std::bad_alloc);
  EXPECT_EQ(c.Put(in.data(), 1), 10);
  EXPECT_THAT(Take(c, 100), ElementsAre(50, 100, 150, 200, 250, 300, 350, 400, 250, 100));
}

// Nothing is kept or cleared for rates and counts as such.
TEST(AudioConverter, ExtremeRatesAndChannelsCostNothing) {
  CAudioConverter up(1, 1, INT_MAX - 1, INT_MAX, 0);
  const std::vector<short> in(1000, 77);
  for (int i = 0; i < 1000; ++i) up.Put(in.data(), 1000);
  EXPECT_NEAR(up.GetValidSize(), 1000000, 1);
  CAudioConverter down(2, 2, INT_MAX, 1, 0);
  EXPECT_EQ(down.Put(in.data(), 1000), 0);
  CAudioConverter wide(1000000, 1000000, 44100, 48000, 0);
  EXPECT_EQ(wide.Put(in.data(), 1000), 0);
  CAudioConverter wider(INT_MAX, INT_MAX, 44100, 44100, 10);
  EXPECT_EQ(wider.Put(in.data(), 1000), 1000);
}

}  // namespace
