// What decoded pictures' colour values mean, and their way to the meaning that the image routines
// take for granted: BT.601 with studio range.
#pragma once

#include <array>
#include <cstdint>

#include "media/Ffmpeg.h"

extern "C" {
#include <libavutil/pixfmt.h>
}

namespace zel::kernaldec {

/// How a decoded picture is coded.
struct ColourCoding {
  AVPixelFormat format;  ///< Never one of those that imply a range.
  bool fullRange;        ///< Luma from 0 to 255 instead of 16 to 235. Of no meaning for RGB.
  AVColorSpace matrix;
};

/// What `frame` says of itself. Untagged pictures are studio range (grey ones full range) and
/// BT.601, as FFmpeg's own conversions take them.
ColourCoding CodingOf(const AVFrame& frame);

/// The linear map from one coding's Y'CbCr to that of BT.601 with studio range. Light and gamut
/// stay: it undoes a matrix and a range, nothing else.
class StudioColours {
 public:
  explicit StudioColours(const ColourCoding& from);

  /// The picture has that coding already, or is none of Y'CbCr.
  bool IsIdentity() const { return identity_; }
  /// Maps a planar 4:2:0 picture of 8 bits in place; a chroma sample serves its four luma samples.
  /// Planes of odd sizes have rounded-up chroma.
  void Apply(std::uint8_t* const planes[3], const int pitches[3], int width, int height) const;

 private:
  bool identity_;
  // Fixed-point numbers with 14 fractional bits. The offsets hold the rounding half.
  std::int32_t lumaOfLuma_ = 0;
  std::int32_t lumaOffset_ = 0;
  std::array<std::int32_t, 2> lumaOf_{};  ///< Of Cb, of Cr.
  std::array<std::int32_t, 2> cbOf_{};
  std::array<std::int32_t, 2> crOf_{};
};

}  // namespace zel::kernaldec
