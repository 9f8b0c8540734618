// SSSE3: byte shuffles and pairwise sums make the mixing rules fit vectors.
#include "zel/audio/detail/x86/ChannelLanes-inl.h"

namespace zel::audio {

void SetSsse3Kernels(Kernels* kernels) {
  SetKernels(kernels);
  SetLaneKernels(kernels);
}

}  // namespace zel::audio
