// The tables of the levels of x86. Each file of kernels is compiled for its level. Only its table
// is visible to other files; zel/detail/Registers-inl.h says why.
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
