// Edit lists of MP4 and QuickTime files, as FFmpeg's muxer leaves them.
#pragma once

#include <cstdint>
#include <vector>

#include "tools/zel/files/PendingFile.h"

namespace zel::tool {

/// Corrects a complete file. In front of sound that begins after time 0, the muxer puts an empty
/// part, and then its priming samples are heard. They are cut off, and the empty part becomes that
/// much longer.
/// @param priming of each of the muxer's streams, in samples; 0: none, or no sound
/// @param movieRate units per second of the movie
/// @param rates samples per second of each stream
/// @return 0, or the negative of an errno
int CutPriming(PendingFile* file, const std::vector<int>& priming, int movieRate,
               const std::vector<int>& rates);

}  // namespace zel::tool
