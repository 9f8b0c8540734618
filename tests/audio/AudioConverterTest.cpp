#include <gmock/gmock.h>

#include <climits>
#include <optional>
#include <stdexcept>

#include "tests/support/Kernels.h"
#include "tests/support/LeakCheck.h"
#include "zel/audio/AudioConverter.h"

namespace {

using testing::ElementsAre;
using namespace zel::test;  // NOLINT
using Samples = std::vector<short>;

// The mixing rules of 1 to 8 channels to 1, 2 and 6: per output channel the divisors of the input
// channels, 0 for those that it leaves out. Sums of 6 channels are limited to full scale.
constexpr const char* kMixingRules[8][3] = {
    {nullptr, "1;1", "1;1;;;;"},
    {"22", nullptr, "1;01;;;;"},
    {"333", "1;022", "1;01;001;;;"},
    {"4444", "4444;4444", "1;01;001;0001;;"},
    {"55555", "22;00333", "1;01;001;0001;00001;"},
    {"222244", "10224;012204", nullptr},
    {"7777777", "333;0004444", "1;01;001;0001;00001;000001"},
    {"88888888", "4444;00004444", "1;01;001;0001;00001;000001"},
};

Samples ApplyRule(const std::string& rule, const short* in, bool limited) {
  Samples out;
  int sum = 0, i = 0;
  for (const char c : rule + ';') {
    if (c == ';') {
      out.push_back(static_cast<short>(limited ? std::clamp(sum, -32767, 32767) : sum));
      sum = i = 0;
    } else {
      sum += c == '0' ? 0 : in[i] / (c - '0');
      ++i;
    }
  }
  return out;
}

/// CAudioConverter as plainly as it can be said: everything is moved at once.
struct Model {
  int in, out, inRate, outRate, capacity;
  double remainder = 0;
  Samples history = Samples(static_cast<size_t>(out));
  Samples queue = {};

  int GetValidSize() const { return static_cast<int>(queue.size()); }
  int GetFreeSize() const { return capacity - GetValidSize(); }
  int Put(const short* data, int n) {
    if (n <= 0) return GetValidSize();
    const int need = static_cast<int>(n * (double(outRate) / inRate) * 6.0);
    if (GetFreeSize() < need) capacity += 2 * need + 4096;
    const Samples given(data, data + n);
    const Samples made = in == out && inRate == outRate ? given : Convert(given);
    queue.insert(queue.end(), made.begin(), made.end());
    while (GetFreeSize() < 0) capacity += 2 * need + 4096;
    return GetValidSize();
  }
  int Get(short* to, int n) {
    n = std::min(n, GetValidSize());
    std::copy_n(queue.begin(), n, to);
    queue.erase(queue.begin(), queue.begin() + n);
    return n;
  }
  void Reset() { queue.clear(); }

