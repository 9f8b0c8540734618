// The reference kernels by name: the vector kernels hand them their odd ends.
#pragma once

#include <cstddef>

#include "zel/audio/detail/AudioKernels.h"

namespace zel::audio {

extern const Kernels kKernelsScalar;

void PositionsScalar(int first, int count, int n, int t, std::int32_t* k, double* f);
void InterpolateScalar(const short* in, const std::int32_t* k, const double* f, int count,
                       int channels, short* out);
void InterpolateMonoToStereoScalar(const short* in, const std::int32_t* k, const double* f,
                                   int count, short* out);
int MixUnityScalar(const MixInputs& in, int i, int end, short* out);
int MixGainScalar(const MixInputs& in, int i, int end, double gain, double step, short* out);
/// Sample `i` of the mix at full gain.
int MixSum(const MixInputs& in, int i);

}  // namespace zel::audio
