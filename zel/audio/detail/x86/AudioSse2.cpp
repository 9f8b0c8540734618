// SSE2: what every x86 processor that we run on has.
#include "zel/audio/detail/AudioRows-inl.h"

namespace zel::audio {

void SetSse2Kernels(Kernels* kernels) {
  SetKernels(kernels);
}

}  // namespace zel::audio
