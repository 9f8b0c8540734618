#include "zel/Common/Image/Yuy2.h"

#include <cassert>
#include <cstring>

#include "zel/Common/Image/detail/ConvertKernels.h"

namespace {

using zel::image::ActiveConvertKernels;
using zel::image::ConvertKernels;
using zel::image::PixelSource;
using zel::image::PixelTarget;
using zel::image::YuvSource;
using zel::image::YuvTarget;

/// Offsets are 64-bit: rows times pitch may pass 2^31.
using Offset = std::int64_t;

// Preconditions are computed in 64 bits, with the parameters' names, which their texts show.

void CheckRgb24ToYuy2(const unsigned char* lpBitsDst, const unsigned char* lpBitsSrc, Offset xDst,
                      Offset cxDst, Offset nPitchDst, Offset nPitchSrc, Offset xSrc) {
  assert(lpBitsDst && lpBitsSrc);
  assert((xDst + cxDst) * 2 <= nPitchDst);
  assert(nPitchSrc / 3 - xSrc >= cxDst);
}

void CheckV(const unsigned char* V, const unsigned char* pV, Offset ySrc, Offset cy, Offset nPt_V) {
  assert((char*)V <= ((char*)pV + (ySrc + cy) * nPt_V));
}

}  // namespace

void Rgb24_2_YUY2(unsigned char* lpBitsDst, int nPitchDst, int xDst, int yDst, int cxDst, int cyDst,
                  int bYUY2, unsigned char* lpBitsSrc, int nHeightSrc, int nPitchSrc, int xSrc,
                  int ySrc) {
  CheckRgb24ToYuy2(lpBitsDst, lpBitsSrc, xDst, cxDst, nPitchDst, nPitchSrc, xSrc);
  Offset left = xDst;
  Offset width = cxDst;
  if (static_cast<unsigned>(xDst) >= 2) {
    --left;
    ++width;
  }
  if (width < 1 || cyDst < 1) return;
  const Offset even = width & ~Offset{1};
  const ConvertKernels& kernels = ActiveConvertKernels();
  const PixelSource src = {
      lpBitsSrc + (Offset{nHeightSrc} - 1 - ySrc) * nPitchSrc + Offset{3} * xSrc, -nPitchSrc};
  const PixelTarget dst = {lpBitsDst + Offset{yDst} * nPitchDst + 2 * left, nPitchDst};
  if (even > 0) {
    kernels.bgr24_to_packed(src, dst, static_cast<std::ptrdiff_t>(even), cyDst, bYUY2 != 0);
  }
  // After all the others: where the pitch ends with the picture, the second half of a last group
  // lies on the first pixel of the next row.
  for (int t = 0; t < cyDst && width > even; ++t) {
    std::uint8_t y[2], u, v;
    kernels.from_bgr24({src[t] + 3 * even, 0}, {y, &u, &v, nullptr, 0, 0, 0}, 1, 1);
    y[1] = y[0];
    kernels.merge({y, &u, &v, nullptr, 0, 0, 0}, {dst[t] + 2 * even, 0}, 2, 1, bYUY2 != 0);
  }
}

void YUY2_2_Rgb24(unsigned char* lpBitsDst, int nHeightDst, int nPitchDst, int xDst, int yDst,
                  int cx, int cy, unsigned char* lpBitsSrc, int nPitchSrc, int bYUY2, int xSrc,
                  int ySrc) {
  assert(lpBitsDst && lpBitsSrc);
  if (cx < 1 || cy < 1) return;
  const std::ptrdiff_t even = cx & ~1;
  const Offset left = Offset{xSrc} - (static_cast<unsigned>(xSrc) >= 2 ? 1 : 0);
  const ConvertKernels& kernels = ActiveConvertKernels();
  const PixelSource src = {lpBitsSrc + Offset{ySrc} * nPitchSrc + 2 * left, nPitchSrc};
  const PixelTarget dst = {
      lpBitsDst + (Offset{nHeightDst} - 1 - yDst) * nPitchDst + Offset{3} * xDst, -nPitchDst};
  if (even > 0) kernels.packed_to_bgr24(src, dst, even, cy, bYUY2 != 0);
  for (int t = 0; t < cy && cx > even; ++t) {
    const unsigned char* const group = src[t] + 2 * even;
    const unsigned char* const chroma = bYUY2 ? group + 1 : group;
    kernels.to_bgr24({bYUY2 ? group : group + 1, chroma, chroma + 2, nullptr, 0, 0, 0},
                     {dst[t] + 3 * even, 0}, 1, 1);
  }
}

