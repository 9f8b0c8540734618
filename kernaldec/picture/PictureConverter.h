// Decoded pictures of any format to the one that streams deliver: planar 4:2:0 of 8 bits, BT.601
// with studio range.
#pragma once

#include <cstdint>

#include "kernaldec/picture/StudioColours.h"
#include "media/Ffmpeg.h"

namespace zel::kernaldec {

/// Keeps its state while size and format of the pictures stay. One thread at a time.
class PictureConverter {
 public:
  /// Writes `picture`, in its own size, to three planes; chroma of odd sizes is rounded up.
  /// @param pitches bytes from one row of a plane to the next
  /// @return false when the format cannot be converted
  /// @throws std::bad_alloc
  bool Convert(const AVFrame& picture, std::uint8_t* const planes[3], const int pitches[3]);

 private:
  bool Scale(const AVFrame& picture, const ColourCoding& coding);

  media::Scaler scaler_;
  /// What the scaler writes. Its vector code needs aligned rows with room behind them, which the
  /// caller's planes do not have.
  media::Frame scaled_{media::NotNull(av_frame_alloc())};
};

}  // namespace zel::kernaldec
