// The processor's levels: which kernels it can run, and which of them are in use.
//
//   const Kernels& kernels = kTables.Active();   // What a routine does (LevelTables.h).
//
//   for (zel::Level level : zel::AllLevels()) {  // What a test does.
//     if (!zel::HasLevel(level)) continue;
//     zel::UseLevel(level);
//     ...
//   }
//
// Files of kernels are compiled for newer processors than the rest of the library. Nothing here is
// inline, so none of them can leave a copy of it for other processors to run.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

namespace zel {

/// In ascending order. Each level has everything of the levels before it.
enum class Level {
  kPlain,  ///< C++ without vectors: the reference that every kernel matches byte for byte.
  kSse2,   ///< Required by both x86 builds.
  kSsse3,
  kAvx2,
  kAvx512,      ///< F, BW, DQ and VL.
  kAvx512Vbmi,  ///< Those, VBMI and VNNI.
};
inline constexpr int kLevelCount = 6;

/// Every level there is, in ascending order, whether this processor has it or not.
std::vector<Level> AllLevels();

/// Whether this processor, under this system, runs the level's kernels.
bool HasLevel(Level level);

/// The level whose kernels are in use: the highest that the processor has, or the one of the last
/// call of UseLevel. Any thread may call it.
Level ActiveLevel();

/// Puts the kernels of `level` in use, in every room, for tests and benchmarks. No other thread may
/// be inside a routine that has kernels. Objects that chose their kernels before (CAudioConverter)
/// keep them.
/// @throws std::invalid_argument if this processor does not have the level. Nothing changes then.
void UseLevel(Level level);

/// "plain", "sse2", "ssse3", "avx2", "avx512", "avx512vbmi".
const char* LevelName(Level level);
/// The level of that name; none if there is no such name.
std::optional<Level> LevelFromName(std::string_view name);

}  // namespace zel