void YUY2_Blt_fast(unsigned char* lpBitsDst, int nPitchDst, int xDst, int yDst, int cx, int cy,
                   int bDstYUY2, unsigned char* lpBitsSrc, int nPitchSrc, int bSrcYUY2, int xSrc,
                   int ySrc) {
  if (cx < 1 || cy < 1) return;
  const bool copy = bDstYUY2 == bSrcYUY2;
  Offset width = copy ? Offset{cx} : (Offset{cx} + 1) & ~Offset{1};
  Offset height = cy;
  if (nPitchSrc == 2 * width && nPitchDst == 2 * width) {
    // Rows without gaps are one row.
    width *= height;
    height = 1;
  }
  const PixelSource src = {lpBitsSrc + Offset{ySrc} * nPitchSrc + Offset{2} * xSrc, nPitchSrc};
  const PixelTarget dst = {lpBitsDst + Offset{yDst} * nPitchDst + Offset{2} * xDst, nPitchDst};
  if (!copy) {
    return ActiveConvertKernels().swap(src, dst, static_cast<std::ptrdiff_t>(width),
                                       static_cast<std::ptrdiff_t>(height));
  }
  for (std::ptrdiff_t t = 0; t < height; ++t) {
    std::memcpy(dst[t], src[t], 2 * static_cast<std::size_t>(width));
  }
}

void YV12_Blt_fast(unsigned char* pDstY, unsigned char* pDstU, unsigned char* pDstV, int nPitchDstY,
                   int nPitchDstU, int nPitchDstV, int xDst, int yDst, int cx, int yDstEnd,
                   unsigned char* pSrcY, unsigned char* pSrcU, unsigned char* pSrcV, int nPitchSrcY,
                   int nPitchSrcU, int nPitchSrcV, int xSrc, int ySrc) {
  if (cx < 1) return;
  const Offset chroma_x_dst = (Offset{xDst} + 1) / 2;
  const Offset chroma_x_src = (Offset{xSrc} + 1) / 2;
  const auto chroma_bytes = static_cast<std::size_t>((Offset{cx} + 1) / 2);
  const auto luma_bytes = static_cast<std::size_t>(cx);
  for (Offset i = 0; yDst + 2 * i < yDstEnd; ++i) {
    const Offset dst_row = yDst / 2 + i;
    const Offset src_row = ySrc / 2 + i;
    for (Offset k = 2 * i; k < 2 * i + 2; ++k) {
      std::memcpy(pDstY + (yDst + k) * nPitchDstY + xDst, pSrcY + (ySrc + k) * nPitchSrcY + xSrc,
                  luma_bytes);
    }
    std::memcpy(pDstU + dst_row * nPitchDstU + chroma_x_dst,
                pSrcU + src_row * nPitchSrcU + chroma_x_src, chroma_bytes);
    std::memcpy(pDstV + dst_row * nPitchDstV + chroma_x_dst,
                pSrcV + src_row * nPitchSrcV + chroma_x_src, chroma_bytes);
  }
}

void YUY2_2_Yuv420(unsigned char* pY, unsigned char* pU, unsigned char* pV, int nPt_Y, int nPt_U,
                   int nPt_V, int xDst, int yDst, int cx, int cy, unsigned char* lpBitsSrc,
                   int nPitchSrc, int bYUY2, int xSrc, int ySrc) {
  if (cx < 1 || cy < 1) return;
  const std::ptrdiff_t width = (std::ptrdiff_t{cx} + 1) & ~std::ptrdiff_t{1};
  const std::ptrdiff_t height = (std::ptrdiff_t{cy} + 1) & ~std::ptrdiff_t{1};
  const YuvTarget dst = {pY + Offset{yDst} * nPt_Y + xDst,
                         pU + Offset{yDst / 2} * nPt_U + xDst / 2,
                         pV + Offset{yDst / 2} * nPt_V + xDst / 2,
                         nullptr,
                         nPt_Y,
                         nPt_U,
                         nPt_V};
  // The last sample of a row has its highest address.
  for (std::ptrdiff_t k = 0; k < height; k += 2) {
    CheckV(dst.From(k, 0).v + width / 2 - 1, pV, ySrc, cy, nPt_V);
  }
  ActiveConvertKernels().split({lpBitsSrc + Offset{ySrc} * nPitchSrc + Offset{2} * xSrc, nPitchSrc},
                               dst, width, height, bYUY2 != 0);
}

void Yuv420_2_YUY2(unsigned char* lpBitsDst, int nPitchDst, int xDst, int yDst, int cx, int cy,
                   int bYUY2, unsigned char* pY, unsigned char* pU, unsigned char* pV, int nPt_Y,
                   int nPt_U, int nPt_V, int xSrc, int ySrc) {
  if (cx < 1 || cy < 1) return;
  const YuvSource src = {pY + Offset{ySrc} * nPt_Y + xSrc,
                         pU + Offset{ySrc / 2} * nPt_U + xSrc / 2,
                         pV + Offset{ySrc / 2} * nPt_V + xSrc / 2,
                         nullptr,
                         nPt_Y,
                         nPt_U,
                         nPt_V};
  const PixelTarget dst = {lpBitsDst + Offset{yDst} * nPitchDst + Offset{2} * xDst, nPitchDst};
  ActiveConvertKernels().merge(src, dst, (std::ptrdiff_t{cx} + 1) & ~std::ptrdiff_t{1},
                               (std::ptrdiff_t{cy} + 1) & ~std::ptrdiff_t{1}, bYUY2 != 0);
}
