#include "zel/Common/Image/RgbToYuv.h"

#include <cassert>

#include "zel/Common/Image/detail/ConvertKernels.h"
#include "zel/Common/Image/detail/ConvertPixel.h"

namespace {

using zel::image::ActiveConvertKernels;
using zel::image::ConvertKernels;
using zel::image::Palette;
using zel::image::PixelSource;
using zel::image::YuvTarget;

/// Offsets are 64-bit: rows times pitch may pass 2^31.
using Offset = std::int64_t;

struct Bitmap {
  const unsigned char* bits;
  int pixel_bytes;
  bool bottom_up;
  Offset width, rows;

  PixelSource From(Offset row, Offset x) const {
    const Offset stride = ((width * 8 * pixel_bytes + 31) >> 5) * 4;
    return {bits + (bottom_up ? rows - 1 - row : row) * stride + x * pixel_bytes,
            static_cast<std::ptrdiff_t>(bottom_up ? -stride : stride)};
  }
};

/// Converts `width` x `height` pixels, the height even, with the source's rows in the order of
/// memory, which caches like.
template <typename Kernel>
void ConvertPairs(const Bitmap& src, const YuvTarget& dst, std::ptrdiff_t width,
                  std::ptrdiff_t height, Kernel kernel) {
  if (width < 1 || height < 1) return;
  src.bottom_up ? kernel(PixelSource{src.From(height - 1, 0).bytes, -src.From(0, 0).pitch},
                         dst.Backward(height), width, height)
                : kernel(src.From(0, 0), dst, width, height);
}

/// Converts the whole picture. `kernel(src, dst, width, rows)` is as in ConvertKernels. The order
/// of the passes shows where a luma plane has no room for the column after the last one.
template <typename Kernel>
void Convert(const tagBITMAPINFOHEADER& bmi, const unsigned char* bits, int pixel_bytes,
             bool bottom_up, const YuvTarget& dst, bool repeat_last_column, Kernel kernel) {
  if (bmi.biWidth < 1 || bmi.biHeight < 1) return;
  const Bitmap src = {bits, pixel_bytes, bottom_up, bmi.biWidth, bmi.biHeight};
  const std::ptrdiff_t even = bmi.biWidth & ~1, even_rows = bmi.biHeight & ~1;
  ConvertPairs(src, dst, even, even_rows, kernel);
  for (std::ptrdiff_t j = 0; j < even_rows && bmi.biWidth > even; j += 2) {
    const YuvTarget target = dst.From(j, even);
    kernel(src.From(j, even), target, 1, 2);
    for (std::ptrdiff_t at = 0; repeat_last_column && at != 2 * dst.pitch_y; at += dst.pitch_y) {
      target.y[at + 1] = target.y[at];
      if (dst.a) target.a[at + 1] = target.a[at];
    }
  }
  if (bmi.biHeight > even_rows && even > 0) {
    kernel(src.From(even_rows, 0), dst.From(even_rows, 0), even, 1);
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
          ActiveConvertKernels().from_bgr24);
}

void Rgb32_2_yuv420(unsigned char* pY, unsigned char* pU, unsigned char* pV, int nPt_Y, int nPt_U,
                    int nPt_V, tagBITMAPINFOHEADER* lpSrcBmi, unsigned char* lpSrcBits) {
  assert(lpSrcBmi && lpSrcBmi->biBitCount == 32);
  assert(lpSrcBits && pY && pU && pV);
  Convert(*lpSrcBmi, lpSrcBits, 4, true, {pY, pU, pV, nullptr, nPt_Y, nPt_U, nPt_V}, true,
          ActiveConvertKernels().from_bgrx32);
}

void Argb_2_yuv420(unsigned char* pY, unsigned char* pU, unsigned char* pV, int nPt_Y, int nPt_U,
                   int nPt_V, tagBITMAPINFOHEADER* lpSrcBmi, unsigned char* lpSrcBits) {
  assert(lpSrcBmi && lpSrcBmi->biBitCount == 32);
  assert(lpSrcBits && pY && pU && pV);
  Convert(*lpSrcBmi, lpSrcBits, 4, false, {pY, pU, pV, nullptr, nPt_Y, nPt_U, nPt_V}, true,
          ActiveConvertKernels().from_bgrx32);
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
            // By pairs of rows: what the palette needs of them stays in the cache.
            for (std::ptrdiff_t j = 0; j < rows; j += 2) {
              const std::ptrdiff_t count = j + 1 < rows ? 2 : 1;
              for (int row = 0; row < count && palette.known < 256; ++row) {
                ExtendPalette(palette, kernels.highest(src[j + row], width));
              }
              kernels.from_indexed({src[j], src.pitch}, dst.From(j, 0), width, count, palette);
            }
          });
}

void Rgb32_2_yuv420_Alpha(unsigned char* pY, unsigned char* pU, unsigned char* pV,
                          unsigned char* pA, int nPt_Y, int nPt_U, int nPt_V,
                          tagBITMAPINFOHEADER* lpSrcBmi, unsigned char* lpSrcBits) {
  assert(lpSrcBmi && lpSrcBmi->biBitCount == 32);
  assert(lpSrcBits && pY && pU && pV && pA);
  Convert(*lpSrcBmi, lpSrcBits, 4, true, {pY, pU, pV, pA, nPt_Y, nPt_U, nPt_V}, true,
          ActiveConvertKernels().from_bgra32);
}

void Rgb32_2_yuv420A(unsigned char* pY, unsigned char* pU, unsigned char* pV, unsigned char* pA,
                     int nPt_Y, int nPt_U, int nPt_V, tagBITMAPINFOHEADER* lpSrcBmi,
                     unsigned char* lpSrcBits) {
  assert(lpSrcBmi && lpSrcBmi->biBitCount == 32);
  assert(lpSrcBits && pY && pU && pV);
  const ConvertKernels& kernels = ActiveConvertKernels();
  Convert(*lpSrcBmi, lpSrcBits, 4, true, {pY, pU, pV, pA, nPt_Y, nPt_U, nPt_V}, false,
          pA ? kernels.from_bgra32 : kernels.from_bgrx32);
}

void Rgb24_2_yuv420Simple(unsigned char* pY, unsigned char* pU, unsigned char* pV, int nPt_Y,
                          int nPt_U, int nPt_V, tagBITMAPINFOHEADER* lpSrcBmi,
                          unsigned char* lpSrcBits) {
  const Bitmap src = {lpSrcBits, 3, true, lpSrcBmi->biWidth, lpSrcBmi->biHeight};
  ConvertPairs(src, {pY, pU, pV, nullptr, nPt_Y, nPt_U, nPt_V}, lpSrcBmi->biWidth & ~1,
               lpSrcBmi->biHeight & ~1, ActiveConvertKernels().from_bgr24_simple);
}
