// IntermixAudio mixes 16-bit PCM buffers of one layout with an automatic gain.
//
//   short* inputs[] = {speech, music};
//   IntermixAudio(inputs, 2, 1024, mixed);  // 1,024 samples of each
#pragma once

#include "zel/platform/Types.h"

/// [any] Mixes `nInputs` buffers sample by sample into `pOutput`.
///
/// A sample that would leave the 16-bit range pulls the gain down at once to where it just fits;
/// the gain then creeps back to 1 by `nInputs` / 441,000 per sample. Every call starts at a gain
/// of 1. Results lie between -32,767 and 32,767.
///
/// @param ppInputs `nInputs` pointers to `nSamples` samples each, all of one layout.
/// @param nInputs 0 or less gives silence.
/// @param nSamples samples to make; 0 or less does nothing.
/// @param pOutput receives `nSamples` samples; may be one of the inputs.
///
/// Threads: any, at any time, as long as no other thread uses the same buffers.
ZEL_API void IntermixAudio(short** ppInputs, int nInputs, int nSamples, short* pOutput);
