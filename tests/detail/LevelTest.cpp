// The choice of kernels: a forced level is the one that every room uses, and no other.
#include <gtest/gtest.h>

#include <set>
#include <stdexcept>

#include "tests/support/Kernels.h"
#include "zel/Common/Image/detail/ConvertKernels.h"
#include "zel/Common/Image/detail/ResizeKernels.h"
#include "zel/audio/detail/AudioKernels.h"

namespace {

using zel::Level;

class LevelTest : public zel::test::KernelTest {};

TEST_F(LevelTest, AForcedLevelIsTheOneInUse) {
  std::set<void*> functions;
  std::size_t count = 0;
  for (const Level level : zel::test::Levels()) {
    zel::UseLevel(level);
    EXPECT_EQ(zel::ActiveLevel(), level);
    EXPECT_EQ(&zel::audio::ActiveKernels(), &zel::audio::KernelsFor(level));
    EXPECT_EQ(&zel::image::ActiveConvertKernels(), &zel::image::ConvertKernelsFor(level));
    EXPECT_EQ(&zel::image::ActiveResizeKernels(), &zel::image::ResizeKernelsFor(level));
    // These levels share some functions with the one below.
    if (level == Level::kSsse3 || level == Level::kAvx512Vbmi) continue;
    functions.insert(reinterpret_cast<void*>(zel::audio::ActiveKernels().mixUnity));
    functions.insert(reinterpret_cast<void*>(zel::image::ActiveConvertKernels().fromBgr24));
    functions.insert(reinterpret_cast<void*>(zel::image::ActiveResizeKernels().blend8));
    count += 3;
  }
  EXPECT_EQ(functions.size(), count);
}

TEST_F(LevelTest, ALevelThatTheProcessorLacksIsRefused) {
  EXPECT_EQ(zel::ActiveLevel(), zel::test::Levels().back());
  EXPECT_EQ(zel::AllLevels().size(), std::size_t{zel::kLevelCount});
  zel::UseLevel(Level::kPlain);
  for (const Level level : zel::AllLevels()) {
    EXPECT_EQ(zel::LevelFromName(zel::LevelName(level)), level);
    if (zel::HasLevel(level)) continue;
    EXPECT_THROW(zel::UseLevel(level), std::invalid_argument) << zel::LevelName(level);
    EXPECT_EQ(zel::ActiveLevel(), Level::kPlain);
  }
  EXPECT_FALSE(zel::LevelFromName("best"));
#if defined(__x86_64__) || defined(__i386__)
  EXPECT_EQ(zel::HasLevel(Level::kSse2), __builtin_cpu_supports("sse2") != 0);
  EXPECT_EQ(zel::HasLevel(Level::kSsse3), __builtin_cpu_supports("ssse3") != 0);
  EXPECT_EQ(zel::HasLevel(Level::kAvx2), __builtin_cpu_supports("avx2") != 0);
#endif
}

}  // namespace
