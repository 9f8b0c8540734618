#include "zel/audio/detail/AudioKernels.h"

#include "zel/audio/detail/AudioScalar.h"
#include "zel/audio/detail/x86/AudioX86.h"

namespace zel::audio {
namespace {

constexpr int kLevels = static_cast<int>(CpuLevel::kAvx512Vbmi) + 1;

struct AllKernels {
  Kernels levels[kLevels];
  CpuLevel highest = DetectCpuLevel();

  AllKernels() {
    // No further: the functions that set a level's kernels are compiled for that level themselves.
    for (int i = 0; i <= static_cast<int>(highest); ++i) {
      const auto level = static_cast<CpuLevel>(i);
      Kernels* kernels = &levels[i];
      *kernels = kKernelsScalar;
#if defined(__x86_64__) || defined(__i386__)
      if (level >= CpuLevel::kSse2) SetSse2Kernels(kernels);
      if (level >= CpuLevel::kSsse3) SetSsse3Kernels(kernels);
      if (level >= CpuLevel::kAvx2) SetAvx2Kernels(kernels);
      if (level >= CpuLevel::kAvx512) SetAvx512Kernels(kernels);
#endif
    }
  }
};

}  // namespace

const Kernels& KernelsFor(CpuLevel level) {
  static const AllKernels all;
  return all.levels[static_cast<int>(level < all.highest ? level : all.highest)];
}

const Kernels& BestKernels() {
  return KernelsFor(CpuLevel::kAvx512Vbmi);
}

}  // namespace zel::audio
