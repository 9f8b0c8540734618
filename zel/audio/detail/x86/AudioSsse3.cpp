// Byte shuffles and pairwise sums make the mixing rules fit vectors.
#include "zel/detail/x86/Ssse3-inl.h"

#include "zel/audio/detail/ChannelLanes-inl.h"
#include "zel/audio/detail/x86/AudioSteps128-inl.h"
#include "zel/audio/detail/x86/AudioX86.h"

namespace zel::audio::ssse3 {

constinit const Kernels kKernels = MakeKernels<LaneSteps<Steps128<sse2::kKernels>>>();

}  // namespace zel::audio::ssse3
