// Whether a file is as long as it says it is.
#pragma once

#include "media/MediaFile.h"

namespace zel::kernaldec {

struct DeclaredLength {
  long double seconds = -1;
  long double slack = 0;  ///< What containers of the kind are known to be off by.
};

/// How much sound stream `index` has to have by what its container states; negative when it states
/// nothing that can be relied on (a length estimated from a bit rate, or from the file's size).
DeclaredLength FindDeclaredLength(const media::MediaFile& file, int index);

/// True when a chunk, box, element or page that carries sound says that it goes on past the end of
/// the file. Sizes that stand for "not known yet", as programs write them into pipes, say nothing.
bool IsCutOff(const media::MediaFile& file);

/// True when FFmpeg marks packets as damaged only because they are shorter than its usual reads.
bool MarksShortReads(const media::MediaFile& file);

}  // namespace zel::kernaldec
