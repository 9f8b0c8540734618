#include "zel/audio/detail/AudioKernels.h"

#include "zel/audio/detail/AudioScalar.h"
#include "zel/audio/detail/x86/AudioX86.h"
#include "zel/detail/Level.h"

namespace zel::audio {
namespace {

struct AllKernels {
  Kernels levels[kLevelCount];

  AllKernels() {
    for (const Level level : AllLevels()) {
      // No further: the functions that set a level's kernels are compiled for that level
      // themselves.
      if (!HasLevel(level)) break;
      Kernels* kernels = &levels[static_cast<int>(level)];
      *kernels = kKernelsScalar;
#if defined(__x86_64__) || defined(__i386__)
      if (level >= Level::kSse2) SetSse2Kernels(kernels);
      if (level >= Level::kSsse3) SetSsse3Kernels(kernels);
      if (level >= Level::kAvx2) SetAvx2Kernels(kernels);
      if (level >= Level::kAvx512) SetAvx512Kernels(kernels);
#endif
    }
  }
};

}  // namespace

const Kernels& KernelsFor(Level level) {
  static const AllKernels all;
  return all.levels[static_cast<int>(level)];
}

const Kernels& ActiveKernels() {
  return KernelsFor(ActiveLevel());
}

}  // namespace zel::audio
