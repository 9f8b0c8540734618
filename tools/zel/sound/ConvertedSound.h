// Decoded sound in the format that is wanted.
#pragma once

#include <memory>

#include "tools/zel/files/DecodedSound.h"
#include "tools/zel/files/SoundFormat.h"
#include "tools/zel/sound/SteadyStream.h"
#include "zel/audio/AudioConverter.h"

namespace zel::tool {

/// Makes `sound` yield channels that the library's converter can turn into those of `wanted`: its
/// own channels where the converter has a rule for the pair, else the wanted ones, mixed by the
/// decoder.
/// @throws Failure for more than 8 channels, and for rates more than 1,000 times apart: no sound
///   has such a rate, and a few bytes of a file would yield millions.
void PrepareConversion(DecodedSound* sound, SoundFormat wanted);

/// A sound from its beginning, without holes, converted block by block.
class ConvertedSound {
 public:
  /// @throws Failure
  ConvertedSound(DecodedSound sound, SoundFormat wanted);

  /// Reads up to `samples` 16-bit values in the wanted format, channels interleaved.
  /// @return the number of values; fewer than `samples` at the end only
  /// @throws Failure when the sound cannot be read to its end
  int Read(short* out, int samples);

 private:
  bool PutNext();

  DecodedSound sound_;
  SoundFormat wanted_;
  Ref<SteadyStream> stream_;
  std::unique_ptr<CAudioConverter> converter_;
};

}  // namespace zel::tool
