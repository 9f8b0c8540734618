#include "zel/Common/Image/YuvToRgb.h"

#include <cassert>

#include "zel/Common/Image/detail/BitmapRows.h"
#include "zel/Common/Image/detail/ConvertKernels.h"

namespace {

using zel::image::ActiveConvertKernels;
using zel::image::ConvertKernels;
using zel::image::YuvSource;
using Bitmap = zel::image::Bitmap<unsigned char>;

void Convert(ConvertKernels::ToRgb kernel, const YuvSource& src, const Bitmap& dst,
             std::ptrdiff_t width, std::ptrdiff_t height) {
  const std::ptrdiff_t even = height & ~std::ptrdiff_t{1};
  if (even > 0) {
    // Writing the larger side in the order of memory suits the caches.
    dst.bottomUp ? kernel(src.Backward(even), {dst.From(even - 1, 0).bytes, -dst.From(0, 0).pitch},
                          width, even)
                 : kernel(src, dst.From(0, 0), width, even);
  }
  // If width and height are both odd, the bottom-right pixel stays as it is.
  if (height > even && width > 1) kernel(src.From(even, 0), dst.From(even, 0), width & ~1, 1);
}

void Convert(ConvertKernels::ToRgb kernel, const tagBITMAPINFOHEADER& bmi, const YuvSource& src,
             unsigned char* bits, bool bottomUp) {
  if (bmi.biWidth < 1 || bmi.biHeight < 1) return;
  const int pixelBytes = bmi.biBitCount == 24 ? 3 : 4;
  Convert(kernel, src, {bits, pixelBytes, bottomUp, bmi.biWidth, bmi.biHeight}, bmi.biWidth,
          bmi.biHeight);
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
          {lpDstBits, 3, true, lpDstBmi->biWidth, lpDstBmi->biHeight}, width, height);
}
