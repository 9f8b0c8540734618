#include "zel/audio/detail/AudioKernels.h"

#include "zel/audio/detail/AudioScalar.h"
#include "zel/audio/detail/x86/AudioX86.h"
#include "zel/detail/LevelTables.h"

namespace zel::audio {
namespace {

constexpr LevelTables<Kernels> kTables = {{
    &plain::kKernels,
#if defined(__x86_64__) || defined(__i386__)
    &sse2::kKernels,
    &ssse3::kKernels,
    &avx2::kKernels,
    &avx512::kKernels,
    nullptr,
#endif
}};

}  // namespace

const Kernels& KernelsFor(Level level) {
  return kTables.For(level);
}

const Kernels& ActiveKernels() {
  return kTables.Active();
}

}  // namespace zel::audio
