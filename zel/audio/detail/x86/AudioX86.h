// The tables of the levels of x86. Each file of kernels is compiled for its level; why nothing in
// it is seen elsewhere but its table is in zel/detail/Registers-inl.h.
#pragma once

#include "zel/audio/detail/AudioKernels.h"

namespace zel::audio {

namespace sse2 {
extern const Kernels kKernels;
}
namespace ssse3 {
extern const Kernels kKernels;
}
namespace avx2 {
extern const Kernels kKernels;
}
namespace avx512 {
extern const Kernels kKernels;
}

}  // namespace zel::audio
