// Scaling of bitmaps and of YUV planes: nearest neighbour and bilinear.
//
//   const IMG_PARAM from = {source, 640, 480, 4 * 640, 32, 0, 0, 640, 480};
//   IMG_PARAM to = {target, 320, 240, 4 * 320, 32, 0, 0, 320, 240};
//   ImageResize(from, to, IMAGE_INTERPOLATION_BILINEAR);
//
// Start at the dispatchers (ImageResize for 32-bit bitmaps, ImageResizeYV12 for a planar 4:2:0
// picture); the DIB_... routines below them are the single methods.
#pragma once

#include <cstddef>
#include <cstdint>

#include "zel/platform/Types.h"

/// A picture in memory and a rectangle in it: what is scaled from, and what is scaled into. The
/// routines write only the bytes that a destination's `pBuffer` leads to, never a record.
///
/// Row r of the rectangle (0 is its top) lies, counted in rows of `nPitch` bytes from `pBuffer`,
///   - in planes (top-down) at `nTop` + r;
///   - in bitmaps (bottom-up) at `nImageHeight` - 1 - `nTop` - r.
/// `nPitch` may be negative: `pBuffer` then is the row with the highest address.
struct IMG_PARAM {
  unsigned char* pBuffer;     ///< First byte of the buffer, of the plane for planar routines.
  std::int32_t nImageWidth;   ///< Pixels per row of the buffer. No routine here reads it.
  std::int32_t nImageHeight;  ///< Rows of the buffer. Read by the bitmap routines only.
  std::int32_t nPitch;        ///< Bytes from one row to the next.
  std::int32_t nBitCount;     ///< Bits per pixel. Read by StretchMaskResizeBiLiner only.
  std::int32_t nLeft;         ///< The rectangle's left column.
  std::int32_t nTop;          ///< The rectangle's top row.
  std::int32_t nWidth;        ///< The rectangle's width in pixels.
  std::int32_t nHeight;       ///< The rectangle's height in rows.
};
#if defined(__i386__)
static_assert(sizeof(IMG_PARAM) == 36);
static_assert(offsetof(IMG_PARAM, nImageWidth) == 4 && offsetof(IMG_PARAM, nImageHeight) == 8 &&
              offsetof(IMG_PARAM, nPitch) == 12 && offsetof(IMG_PARAM, nBitCount) == 16 &&
              offsetof(IMG_PARAM, nLeft) == 20 && offsetof(IMG_PARAM, nTop) == 24 &&
              offsetof(IMG_PARAM, nWidth) == 28 && offsetof(IMG_PARAM, nHeight) == 32);
#endif

/// How to interpolate. Any other value scales nothing (but ImageAlphaResize takes them all).
enum IMAGE_INTERPOLATION : std::int32_t {
  IMAGE_INTERPOLATION_LINEAR = 0,    ///< Bilinear.
  IMAGE_INTERPOLATION_NEAREST = 1,   ///< Nearest neighbour.
  IMAGE_INTERPOLATION_BILINEAR = 2,  ///< Bilinear, too.
  IMAGE_INTERPOLATION_CONVOLVE = 3,  ///< DIB_ResizeConvolve; not in ImageResize8, ImageResizeUV.
};

// What all routines have in common
//
// Positions are fixed-point numbers with 12 fractional bits and map the first and the last pixel of
// the source rectangle (sw x sh) onto those of the destination rectangle (dw x dh):
//   stepX = (sw - 1) * 4096 / (dw - 1), column c: sx = c * stepX >> 12, fx = c * stepX & 4095,
// and rows likewise with stepY, sy, fy. (Positions are 64 bits wide inside, so that no size
// overflows them.) The bilinear value of four neighbours a b / d e is
//   top = (a * (4096 - fx) + b * fx) >> 12, bottom likewise from d and e,
//   (top * (4096 - fy) + bottom * fy) >> 12: truncated three times, never rounded.
//
// They return 1 after writing the destination (of a chroma plane, what its routines write) and 0,
// writing nothing, for:
//   - a null buffer, or a method that the dispatcher does not know;
//   - a destination below 2 x 2, or an empty source;
//   - a rectangle that its record shows to leave the buffer: a negative corner, a right edge beyond
//     the pitch, or (bottom-up bitmaps and `ImageResize`) a lower edge beyond `nImageHeight`;
//   - no memory for the tables.
// The routines for several planes return 0 only for a destination below 2 x 2. No byte outside
// the source rectangle is read. In the destination only the rectangle is written and, by the luma
// routines, the rest of its rows. Source and destination must not overlap.
//
// Threads: each routine is marked [any]: any thread, at any time, as long as no other thread uses
// the same buffers.