 private:
  Samples InOutputChannels(const Samples& given) const {
    if (in == out) return given;
    const int column = out == 1 ? 0 : out == 2 ? 1 : out == 6 ? 2 : -1;
    if (in > 8 || column < 0) return Samples(given.size());
    Samples mixed;
    for (size_t i = 0; i + in <= given.size(); i += in) {
      const auto frame = ApplyRule(kMixingRules[in - 1][column], &given[i], in == 6);
      mixed.insert(mixed.end(), frame.begin(), frame.end());
    }
    mixed.resize(given.size() * out / in);
    return mixed;
  }
  Samples Convert(const Samples& given) {
    const Samples fresh = InOutputChannels(given);
    const double n = static_cast<double>(fresh.size()), step = double(inRate) / outRate;
    int made = static_cast<int>((remainder + n) / step + 0.5);
    Samples work = history;
    work.insert(work.end(), fresh.begin(), fresh.end());
    history.assign(work.end() - out, work.end());
    Samples result = fresh;
    if (inRate != outRate) {
      made -= made % out;
      result.clear();
      work.resize(work.size() + out);
      for (int j = 0; j < made / out; ++j) {
        const double x = (j + 1.0) * n / made - 1;
        const int k = std::max(static_cast<int>(x + 1) - 1, -1);
        const double f = std::clamp(x, double(k), k + 1.0) - k;
        for (int c = 0; c < out; ++c) {
          const auto at = static_cast<size_t>((k + 1) * static_cast<long>(out) + c);
          const int a = work[at], b = work[at + out];
          result.push_back(
              static_cast<short>(std::clamp(a + static_cast<int>((b - a) * f), -32767, 32767)));
        }
      }
    }
    remainder += n - made * step;
    return result;
  }
};

Samples Take(CAudioConverter& c, int n) {
  Samples out(static_cast<size_t>(n));
  out.resize(static_cast<size_t>(c.Get(out.data(), n)));
  return out;
}

Samples Convert(CAudioConverter& c, const Samples& in) {
  c.Put(in.data(), static_cast<int>(in.size()));
  return Take(c, c.GetValidSize());
}

/// Puts blocks, takes some of what is held, and now and then drops the rest.
template <typename Queue>
void Feed(Arena& arena, Queue queue, const std::vector<int>& blocks, int ramps) {
  Random random(static_cast<unsigned>(blocks[0]));
  for (int block : blocks) {
    short* const in = arena.Buffer<short>(static_cast<size_t>(std::max(block, 0)));
    for (int i = 0; ramps > 0 && i < block; ++i) {
      in[i] = static_cast<short>(i / ramps + i % ramps * 1000);
    }
    int* const sizes = arena.Buffer<int>(4);
    sizes[0] = queue.Put(in, block);
    sizes[1] = queue.GetValidSize();
    sizes[2] = queue.GetFreeSize();
    const int wanted = ramps > 0 ? sizes[1] : random.Below(5) * sizes[1] / 3;
    sizes[3] = queue.Get(arena.Buffer<short>(static_cast<size_t>(wanted)), wanted);
    if (random.Below(12) == 0) queue.Reset();
  }
}

class ConverterTest : public KernelTest {
 protected:
  /// With `ramps`, each of so many channels runs through all values instead of random ones.
  void Check(const Model& model, const std::vector<int>& blocks, int ramps = 0) {
    const auto run = [&](Arena& arena, bool isModel) {
      if (isModel) return Feed(arena, model, blocks, ramps);
      CAudioConverter converter(model.in, model.out, model.inRate, model.outRate, model.capacity);
      Feed<CAudioConverter&>(arena, converter, blocks, ramps);
    };
    ASSERT_TRUE(SameAtEveryLevel(++seed_, run)) << model.in << " to " << model.out << " channels, "
                                                << model.inRate << " to " << model.outRate;
  }
  unsigned seed_ = 0;
};

TEST_F(ConverterTest, EveryPairOfChannelsGivesTheModelsSamples) {
  constexpr int kRates[][2] = {{44100, 44100}, {44100, 48000}, {48000, 44100}, {22050, 44100},
                               {44100, 22050}, {8000, 48000},  {96000, 8000},  {11025, 7},
                               {3, 8000},      {44100, 44101}, {1, 3}};
  for (const auto& [inRate, outRate] : kRates) {
    std::vector<int> blocks = {1, 2, 0, 7, 1024, 13, 1, 1, 4099, 96, -5, 1023, 1024, 12, 30000};
    for (int& block : blocks) {
      if (static_cast<double>(block) * outRate / inRate > 200000) block %= 10;
    }
    for (int in = 1; in <= 9; ++in) {
      for (const int out : {1, 2, 6, in, 3, 8, 40}) {
        ASSERT_NO_FATAL_FAILURE(Check({in, out, inRate, outRate, 500}, blocks));
      }
      // Blocks longer than any table of positions, and more lengths than there are tables.
      if (outRate != 48000 || in % 3 != 1) continue;
      ASSERT_NO_FATAL_FAILURE(Check({in, 2, inRate, outRate, 0x100000},
                                    {300, 100000, 9000, 300, 7525, 7527, 7525, 301, 302, 300}));
    }
  }
}

// Division is where a vector kernel would be off by one.
TEST_F(ConverterTest, EveryValueInEveryChannelGivesTheModelsSamples) {
  for (int in = 1; in <= 8; ++in) {
    for (const int out : {1, 2, 6}) {
      std::vector<int> blocks = {65536 * in};
      for (int frames = 0; frames < 150; ++frames) blocks.push_back(frames * in);
      ASSERT_NO_FATAL_FAILURE(Check({in, out, 44100, 44100, 0x100000}, blocks, in));
    }
  }
}

// Frames to frames, with the partial frame at the end that moves all positions. The last four are
// where the spans that one permute reaches end.
TEST_F(ConverterTest, EveryScaleGivesTheModelsSamples) {
  constexpr int kLengths[][2] = {{1024, 2048}, {1024, 941}, {941, 1024}, {1, 6},    {6, 1},
                                 {100, 33},    {300, 70},   {1000, 90},  {37, 337}, {4095, 4096},
                                 {64, 7},      {77, 8},     {80, 15},    {90, 17},  {1024, 441},
                                 {1024, 470},  {1024, 480}, {1024, 495}};
  for (const auto& [from, to] : kLengths) {
    for (const int channels : {1, 2, 3, 4, 5, 6, 7, 8, 9, 17}) {
      const int n = from * channels;
      ASSERT_NO_FATAL_FAILURE(
          Check({channels, channels, from, to, 500}, {n, n + channels / 2, n / 2, n}));
    }
    ASSERT_NO_FATAL_FAILURE(Check({1, 2, from, to, 500}, {from, from / 2, from}));
  }
}

TEST(AudioConverter, KnownValues) {
  const struct {
    int in, out, inRate, outRate;
    Samples given, made;
  } cases[] = {
      {6, 2, 44100, 44100, {30000, 0, 30000, 0, 0, 0}, {32767, 15000}},
      {6, 2, 44100, 44100, {-32768, 1, -1, -3, 3, -5}, {-32767, -1}},
      {3, 6, 44100, 44100, {1, 2, 3, 4, 5, 6}, {1, 2, 3, 0, 0, 0, 4, 5, 6, 0, 0, 0}},
      {5, 2, 44100, 44100, {2, 4, 3, 6, 9, -2, -4, -3, -6, -9, 99, 99}, {3, 6, -3, -6}},
      {1, 1, 44100, 22050, {7, 107, 207, 307}, {107, 307}},
      {1, 1, 22050, 44100, {100, 200}, {50, 100, 150, 200}},
  };
  for (const auto& t : cases) {
    CAudioConverter c(t.in, t.out, t.inRate, t.outRate, 0);
    EXPECT_EQ(c.GetFreeSize(), 1048576);
    EXPECT_EQ(c.GetInputChannels(), t.in);
    EXPECT_EQ(c.GetInputSampleRate(), t.inRate);
    EXPECT_EQ(Convert(c, t.given), t.made) << t.in << " to " << t.out;
  }
  // 100 samples per call yield 108.84 on average.
  CAudioConverter c(1, 1, 44100, 48000, 0);
  for (const size_t count : {109, 109, 109, 108}) EXPECT_EQ(Convert(c, Samples(100)).size(), count);
}

// A conversion without the counting may be asked for at any time, and makes its own room.
TEST(AudioConverter, ConvertsWithoutCounting) {
  const Samples in(100, 5);
  CAudioConverter direct(1, 6, 8000, 48000, 1);
  EXPECT_EQ(direct.ConvertData(in.data(), 100), 3600);
  EXPECT_EQ(direct.GetValidSize(), 0);
  EXPECT_EQ(direct.GetFreeSize(), 1 + 2 * 3600 + 4096);
  EXPECT_EQ(direct.ConvertData(nullptr, 0), 0);
  EXPECT_EQ(direct.ConvertData(nullptr, -1), 0);
  EXPECT_EQ(direct.Get(nullptr, -1), 0);
}

TEST(AudioConverter, RefusesWhatCannotBe) {
  for (const int field : {0, 1, 2, 3, 4}) {
    for (const int value : {0, -1, INT_MIN}) {
      int a[] = {2, 2, 44100, 44100, 0};
      a[field] = field == 4 ? std::min(value, -1) : value;
      EXPECT_THROW(CAudioConverter(a[0], a[1], a[2], a[3], a[4]), std::invalid_argument) << field;
    }
  }
}

TEST(AudioConverter, SizesBeyondIntThrowAndChangeNothing) {
  const Samples in = {100, 200, 300, 400};
  const int refused[][5] = {{1, 6, 44100, 44100, INT_MAX}, {1, 1, 1, INT_MAX / 4, 10},
                            {1, 6, 1, INT_MAX, 4},         {1, 1, 1, INT_MAX / 4, 4},
                            {2, 2, 44100, 44100, INT_MAX}, {9, 9, 8000, 48000, INT_MAX},
                            {2, 3, 44100, 48000, INT_MAX}};
  for (const auto& t : refused) {
    CAudioConverter c(t[0], t[1], t[2], t[3], 100);
    EXPECT_THROW(c.Put(in.data(), t[4]), std::bad_alloc);
    if (&t < &refused[2]) {
      EXPECT_THROW(c.ConvertData(in.data(), t[4]), std::bad_alloc);
    }
    EXPECT_EQ(c.GetFreeSize(), 100);
    EXPECT_EQ(c.GetValidSize(), 0);
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
  const Samples in(1000, 77);
  for (int i = 0; i < 1000; ++i) up.Put(in.data(), 1000);
  EXPECT_NEAR(up.GetValidSize(), 1000000, 1);
  CAudioConverter down(2, 2, INT_MAX, 1, 0), wide(1000000, 1000000, 44100, 48000, 0);
  EXPECT_EQ(down.Put(in.data(), 1000), 0);
  EXPECT_EQ(wide.Put(in.data(), 1000), 0);
  CAudioConverter wider(INT_MAX, INT_MAX, 44100, 44100, 10);
  EXPECT_EQ(wider.Put(in.data(), 1000), 1000);
}

constexpr int kFormats[][4] = {{1, 2, 22050, 44100}, {2, 2, 48000, 44100}, {2, 2, 44100, 48000},
                               {6, 2, 48000, 44100}, {2, 6, 44100, 44100}, {2, 2, 44100, 44100},
                               {3, 4, 44100, 48000}};

TEST(AudioConverter, SteadyStateAllocatesNothing) {
  Samples in(1024 * 6, 1000), out(2048);
  for (const auto& f : kFormats) {
    CAudioConverter c(f[0], f[1], f[2], f[3], 0x100000);
    long before = 0;
    for (int i = 0; i < 3000; ++i) {
      if (i == 50) before = AllocationCount();
      c.Put(in.data(), (1024 - i % 7) * f[0]);  // More lengths than there are tables.
      while (c.GetValidSize() > 3000) c.Get(out.data(), 2048);
    }
    EXPECT_EQ(AllocationCount(), before) << f[0] << " to " << f[1];
  }
}

using ConverterMemory = LeakCheck;

// Each allocation fails in turn. A block that was refused is put again, and nothing shows.
TEST_F(ConverterMemory, FailedAllocationsLoseNothing) {
  Samples in(3000);
  for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<short>(i * 12345);
  for (const auto& f : kFormats) {
    Model model{f[0], f[1], f[2], f[3], 10};
    std::optional<CAudioConverter> c;
    const auto make = [&] { return c.emplace(f[0], f[1], f[2], f[3], 10).GetValidSize() == 0; };
    EXPECT_GE(FailEachAllocation(make, [&] { EXPECT_FALSE(c); }), 2);
    for (const int n : {600, 3000}) {
      const auto expectOld = [&] { EXPECT_EQ(c->GetValidSize(), model.GetValidSize()); };
      FailEachAllocation([&] { return c->Put(in.data(), n) > 0; }, expectOld);
      model.Put(in.data(), n);
    }
    EXPECT_EQ(c->GetFreeSize(), model.GetFreeSize());
    ASSERT_EQ(Take(*c, c->GetValidSize()), model.queue);
  }
}

}  // namespace
