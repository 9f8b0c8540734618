// Everything that a host does with a file: describes it, walks the description, decodes parts of
// its sound and pictures, seeks. For fuzzers and for tests with damaged files.
#pragma once

#include <string>

namespace zel::fuzz {

/// What became of a file.
struct Reading {
  int streams = 0;   ///< Streams described, over all programs.
  int sounds = 0;    ///< Audio samples that were handed out.
  int pictures = 0;  ///< Video samples that were handed out.
};

/// Reads `path` in every way, within a bounded number of steps, and ends the process with a message
/// when an answer breaks a promise of the interfaces: a result without an object, a frame whose
/// numbers do not belong together, a failed call that hands something out.
/// @param variety any number; chooses places to seek to
Reading ReadMedia(const std::string& path, unsigned variety);

}  // namespace zel::fuzz
