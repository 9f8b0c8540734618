// Decoded sound in the format that is wanted.
#pragma once

#include <memory>

#include "tools/zel/files/Host.h"
#include "tools/zel/files/SoundFormat.h"
#include "tools/zel/sound/SteadyStream.h"
#include "zel/audio/AudioConverter.h"

namespace zel::tool {

/// Lets `sound` come in channels from which the library's converter makes those of `wanted`: its
/// own where the converter has a rule for the pair, else the wanted ones, mixed by the decoder.
/// @throws Failure for more than 8 channels, and where the sound's rate is more than a thousand
///   times the wanted one or less than a thousandth of it: no sound has such a rate, and a few
///   bytes of a file would yield millions.
void PrepareConversion(DecodedSound* sound, SoundFormat wanted);

/// A sound from its beginning, without holes, converted block by block.
class ConvertedSound {
 public:
  /// @throws Failure
  ConvertedSound(DecodedSound sound, SoundFormat wanted);

  /// Reads up to `samples` samples (single 16-bit values) in the wanted format.
  /// @return samples read; fewer than asked for at the end only.
  /// @throws Failure when the sound cannot be read to its end
  int Read(short* out, int samples);

 private:
  bool PutNext();

  DecodedSound sound_;
  SoundFormat wanted_;
  ComPtr<SteadyStream> stream_;
  std::unique_ptr<CAudioConverter> converter_;
};

}  // namespace zel::tool
