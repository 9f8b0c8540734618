// AVX-512 (F, BW, DQ, VL): whole windows of input permuted by sample. Of the channel rules it keeps
// the AVX2 kernels: it has no pairwise sums.
#include "zel/audio/detail/AudioRows-inl.h"

namespace zel::audio {

void SetAvx512Kernels(Kernels* kernels) {
  SetKernels(kernels);
}

}  // namespace zel::audio
