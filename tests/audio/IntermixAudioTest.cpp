#include <gmock/gmock.h>

#include <climits>
#include <cmath>

#include "tests/support/Kernels.h"
#include "zel/audio/IntermixAudio.h"
#include "zel/audio/detail/AudioKernels.h"

namespace {

using testing::Each;
using testing::ElementsAre;
using namespace zel::test;  // NOLINT

using Samples = std::vector<short>;
using Inputs = std::vector<Samples>;

/// The rule as it reads, sample by sample. Leaves the last gain.
Samples Model(const Inputs& inputs, double* gain) {
  Samples out;
  double& g = *gain = 1.0;
  for (size_t i = 0; i < inputs[0].size(); ++i) {
    if (g < 1.0) g += static_cast<double>(inputs.size()) * 2.2675736961451247e-06;
    int sum = 0;
    for (const auto& in : inputs) sum += in[i];
    int v = static_cast<int>(sum * g);
    if (std::abs(v) >= 32768) {
      g = 32767.0 / std::abs(v);
      v = v > 0 ? 32767 : -32767;
    }
    out.push_back(static_cast<short>(v));
  }
  return out;
}

class IntermixTest : public KernelTest {
 protected:
  /// Mixes at every level, into a buffer of its own and into an input. Gives the last gain.
  double Check(const Inputs& inputs) {
    double gain;
    const Samples expected = Model(inputs, &gain);
    for (const bool inPlace : {false, true}) {
      const auto mix = [&](Arena& arena, bool model) {
        std::vector<short*> from;
        for (const Samples& in : inputs) {
          from.push_back(arena.Buffer<short>(in.size()));
          std::copy(in.begin(), in.end(), from.back());
        }
        short* const to = inPlace ? from[from.size() / 2] : arena.Buffer<short>(expected.size());
        if (model) {
          std::copy(expected.begin(), expected.end(), to);
        } else {
          IntermixAudio(from.data(), static_cast<int>(from.size()),
                        static_cast<int>(expected.size()), to);
        }
      };
      EXPECT_TRUE(SameAtEveryLevel(++seed_, mix)) << inputs.size() << " inputs";
    }
    return gain;
  }
  unsigned seed_ = 0;
};

TEST_F(IntermixTest, KnownValues) {
  const struct {
    Inputs in;
    Samples out;
  } cases[] = {{{{1000, -2000, 32767}}, {1000, -2000, 32767}},
               {{{-32768, -32768}}, {-32767, -32767}},
               {{{20000, 1000}, {20000, 0}}, {32767, 819}},
               {{{-20000, 1000}, {-20000, 0}}, {-32767, 819}}};
  double gain;
  for (const auto& c : cases) {
    EXPECT_EQ(Model(c.in, &gain), c.out);
    Check(c.in);
  }
  Inputs in(2, Samples(45000, 10000));
  in[0][0] = in[1][0] = 20000;
  const auto out = Model(in, &gain);
  EXPECT_THAT((Samples{out[1], out[39800], out[39880]}), ElementsAre(16383, 19993, 20000));
  Check(in);
}

TEST_F(IntermixTest, NoInputsAreSilenceAndNoSamplesNothing) {
  for (const zel::Level level : Levels()) {
    zel::UseLevel(level);
    for (const int none : {0, -1, INT_MIN}) {
      Samples out(1000, 7);
      IntermixAudio(nullptr, 0, none, out.data());
      EXPECT_THAT(out, Each(7));
      IntermixAudio(nullptr, none, 999, out.data());
      EXPECT_EQ(out.back(), 7);
      out.pop_back();
      EXPECT_THAT(out, Each(0)) << none;
    }
  }
}

// Peaks of all heights and distances over quiet and loud material, of few and many inputs. With a
// level of 0, full-scale inputs mostly take each other back.
TEST_F(IntermixTest, EqualsTheModel) {
  Random random(11);
  for (int count : {1, 2, 3, 4, 5, 7, 8, 9, 13, 16, 33, 40, 100, 441, 3000}) {
    for (int level : {0, 100, 3000, 33000, 65536}) {
      for (int peaks : {0, 1000, 50}) {
        const int n = (10000 / count * (count > 100 ? 10 : 1) + 777) >> random.Below(8);
        Inputs in(static_cast<size_t>(count), Samples(static_cast<size_t>(n)));
        for (int p = 0; p < count; ++p) {
          for (short& s : in[static_cast<size_t>(p)]) {
            const int back = p / 4 * 4 + 4 > count ? 0 : p % 4 < 2 ? 30000 : -30000;
            s = static_cast<short>(level == 0 ? back : random.Below(level) - level / 2);
            if (peaks > 0 && random.Below(peaks) == 0) s = random.Below(2) ? SHRT_MAX : SHRT_MIN;
          }
        }
        SCOPED_TRACE(testing::Message() << level << ", " << peaks << ", seed 11");
        Check(in);
        ASSERT_FALSE(HasFailure());
      }
    }
  }
}

// With many inputs the last step of the climb ends noticeably above 1, and stays there: full-scale
// sums then overflow, and sums near full scale come out higher than they are.
TEST_F(IntermixTest, GainsAHairAboveFull) {
  double highest = 0;
  for (int count = 1; count < 300; ++count) {
    const int climb = 2 * 441000 / count / 5;
    Inputs in(static_cast<size_t>(count), Samples(static_cast<size_t>(climb) + 300));
    for (size_t i = 1; i < in[0].size(); ++i) {
      in[0][i] = static_cast<short>((32000 + i % 768) * (i % 2 ? -1 : 1) /
                                    (i < static_cast<size_t>(climb) ? 2 : 1));
    }
    in[0][0] = 32767;
    in.back()[0] = static_cast<short>(count == 1 ? SHRT_MIN : 10000);
    highest = std::max(highest, Check(in));
    ASSERT_FALSE(HasFailure());
  }
  EXPECT_GT(highest, 1.00003);
}

// Sums wrap at 32 bits, and a gain far above 1 is held to the range of an int: no undefined step.
TEST_F(IntermixTest, AbsurdlyManyInputs) {
  Samples loud(50, SHRT_MAX), out(50);
  loud[7] = SHRT_MIN;
  std::vector<short*> inputs(1000000, loud.data());
  for (int count : {65536, 70000, 131072, 200000, 1000000}) {
    IntermixAudio(inputs.data(), count, 50, out.data());
    for (short s : out) ASSERT_LE(std::abs(s), 32767);
  }
}

// Counts are ints, and a mix may be as long as they reach.
TEST_F(IntermixTest, TheHighestIndex) {
  if (sizeof(void*) == 4) GTEST_SKIP() << "no room for so many samples";
  const auto mix = [](Arena& arena, bool) {
    constexpr int n = 1000, first = INT_MAX - n;
    short* const in = arena.Buffer<short>(n);
    std::fill_n(in, n, short{-30001});
    const short* const from[] = {in - first};
    short *const unity = arena.Buffer<short>(n), *const gain = arena.Buffer<short>(n);
    const auto& kernels = zel::audio::ActiveKernels();
    EXPECT_EQ(kernels.mixUnity({from, 1}, first, INT_MAX, unity - first), INT_MAX);
    EXPECT_EQ(kernels.mixGain({from, 1}, first, INT_MAX, 0.75, 0, gain - first), INT_MAX);
  };
  ASSERT_TRUE(SameAtEveryLevel(1, mix));
}

}  // namespace
