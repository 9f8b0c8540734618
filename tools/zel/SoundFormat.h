// What 16-bit sound is.
#pragma once

namespace zel::tool {

/// Interleaved 16-bit PCM.
struct SoundFormat {
  int sampleRate = 0;
  int channels = 0;
};

}  // namespace zel::tool
