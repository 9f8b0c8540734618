#include "zel/Common/Image/Yuy2.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <utility>

#include "zel/Common/Image/detail/BitmapRows.h"
#include "zel/Common/Image/detail/ConvertKernels.h"

namespace {

using zel::image::ActiveConvertKernels;
using zel::image::ConvertKernels;
using zel::image::Offset;
using zel::image::PixelSource;
using zel::image::PixelTarget;
using zel::image::Planes;
using zel::image::YuvTarget;

/// 64 bits, because INT_MIN has no negative.
std::ptrdiff_t Negated(int pitch) {
  return static_cast<std::ptrdiff_t>(-Offset{pitch});
}

// Preconditions are computed in 64 bits. They use the parameters' names because a failed assertion
// prints its text.

void CheckRgb24ToYuy2(const unsigned char* lpBitsDst, const unsigned char* lpBitsSrc, Offset xDst,
                      Offset cxDst, Offset nPitchDst, Offset nPitchSrc, Offset xSrc) {
  assert(lpBitsDst && lpBitsSrc);
  assert((xDst + cxDst) * 2 <= nPitchDst);
  assert(nPitchSrc / 3 - xSrc >= cxDst);
}

void CheckV(const unsigned char* V, const unsigned char* pV, Offset ySrc, Offset cy, Offset nPt_V) {
  assert((char*)V <= ((char*)pV + (ySrc + cy) * nPt_V));
}

/// The planes of a 4:2:0 picture from luma column `x` and row `y` on.
template <typename Byte>
Planes<Byte> PlanesFrom(Byte* pY, Byte* pU, Byte* pV, int nPt_Y, int nPt_U, int nPt_V, int x,
                        int y) {
  return {pY + Offset{y} * nPt_Y + x,
          pU + Offset{y / 2} * nPt_U + x / 2,
          pV + Offset{y / 2} * nPt_V + x / 2,
          nullptr,
          nPt_Y,
          nPt_U,
          nPt_V};
}

/// Whether no gaps are between the rows, so that they can be copied as one.
bool AreGapless(const PixelSource& src, const PixelTarget& dst, Offset rowBytes) {
  return src.pitch == rowBytes && dst.pitch == rowBytes;
}

void CopyRows(const PixelSource& src, const PixelTarget& dst, Offset rowBytes, Offset rows) {
  if (AreGapless(src, dst, rowBytes)) {
    rowBytes *= rows;
    rows = 1;
  }
  for (std::ptrdiff_t row = 0; row < rows; ++row) {
    std::memcpy(dst[row], src[row], static_cast<std::size_t>(rowBytes));
  }
}

/// A plane to copy, pair of rows by pair of rows.
struct PlaneCopy {
  PixelSource src;
  PixelTarget dst;
  Offset rowBytes;
  int rowsOfPair;

  void Pairs(Offset first, Offset count) const {
    const auto row = static_cast<std::ptrdiff_t>(first * rowsOfPair);
    CopyRows({src[row], src.pitch}, {dst[row], dst.pitch}, rowBytes, count * rowsOfPair);
  }
};

/// Whether the first `pairs` pairs of two planes may be written to the same bytes.
bool MayMeet(const PlaneCopy& a, const PlaneCopy& b, Offset pairs) {
  const auto span = [pairs](const PlaneCopy& plane) {
    const auto first = reinterpret_cast<std::uintptr_t>(plane.dst.bytes);
    const std::uintptr_t last =
        first + static_cast<std::uintptr_t>((pairs * plane.rowsOfPair - 1) * plane.dst.pitch);
    return std::pair(std::min(first, last),
                     std::max(first, last) + static_cast<std::uintptr_t>(plane.rowBytes));
  };
  const auto [aBegin, aEnd] = span(a);
  const auto [bBegin, bEnd] = span(b);
  return aBegin < bEnd && bBegin < aEnd;
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
      lpBitsSrc + (Offset{nHeightSrc} - 1 - ySrc) * nPitchSrc + Offset{3} * xSrc,
      Negated(nPitchSrc)};
  const PixelTarget dst = {lpBitsDst + Offset{yDst} * nPitchDst + 2 * left, nPitchDst};
  if (even > 0) {
    kernels.bgr24ToPacked(src, dst, static_cast<std::ptrdiff_t>(even), cyDst, bYUY2 != 0);
  }
  // These groups come after all others: if the pitch ends with the picture, the second half of a
  // last group lies on the first pixel of the next row.
  for (int t = 0; t < cyDst && width > even; ++t) {
    std::uint8_t y[2], u, v;
    kernels.fromBgr24({src[t] + 3 * even, 0}, {y, &u, &v, nullptr, 0, 0, 0}, 1, 1);
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
      lpBitsDst + (Offset{nHeightDst} - 1 - yDst) * nPitchDst + Offset{3} * xDst,
      Negated(nPitchDst)};
  if (even > 0) kernels.packedToBgr24(src, dst, even, cy, bYUY2 != 0);
  for (int t = 0; t < cy && cx > even; ++t) {
    const unsigned char* const group = src[t] + 2 * even;
    const unsigned char* const chroma = bYUY2 ? group + 1 : group;
    kernels.toBgr24({bYUY2 ? group : group + 1, chroma, chroma + 2, nullptr, 0, 0, 0},
                    {dst[t] + 3 * even, 0}, 1, 1);
  }
}

