// Samples of every format that decoders output, rounded to 16-bit PCM.
#pragma once

#include <cstddef>
#include <cstdint>

#include "media/Ffmpeg.h"

namespace zel::kernaldec {

/// Where samples lie.
struct SamplePlanes {
  const std::uint8_t* const* data;  ///< One plane per channel; of an interleaved format, one.
  AVSampleFormat format;
  int channels;
};

/// Rounds `count` samples of each channel to the nearest 16-bit value and interleaves them. Values
/// beyond full scale become the largest value of their sign; NaN becomes 0. 8-bit and 16-bit
/// samples keep their values.
///
/// FFmpeg's own conversion cuts the low bits of integers off, which makes the sound half a step
/// lower on average, and turns floating point far beyond full scale into the other sign.
/// @param pcm room for `count` x `channels` values
/// @return false when the format is unknown
bool RoundToPcm(const SamplePlanes& from, int count, std::int16_t* pcm);

}  // namespace zel::kernaldec
