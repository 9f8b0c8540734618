// Picture files: what the command writes, and the PNG files that it reads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace zel::tool {

/// Longest side of a picture that is read or written: what video frames can have.
inline constexpr int kMaxPictureSide = 16384;

/// Width and height in pixels.
struct PictureSize {
  int width;
  int height;
};

/// "640x360".
std::string SizeText(const PictureSize& size);

/// A picture in memory, read only: 4 bytes per pixel, blue, green, red and one that is ignored.
struct PixelView {
  const std::uint8_t* top;  ///< The picture's top row.
  std::ptrdiff_t pitch;     ///< Bytes from a row to the one below; negative for bottom-up bitmaps.
  int width;
  int height;
};

enum class PictureFormat { kPng, kBmp, kPpm };

/// The suffixes of picture files, for people: ".png .bmp .ppm".
std::string KnownPictureSuffixes();

/// The format that `path` names. @throws Failure when it names none
PictureFormat PictureFormatOf(const std::string& path);

/// Writes `picture`, whose sides are at most kMaxPictureSide. No file of that name appears or
/// changes before it is complete.
/// @throws Failure
void WritePicture(const std::string& path, bool overwrite, const PixelView& picture);

/// A picture with an alpha channel, not premultiplied: blue, green, red, alpha; rows from the top,
/// without gaps.
struct AlphaPicture {
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> pixels;
};

/// Reads a PNG file of any kind. @throws Failure
AlphaPicture ReadPng(const std::string& path);

}  // namespace zel::tool
