#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <vector>

#include "tests/support/Kernels.h"
#include "zel/audio/IntermixAudio.h"

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

/// Mixes the first `n` samples, into input `target` if that is not negative.
Samples Mix(Inputs inputs, size_t n, int target = -1) {
  std::vector<short*> pointers;
  for (auto& in : inputs) pointers.push_back(in.data());
  Samples out(n + 1, 4242);
  short* const to = target < 0 ? out.data() : pointers[static_cast<size_t>(target)];
  IntermixAudio(pointers.data(), static_cast<int>(inputs.size()), static_cast<int>(n), to);
  EXPECT_EQ(out[n], 4242);
  out.resize(n);
  return target < 0 ? out : inputs[static_cast<size_t>(target)];
}

double CheckModel(const Inputs& inputs) {
  double gain;
  const Samples expected = Model(inputs, &gain);
  EXPECT_EQ(Mix(inputs, expected.size()), expected) << inputs.size() << " inputs";
  EXPECT_EQ(Mix(inputs, expected.size(), static_cast<int>(inputs.size() / 2)), expected);
  return gain;
}

class IntermixTest : public KernelTest {};

TEST_F(IntermixTest, KnownValues) {
  EXPECT_THAT(Mix({{1000, -2000, 32767}}, 3), ElementsAre(1000, -2000, 32767));
  EXPECT_THAT(Mix({{-32768, -32768}}, 2), ElementsAre(-32767, -32767));
  EXPECT_THAT(Mix({{20000, 1000}, {20000, 0}}, 2), ElementsAre(32767, 819));
  EXPECT_THAT(Mix({{-20000, 1000}, {-20000, 0}}, 2), ElementsAre(-32767, 819));
  Inputs in(2, Samples(45000, 10000));
  in[0][0] = in[1][0] = 20000;
  const auto out = Mix(in, 45000);
  EXPECT_EQ(out[1], 16383);
  EXPECT_LT(out[39800], 20000);
  EXPECT_EQ(out[39880], 20000);
}

TEST_F(IntermixTest, NoInputsAreSilenceAndNoSamplesNothing) {
  for (const zel::Level level : Levels()) {
    zel::UseLevel(level);
    for (const int inputs : {0, -1, INT_MIN}) {
      Samples out(1000, 7);
      for (const int samples : {0, -1, INT_MIN}) IntermixAudio(nullptr, 0, samples, out.data());
      EXPECT_THAT(out, Each(7));
      IntermixAudio(nullptr, inputs, 999, out.data());
      EXPECT_EQ(out.back(), 7);
      out.pop_back();
      EXPECT_THAT(out, Each(0)) << inputs;
    }
  }
}

// Peaks of all heights and distances over quiet and loud material, of few and many inputs.
TEST_F(IntermixTest, EqualsTheModel) {
  Random random(11);
  for (int count : {1, 2, 3, 4, 5, 7, 8, 13, 16, 33, 100, 441, 3000}) {
    for (int level : {100, 3000, 33000, 65536}) {
      for (int peaks : {0, 1000, 50}) {
        const int n = 10000 / count * (count > 100 ? 10 : 1) + 777;
        Inputs in(static_cast<size_t>(count), Samples(static_cast<size_t>(n)));
        for (auto& buffer : in) {
          for (short& s : buffer) {
            s = static_cast<short>(random.Below(level) - level / 2);
            if (peaks > 0 && random.Below(peaks) == 0) s = random.Below(2) ? SHRT_MAX : SHRT_MIN;
          }
        }
        SCOPED_TRACE(testing::Message() << level << ", " << peaks << ", seed 11");
        CheckModel(in);
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
    highest = std::max(highest, CheckModel(in));
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

}  // namespace
