// The audio kernels of every level against the plain ones.
#include <gtest/gtest.h>

#include <climits>
#include <vector>

#include "tests/support/Kernels.h"
#include "zel/audio/detail/AudioKernels.h"

namespace {

using namespace zel::test;  // NOLINT
using zel::audio::ActiveKernels;

class AudioKernels : public KernelTest {};

TEST_F(AudioKernels, Channels) {
  constexpr int kOut[] = {1, 2, 6};
  unsigned seed = 0;
  for (int rule = 0; rule < 24; ++rule) {
    const int in = rule / 3 + 1, column = rule % 3;
    const auto convert = [&](Arena& arena, int frames, int place) {
      const auto kernel = ActiveKernels().channels[in - 1][column];
      ASSERT_EQ(kernel == nullptr, in == kOut[column]);
      if (kernel == nullptr) return;
      short* const from = arena.Buffer<short>(static_cast<std::size_t>(frames * in));
      for (int i = 0; place >= 0 && i < frames; ++i) from[i * in + place] = static_cast<short>(i);
      kernel(from, frames, arena.Buffer<short>(static_cast<std::size_t>(frames * kOut[column])));
    };
    for (int frames = 0; frames < 150; ++frames) {
      ASSERT_TRUE(SameAsPlain(++seed, [&](Arena& arena) { convert(arena, frames, -1); }))
          << in << " to " << kOut[column] << ", " << frames << " frames";
    }
    // Every value in every place: division is where a vector kernel would be off by one.
    for (int place = 0; place < in; ++place) {
      ASSERT_TRUE(SameAsPlain(++seed, [&](Arena& arena) { convert(arena, 65536, place); }))
          << in << " to " << kOut[column] << ", place " << place;
    }
  }
}

TEST_F(AudioKernels, PositionsAndInterpolation) {
  // The last four are where the spans that one permute reaches end.
  constexpr int kLengths[][2] = {{1024, 2048}, {1024, 941}, {941, 1024}, {1, 6},     {6, 1},
                                 {100, 33},    {300, 70},   {1000, 90},  {37, 337},  {5, 0},
                                 {4095, 4096}, {64, 7},     {77, 8},     {80, 15},   {90, 17},
                                 {1024, 441},  {1024, 470}, {1024, 480}, {1024, 495}};
  unsigned seed = 0;
  for (const auto& [nFrames, tFrames] : kLengths) {
    for (int channels : {1, 2, 3, 4, 5, 6, 7, 8, 9, 17}) {
      // A partial frame at the end moves all positions.
      for (int n : {nFrames * channels, nFrames * channels + channels / 2}) {
        const auto convert = [&, count = tFrames](Arena& arena, int split) {
          const auto& kernels = ActiveKernels();
          const auto size = static_cast<std::size_t>(count);
          const int t = count * channels;
          std::int32_t* const k = arena.Buffer<std::int32_t>(size);
          double* const f = arena.Buffer<double>(size);
          kernels.positions(0, split, n, t, k, f);
          kernels.positions(split, count - split, n, t, k + split, f + split);
          // History, frames, the frame of silence (or more), slack.
          const short* const in = arena.Buffer<short>(
              static_cast<std::size_t>(n + 2 * channels + zel::audio::kReadSlack));
          short* const out = arena.Buffer<short>(static_cast<std::size_t>(t));
          kernels.interpolate(in + channels, k, f, count, channels, out);
          if (channels > 1) return;
          kernels.interpolateMonoToStereo(in + 1, k, f, count, arena.Buffer<short>(2 * size));
        };
        const auto whole = [&](Arena& arena) {
          zel::UseLevel(zel::Level::kPlain);
          convert(arena, 0);
        };
        const auto split = [&, at = tFrames / 3](Arena& arena) { convert(arena, at); };
        ASSERT_TRUE(SameAtEveryLevel(++seed, whole, split))
            << n << " to " << tFrames << " frames of " << channels << " channels";
      }
    }
  }
}

/// Mixes samples start to end - 1 at some gains. Beyond the first overflow nothing may be written:
/// the output may be one of the inputs.
void MixAtGains(Arena& arena, const std::vector<const short*>& from, int start, int end) {
  const zel::audio::MixInputs in = {from.data(), static_cast<int>(from.size())};
  const double ulp = 1.0 / (1LL << 53);
  const struct {
    double gain, step;
  } gains[] = {{0, 0}, {0.75, 0}, {0.5, ulp * 123456789012}, {1.0003, 0}};
  for (const auto& [gain, step] : gains) {
    // Like `from`, it ends with sample `end` - 1.
    const std::size_t length = static_cast<std::size_t>(end - start);
    short* const to = arena.Buffer<short>(length) - start;
    *arena.Buffer<int>(1) = gain == 0 ? ActiveKernels().mixUnity(in, start, end, to)
                                      : ActiveKernels().mixGain(in, start, end, gain, step, to);
  }
}

TEST_F(AudioKernels, Mixing) {
  unsigned seed = 0;
  for (int inputs : {1, 2, 3, 4, 5, 8, 9, 40}) {
    for (int n : {0, 1, 7, 16, 33, 100, 260, 700}) {
      // Sums that fit, that fit but pass through values that do not, that overflow at one place.
      for (int kind = 0; kind < 6; ++kind) {
        Random random(++seed);
        const int at = random.Below(std::max(n, 1));
        const auto mix = [&](Arena& arena) {
          std::vector<const short*> from;
          for (int p = 0; p < inputs; ++p) {
            const int shift = (p * 7 + kind) % 4;
            short* const in = arena.Buffer<short>(static_cast<std::size_t>(n + shift)) + shift;
            // Kind 1: full-scale inputs that mostly take each other back, in runs of two.
            const bool paired = p / 4 * 4 + 4 <= inputs;
            for (int i = 0; i < n; ++i) {
              in[i] = static_cast<short>(kind != 1   ? in[i] / (inputs + 1)
                                         : !paired   ? in[i] % 64
                                         : p % 4 < 2 ? 30000
                                                     : -30000);
            }
            if (kind >= 3 && n > 0 && (p == inputs - 1 || (kind == 3 && p == 0))) {
              in[at] = kind == 3 ? SHRT_MAX : SHRT_MIN;
            }
            from.push_back(in);
          }
          MixAtGains(arena, from, 0, n);
          MixAtGains(arena, from, n / 3, n);
        };
        ASSERT_TRUE(SameAsPlain(seed, mix)) << inputs << " inputs, " << n << ", kind " << kind;
      }
    }
  }
}

// Counts are ints, and a mix may be as long as they reach.
TEST_F(AudioKernels, MixingAtTheHighestIndex) {
  if (sizeof(void*) == 4) GTEST_SKIP() << "no room for so many samples";
  constexpr int n = 1000, first = INT_MAX - n;
  ASSERT_TRUE(SameAsPlain(1, [](Arena& arena) {
    short *const a = arena.Buffer<short>(n), *const b = arena.Buffer<short>(n);
    for (int i = 0; i < n; ++i) a[i] = static_cast<short>(-b[i] / 2);
    MixAtGains(arena, {a - first, b - first}, first, INT_MAX);
  }));
}

}  // namespace
