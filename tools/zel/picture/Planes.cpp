#include "tools/zel/picture/Planes.h"

#include <algorithm>
#include <cstring>

namespace zel::tool {
namespace {

int Even(int size) {
  return size + (size & 1);
}

}  // namespace

RgbPicture::RgbPicture(int width, int height)
    : width_(width), height_(height), pixels_(std::size_t{4} * Even(width) * Even(height)) {}

unsigned char* RgbPicture::Pixel(int x, int y) {
  return pixels_.data() + (std::ptrdiff_t{Even(height_)} - 1 - y) * Pitch() + 4 * std::ptrdiff_t{x};
}

std::ptrdiff_t RgbPicture::Pitch() const {
  return std::ptrdiff_t{4} * Even(width_);
}

IMG_PARAM RgbPicture::Rectangle(int left, int top, int width, int height) {
  return {pixels_.data(), Even(width_), Even(height_), static_cast<int>(Pitch()), 32, left, top,
          width,          height};
}

RgbPicture RgbPicture::Turned(const Orientation& turn) {
  RgbPicture to = turn.SwapsSides() ? RgbPicture(height_, width_) : RgbPicture(width_, height_);
  const int left = std::min(turn.xx * (width_ - 1) + turn.xy * (height_ - 1), 0);
  const int top = std::min(turn.yx * (width_ - 1) + turn.yy * (height_ - 1), 0);
  for (int y = 0; y < height_; ++y) {
    for (int x = 0; x < width_; ++x) {
      std::memcpy(to.Pixel(turn.xx * x + turn.xy * y - left, turn.yx * x + turn.yy * y - top),
                  Pixel(x, y), 4);
    }
  }
  return to;
}

void RgbPicture::Over(const AlphaPicture& logo, Point at) {
  const int left = std::max(at.x, 0);
  const int top = std::max(at.y, 0);
  const int right = std::min(at.x + logo.width, width_);
  const int bottom = std::min(at.y + logo.height, height_);
  if (left >= right || top >= bottom) return;
  // The library takes rectangles of at least 2 x 2 pixels. Where the logo covers fewer, the rest of
  // the layer stays transparent.
  const int fromX = std::min(left, Even(width_) - 2);
  const int fromY = std::min(top, Even(height_) - 2);
  RgbPicture layer(std::max(right - fromX, 2), std::max(bottom - fromY, 2));
  for (int y = top; y < bottom; ++y) {
    const std::size_t offset = std::size_t{1} * (y - at.y) * logo.width + (left - at.x);
    std::memcpy(layer.Pixel(left - fromX, y - fromY), logo.pixels.data() + 4 * offset,
                4 * static_cast<std::size_t>(right - left));
  }
  IMG_PARAM target = Rectangle(fromX, fromY, layer.width_, layer.height_);
  DIB_AlphaResizeBiLiner(layer.Rectangle(0, 0, layer.width_, layer.height_), target);
}

Planes::Planes(int width, int height)
    : width_(width),
      height_(height),
      pitch_(Even(width)),
      luma_(std::size_t{1} * pitch_ * Even(height)) {
  for (auto& plane : chroma_) plane.resize(luma_.size() / 4);
}

void Planes::Copy(const MEDIA_FRAME_YUV& from) {
  for (int plane = 0; plane < 3; ++plane) {
    const int rows = plane == 0 ? height_ : Even(height_) / 2;
    const int count = plane == 0 ? width_ : pitch_ / 2;
    for (int row = 0; row < rows; ++row) {
      std::memcpy(Row(plane, row), from.pPlane[plane] + std::ptrdiff_t{row} * from.nStride[plane],
                  static_cast<std::size_t>(count));
    }
  }
  Pad();
}

void Planes::Scale(const MEDIA_FRAME_YUV& from, IMAGE_INTERPOLATION method) {
  // The resizer does not write the last chroma sample.
  for (int plane = 1; plane < 3; ++plane) {
    const int row = (from.nHeight - 1) / 2;
    *(Row(plane, (height_ - 1) / 2) + (width_ - 1) / 2) =
        from.pPlane[plane][std::ptrdiff_t{row} * from.nStride[plane] + (from.nWidth - 1) / 2];
  }
  const IMG_PARAM source{nullptr, from.nWidth, from.nHeight, 0, 8, 0, 0, from.nWidth, from.nHeight};
  const IMG_PARAM target{nullptr, width_, height_, 0, 8, 0, 0, width_, height_};
  ImageResizeYV12(source, from.pPlane[0], from.pPlane[1], from.pPlane[2], from.nStride[0],
                  from.nStride[1], from.nStride[2], target, Row(0, 0), Row(1, 0), Row(2, 0), pitch_,
                  pitch_ / 2, pitch_ / 2, method);
  Pad();
}

RgbPicture Planes::ToRgb() {
  RgbPicture picture(width_, height_);
  tagBITMAPINFOHEADER header{};
  header.biSize = sizeof(header);
  header.biWidth = pitch_;
  header.biHeight = Even(height_);
  header.biPlanes = 1;
  header.biBitCount = 32;
  Yuv420_2_rgb32(&header, picture.data(), Row(0, 0), Row(1, 0), Row(2, 0), pitch_, pitch_ / 2,
                 pitch_ / 2);
  return picture;
}

unsigned char* Planes::Row(int plane, int row) {
  return plane == 0 ? luma_.data() + std::ptrdiff_t{row} * pitch_
                    : chroma_[plane - 1].data() + std::ptrdiff_t{row} * (pitch_ / 2);
}

/// Repeats the last column and the last row where a side is odd.
void Planes::Pad() {
  if (width_ < pitch_) {
    for (int row = 0; row < height_; ++row) Row(0, row)[width_] = Row(0, row)[width_ - 1];
  }
  if (height_ % 2 != 0) std::memcpy(Row(0, height_), Row(0, height_ - 1), pitch_);
}

}  // namespace zel::tool
