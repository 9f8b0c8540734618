// Sound on its way into a file: what the commands share.
#pragma once

#include <functional>
#include <string>

#include "tools/zel/commands/Options.h"
#include "tools/zel/files/MediaWriter.h"

namespace zel::tool {

/// Adds sound with the speakers of `stream`, or the usual ones if that has another number of
/// channels.
/// @param keepTexts whether language, title and the like of `stream` are kept, too
void AddSoundLike(MediaWriter* writer, SoundFormat format, const AVStream& stream, bool keepTexts);

/// Writes a file that has nothing but sound, which starts at time 0: the file's head, blocks, end.
struct SoundFile {
  const OutputOptions& output;
  SoundFormat format;
  std::string source;  ///< Blamed when there is no sound at all.
  std::string story;   ///< What the closing line says of it; printable.
  double length = 0;   ///< Expected seconds; 0 when they are not known.

  /// A block of interleaved samples; `frames` receives how many, 0 at the end.
  using NextBlock = std::function<const short*(int* frames)>;

  /// @param writer has its sound, and is not started.
  /// @throws Failure
  void Write(MediaWriter* writer, const NextBlock& next) const;
};

}  // namespace zel::tool
