#include "zel/Common/Image/RgbToYuv.h"

#include <cassert>

#include "zel/Common/Image/detail/ConvertKernels.h"
#include "zel/Common/Image/detail/ConvertPixel.h"

namespace {

using zel::image::ActiveConvertKernels;
using zel::image::ConvertKernels;
using zel::image::Palette;
using zel::image::YuvTarget;

/// Offsets are 64-bit: rows times pitch may pass 2^31.
using Offset = std::int64_t;

struct Planes {
  unsigned char *y, *u, *v, *a;
  Offset pitch_y, pitch_u, pitch_v;

  /// Rows j and, with `pair`, j + 1, from column x on; j and x are even.
  YuvTarget Rows(Offset j, bool pair, Offset x) const {
    unsigned char* const y0 = y + j * pitch_y + x;
    unsigned char* const a0 = a ? a + j * pitch_y + x : nullptr;
    return {{y0, pair ? y0 + pitch_y : nullptr},
            u + j / 2 * pitch_u + x / 2,
            v + j / 2 * pitch_v + x / 2,
            {a0, pair && a ? a0 + pitch_y : nullptr}};
  }
};

struct Bitmap {
  const unsigned char* bits;
  int pixel_bytes;
  bool bottom_up;
};

/// Converts the whole picture. `kernel(src, dst, width)` converts a row or a pair of rows. The
/// order of the passes shows where a luma plane has no room for the column after the last one.
template <typename Kernel>
void Convert(const tagBITMAPINFOHEADER& bmi, const Bitmap& src, const Planes& dst,
             bool repeat_last_column, Kernel kernel) {
  const Offset width = bmi.biWidth;
  const Offset height = bmi.biHeight;
  if (width < 1 || height < 1) return;
  const Offset even = width & ~Offset{1};
  const Offset stride = ((width * 8 * src.pixel_bytes + 31) >> 5) * 4;
  const auto row = [&](Offset r, Offset x) {
    return src.bits + (src.bottom_up ? height - 1 - r : r) * stride + x * src.pixel_bytes;
  };
  const auto convert_pairs = [&](Offset x, Offset count) {
    for (Offset j = 0; j + 1 < height; j += 2) {
      const unsigned char* const pair[2] = {row(j, x), row(j + 1, x)};
      const YuvTarget target = dst.Rows(j, true, x);
      kernel(pair, target, static_cast<std::ptrdiff_t>(count));
      if (count > 1 || !repeat_last_column) continue;
      for (int i = 0; i < 2; ++i) {
        target.y[i][1] = target.y[i][0];
        if (dst.a) target.a[i][1] = target.a[i][0];
      }
    }
  };
  if (even > 0) convert_pairs(0, even);
  if (width > even) convert_pairs(even, 1);
  if (height % 2 != 0 && even > 0) {
    const unsigned char* const last[2] = {row(height - 1, 0), nullptr};
    kernel(last, dst.Rows(height - 1, false, 0), static_cast<std::ptrdiff_t>(even));
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
  Convert(*lpSrcBmi, {lpSrcBits, 3, true}, {pY, pU, pV, nullptr, nPt_Y, nPt_U, nPt_V}, true,
          ActiveConvertKernels().from_bgr24);
}

void Rgb32_2_yuv420(unsigned char* pY, unsigned char* pU, unsigned char* pV, int nPt_Y, int nPt_U,
                    int nPt_V, tagBITMAPINFOHEADER* lpSrcBmi, unsigned char* lpSrcBits) {
  assert(lpSrcBmi && lpSrcBmi->biBitCount == 32);
  assert(lpSrcBits && pY && pU && pV);
  Convert(*lpSrcBmi, {lpSrcBits, 4, true}, {pY, pU, pV, nullptr, nPt_Y, nPt_U, nPt_V}, true,
          ActiveConvertKernels().from_bgrx32);
}

void Argb_2_yuv420(unsigned char* pY, unsigned char* pU, unsigned char* pV, int nPt_Y, int nPt_U,
                   int nPt_V, tagBITMAPINFOHEADER* lpSrcBmi, unsigned char* lpSrcBits) {
  assert(lpSrcBmi && lpSrcBmi->biBitCount == 32);
  assert(lpSrcBits && pY && pU && pV);
  Convert(*lpSrcBmi, {lpSrcBits, 4, false}, {pY, pU, pV, nullptr, nPt_Y, nPt_U, nPt_V}, true,
          ActiveConvertKernels().from_bgrx32);
}

void Rgb8_2_YUV420(unsigned char* pY, unsigned char* pU, unsigned char* pV, int nPt_Y, int nPt_U,
                   int nPt_V, tagBITMAPINFO* lpBitmapInfo, unsigned char* lpSrcBits) {
  assert(lpBitmapInfo && lpBitmapInfo->bmiHeader.biBitCount == 8);
  assert(lpSrcBits && pY && pU && pV);
  const ConvertKernels& kernels = ActiveConvertKernels();
  Palette palette{};
  palette.colors = lpBitmapInfo->bmiColors;
  Convert(lpBitmapInfo->bmiHeader, {lpSrcBits, 1, true}, {pY, pU, pV, nullptr, nPt_Y, nPt_U, nPt_V},
          true, [&](zel::image::RgbSource src, const YuvTarget& dst, std::ptrdiff_t width) {
            for (int row = 0; row < 2 && src[row] && palette.known < 256; ++row) {
              ExtendPalette(palette, kernels.highest(src[row], width));
            }
            kernels.from_indexed(src, dst, width, palette);
          });
}

void Rgb32_2_yuv420_Alpha(unsigned char* pY, unsigned char* pU, unsigned char* pV,
                          unsigned char* pA, int nPt_Y, int nPt_U, int nPt_V,
                          tagBITMAPINFOHEADER* lpSrcBmi, unsigned char* lpSrcBits) {
  assert(lpSrcBmi && lpSrcBmi->biBitCount == 32);
  assert(lpSrcBits && pY && pU && pV && pA);
  Convert(*lpSrcBmi, {lpSrcBits, 4, true}, {pY, pU, pV, pA, nPt_Y, nPt_U, nPt_V}, true,
          ActiveConvertKernels().from_bgra32);
}

void Rgb32_2_yuv420A(unsigned char* pY, unsigned char* pU, unsigned char* pV, unsigned char* pA,
                     int nPt_Y, int nPt_U, int nPt_V, tagBITMAPINFOHEADER* lpSrcBmi,
                     unsigned char* lpSrcBits) {
  assert(lpSrcBmi && lpSrcBmi->biBitCount == 32);
  assert(lpSrcBits && pY && pU && pV);
  const ConvertKernels& kernels = ActiveConvertKernels();
  Convert(*lpSrcBmi, {lpSrcBits, 4, true}, {pY, pU, pV, pA, nPt_Y, nPt_U, nPt_V}, false,
          pA ? kernels.from_bgra32 : kernels.from_bgrx32);
}

void Rgb24_2_yuv420Simple(unsigned char* pY, unsigned char* pU, unsigned char* pV, int nPt_Y,
                          int nPt_U, int nPt_V, tagBITMAPINFOHEADER* lpSrcBmi,
                          unsigned char* lpSrcBits) {
  const Offset width = lpSrcBmi->biWidth;
  const Offset height = lpSrcBmi->biHeight;
  if (width < 2 || height < 2) return;
  const Offset stride = ((width * 24 + 31) >> 5) * 4;
  const Planes dst = {pY, pU, pV, nullptr, nPt_Y, nPt_U, nPt_V};
  for (Offset j = 0; j + 1 < height; j += 2) {
    const unsigned char* const upper = lpSrcBits + (height - 1 - j) * stride;
    const unsigned char* const pair[2] = {upper, upper - stride};
    ActiveConvertKernels().from_bgr24_simple(pair, dst.Rows(j, true, 0),
                                             static_cast<std::ptrdiff_t>(width & ~Offset{1}));
  }
}
