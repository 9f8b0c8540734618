// Which kernels the image benchmarks measure.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "zel/detail/Cpu.h"

namespace zel::bench {

/// The processor's level, or the lower one that ZEL_CPU names in the environment ("avx2"), which
/// limits our kernels only, not the peers'. Ends the program (code 2) if there is no such level
/// here.
inline CpuLevel KernelLevel() {
  const CpuLevel detected = DetectCpuLevel();
  const char* const name = std::getenv("ZEL_CPU");
  if (name == nullptr) return detected;
  for (int i = 0; i <= static_cast<int>(detected); ++i) {
    const auto level = static_cast<CpuLevel>(i);
    if (std::strcmp(name, CpuLevelName(level)) == 0) return level;
  }
  std::fprintf(stderr, "ZEL_CPU: this processor has no '%s'; its best is '%s'\n", name,
               CpuLevelName(detected));
  std::exit(2);
}

}  // namespace zel::bench
