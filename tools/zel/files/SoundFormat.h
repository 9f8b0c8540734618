// What 16-bit sound is.
#pragma once

#include <cstdint>
#include <string>

namespace zel::tool {

/// Interleaved 16-bit PCM.
struct SoundFormat {
  int sampleRate = 0;
  int channels = 0;
  std::uint64_t speakers = 0;  ///< FFmpeg's AV_CH_..., in the order of the channels; 0: not known.
};

/// "44100 Hz, 2 channels".
inline std::string FormatText(SoundFormat format) {
  return std::to_string(format.sampleRate) + " Hz, " + std::to_string(format.channels) +
         (format.channels == 1 ? " channel" : " channels");
}

}  // namespace zel::tool
