// The programs of a file, and the ids that hosts know its streams by.
//
// 1. A container without programs gets one, with id 1 and all streams. Streams that belong to none
//    of a container's programs form one more program at the end.
// 2. Programs keep their own ids if these are distinct and fit bits 16 to 23 of a stream's id (1 to
//    255). Otherwise programs are numbered from 1.
// 3. A stream's id holds the program's id in bits 16 to 23 and the stream's index in the file in
//    bits 0 to 15. A stream that several programs share has an id in each.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "media/Ffmpeg.h"
#include "zel/platform/DecoderManager.h"

namespace zel::kernaldec {

struct Program {
  std::uint32_t id = 1;
  int number = 1;            ///< The container's own number.
  std::string name;          ///< The container's name for it, or empty.
  int referenceStream = -1;  ///< Index of the stream that carries the program's clock, or -1.
  std::vector<int> streams;  ///< Indices in the file, ascending, of every kind.

  std::uint32_t StreamId(int index) const {
    return id << 16 | static_cast<std::uint32_t>(index & 0xFFFF);
  }
  /// The index in the file of the `which`-th (from 0) stream of `type`, or -1. Covers do not count
  /// as video.
  int FindStream(const AVFormatContext* format, AVMediaType type, int which = 0) const;
};

/// At least one program, at most 255.
std::vector<Program> ListPrograms(const AVFormatContext* format);

/// The streams that a decoder opens, as indices in the file; -1 for none.
struct Selection {
  int program = 0;  ///< Index in the list of programs.
  int audio = -1;
  int video = -1;
};

/// Finds the streams that `wanted` chooses: the stream of those ids, and the first of the other
/// kind in its program. Without a choice (null, or a size of 0) these are the first audio stream of
/// the first program that has one, and the first video stream of that program. A file without sound
/// gives its first video stream, and one without either no stream at all.
/// @return nothing when no audio or video stream has the ids
std::optional<Selection> Select(const AVFormatContext* format, const std::vector<Program>& programs,
                                const DecoderSelection* wanted);

}  // namespace zel::kernaldec