void YUY2_Blt_fast(unsigned char* lpBitsDst, int nPitchDst, int xDst, int yDst, int cx, int cy,
                   int bDstYUY2, unsigned char* lpBitsSrc, int nPitchSrc, int bSrcYUY2, int xSrc,
                   int ySrc) {
  if (cx < 1 || cy < 1) return;
  const PixelSource src = {lpBitsSrc + Offset{ySrc} * nPitchSrc + Offset{2} * xSrc, nPitchSrc};
  const PixelTarget dst = {lpBitsDst + Offset{yDst} * nPitchDst + Offset{2} * xDst, nPitchDst};
  if (bDstYUY2 == bSrcYUY2) return CopyRows(src, dst, Offset{2} * cx, cy);
  const Offset width = (Offset{cx} + 1) & ~Offset{1};
  const bool gapless = AreGapless(src, dst, 2 * width);
  ActiveConvertKernels().swap(src, dst, static_cast<std::ptrdiff_t>(gapless ? width * cy : width),
                              gapless ? 1 : cy);
}

void YV12_Blt_fast(unsigned char* pDstY, unsigned char* pDstU, unsigned char* pDstV, int nPitchDstY,
                   int nPitchDstU, int nPitchDstV, int xDst, int yDst, int cx, int yDstEnd,
                   unsigned char* pSrcY, unsigned char* pSrcU, unsigned char* pSrcV, int nPitchSrcY,
                   int nPitchSrcU, int nPitchSrcV, int xSrc, int ySrc) {
  if (cx < 1 || yDst >= yDstEnd) return;
  const Offset pairs = (Offset{yDstEnd} - yDst + 1) / 2;
  const Offset chromaXDst = (Offset{xDst} + 1) / 2;
  const Offset chromaXSrc = (Offset{xSrc} + 1) / 2;
  const Offset chromaWidth = (Offset{cx} + 1) / 2;
  const PlaneCopy y = {{pSrcY + Offset{ySrc} * nPitchSrcY + xSrc, nPitchSrcY},
                       {pDstY + Offset{yDst} * nPitchDstY + xDst, nPitchDstY},
                       cx,
                       2};
  const PlaneCopy u = {{pSrcU + Offset{ySrc / 2} * nPitchSrcU + chromaXSrc, nPitchSrcU},
                       {pDstU + Offset{yDst / 2} * nPitchDstU + chromaXDst, nPitchDstU},
                       chromaWidth,
                       1};
  const PlaneCopy v = {{pSrcV + Offset{ySrc / 2} * nPitchSrcV + chromaXSrc, nPitchSrcV},
                       {pDstV + Offset{yDst / 2} * nPitchDstV + chromaXDst, nPitchDstV},
                       chromaWidth,
                       1};
  const auto copy = [&](Offset first, Offset count) {
    y.Pairs(first, count);
    u.Pairs(first, count);
    v.Pairs(first, count);
  };
  const auto planesMeet = [&](Offset count) {
    return MayMeet(y, u, count) || MayMeet(u, v, count) || MayMeet(v, y, count);
  };
  // Plane after plane is fastest. Where planes overlap, the order of the copies matters, so
  // those rows go pair after pair. Often that is only the last pair, whose second row is one too
  // many.
  if (!planesMeet(pairs)) return copy(0, pairs);
  const Offset apart = pairs > 1 && !planesMeet(pairs - 1) ? pairs - 1 : 0;
  copy(0, apart);
  for (Offset pair = apart; pair < pairs; ++pair) copy(pair, 1);
}

void YUY2_2_Yuv420(unsigned char* pY, unsigned char* pU, unsigned char* pV, int nPt_Y, int nPt_U,
                   int nPt_V, int xDst, int yDst, int cx, int cy, unsigned char* lpBitsSrc,
                   int nPitchSrc, int bYUY2, int xSrc, int ySrc) {
  if (cx < 1 || cy < 1) return;
  const std::ptrdiff_t width = (std::ptrdiff_t{cx} + 1) & ~std::ptrdiff_t{1};
  const std::ptrdiff_t height = (std::ptrdiff_t{cy} + 1) & ~std::ptrdiff_t{1};
  const YuvTarget dst = PlanesFrom(pY, pU, pV, nPt_Y, nPt_U, nPt_V, xDst, yDst);
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
  const auto src = PlanesFrom<const unsigned char>(pY, pU, pV, nPt_Y, nPt_U, nPt_V, xSrc, ySrc);
  const PixelTarget dst = {lpBitsDst + Offset{yDst} * nPitchDst + Offset{2} * xDst, nPitchDst};
  ActiveConvertKernels().merge(src, dst, (std::ptrdiff_t{cx} + 1) & ~std::ptrdiff_t{1},
                               (std::ptrdiff_t{cy} + 1) & ~std::ptrdiff_t{1}, bYUY2 != 0);
}
