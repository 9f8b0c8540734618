#include "zel/detail/x86/Sse2-inl.h"

#include "zel/audio/detail/x86/AudioSteps128-inl.h"
#include "zel/audio/detail/x86/AudioX86.h"

namespace zel::audio::sse2 {

constinit const Kernels kKernels = MakeKernels<Steps128<plain::kKernels>>();

}  // namespace zel::audio::sse2
