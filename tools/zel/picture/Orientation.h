// How the pictures of a video are to be turned before they are shown.
#pragma once

#include "media/Ffmpeg.h"

namespace zel::tool {

/// Where the pixels of a stored picture go: pixel (x, y) to (xx * x + xy * y, yx * x + yy * y). The
/// result is moved to begin at (0, 0). Each member is -1, 0 or 1.
struct Orientation {
  int xx = 1;
  int xy = 0;
  int yx = 0;
  int yy = 1;

  bool IsUpright() const { return xx == 1 && yy == 1; }
  /// Whether width and height change places.
  bool SwapsSides() const { return xx == 0; }
  /// The same, and upside down afterwards.
  Orientation Flipped() const { return {xx, xy, -yx, -yy}; }
};

/// Reads a stream's orientation. Upright where the stream has none, or is to be turned by other
/// angles than right ones. The entries of its matrix may be rounded.
Orientation OrientationOf(const AVStream& stream);

}  // namespace zel::tool
