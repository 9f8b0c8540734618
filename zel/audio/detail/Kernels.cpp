#include "zel/audio/detail/Kernels.h"

#include "zel/audio/detail/KernelsScalar.h"

namespace zel::audio {

const Kernels& KernelsFor(CpuLevel) {
  return kKernelsScalar;
}

const Kernels& BestKernels() {
  static const Kernels& best = KernelsFor(DetectCpuLevel());
  return best;
}

}  // namespace zel::audio
