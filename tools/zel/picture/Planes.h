// Pictures in the two layouts of the library's image routines.
#pragma once

#include <cstddef>
#include <vector>

#include "tools/zel/picture/Orientation.h"
#include "tools/zel/picture/PictureFile.h"
#include "zel/Common/Image/ImageConvert.h"
#include "zel/sample/Sample.h"

namespace zel::tool {

/// A point, in pixels from the top-left corner.
struct Point {
  int x = 0;
  int y = 0;
};

/// A bottom-up bitmap of 32 bits per pixel: blue, green, red and one that is ignored. Its memory
/// has even sizes, because the library lays nothing over a bitmap that is 1 pixel wide.
class RgbPicture {
 public:
  RgbPicture(int width, int height);

  /// The memory, bottom row first: rows of an even number of pixels, an even number of rows.
  unsigned char* data() { return pixels_.data(); }
  PixelView View() { return {Pixel(0, 0), -Pitch(), width_, height_}; }

  RgbPicture Turned(const Orientation& turn);
  /// Lays `logo` over the picture, its top-left corner at `at`. What falls outside is cut off.
  void Over(const AlphaPicture& logo, Point at);

 private:
  unsigned char* Pixel(int x, int y);
  std::ptrdiff_t Pitch() const;
  IMG_PARAM Rectangle(int left, int top, int width, int height);

  int width_;
  int height_;
  std::vector<unsigned char> pixels_;
};

/// A planar 4:2:0 picture of 8 bits. Its memory has even sizes, because the library's conversion
/// leaves out the last pixel of pictures with two odd sides.
class Planes {
 public:
  Planes(int width, int height);

  /// Takes over a picture of the same size.
  void Copy(const MEDIA_FRAME_YUV& from);
  /// Takes over a picture of another size. Both are at least 2 x 2.
  void Scale(const MEDIA_FRAME_YUV& from, IMAGE_INTERPOLATION method);
  RgbPicture ToRgb();

 private:
  unsigned char* Row(int plane, int row);
  void Pad();

  int width_;
  int height_;
  int pitch_;
  std::vector<unsigned char> luma_;
  std::vector<unsigned char> chroma_[2];
};

}  // namespace zel::tool
