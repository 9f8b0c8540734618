// The reference kernels. Vector kernels call them by name for what is left at the end of a block.
#pragma once

#include <cstddef>

#include "zel/audio/detail/AudioKernels.h"

namespace zel::audio::plain {

extern const Kernels kKernels;

void Positions(int first, int count, int n, int t, std::int32_t* k, double* f);
void Interpolate(const short* in, const std::int32_t* k, const double* f, int count, int channels,
                 short* out);
void InterpolateMonoToStereo(const short* in, const std::int32_t* k, const double* f, int count,
                             short* out);
int MixUnity(const MixInputs& in, int i, int end, short* out);
int MixGain(const MixInputs& in, int i, int end, double gain, double step, short* out);
/// Sample `i` of the mix at full gain.
int MixSum(const MixInputs& in, int i);

}  // namespace zel::audio::plain
