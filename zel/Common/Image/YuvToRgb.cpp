#include "zel/Common/Image/YuvToRgb.h"

#include <cassert>

#include "zel/Common/Image/detail/ConvertKernels.h"

namespace {

using zel::image::ActiveConvertKernels;
using zel::image::ConvertKernels;
using zel::image::PixelTarget;
using zel::image::YuvSource;

/// Offsets are 64-bit: rows times pitch may pass 2^31.
using Offset = std::int64_t;

/// A bitmap of `rows` rows, its top row the last one in memory if `bottomUp`.
struct Bitmap {
  unsigned char* bits;
  Offset stride, rows;
  bool bottomUp;

  PixelTarget From(Offset row) const {
    return {bits + (bottomUp ? rows - 1 - row : row) * stride,
            static_cast<std::ptrdiff_t>(bottomUp ? -stride : stride)};
  }
};

Offset Stride24(Offset width) {
  return ((width * 24 + 31) >> 5) * 4;
}

void Convert(ConvertKernels::ToRgb kernel, const YuvSource& src, const Bitmap& dst,
             std::ptrdiff_t width, std::ptrdiff_t height) {
  const std::ptrdiff_t even = height & ~std::ptrdiff_t{1};
  if (even > 0) {
    // Writing the larger side in the order of memory suits the caches.
    dst.bottomUp
        ? kernel(src.Backward(even), {dst.From(even - 1).bytes, -dst.From(0).pitch}, width, even)
        : kernel(src, dst.From(0), width, even);
  }
  // If width and height are both odd, the bottom-right pixel stays as it is.
  if (height > even && width > 1) kernel(src.From(even, 0), dst.From(even), width & ~1, 1);
}

void Convert(ConvertKernels::ToRgb kernel, const tagBITMAPINFOHEADER& bmi, const YuvSource& src,
             unsigned char* bits, bool bottomUp) {
  if (bmi.biWidth < 1 || bmi.biHeight < 1) return;
  const Offset stride = bmi.biBitCount == 24 ? Stride24(bmi.biWidth) : Offset{4} * bmi.biWidth;
  Convert(kernel, src, {bits, stride, bmi.biHeight, bottomUp}, bmi.biWidth, bmi.biHeight);
}

}  // namespace

void Yuv420_2_rgb24(tagBITMAPINFOHEADER* lpDstBmi, unsigned char* lpDstBits, unsigned char* pY,
                    unsigned char* pU, unsigned char* pV, int nPt_Y, int nPt_U, int nPt_V) {
  assert(lpDstBmi && lpDstBmi->biBitCount == 24);
  assert(lpDstBits && pY && pU && pV);
  Convert(ActiveConvertKernels().toBgr24, *lpDstBmi, {pY, pU, pV, nullptr, nPt_Y, nPt_U, nPt_V},
          lpDstBits, true);
}

void Yuv420_2_rgb32(tagBITMAPINFOHEADER* lpDstBmi, unsigned char* lpDstBits, unsigned char* pY,
                    unsigned char* pU, unsigned char* pV, int nPt_Y, int nPt_U, int nPt_V) {
  assert(lpDstBmi && lpDstBmi->biBitCount == 32);
  assert(lpDstBits && pY && pU && pV);
  Convert(ActiveConvertKernels().toBgrx32, *lpDstBmi, {pY, pU, pV, nullptr, nPt_Y, nPt_U, nPt_V},
          lpDstBits, true);
}

void Yuv420_2_Argb(tagBITMAPINFOHEADER* lpDstBmi, unsigned char* lpDstBits, unsigned char* pY,
                   unsigned char* pU, unsigned char* pV, int nPt_Y, int nPt_U, int nPt_V) {
  assert(lpDstBmi && lpDstBmi->biBitCount == 32);
  assert(lpDstBits && pY && pU && pV);
  Convert(ActiveConvertKernels().toOpaque32, *lpDstBmi, {pY, pU, pV, nullptr, nPt_Y, nPt_U, nPt_V},
          lpDstBits, false);
}

void Yuv420_2_rgb32_Alpha(tagBITMAPINFOHEADER* lpDstBmi, unsigned char* lpDstBits,
                          unsigned char* pY, unsigned char* pU, unsigned char* pV,
                          unsigned char* pA, int nPt_Y, int nPt_U, int nPt_V) {
  assert(lpDstBmi && lpDstBmi->biBitCount == 32);
  assert(lpDstBits && pY && pU && pV && pA);
  Convert(ActiveConvertKernels().toBgra32, *lpDstBmi, {pY, pU, pV, pA, nPt_Y, nPt_U, nPt_V},
          lpDstBits, true);
}

void Yuv420_2_rgb24Simple(tagBITMAPINFOHEADER* lpDstBmi, unsigned char* lpDstBits,
                          unsigned char* pY, unsigned char* pU, unsigned char* pV, int nPt_Y,
                          int nPt_U, int nPt_V) {
  const int width = lpDstBmi->biWidth & ~1;
  const int height = lpDstBmi->biHeight & ~1;
  if (width < 2 || height < 2) return;
  Convert(ActiveConvertKernels().toBgr24Simple, {pY, pU, pV, nullptr, nPt_Y, nPt_U, nPt_V},
          {lpDstBits, Stride24(lpDstBmi->biWidth), lpDstBmi->biHeight, true}, width, height);
}
