// AVX2: 16 samples or 4 doubles at a time.
#include "zel/audio/detail/ChannelLanes.inc"

namespace zel::audio {

void SetAvx2Kernels(Kernels* kernels) {
  SetKernels(kernels);
  SetLaneKernels(kernels);
}

}  // namespace zel::audio
