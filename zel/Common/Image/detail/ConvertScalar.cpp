// The reference kernels: what is computed, in the plainest form.
#include "zel/Common/Image/detail/ConvertKernels.h"
#include "zel/Common/Image/detail/ConvertPixel.h"
#include "zel/Common/Image/detail/ConvertTables.h"

namespace zel::image {
namespace {

enum class Fourth { kNone, kKept, kOpaque, kAlpha };

template <const ToRgbFactors& kFactors, Fourth kFourth>
void ToRgb(const YuvSource& src, RgbTarget dst, std::ptrdiff_t width) {
  constexpr int kPixelBytes = kFourth == Fourth::kNone ? 3 : 4;
  for (int row = 0; row < 2 && dst[row]; ++row) {
    for (std::ptrdiff_t x = 0; x < width; ++x) {
      std::uint8_t* pixel = dst[row] + kPixelBytes * x;
      PixelToRgb(kFactors, src.y[row][x], src.u[x / 2], src.v[x / 2], pixel);
      if (kFourth == Fourth::kOpaque) pixel[3] = 255;
      if (kFourth == Fourth::kAlpha) pixel[3] = src.a[row][x];
    }
  }
}

/// Walks the blocks of a row or pair of rows. `pixel(row, x)` gives a pixel's YuvPixel.
template <typename Pixel>
void ToYuv(int rows, const YuvTarget& dst, std::ptrdiff_t width, Pixel pixel) {
  for (std::ptrdiff_t x = 0; x < width; x += 2) {
    int u = 0, v = 0, count = 0;
    for (int row = 0; row < rows; ++row) {
      for (std::ptrdiff_t i = x; i < x + 2 && i < width; ++i, ++count) {
        const YuvPixel yuv = pixel(row, i);
        dst.y[row][i] = static_cast<std::uint8_t>(yuv.y);
        u += yuv.u;
        v += yuv.v;
      }
    }
    dst.u[x / 2] = static_cast<std::uint8_t>(u / count);
    dst.v[x / 2] = static_cast<std::uint8_t>(v / count);
  }
}

template <const ToYuvFactors& kFactors, int kPixelBytes, bool kAlpha = false>
void FromRgb(RgbSource src, const YuvTarget& dst, std::ptrdiff_t width) {
  ToYuv(src[1] ? 2 : 1, dst, width, [&](int row, std::ptrdiff_t x) {
    const std::uint8_t* pixel = src[row] + kPixelBytes * x;
    if (kAlpha) dst.a[row][x] = pixel[3];
    return PixelToYuv(kFactors, pixel[0], pixel[1], pixel[2]);
  });
}

void FromIndexed(RgbSource src, const YuvTarget& dst, std::ptrdiff_t width,
                 const Palette& palette) {
  ToYuv(src[1] ? 2 : 1, dst, width, [&](int row, std::ptrdiff_t x) {
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

void Split(RgbSource src, const YuvTarget& dst, std::ptrdiff_t width, bool luma_first) {
  const int luma = luma_first ? 0 : 1;
  const int chroma = 1 - luma;
  const int rows = src[1] ? 2 : 1;
  for (std::ptrdiff_t x = 0; x < width; x += 2) {
    int u = 0, v = 0;
    for (int row = 0; row < rows; ++row) {
      const std::uint8_t* group = src[row] + 2 * x;
      dst.y[row][x] = group[luma];
      dst.y[row][x + 1] = group[luma + 2];
      u += group[chroma];
      v += group[chroma + 2];
    }
    dst.u[x / 2] = static_cast<std::uint8_t>(u / rows);
    dst.v[x / 2] = static_cast<std::uint8_t>(v / rows);
  }
}

void Merge(const YuvSource& src, RgbTarget dst, std::ptrdiff_t width, bool luma_first) {
  const int luma = luma_first ? 0 : 1;
  const int chroma = 1 - luma;
  for (int row = 0; row < 2 && dst[row]; ++row) {
    for (std::ptrdiff_t x = 0; x < width; x += 2) {
      std::uint8_t* group = dst[row] + 2 * x;
      group[luma] = src.y[row][x];
      group[luma + 2] = src.y[row][x + 1];
      group[chroma] = src.u[x / 2];
      group[chroma + 2] = src.v[x / 2];
    }
  }
}

void PackedToBgr24(const std::uint8_t* src, std::uint8_t* dst, std::ptrdiff_t width,
                   bool luma_first) {
  const int luma = luma_first ? 0 : 1;
  const int chroma = 1 - luma;
  for (std::ptrdiff_t x = 0; x < width; ++x) {
    const std::uint8_t* group = src + 4 * (x / 2);
    PixelToRgb(kToRgb, group[luma + 2 * (x % 2)], group[chroma], group[chroma + 2], dst + 3 * x);
  }
}

void Bgr24ToPacked(const std::uint8_t* src, std::uint8_t* dst, std::ptrdiff_t width,
                   bool luma_first) {
  for (std::ptrdiff_t x = 0; x < width; x += 2) {
    std::uint8_t y[2], u, v;
    const std::uint8_t* const pixels[2] = {src + 3 * x, nullptr};
    std::uint8_t* const group[2] = {dst + 2 * x, nullptr};
    FromRgb<kToYuv, 3>(pixels, {{y, nullptr}, &u, &v, {}}, 2);
    Merge({{y, nullptr}, &u, &v, {}}, group, 2, luma_first);
  }
}

void Swap(std::uint8_t* dst, const std::uint8_t* src, std::ptrdiff_t count) {
  for (std::ptrdiff_t i = 0; i < count; ++i) {
    const std::uint8_t first = src[2 * i];
    dst[2 * i] = src[2 * i + 1];
    dst[2 * i + 1] = first;
  }
}

}  // namespace

const ConvertKernels kConvertScalar = {
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

}  // namespace zel::image
