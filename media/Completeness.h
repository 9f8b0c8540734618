// Tells whether a file is as long as it claims to be. Every function reads only; the caller uses
// the file on one thread at a time.
#pragma once

#include "media/MediaFile.h"

namespace zel::media {

/// True when a chunk, box, element or page with sound claims to extend past the end of the file.
/// Sizes that mean "not known yet", as programs write them into pipes, are ignored.
bool IsCutOff(const MediaFile& file);

/// True for containers in which FFmpeg marks packets as damaged that are only shorter than usual.
bool MarksShortReads(const MediaFile& file);

}  // namespace zel::media
