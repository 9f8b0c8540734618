#include "zel/detail/Level.h"

#include <atomic>
#include <stdexcept>
#include <string>

namespace zel {
namespace {

constexpr const char* kNames[kLevelCount] = {"plain", "sse2",   "ssse3",
                                             "avx2",  "avx512", "avx512vbmi"};
constexpr int kUnknown = -1;

// Threads that detect the level at the same time get the same answer.
std::atomic<int> g_active{kUnknown};

// The compiler's checks include that the system saves the wide registers.
Level HighestLevel() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_cpu_init();
  if (!__builtin_cpu_supports("sse2")) return Level::kPlain;
  if (!__builtin_cpu_supports("ssse3")) return Level::kSse2;
  if (!__builtin_cpu_supports("avx2")) return Level::kSsse3;
  if (!__builtin_cpu_supports("avx512f") || !__builtin_cpu_supports("avx512bw") ||
      !__builtin_cpu_supports("avx512dq") || !__builtin_cpu_supports("avx512vl")) {
    return Level::kAvx2;
  }
  if (!__builtin_cpu_supports("avx512vbmi") || !__builtin_cpu_supports("avx512vnni")) {
    return Level::kAvx512;
  }
  return Level::kAvx512Vbmi;
#else
  return Level::kPlain;
#endif
}

}  // namespace

std::vector<Level> AllLevels() {
  std::vector<Level> levels;
  levels.reserve(kLevelCount);
  for (int i = 0; i < kLevelCount; ++i) levels.push_back(static_cast<Level>(i));
  return levels;
}

bool HasLevel(Level level) {
  static const Level highest = HighestLevel();
  return level <= highest;
}

Level ActiveLevel() {
  int active = g_active.load(std::memory_order_relaxed);
  if (active == kUnknown) {
    active = static_cast<int>(HighestLevel());
    // UseLevel may have run in between.
    int expected = kUnknown;
    if (!g_active.compare_exchange_strong(expected, active, std::memory_order_relaxed)) {
      active = expected;
    }
  }
  return static_cast<Level>(active);
}

void UseLevel(Level level) {
  if (!HasLevel(level)) {
    throw std::invalid_argument(std::string("this processor has no kernels of level ") +
                                LevelName(level));
  }
  g_active.store(static_cast<int>(level), std::memory_order_relaxed);
}

const char* LevelName(Level level) {
  return kNames[static_cast<int>(level)];
}

std::optional<Level> LevelFromName(std::string_view name) {
  for (const Level level : AllLevels()) {
    if (name == LevelName(level)) return level;
  }
  return std::nullopt;
}

}  // namespace zel
