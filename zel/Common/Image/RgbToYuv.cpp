#include "zel/Common/Image/RgbToYuv.h"

#include <cassert>
#include <cstdlib>

#include "zel/Common/Image/detail/BitmapRows.h"
#include "zel/Common/Image/detail/ConvertKernels.h"
#include "zel/Common/Image/detail/ConvertPixel.h"

namespace {

using zel::image::ActiveConvertKernels;
using zel::image::ConvertKernels;
using zel::image::Offset;
using zel::image::Palette;
using zel::image::PixelSource;
using zel::image::YuvTarget;
using Bitmap = zel::image::Bitmap<const unsigned char>;

/// Whether rows of `width` bytes overlap at this pitch.
bool Overlap(std::ptrdiff_t pitch, Offset width) {
  return std::abs(Offset{pitch}) < width;
}
bool ChromaOverlaps(const YuvTarget& dst, Offset width) {
  return Overlap(dst.pitchU, (width + 1) / 2) || Overlap(dst.pitchV, (width + 1) / 2);
}

/// Converts the `width` leftmost pixels of `rows` rows, an even number.
template <typename Kernel>
void ConvertPairs(const Bitmap& src, const YuvTarget& dst, std::ptrdiff_t width,
                  std::ptrdiff_t rows, Kernel kernel) {
  if (width < 1 || rows < 1) return;
  if (Overlap(dst.pitchY, width)) {
    // Where rows overlap, the order in which blocks are written matters.
    for (std::ptrdiff_t row = 0; row < rows; row += 2) {
      for (std::ptrdiff_t x = 0; x < width; x += 2) {
        kernel(src.From(row, x), dst.From(row, x), 2, 2);
      }
    }
  } else if (src.bottomUp && !ChromaOverlaps(dst, width)) {
    // Reading the source in the order of memory suits the caches.
    kernel(PixelSource{src.From(rows - 1, 0).bytes, -src.From(0, 0).pitch}, dst.Backward(rows),
           width, rows);
  } else {
    kernel(src.From(0, 0), dst, width, rows);
  }
}

/// Copies a column of luma and alpha to the next one.
void RepeatColumn(const YuvTarget& dst, std::ptrdiff_t column, std::ptrdiff_t rows) {
  for (std::ptrdiff_t row = 0; row < rows; ++row) {
    const std::ptrdiff_t at = row * dst.pitchY + column;
    dst.y[at + 1] = dst.y[at];
    if (dst.a) dst.a[at + 1] = dst.a[at];
  }
}

/// Converts the last column of an even number of rows by itself, and repeats it, row after row.
template <typename Kernel>
void ConvertLastColumn(const Bitmap& src, const YuvTarget& dst, std::ptrdiff_t column,
                       std::ptrdiff_t rows, bool repeat, Kernel kernel) {
  for (std::ptrdiff_t row = 0; row < rows; row += 2) {
    std::uint8_t y[2], u, v, a[2];
    kernel(src.From(row, column), {y, &u, &v, dst.a ? a : nullptr, 1, 1, 1}, 1, 2);
    const YuvTarget target = dst.From(row, column);
    for (int i = 0; i < 2; ++i) {
      for (int k = 0; k < (repeat ? 2 : 1); ++k) {
        target.y[i * dst.pitchY + k] = y[i];
        if (dst.a) target.a[i * dst.pitchY + k] = a[i];
      }
    }
    *target.u = u;
    *target.v = v;
  }
}

/// Converts the whole picture. `kernel(src, dst, width, rows)` is as in ConvertKernels.
template <typename Kernel>
void Convert(const tagBITMAPINFOHEADER& bmi, const unsigned char* bits, int pixelBytes,
             bool bottomUp, const YuvTarget& dst, bool repeatLastColumn, Kernel kernel) {
  if (bmi.biWidth < 1 || bmi.biHeight < 1) return;
  const Bitmap src = {bits, pixelBytes, bottomUp, bmi.biWidth, bmi.biHeight};
  const std::ptrdiff_t even = bmi.biWidth & ~1, evenRows = bmi.biHeight & ~1;
  const std::ptrdiff_t width = bmi.biWidth;
  // Where rows of a plane overlap, the last column must be written after all others.
  const bool overlap = Overlap(dst.pitchY, width + (repeatLastColumn ? width - even : 0)) ||
                       ChromaOverlaps(dst, width);
  ConvertPairs(src, dst, overlap ? even : width, evenRows, kernel);
  if (width > even && overlap) {
    ConvertLastColumn(src, dst, even, evenRows, repeatLastColumn, kernel);
  } else if (width > even && repeatLastColumn) {
    RepeatColumn(dst, even, evenRows);
  }
  if (bmi.biHeight > evenRows && even > 0) {
    kernel(src.From(evenRows, 0), dst.From(evenRows, 0), even, 1);
  }
}

/// Brings the palette up to an index that the picture uses.
void ExtendPalette(Palette& palette, int highest) {
  for (; palette.known <= highest; ++palette.known) {
    const tagRGBQUAD& color = palette.colors[palette.known];
    const zel::image::YuvPixel yuv =
        zel::image::PixelToYuv(zel::image::kToYuv, color.rgbBlue, color.rgbGreen, color.rgbRed);
    palette.y[palette.known] = static_cast<std::uint8_t>(yuv.y);
    palette.u[palette.known] = static_cast<std::uint8_t>(yuv.u);
    palette.v[palette.known] = static_cast<std::uint8_t>(yuv.v);
    palette.packed[palette.known] = static_cast<std::uint32_t>(yuv.y | yuv.u << 10 | yuv.v << 20);
  }
}

}  // namespace

