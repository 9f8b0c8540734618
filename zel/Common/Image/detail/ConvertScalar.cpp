// The reference kernels, in the plainest form.
#include "zel/Common/Image/detail/ConvertKernels.h"
#include "zel/Common/Image/detail/ConvertPixel.h"

namespace zel::image::plain {
namespace {

enum class Fourth { kNone, kKept, kOpaque, kAlpha };

template <const ToRgbFactors& kFactors, Fourth kFourth>
void ToRgb(const YuvSource& src, PixelTarget dst, std::ptrdiff_t width, std::ptrdiff_t rows) {
  constexpr int kPixelBytes = kFourth == Fourth::kNone ? 3 : 4;
  for (std::ptrdiff_t row = 0; row < rows; ++row) {
    const std::uint8_t* const y = src.y + row * src.pitchY;
    const std::uint8_t* const u = src.u + row / 2 * src.pitchU;
    const std::uint8_t* const v = src.v + row / 2 * src.pitchV;
    for (std::ptrdiff_t x = 0; x < width; ++x) {
      std::uint8_t* const pixel = dst[row] + kPixelBytes * x;
      PixelToRgb(kFactors, y[x], u[x / 2], v[x / 2], pixel);
      if (kFourth == Fourth::kOpaque) pixel[3] = 255;
      if (kFourth == Fourth::kAlpha) pixel[3] = src.a[row * src.pitchY + x];
    }
  }
}

/// Walks the blocks of a picture. pixel(row, x) returns a YuvPixel.
template <typename Pixel>
void ToYuv(const YuvTarget& dst, std::ptrdiff_t width, std::ptrdiff_t rows, Pixel pixel) {
  for (std::ptrdiff_t row = 0; row < rows; row += 2) {
    for (std::ptrdiff_t x = 0; x < width; x += 2) {
      int u = 0, v = 0, count = 0;
      for (std::ptrdiff_t j = row; j < row + 2 && j < rows; ++j) {
        for (std::ptrdiff_t i = x; i < x + 2 && i < width; ++i, ++count) {
          const YuvPixel yuv = pixel(j, i);
          dst.y[j * dst.pitchY + i] = static_cast<std::uint8_t>(yuv.y);
          u += yuv.u;
          v += yuv.v;
        }
      }
      dst.u[row / 2 * dst.pitchU + x / 2] = static_cast<std::uint8_t>(u / count);
      dst.v[row / 2 * dst.pitchV + x / 2] = static_cast<std::uint8_t>(v / count);
    }
  }
}

template <const ToYuvFactors& kFactors, int kPixelBytes, bool kAlpha = false>
void FromRgb(PixelSource src, const YuvTarget& dst, std::ptrdiff_t width, std::ptrdiff_t rows) {
  ToYuv(dst, width, rows, [&](std::ptrdiff_t row, std::ptrdiff_t x) {
    const std::uint8_t* const pixel = src[row] + kPixelBytes * x;
    if (kAlpha) dst.a[row * dst.pitchY + x] = pixel[3];
    return PixelToYuv(kFactors, pixel[0], pixel[1], pixel[2]);
  });
}

void FromIndexed(PixelSource src, const YuvTarget& dst, std::ptrdiff_t width, std::ptrdiff_t rows,
                 const Palette& palette) {
  ToYuv(dst, width, rows, [&](std::ptrdiff_t row, std::ptrdiff_t x) {
    const tagRGBQUAD& color = palette.colors[src[row][x]];
    return PixelToYuv(kToYuv, color.rgbBlue, color.rgbGreen, color.rgbRed);
  });
}

int Highest(const std::uint8_t* bytes, std::ptrdiff_t count) {
  int highest = 0;
  for (std::ptrdiff_t i = 0; i < count; ++i) {
    if (bytes[i] > highest) highest = bytes[i];
  }
  return highest;
}

void Split(PixelSource src, const YuvTarget& dst, std::ptrdiff_t width, std::ptrdiff_t rows,
           bool lumaFirst) {
  const int luma = lumaFirst ? 0 : 1;
  const int chroma = 1 - luma;
  for (std::ptrdiff_t row = 0; row < rows; row += 2) {
    const int count = row + 1 < rows ? 2 : 1;
    for (std::ptrdiff_t x = 0; x < width; x += 2) {
      int u = 0, v = 0;
      for (int j = 0; j < count; ++j) {
        const std::uint8_t* const group = src[row + j] + 2 * x;
        std::uint8_t* const y = dst.y + (row + j) * dst.pitchY + x;
        y[0] = group[luma];
        y[1] = group[luma + 2];
        u += group[chroma];
        v += group[chroma + 2];
      }
      dst.u[row / 2 * dst.pitchU + x / 2] = static_cast<std::uint8_t>(u / count);
      dst.v[row / 2 * dst.pitchV + x / 2] = static_cast<std::uint8_t>(v / count);
    }
  }
}

void Merge(const YuvSource& src, PixelTarget dst, std::ptrdiff_t width, std::ptrdiff_t rows,
           bool lumaFirst) {
  const int luma = lumaFirst ? 0 : 1;
  const int chroma = 1 - luma;
  for (std::ptrdiff_t row = 0; row < rows; ++row) {
    for (std::ptrdiff_t x = 0; x < width; x += 2) {
      std::uint8_t* const group = dst[row] + 2 * x;
      const std::uint8_t* const y = src.y + row * src.pitchY + x;
      group[luma] = y[0];
      group[luma + 2] = y[1];
      group[chroma] = src.u[row / 2 * src.pitchU + x / 2];
      group[chroma + 2] = src.v[row / 2 * src.pitchV + x / 2];
    }
  }
}

void PackedToBgr24(PixelSource src, PixelTarget dst, std::ptrdiff_t width, std::ptrdiff_t rows,
                   bool lumaFirst) {
  const int luma = lumaFirst ? 0 : 1;
  const int chroma = 1 - luma;
  for (std::ptrdiff_t row = 0; row < rows; ++row) {
    for (std::ptrdiff_t x = 0; x < width; ++x) {
      const std::uint8_t* const group = src[row] + 4 * (x / 2);
      PixelToRgb(kToRgb, group[luma + 2 * (x % 2)], group[chroma], group[chroma + 2],
                 dst[row] + 3 * x);
    }
  }
}

void Bgr24ToPacked(PixelSource src, PixelTarget dst, std::ptrdiff_t width, std::ptrdiff_t rows,
                   bool lumaFirst) {
  for (std::ptrdiff_t row = 0; row < rows; ++row) {
    for (std::ptrdiff_t x = 0; x < width; x += 2) {
      std::uint8_t y[2], u, v;
      FromRgb<kToYuv, 3>({src[row] + 3 * x, 0}, {y, &u, &v, nullptr, 0, 0, 0}, 2, 1);
      Merge({y, &u, &v, nullptr, 0, 0, 0}, {dst[row] + 2 * x, 0}, 2, 1, lumaFirst);
    }
  }
}

void Swap(PixelSource src, PixelTarget dst, std::ptrdiff_t count, std::ptrdiff_t rows) {
  for (std::ptrdiff_t row = 0; row < rows; ++row) {
    for (std::ptrdiff_t i = 0; i < count; ++i) {
      const std::uint8_t first = src[row][2 * i];
      dst[row][2 * i] = src[row][2 * i + 1];
      dst[row][2 * i + 1] = first;
    }
  }
}

}  // namespace

const ConvertKernels kConvert = {
    ToRgb<kToRgb, Fourth::kNone>,
    ToRgb<kToRgb, Fourth::kKept>,
    ToRgb<kToRgb, Fourth::kOpaque>,
    ToRgb<kToRgb, Fourth::kAlpha>,
    ToRgb<kToRgbSimple, Fourth::kNone>,
    FromRgb<kToYuv, 3>,
    FromRgb<kToYuv, 4>,
    FromRgb<kToYuv, 4, true>,
    FromRgb<kToYuvSimple, 3>,
    Highest,
    FromIndexed,
    Split,
    Merge,
    PackedToBgr24,
    Bgr24ToPacked,
    Swap,
};

}  // namespace zel::image::plain
