// The published Windows bitmap records, as the image routines use them.
//
//   tagBITMAPINFOHEADER header = {};  // 1920 x 1080 pixels of 24 bits.
//   header.biSize = sizeof(header);
//   header.biWidth = 1920;
//   header.biHeight = 1080;
//   header.biPlanes = 1;
//   header.biBitCount = 24;
//
// RgbToYuv.h and YuvToRgb.h say which fields a routine reads. Fields of several bytes are
// little-endian.
#pragma once

#include <cstddef>
#include <cstdint>

/// Header of a device-independent bitmap, 40 bytes.
struct tagBITMAPINFOHEADER {
  std::uint32_t biSize;          ///< Bytes of this header: 40.
  std::int32_t biWidth;          ///< Pixels per row.
  std::int32_t biHeight;         ///< Rows; positive: the bottom row comes first in memory.
  std::uint16_t biPlanes;        ///< 1.
  std::uint16_t biBitCount;      ///< Bits per pixel: 8, 24 or 32.
  std::uint32_t biCompression;   ///< 0: uncompressed.
  std::uint32_t biSizeImage;     ///< Bytes of pixel data.
  std::int32_t biXPelsPerMeter;  ///< Horizontal resolution in pixels per metre.
  std::int32_t biYPelsPerMeter;  ///< Vertical resolution.
  std::uint32_t biClrUsed;       ///< Entries of the colour table; 0: all that `biBitCount` allows.
  std::uint32_t biClrImportant;  ///< Entries that matter; 0: all.
};
static_assert(sizeof(tagBITMAPINFOHEADER) == 40);
static_assert(offsetof(tagBITMAPINFOHEADER, biWidth) == 4 &&
              offsetof(tagBITMAPINFOHEADER, biHeight) == 8 &&
              offsetof(tagBITMAPINFOHEADER, biPlanes) == 12 &&
              offsetof(tagBITMAPINFOHEADER, biBitCount) == 14 &&
              offsetof(tagBITMAPINFOHEADER, biCompression) == 16 &&
              offsetof(tagBITMAPINFOHEADER, biSizeImage) == 20 &&
              offsetof(tagBITMAPINFOHEADER, biXPelsPerMeter) == 24 &&
              offsetof(tagBITMAPINFOHEADER, biYPelsPerMeter) == 28 &&
              offsetof(tagBITMAPINFOHEADER, biClrUsed) == 32 &&
              offsetof(tagBITMAPINFOHEADER, biClrImportant) == 36);

/// Entry of a colour table: blue, green, red in memory, then an unused byte.
struct tagRGBQUAD {
  unsigned char rgbBlue;
  unsigned char rgbGreen;
  unsigned char rgbRed;
  unsigned char rgbReserved;
};
static_assert(sizeof(tagRGBQUAD) == 4);

/// A header with the first entry of the colour table that follows it.
struct tagBITMAPINFO {
  tagBITMAPINFOHEADER bmiHeader;
  tagRGBQUAD bmiColors[1];
};
static_assert(sizeof(tagBITMAPINFO) == 44 && offsetof(tagBITMAPINFO, bmiColors) == 40);
