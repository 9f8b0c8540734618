#include "zel/Common/Image/YuvToRgb.h"

#include <cassert>

#include "zel/Common/Image/detail/ConvertKernels.h"

namespace {

using zel::image::ActiveConvertKernels;
using zel::image::ConvertKernels;
using zel::image::YuvSource;

/// Offsets are 64-bit: rows times pitch may pass 2^31.
using Offset = std::int64_t;

struct Planes {
  const unsigned char *y, *u, *v, *a;
  Offset pitch_y, pitch_u, pitch_v;

  /// Rows j and, with `pair`, j + 1; j is even.
  YuvSource Rows(Offset j, bool pair) const {
    const unsigned char* const y0 = y + j * pitch_y;
    const unsigned char* const a0 = a ? a + j * pitch_y : nullptr;
    return {{y0, pair ? y0 + pitch_y : nullptr},
            u + j / 2 * pitch_u,
            v + j / 2 * pitch_v,
            {a0, pair && a ? a0 + pitch_y : nullptr}};
  }
};

struct Bitmap {
  unsigned char* bits;
  Offset stride;
  bool bottom_up;
};

Offset Stride24(Offset width) {
  return ((width * 24 + 31) >> 5) * 4;
}

/// Converts `width` x `height` pixels of a bitmap of `rows` rows.
void Convert(ConvertKernels::ToRgb kernel, const Planes& src, const Bitmap& dst, Offset rows,
             Offset width, Offset height) {
  const auto row = [&](Offset r) {
    return dst.bits + (dst.bottom_up ? rows - 1 - r : r) * dst.stride;
  };
  for (Offset i = 0; i + 1 < height; i += 2) {
    // Caches like the larger side's rows in the order of memory.
    const Offset j = dst.bottom_up ? (height & ~Offset{1}) - 2 - i : i;
    unsigned char* const pair[2] = {row(j), row(j + 1)};
    kernel(src.Rows(j, true), pair, static_cast<std::ptrdiff_t>(width));
  }
  // The last pixel of a last row without a partner stays as it is when it has no partner to its
  // left.
  if (height % 2 != 0 && width > 1) {
    unsigned char* const last[2] = {row(height - 1), nullptr};
    kernel(src.Rows(height - 1, false), last, static_cast<std::ptrdiff_t>(width - width % 2));
  }
}

void Convert(ConvertKernels::ToRgb kernel, const tagBITMAPINFOHEADER& bmi, const Planes& src,
             const Bitmap& dst) {
  if (bmi.biWidth < 1 || bmi.biHeight < 1) return;
  Convert(kernel, src, dst, bmi.biHeight, bmi.biWidth, bmi.biHeight);
}

}  // namespace

void Yuv420_2_rgb24(tagBITMAPINFOHEADER* lpDstBmi, unsigned char* lpDstBits, unsigned char* pY,
                    unsigned char* pU, unsigned char* pV, int nPt_Y, int nPt_U, int nPt_V) {
  assert(lpDstBmi && lpDstBmi->biBitCount == 24);
  assert(lpDstBits && pY && pU && pV);
  Convert(ActiveConvertKernels().to_bgr24, *lpDstBmi, {pY, pU, pV, nullptr, nPt_Y, nPt_U, nPt_V},
          {lpDstBits, Stride24(lpDstBmi->biWidth), true});
}

void Yuv420_2_rgb32(tagBITMAPINFOHEADER* lpDstBmi, unsigned char* lpDstBits, unsigned char* pY,
                    unsigned char* pU, unsigned char* pV, int nPt_Y, int nPt_U, int nPt_V) {
  assert(lpDstBmi && lpDstBmi->biBitCount == 32);
  assert(lpDstBits && pY && pU && pV);
  Convert(ActiveConvertKernels().to_bgrx32, *lpDstBmi, {pY, pU, pV, nullptr, nPt_Y, nPt_U, nPt_V},
          {lpDstBits, Offset{4} * lpDstBmi->biWidth, true});
}

void Yuv420_2_Argb(tagBITMAPINFOHEADER* lpDstBmi, unsigned char* lpDstBits, unsigned char* pY,
                   unsigned char* pU, unsigned char* pV, int nPt_Y, int nPt_U, int nPt_V) {
  assert(lpDstBmi && lpDstBmi->biBitCount == 32);
  assert(lpDstBits && pY && pU && pV);
  Convert(ActiveConvertKernels().to_opaque32, *lpDstBmi, {pY, pU, pV, nullptr, nPt_Y, nPt_U, nPt_V},
          {lpDstBits, Offset{4} * lpDstBmi->biWidth, false});
}

void Yuv420_2_rgb32_Alpha(tagBITMAPINFOHEADER* lpDstBmi, unsigned char* lpDstBits,
                          unsigned char* pY, unsigned char* pU, unsigned char* pV,
                          unsigned char* pA, int nPt_Y, int nPt_U, int nPt_V) {
  assert(lpDstBmi && lpDstBmi->biBitCount == 32);
  assert(lpDstBits && pY && pU && pV && pA);
  Convert(ActiveConvertKernels().to_bgra32, *lpDstBmi, {pY, pU, pV, pA, nPt_Y, nPt_U, nPt_V},
          {lpDstBits, Offset{4} * lpDstBmi->biWidth, true});
}

void Yuv420_2_rgb24Simple(tagBITMAPINFOHEADER* lpDstBmi, unsigned char* lpDstBits,
                          unsigned char* pY, unsigned char* pU, unsigned char* pV, int nPt_Y,
                          int nPt_U, int nPt_V) {
  const Offset width = lpDstBmi->biWidth;
  const Offset height = lpDstBmi->biHeight;
  if (width < 2 || height < 2) return;
  Convert(ActiveConvertKernels().to_bgr24_simple, {pY, pU, pV, nullptr, nPt_Y, nPt_U, nPt_V},
          {lpDstBits, Stride24(width), true}, height, width & ~Offset{1}, height & ~Offset{1});
}
