// Every kernel that this processor can run against the scalar one: odd sizes, all alignments of
// 16-bit samples, buffers that end (and begin) at pages that must not be touched.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <random>
#include <vector>

#include "zel/audio/detail/AudioKernels.h"
#include "zel/detail/Level.h"

namespace {

using zel::Level;
using zel::audio::Kernels;
using zel::audio::KernelsFor;

// Samples right before a forbidden page, and with another forbidden page in front of theirs.
class Guarded {
 public:
  explicit Guarded(std::size_t samples) : samples_(samples) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    inner_ = (samples * sizeof(short) / page + 1) * page;
    size_ = inner_ + 2 * page;
    map_ = static_cast<char*>(mmap(nullptr, size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    EXPECT_EQ(mprotect(map_ + page, inner_, PROT_READ | PROT_WRITE), 0);
    end_ = reinterpret_cast<short*>(map_ + page + inner_);
  }
  Guarded(const Guarded&) = delete;
  Guarded& operator=(const Guarded&) = delete;
  ~Guarded() { munmap(map_, size_); }

  short* begin() const { return end_ - samples_; }
  // As begin(), but as many samples earlier as fit before the start of the page: another alignment,
  // and the front guarded instead of the end.
  short* front() const { return end_ - inner_ / sizeof(short); }

 private:
  std::size_t samples_, inner_, size_;
  char* map_;
  short* end_;
};

std::mt19937 g_random(3);

short Sample() {
  const auto r = g_random();
  return r % 8 == 0 ? SHRT_MIN : r % 8 == 1 ? SHRT_MAX : static_cast<short>(r >> 9);
}

void Fill(short* p, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) p[i] = Sample();
}

class AudioKernels : public testing::TestWithParam<Level> {
 protected:
  void SetUp() override {
    if (!zel::HasLevel(GetParam())) GTEST_SKIP() << "not on this processor";
  }
  const Kernels& scalar = KernelsFor(Level::kPlain);
  const Kernels& fast = KernelsFor(zel::HasLevel(GetParam()) ? GetParam() : Level::kPlain);
};

TEST_P(AudioKernels, Channels) {
  constexpr int kOut[] = {1, 2, 6};
  for (int in = 1; in <= 8; ++in) {
    for (int column = 0; column < 3; ++column) {
      const auto reference = scalar.channels[in - 1][column];
      ASSERT_EQ(reference == nullptr, fast.channels[in - 1][column] == nullptr);
      if (reference == nullptr) continue;
      SCOPED_TRACE(testing::Message() << in << " to " << kOut[column]);
      for (int frames = 0; frames < 150; ++frames) {
        const auto inSize = static_cast<std::size_t>(frames * in);
        const auto outSize = static_cast<std::size_t>(frames * kOut[column]);
        const Guarded from(inSize), to(outSize);
        std::vector<short> expected(outSize + 1);
        for (bool front : {false, true}) {
          short* source = front ? from.front() : from.begin();
          short* target = front ? to.front() : to.begin();
          Fill(source, inSize);
          reference(source, frames, expected.data());
          fast.channels[in - 1][column](source, frames, target);
          ASSERT_EQ(memcmp(target, expected.data(), outSize * sizeof(short)), 0) << frames;
        }
      }
      // Every value in every place: division is where a vector kernel would be off by one.
      constexpr int kAll = 65536;
      std::vector<short> all(static_cast<std::size_t>(kAll * in));
      std::vector<short> expected(static_cast<std::size_t>(kAll * kOut[column])), got(expected);
      for (int c = 0; c < in; ++c) {
        Fill(all.data(), all.size());
        for (int i = 0; i < kAll; ++i) {
          all[static_cast<std::size_t>(i * in + c)] = static_cast<short>(i + SHRT_MIN);
        }
        reference(all.data(), kAll, expected.data());
        fast.channels[in - 1][column](all.data(), kAll, got.data());
        ASSERT_EQ(got, expected);
      }
    }
  }
}

TEST_P(AudioKernels, PositionsAndInterpolation) {
  struct Lengths {
    int n, t;  // Frames.
  };
  for (const auto& [nFrames, tFrames] : {Lengths{1024, 2048},
                                         {1024, 941},
                                         {941, 1024},
                                         {1, 6},
                                         {6, 1},
                                         {100, 33},
                                         {300, 70},
                                         {1000, 90},
                                         {37, 37 * 9 + 4},
                                         {5, 0},
                                         {4095, 4096},
                                         {64, 7},
                                         {77, 8},
                                         {80, 15},
                                         {90, 17},
                                         // Where the spans that one permute reaches end:
                                         {1024, 441},
                                         {1024, 470},
                                         {1024, 480},
                                         {1024, 495}}) {
    for (int channels : {1, 2, 3, 4, 5, 6, 7, 8, 9, 17}) {
      // (A partial frame at the end moves all positions.)
      for (int partial : {0, channels / 2}) {
        SCOPED_TRACE(testing::Message() << nFrames << " to " << tFrames << " frames of " << channels
                                        << " channels and " << partial);
        const int n = nFrames * channels + partial, t = tFrames * channels;
        const auto count = static_cast<std::size_t>(tFrames);
        std::vector<std::int32_t> k(count + 1, 99), k2(k);
        std::vector<double> f(count + 1, 99), f2(f);
        scalar.positions(0, tFrames, n, t, k.data(), f.data());
        const int split = tFrames / 3;
        fast.positions(0, split, n, t, k2.data(), f2.data());
        fast.positions(split, tFrames - split, n, t, k2.data() + split, f2.data() + split);
        ASSERT_EQ(k, k2);
        ASSERT_EQ(f, f2);

        // History, frames, the frame of silence (or more), slack.
        const auto size = static_cast<std::size_t>(n + 2 * channels + zel::audio::kReadSlack);
        const Guarded from(size), to(count * static_cast<std::size_t>(channels));
        const Guarded doubled(2 * count);
        std::vector<short> expected(count * static_cast<std::size_t>(channels) + 1);
        std::vector<short> expected2(2 * count + 1);
        for (bool front : {false, true}) {
          short* source = front ? from.front() : from.begin();
          short* target = front ? to.front() : to.begin();
          Fill(source, size);
          scalar.interpolate(source + channels, k.data(), f.data(), tFrames, channels,
                             expected.data());
          fast.interpolate(source + channels, k.data(), f.data(), tFrames, channels, target);
          ASSERT_EQ(memcmp(target, expected.data(), (expected.size() - 1) * sizeof(short)), 0);
          if (channels != 1) continue;
          target = front ? doubled.front() : doubled.begin();
          scalar.interpolateMonoToStereo(source + 1, k.data(), f.data(), tFrames, expected2.data());
          fast.interpolateMonoToStereo(source + 1, k.data(), f.data(), tFrames, target);
          ASSERT_EQ(memcmp(target, expected2.data(), 2 * count * sizeof(short)), 0);
        }
      }
    }
  }
}

TEST_P(AudioKernels, Mixing) {
  for (int inputs : {1, 2, 3, 4, 5, 8, 9, 40}) {
    for (int n : {0, 1, 7, 16, 33, 100, 260, 700}) {
      // Sums that fit, that fit but pass through values that do not, that overflow at one place.
      for (int kind = 0; kind < 6; ++kind) {
        SCOPED_TRACE(testing::Message() << inputs << " inputs, " << n << ", kind " << kind);
        std::vector<std::vector<short>> memory(static_cast<std::size_t>(inputs));
        std::vector<const short*> from;
        const auto size = static_cast<std::size_t>(n);
        for (auto& m : memory) {
          const std::size_t shift = g_random() % 4;
          m.resize(size + shift);
          Fill(m.data(), m.size());
          if (kind != 1) {
            for (short& s : m) s = static_cast<short>(s / (inputs + 1));
          }
          from.push_back(m.data() + shift);
        }
        if (kind == 1) {  // Full-scale inputs that mostly take each other back, in runs of two.
          for (std::size_t p = 0; p < from.size(); ++p) {
            auto& m = memory[p];
            const bool paired = p / 4 * 4 + 4 <= from.size();
            for (short& s : m)
              s = static_cast<short>(!paired ? s % 64 : p % 4 < 2 ? 30000 : -30000);
          }
        }
        if (kind >= 3 && n > 0) {
          const auto at = g_random() % static_cast<unsigned>(n);
          const short peak = kind == 3 ? SHRT_MAX : SHRT_MIN;
          auto& last = memory.back();
          last[last.size() - size + at] = peak;
          if (kind == 3) memory[0][memory[0].size() - size + at] = peak;
        }
        const zel::audio::MixInputs in = {from.data(), inputs};
        const Guarded to(size);
        short* target = to.begin();
        std::vector<short> expected(size + 1, 4242);
        for (int start : {0, n / 3}) {
          const double ulp = 1.0 / (1LL << 53);
          const struct {
            double gain, step;
          } gains[] = {{0, 0}, {0.75, 0}, {0.5, ulp * 123456789012}, {1.0003, 0}};
          for (const auto& [gain, step] : gains) {
            std::fill(expected.begin(), expected.end(), short{4242});
            std::fill(target, target + n, short{4242});
            const int a = gain == 0 ? scalar.mixUnity(in, start, n, expected.data())
                                    : scalar.mixGain(in, start, n, gain, step, expected.data());
            const int b = gain == 0 ? fast.mixUnity(in, start, n, target)
                                    : fast.mixGain(in, start, n, gain, step, target);
            ASSERT_EQ(a, b);
            // Beyond the first overflow nothing is written: the output may be one of the inputs.
            ASSERT_EQ(memcmp(target, expected.data(), size * sizeof(short)), 0);
          }
        }
      }
    }
  }
}

// Counts are ints, and a mix may be as long as they reach.
TEST_P(AudioKernels, MixingAtTheHighestIndex) {
  if (sizeof(void*) == 4) GTEST_SKIP() << "no room for so many samples";
  constexpr int n = 1000, first = INT_MAX - n;
  const Guarded a(n), b(n), to(n);
  Fill(b.begin(), n);
  for (int i = 0; i < n; ++i) a.begin()[i] = static_cast<short>(-b.begin()[i] / 2);
  const short* from[] = {a.begin() - first, b.begin() - first};
  const zel::audio::MixInputs in = {from, 2};
  std::vector<short> expected(n);
  for (double gain : {0.0, 0.5}) {
    const int end = gain == 0
                        ? scalar.mixUnity(in, first, INT_MAX, expected.data() - first)
                        : scalar.mixGain(in, first, INT_MAX, gain, 0, expected.data() - first);
    ASSERT_EQ(end, INT_MAX);
    ASSERT_EQ(gain == 0 ? fast.mixUnity(in, first, INT_MAX, to.begin() - first)
                        : fast.mixGain(in, first, INT_MAX, gain, 0, to.begin() - first),
              end);
    ASSERT_EQ(memcmp(to.begin(), expected.data(), n * sizeof(short)), 0);
  }
}

INSTANTIATE_TEST_SUITE_P(Levels, AudioKernels,
                         testing::Values(Level::kSse2, Level::kSsse3, Level::kAvx2, Level::kAvx512,
                                         Level::kAvx512Vbmi),
                         [](const auto& i) { return zel::LevelName(i.param); });

}  // namespace
