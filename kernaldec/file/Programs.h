// The programs of a file and the ids by which its streams are known outside.
//
// 1. A container without programs has one, of id 1, with all its streams. Streams that belong to
//    none of a container's programs form one more program at the end.
// 2. A program's id is the container's own where all of them are distinct and fit bits 16 to 23 of
//    a stream's id (1 to 255); otherwise programs are counted from 1.
// 3. A stream's id is its program's id in bits 16 to 23 and its index in the file in bits 0 to 15.
//    A stream that several programs share has an id in each.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "media/Ffmpeg.h"
#include "zel/platform/DecoderManager.h"

namespace zel::kernaldec {

struct Program {
  std::uint32_t id = 1;
  int number = 1;            ///< The container's own number.
  std::string name;          ///< The container's name for it, or empty.
  int referenceStream = -1;  ///< Index of the stream on the program's clock, or -1.
  std::vector<int> streams;  ///< Indices in the file, ascending, of every kind.

  std::uint32_t StreamId(int index) const {
    return id << 16 | static_cast<std::uint32_t>(index & 0xFFFF);
  }
  /// The `which`-th (from 0) stream of `type`; covers are no video. -1: none.
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

/// The streams that `wanted` chooses: without a choice (null, or a size of 0) the file's first
/// audio and video stream; otherwise the stream of those ids and the first of the other kind in its
/// program.
/// @return false when no audio or video stream has the ids.
bool Select(const AVFormatContext* format, const std::vector<Program>& programs,
            const DecoderSelection* wanted, Selection* selection);

}  // namespace zel::kernaldec
