// How decoded pictures code colour, and the conversion to what the image routines expect: BT.601
// with studio range.
#pragma once

#include <array>
#include <cstdint>

#include "media/Ffmpeg.h"

extern "C" {
#include <libavutil/pixfmt.h>
}

namespace zel::kernaldec {

/// How a decoded picture codes colour.
struct ColourCoding {
  AVPixelFormat format;  ///< Formats that imply a range (YUVJ...) are replaced by plain ones.
  bool fullRange;        ///< Luma from 0 to 255 instead of 16 to 235. False for RGB.
  AVColorSpace matrix;
};

/// Reads the coding from `frame`'s format and tags. As in FFmpeg's own conversions, untagged
/// pictures are BT.601 with studio range; untagged grey ones have full range.
ColourCoding CodingOf(const AVFrame& frame);

/// The linear map from a coding's Y'CbCr to that of BT.601 with studio range. It changes the matrix
/// and the range only, not the transfer function or the primaries. Any thread may use one.
class StudioColours {
 public:
  explicit StudioColours(const ColourCoding& from);

  /// True when there is nothing to change: the picture has that coding, or was RGB.
  bool IsIdentity() const { return identity_; }
  /// Maps a planar 4:2:0 picture of 8 bits in place. Each chroma sample applies to its four luma
  /// samples; chroma sizes are rounded up.
  /// @param pitches bytes from one row of a plane to the next
  /// @param width of the luma plane, in samples; `height` likewise, in rows
  void Apply(std::uint8_t* const planes[3], const int pitches[3], int width, int height) const;

 private:
  bool identity_;
  // Fixed-point numbers with 14 fractional bits. The offset includes one half for rounding.
  std::int32_t lumaOfLuma_ = 0;
  std::int32_t lumaOffset_ = 0;
  std::array<std::int32_t, 2> lumaOf_{};  ///< From Cb, from Cr.
  std::array<std::int32_t, 2> cbOf_{};
  std::array<std::int32_t, 2> crOf_{};
};

}  // namespace zel::kernaldec