/// [any] Scales a 32-bit bitmap: DIB_ResizeBiLiner (0, 2), DIB_ResizeNear (1) or DIB_ResizeConvolve
/// (3: that routine treats the bitmap as a top-down luma plane whose width in bytes is the
/// rectangle's width in pixels, margins included).
ZEL_API int ImageResize(const IMG_PARAM& src, IMG_PARAM& dst, IMAGE_INTERPOLATION method);
/// [any] Scales an 8-bit picture: DIB_ResizeBiLiner8 (0, 2), which treats it as a bottom-up
/// bitmap, or DIB_ResizeNear8 (1), which treats it as a top-down plane and ignores `nImageHeight`.
ZEL_API int ImageResize8(const IMG_PARAM& src, IMG_PARAM& dst, IMAGE_INTERPOLATION method);
/// [any] Scales a chroma plane of a 4:2:0 picture: DIB_ResizeBiLinerUV (0, 2) or DIB_ResizeNearUV
/// (1). Neither writes the last sample of the last row: fill it beforehand. A 2 x 2 destination
/// consists of that sample alone.
ZEL_API int ImageResizeUV(const IMG_PARAM& src, IMG_PARAM& dst, IMAGE_INTERPOLATION method);
/// [any] Scales a luma plane: DIB_ResizeBiLinerY (0, 2), DIB_ResizeNearY (1) or DIB_ResizeConvolve
/// (3). All fill the rest of each row, up to the pitch, with black (16). So the rows can hold no
/// other picture or field, and the last row needs its full pitch.
/// @param nReserved not used.
ZEL_API int ImageResizeY(const IMG_PARAM& src, IMG_PARAM& dst, IMAGE_INTERPOLATION method,
                         int nReserved = 0);

/// [any] Scales a planar 4:2:0 picture: the luma plane with ImageResizeY, margins included, then V,
/// then U with ImageResizeUV, which both leave the bottom-right sample as it is.
///
/// @param src, dst the rectangles, in luma pixels; their `pBuffer` and `nPitch` are not used.
/// @param pSrcY ... nDstPitchV the planes and their bytes per row, borrowed for the call. A plane
/// that cannot be scaled stays as it is: where a pointer is null, a pitch too narrow for the
/// rectangle or the method unknown. ImageResizeUV does not know IMAGE_INTERPOLATION_CONVOLVE, which
/// therefore scales luma only.
/// @param nReserved not used.
/// @return 0 for a destination below 2 x 2, else 1, even if a plane was not scaled.
ZEL_API int ImageResizeYV12(const IMG_PARAM& src, unsigned char* pSrcY, unsigned char* pSrcU,
                            unsigned char* pSrcV, int nSrcPitchY, int nSrcPitchU, int nSrcPitchV,
                            const IMG_PARAM& dst, unsigned char* pDstY, unsigned char* pDstU,
                            unsigned char* pDstV, int nDstPitchY, int nDstPitchU, int nDstPitchV,
                            IMAGE_INTERPOLATION method, int nReserved = 0);

