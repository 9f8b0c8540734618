#include "zel/audio/IntermixAudio.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <random>
#include <vector>

namespace {

using testing::ElementsAre;

using Inputs = std::vector<std::vector<short>>;

std::vector<short> Model(const Inputs& inputs, size_t n, double* gain = nullptr) {
  std::vector<short> out;
  double g = 1.0;
  const double s = static_cast<double>(inputs.size()) * 2.2675736961451247e-06;
  for (size_t i = 0; i < n; ++i) {
    if (g < 1.0) g = g + s;
    int sum = 0;
    for (const auto& in : inputs) sum += in[i];
    int v = static_cast<int>(sum * g);
    if (v >= 32768) {
      g = 32767.0 / v;
      v = 32767;
    } else if (v <= -32768) {
      g = -32767.0 / v;
      v = -32767;
    }
    out.push_back(static_cast<short>(v));
  }
  if (gain != nullptr) *gain = g;
  return out;
}

std::vector<short> Mix(Inputs inputs, size_t n, int target = -1) {
  std::vector<short*> pointers;
  for (auto& in : inputs) pointers.push_back(in.data());
  std::vector<short> out(n + 1, 4242);
  short* to = target < 0 ? out.data() : pointers[static_cast<size_t>(target)];
  IntermixAudio(pointers.data(), static_cast<int>(inputs.size()), static_cast<int>(n), to);
  EXPECT_EQ(out[n], 4242);
  out.resize(n);
  return target < 0 ? out : inputs[static_cast<size_t>(target)];
}

TEST(IntermixAudio, KnownValues) {
  EXPECT_THAT(Mix({{1000, -2000, 32767}}, 3), ElementsAre(1000, -2000, 32767));
  EXPECT_THAT(Mix({{-32768, -32768}}, 2), ElementsAre(-32767, -32767));
  EXPECT_THAT(Mix({{20000, 1000}, {20000, 0}}, 2), ElementsAre(32767, 819));
  EXPECT_THAT(Mix({{-20000, 1000}, {-20000, 0}}, 2), ElementsAre(-32767, 819));
  EXPECT_THAT(Mix({}, 3), ElementsAre(0, 0, 0));
  EXPECT_THAT(Mix({{5}}, 0), ElementsAre());
  short untouched = 7;
  IntermixAudio(nullptr, -1, -3, &untouched);
  EXPECT_EQ(untouched, 7);
}

TEST(IntermixAudio, GainClimbsBackToFull) {
  Inputs in(2, std::vector<short>(45000, 10000));
  in[0][0] = in[1][0] = 20000;
  const auto out = Mix(in, 45000);
  EXPECT_EQ(out, Model(in, 45000));
  EXPECT_EQ(out[1], 16383);
  EXPECT_LT(out[39800], 20000);
  EXPECT_EQ(out[39880], 20000);
}

// Peaks of all heights and distances over quiet and loud material, of few and many inputs.
TEST(IntermixAudio, EqualsTheModel) {
  std::mt19937 random(11);
  for (int count : {1, 2, 3, 4, 5, 7, 8, 13, 16, 33, 100, 441, 3000}) {
    for (int level : {100, 3000, 33000, 65536}) {
      for (int peaks : {0, 1000, 50}) {
        SCOPED_TRACE(testing::Message() << count << " inputs, " << level << ", " << peaks);
        const size_t n = 20000 / static_cast<size_t>(count) * (count > 100 ? 10 : 1) + 777;
        Inputs in(static_cast<size_t>(count), std::vector<short>(n));
        for (auto& buffer : in) {
          for (short& s : buffer) {
            s = static_cast<short>(static_cast<int>(random() % static_cast<unsigned>(level)) -
                                   level / 2);
            if (peaks > 0 && random() % static_cast<unsigned>(peaks) == 0) {
              s = random() % 2 != 0 ? SHRT_MAX : SHRT_MIN;
            }
          }
        }
        const auto expected = Model(in, n);
        ASSERT_EQ(Mix(in, n), expected);
        ASSERT_EQ(Mix(in, n, count / 2), expected);
      }
    }
  }
}

// With many inputs the last step of the climb ends noticeably above 1, and stays there: full-scale
// sums then overflow, and sums near full scale come out higher than they are.
TEST(IntermixAudio, GainsAHairAboveFull) {
  bool above = false, noticeably = false;
  for (int count = 1; count < 300; ++count) {
    const int climb = 2 * 441000 / count / 5;
    const size_t n = static_cast<size_t>(climb) + 300;
    Inputs in(static_cast<size_t>(count), std::vector<short>(n));
    in[0][0] = 32767;
    in[static_cast<size_t>(count) - 1][0] = static_cast<short>(count == 1 ? SHRT_MIN : 10000);
    for (size_t i = 1; i < n; ++i) in[0][i] = static_cast<short>(32000 + i % 768);
    for (size_t i = 1; i < n; i += 2) in[0][i] = static_cast<short>(-in[0][i]);
    for (size_t i = 1; i < static_cast<size_t>(climb); ++i) in[0][i] /= 2;
    double gain;
    ASSERT_EQ(Mix(in, n), Model(in, n, &gain)) << count << " inputs";
    above |= gain > 1.0;
    noticeably |= gain > 1.00003;
  }
  EXPECT_TRUE(above);
  EXPECT_TRUE(noticeably);
}

// Sums wrap at 32 bits, and a gain far above 1 is held to the range of an int: no undefined step.
TEST(IntermixAudio, AbsurdlyManyInputs) {
  std::vector<short> loud(50, SHRT_MAX), out(50);
  loud[7] = SHRT_MIN;
  std::vector<short*> inputs(1000000, loud.data());
  for (int count : {65536, 70000, 131072, 200000, 1000000}) {
    IntermixAudio(inputs.data(), count, 50, out.data());
    for (short s : out) ASSERT_TRUE(std::abs(s) <= 32767);
  }
}

}  // namespace
