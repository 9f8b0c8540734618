// Tells whether a file is as long as it claims to be. Every function reads only; the caller uses
// the file on one thread at a time.
#pragma once

#include "media/MediaFile.h"

namespace zel::kernaldec {

/// A stream's length as its container states it.
struct DeclaredLength {
  long double seconds = -1;  ///< Negative: unknown.
  long double slack = 0;     ///< Seconds by which containers of the kind may be wrong.
};

/// How much sound stream `index` must have according to its container. Unknown unless the container
/// states an exact length: one estimated from a bit rate or from the file's size does not count.
DeclaredLength FindDeclaredLength(const media::MediaFile& file, int index);

/// True when a chunk, box, element or page with sound claims to extend past the end of the file.
/// Sizes that mean "not known yet", as programs write them into pipes, are ignored.
bool IsCutOff(const media::MediaFile& file);

/// True for containers in which FFmpeg marks packets as damaged that are only shorter than usual.
bool MarksShortReads(const media::MediaFile& file);

}  // namespace zel::kernaldec