/// [any] Scales four planes of full resolution (Y, U, V and a fourth, such as alpha), each with
/// ImageResizeY, margins of 16 included. Otherwise as ImageResizeYV12.
ZEL_API int ImageResizeYV444(const IMG_PARAM& src, unsigned char* pSrcY, unsigned char* pSrcU,
                             unsigned char* pSrcV, unsigned char* pSrcA, int nSrcPitchY,
                             int nSrcPitchU, int nSrcPitchV, int nSrcPitchA, const IMG_PARAM& dst,
                             unsigned char* pDstY, unsigned char* pDstU, unsigned char* pDstV,
                             unsigned char* pDstA, int nDstPitchY, int nDstPitchU, int nDstPitchV,
                             int nDstPitchA, IMAGE_INTERPOLATION method);

/// [any] 32-bit bitmap, nearest neighbour: source(sx, sy); the last column and row are the source's
/// last.
ZEL_API int DIB_ResizeNear(const IMG_PARAM& src, IMG_PARAM& dst);
/// [any] 32-bit bitmap, bilinear. Channel 3 (alpha) is not interpolated but copied from source(sx,
/// sy). The last column copies source(sw - 1, sy); the last row copies source(sx, sh - 1) and, at
/// its end, the source's bottom-right pixel.
ZEL_API int DIB_ResizeBiLiner(const IMG_PARAM& src, IMG_PARAM& dst);
/// [any] 8-bit picture, top-down, nearest neighbour by proportional position instead of steps:
/// column k takes source column (k * sw + dw / 2) / dw, at most sw - 1, and rows likewise. The last
/// column and row are the source's last.
ZEL_API int DIB_ResizeNear8(const IMG_PARAM& src, IMG_PARAM& dst);
/// [any] 8-bit bitmap (bottom-up), bilinear; last column and row as in DIB_ResizeBiLiner.
ZEL_API int DIB_ResizeBiLiner8(const IMG_PARAM& src, IMG_PARAM& dst);

// The luma routines fill each row outside the rectangle, from its first byte to the end of the
// pitch, with black (16).

/// [any] Luma plane, nearest neighbour: source(sx, sy) for every pixel, the last column and row
/// included.
ZEL_API int DIB_ResizeNearY(const IMG_PARAM& src, IMG_PARAM& dst, int nReserved = 0);
/// [any] Luma plane, bilinear for all columns. The last row copies source(sx, sh - 1) and, at its
/// end, the source's bottom-right pixel.
ZEL_API int DIB_ResizeBiLinerY(const IMG_PARAM& src, IMG_PARAM& dst, int nReserved = 0);
/// [any] Computes what DIB_ResizeBiLinerY computes.
ZEL_API int DIB_ResizeConvolve(const IMG_PARAM& src, IMG_PARAM& dst);
/// [any] Luma plane, the mean (truncated) of the pixels at this column's and the next column's
/// position (at most the source's last), in this row's and the next row's. The last row takes
/// source(sx, sh - 1) at columns 0, 2, 4 ... below dw - 1 and leaves the others. Paints no margins.
ZEL_API int DIB_ResizeBiLinerY_Simulate(const IMG_PARAM& src, IMG_PARAM& dst, int nReserved = 0);

// The chroma routines take both rectangles in luma pixels and walk the destination in steps of 2:
// luma column x = nLeft, nLeft + 2 ... < nLeft + dw, row y = nTop, nTop + 2 ... < nTop + dh - 2
// writes chroma pixel (x / 2, y / 2). One more chroma row, at the y reached, is taken from source
// chroma row (nTop + sh - 1) / 2, but only for x < nLeft + dw - 2. They paint no margins.

/// [any] Chroma plane, nearest neighbour: source chroma ((sx + nLeft) / 2, (sy + nTop) / 2).
ZEL_API int DIB_ResizeNearUV(const IMG_PARAM& src, IMG_PARAM& dst);
/// [any] Chroma plane, bilinear between chroma columns (sx + nLeft) / 2 and (sx + nLeft + 1) / 2,
/// rows likewise, weighted with the luma fractions fx and fy. The last row is nearest neighbour.
ZEL_API int DIB_ResizeBiLinerUV(const IMG_PARAM& src, IMG_PARAM& dst);