void Rgb24_2_yuv420(unsigned char* pY, unsigned char* pU, unsigned char* pV, int nPt_Y, int nPt_U,
                    int nPt_V, tagBITMAPINFOHEADER* lpSrcBmi, unsigned char* lpSrcBits) {
  assert(lpSrcBmi && lpSrcBmi->biBitCount == 24);
  assert(lpSrcBits && pY && pU && pV);
  Convert(*lpSrcBmi, lpSrcBits, 3, true, {pY, pU, pV, nullptr, nPt_Y, nPt_U, nPt_V}, true,
          ActiveConvertKernels().fromBgr24);
}

void Rgb32_2_yuv420(unsigned char* pY, unsigned char* pU, unsigned char* pV, int nPt_Y, int nPt_U,
                    int nPt_V, tagBITMAPINFOHEADER* lpSrcBmi, unsigned char* lpSrcBits) {
  assert(lpSrcBmi && lpSrcBmi->biBitCount == 32);
  assert(lpSrcBits && pY && pU && pV);
  Convert(*lpSrcBmi, lpSrcBits, 4, true, {pY, pU, pV, nullptr, nPt_Y, nPt_U, nPt_V}, true,
          ActiveConvertKernels().fromBgrx32);
}

void Argb_2_yuv420(unsigned char* pY, unsigned char* pU, unsigned char* pV, int nPt_Y, int nPt_U,
                   int nPt_V, tagBITMAPINFOHEADER* lpSrcBmi, unsigned char* lpSrcBits) {
  assert(lpSrcBmi && lpSrcBmi->biBitCount == 32);
  assert(lpSrcBits && pY && pU && pV);
  Convert(*lpSrcBmi, lpSrcBits, 4, false, {pY, pU, pV, nullptr, nPt_Y, nPt_U, nPt_V}, true,
          ActiveConvertKernels().fromBgrx32);
}

void Rgb8_2_YUV420(unsigned char* pY, unsigned char* pU, unsigned char* pV, int nPt_Y, int nPt_U,
                   int nPt_V, tagBITMAPINFO* lpBitmapInfo, unsigned char* lpSrcBits) {
  assert(lpBitmapInfo && lpBitmapInfo->bmiHeader.biBitCount == 8);
  assert(lpSrcBits && pY && pU && pV);
  const ConvertKernels& kernels = ActiveConvertKernels();
  Palette palette{};
  palette.colors = lpBitmapInfo->bmiColors;
  Convert(lpBitmapInfo->bmiHeader, lpSrcBits, 1, true, {pY, pU, pV, nullptr, nPt_Y, nPt_U, nPt_V},
          true,
          [&](PixelSource src, const YuvTarget& dst, std::ptrdiff_t width, std::ptrdiff_t rows) {
            // Pair by pair: the rows that were searched for indexes are still in the cache.
            for (std::ptrdiff_t j = 0; j < rows; j += 2) {
              const std::ptrdiff_t count = j + 1 < rows ? 2 : 1;
              for (int row = 0; row < count && palette.known < 256; ++row) {
                ExtendPalette(palette, kernels.highest(src[j + row], width));
              }
              kernels.fromIndexed({src[j], src.pitch}, dst.From(j, 0), width, count, palette);
            }
          });
}

void Rgb32_2_yuv420_Alpha(unsigned char* pY, unsigned char* pU, unsigned char* pV,
                          unsigned char* pA, int nPt_Y, int nPt_U, int nPt_V,
                          tagBITMAPINFOHEADER* lpSrcBmi, unsigned char* lpSrcBits) {
  assert(lpSrcBmi && lpSrcBmi->biBitCount == 32);
  assert(lpSrcBits && pY && pU && pV && pA);
  Convert(*lpSrcBmi, lpSrcBits, 4, true, {pY, pU, pV, pA, nPt_Y, nPt_U, nPt_V}, true,
          ActiveConvertKernels().fromBgra32);
}

void Rgb32_2_yuv420A(unsigned char* pY, unsigned char* pU, unsigned char* pV, unsigned char* pA,
                     int nPt_Y, int nPt_U, int nPt_V, tagBITMAPINFOHEADER* lpSrcBmi,
                     unsigned char* lpSrcBits) {
  assert(lpSrcBmi && lpSrcBmi->biBitCount == 32);
  assert(lpSrcBits && pY && pU && pV);
  const ConvertKernels& kernels = ActiveConvertKernels();
  Convert(*lpSrcBmi, lpSrcBits, 4, true, {pY, pU, pV, pA, nPt_Y, nPt_U, nPt_V}, false,
          pA ? kernels.fromBgra32 : kernels.fromBgrx32);
}

void Rgb24_2_yuv420Simple(unsigned char* pY, unsigned char* pU, unsigned char* pV, int nPt_Y,
                          int nPt_U, int nPt_V, tagBITMAPINFOHEADER* lpSrcBmi,
                          unsigned char* lpSrcBits) {
  const Bitmap src = {lpSrcBits, 3, true, lpSrcBmi->biWidth, lpSrcBmi->biHeight};
  ConvertPairs(src, {pY, pU, pV, nullptr, nPt_Y, nPt_U, nPt_V}, lpSrcBmi->biWidth & ~1,
               lpSrcBmi->biHeight & ~1, ActiveConvertKernels().fromBgr24Simple);
}
