// Which container and which encoder a file name asks for.
#pragma once

#include <string>

namespace zel::tool {

/// A kind of output file.
struct Container {
  const char* suffix;   ///< Lower case, with its dot.
  const char* title;    ///< For people.
  const char* muxer;    ///< FFmpeg's name.
  const char* encoder;  ///< FFmpeg's name; "pcm_s16le" stands for no encoder.
  bool soundOnly;       ///< Holds no video.
  int bitsPerChannel;   ///< Bit rate per channel at 44.1 kHz; 0: the encoder's own choice.
};

/// The container of `path`, by its suffix in any case.
/// @throws Failure when there is none of that name
const Container& ContainerOf(const std::string& path);

/// All suffixes in one line, for help texts.
std::string KnownSuffixes();

}  // namespace zel::tool
