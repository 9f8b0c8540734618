// Writing files of sound: what several commands share.
#pragma once

#include <functional>
#include <string>

#include "tools/zel/commands/Options.h"
#include "tools/zel/files/MediaWriter.h"

namespace zel::tool {

/// Adds sound like `stream`.
/// @param keepTexts whether the sound also gets the texts of `stream`, such as language and title
void AddSoundLike(MediaWriter* writer, SoundFormat format, const AVStream& stream, bool keepTexts);

/// How the stored sound differs from `format`: "stored at 48000 Hz, speakers 5.1(side) stored as
/// 5.1"; empty where it does not.
std::string StorageText(const SoundEncoder& encoder, SoundFormat format);

/// A file of nothing but sound, which starts at time 0.
struct SoundFile {
  const OutputOptions& output;
  SoundFormat format;
  std::string source;  ///< Named in the failure when there is no sound at all.
  std::string story;   ///< What the closing line says of the file; printable.
  double length = 0;   ///< Expected seconds; 0 when they are not known.

  /// Returns a block of interleaved samples, and its number of frames, 0 at the end.
  using NextBlock = std::function<const short*(int* frames)>;

  /// Writes the whole file.
  /// @param writer has its sound, and is not started
  /// @throws Failure
  void Write(MediaWriter* writer, const NextBlock& next) const;
};

}  // namespace zel::tool
