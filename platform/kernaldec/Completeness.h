// Whether a file is as long as it says it is.
#pragma once

#include "platform/kernaldec/MediaFile.h"

namespace zel::kernaldec {

/// Seconds of sound that stream `index` has to have, by what its container states, less what
/// containers of its kind are known to be off by; a negative value when the container states
/// nothing that can be relied on (a length estimated from a bit rate, for one).
long double DeclaredLength(const MediaFile& file, int index);

/// True when the file lacks a part that its own structure promises.
bool IsCutOff(const MediaFile& file, int index);

}  // namespace zel::kernaldec
