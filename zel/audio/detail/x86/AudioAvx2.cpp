// AVX2: 16 samples or 4 doubles at a time.
#include "zel/audio/detail/x86/ChannelLanes-inl.h"

namespace zel::audio {

void SetAvx2Kernels(Kernels* kernels) {
  SetKernels(kernels);
  SetLaneKernels(kernels);
}

}  // namespace zel::audio
