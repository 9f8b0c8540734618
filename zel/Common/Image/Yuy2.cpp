#include "zel/Common/Image/Yuy2.h"

#include <cassert>
#include <cstring>

#include "zel/Common/Image/detail/ConvertKernels.h"

namespace {

using zel::image::ActiveConvertKernels;
using zel::image::ConvertKernels;

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
  if (width < 1) return;
  const Offset even = width & ~Offset{1};
  const ConvertKernels& kernels = ActiveConvertKernels();
  const auto source = [&](Offset t) {
    return lpBitsSrc + (Offset{nHeightSrc} - 1 - ySrc - t) * nPitchSrc + Offset{3} * xSrc;
  };
  const auto target = [&](Offset t) {
    return lpBitsDst + (Offset{yDst} + t) * nPitchDst + 2 * left;
  };
  for (Offset t = 0; t < cyDst; ++t) {
    kernels.bgr24_to_packed(source(t), target(t), static_cast<std::ptrdiff_t>(even), bYUY2 != 0);
  }
  // After all the others: where the pitch ends with the picture, the second half of a last group
  // lies on the first pixel of the next row.
  for (Offset t = 0; t < cyDst && width > even; ++t) {
    std::uint8_t y[2], u, v;
    const unsigned char* const src[2] = {source(t) + 3 * even, nullptr};
    unsigned char* const dst[2] = {target(t) + 2 * even, nullptr};
    kernels.from_bgr24(src, {{y, nullptr}, &u, &v, {}}, 1);
    y[1] = y[0];
    kernels.merge({{y, nullptr}, &u, &v, {}}, dst, 2, bYUY2 != 0);
  }
}

void YUY2_2_Rgb24(unsigned char* lpBitsDst, int nHeightDst, int nPitchDst, int xDst, int yDst,
                  int cx, int cy, unsigned char* lpBitsSrc, int nPitchSrc, int bYUY2, int xSrc,
                  int ySrc) {
  assert(lpBitsDst && lpBitsSrc);
  if (cx < 1) return;
  const Offset even = cx & ~1;
  const Offset left = Offset{xSrc} - (static_cast<unsigned>(xSrc) >= 2 ? 1 : 0);
  const ConvertKernels& kernels = ActiveConvertKernels();
  const auto source = [&](Offset t) {
    return lpBitsSrc + (Offset{ySrc} + t) * nPitchSrc + 2 * left;
  };
  const auto target = [&](Offset t) {
    return lpBitsDst + (Offset{nHeightDst} - 1 - yDst - t) * nPitchDst + Offset{3} * xDst;
  };
  for (Offset t = 0; t < cy; ++t) {
    kernels.packed_to_bgr24(source(t), target(t), static_cast<std::ptrdiff_t>(even), bYUY2 != 0);
  }
  for (Offset t = 0; t < cy && cx > even; ++t) {
    const unsigned char* const group = source(t) + 2 * even;
    const unsigned char* const chroma = bYUY2 ? group + 1 : group;
    unsigned char* const dst[2] = {target(t) + 3 * even, nullptr};
    kernels.to_bgr24({{bYUY2 ? group : group + 1, nullptr}, chroma, chroma + 2, {}}, dst, 1);
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
  const ConvertKernels& kernels = ActiveConvertKernels();
  for (Offset t = 0; t < height; ++t) {
    const unsigned char* const src = lpBitsSrc + (Offset{ySrc} + t) * nPitchSrc + Offset{2} * xSrc;
    unsigned char* const dst = lpBitsDst + (Offset{yDst} + t) * nPitchDst + Offset{2} * xDst;
    if (copy) {
      std::memcpy(dst, src, 2 * static_cast<std::size_t>(width));
    } else {
      kernels.swap(dst, src, static_cast<std::ptrdiff_t>(width));
    }
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
  if (cx < 1) return;
  const Offset groups = (Offset{cx} + 1) / 2;
  const ConvertKernels& kernels = ActiveConvertKernels();
  for (Offset k = 0; k < cy; k += 2) {
    const unsigned char* const upper = lpBitsSrc + (ySrc + k) * nPitchSrc + Offset{2} * xSrc;
    const unsigned char* const src[2] = {upper, upper + nPitchSrc};
    unsigned char* const y = pY + (yDst + k) * nPt_Y + xDst;
    const Offset chroma_row = yDst / 2 + k / 2;
    unsigned char* const u = pU + chroma_row * nPt_U + xDst / 2;
    unsigned char* const v = pV + chroma_row * nPt_V + xDst / 2;
    // The row's last sample has its highest address.
    CheckV(v + groups - 1, pV, ySrc, cy, nPt_V);
    kernels.split(src, {{y, y + nPt_Y}, u, v, {}}, static_cast<std::ptrdiff_t>(2 * groups),
                  bYUY2 != 0);
  }
}

void Yuv420_2_YUY2(unsigned char* lpBitsDst, int nPitchDst, int xDst, int yDst, int cx, int cy,
                   int bYUY2, unsigned char* pY, unsigned char* pU, unsigned char* pV, int nPt_Y,
                   int nPt_U, int nPt_V, int xSrc, int ySrc) {
  if (cx < 1) return;
  const ConvertKernels& kernels = ActiveConvertKernels();
  for (Offset k = 0; k < cy; k += 2) {
    const unsigned char* const y = pY + (ySrc + k) * nPt_Y + xSrc;
    const Offset chroma_row = ySrc / 2 + k / 2;
    unsigned char* const upper = lpBitsDst + (yDst + k) * nPitchDst + Offset{2} * xDst;
    unsigned char* const dst[2] = {upper, upper + nPitchDst};
    kernels.merge({{y, y + nPt_Y},
                   pU + chroma_row * nPt_U + xSrc / 2,
                   pV + chroma_row * nPt_V + xSrc / 2,
                   {}},
                  dst, static_cast<std::ptrdiff_t>((Offset{cx} + 1) & ~Offset{1}), bYUY2 != 0);
  }
}
