// Packed 4:2:2 pictures: conversions and copies of rectangles.
//
//   // A YUY2 picture of 1920 x 1080 to planes.
//   YUY2_2_Yuv420(y, u, v, 1920, 960, 960, 0, 0, 1920, 1080, packed, 2 * 1920, 1, 0, 0);
//
// A packed row is made of 4-byte groups, one for two pixels that share their chroma. A group is Y0,
// U, Y1, V (YUY2) where the side's flag `bYUY2` is not 0, and U, Y0, V, Y1 (UYVY) where it is 0.
// Pixel x of a row is at byte 2x. Rows are top-down. Planar sides are those of YuvToRgb.h; the
// 24-bit sides are bottom-up bitmaps without a header, given by their first byte in memory, their
// height and their pitch.
//
// Groups start at the first column that a routine touches. If that column is odd, U and V are
// swapped and one pixel is split at each end, seen from a picture whose groups start at column 0.
// The first column is the rectangle's; the two 24-bit routines start one column earlier when it is
// 2 or more. So a rectangle fits the groups of a whole picture if it starts at an even column, or
// in those two routines at column 0, 3, 5, 7 ...
//
// x is a column, y a row, counted from the top-left pixel; cx and cy are a rectangle's width and
// height in pixels; pitches are in bytes. They may be negative, though three preconditions are made
// for positive ones: with a negative pitch those of `Rgb24_2_YUY2` hold only for rectangles left of
// column 0, and that of `YUY2_2_Yuv420`, on `nPt_V`, only for V rows from `ySrc` + `cy` on. A width
// or height below 1 (in `Rgb24_2_YUY2` the width after its widening) does nothing. The caller
// passes rectangles that lie in both pictures, with the extra column or row that an odd size
// reaches. A destination's pitch has room for that column, too; otherwise the bytes where a row
// overlaps the next are undefined, except in `Rgb24_2_YUY2`. The colour arithmetic is that of
// YuvToRgb.h and RgbToYuv.h.
//
// Errors: preconditions are assertions, active in the shipped library; they are computed in 64
// bits. Pointers are checked where it is said. They and pitches need no alignment.
// Sources are never written. Source and destination must not overlap, but `YUY2_Blt_fast` may
// change the byte order of a picture in place. Threads: each routine is marked [any]: any thread,
// at any time, as long as no other thread uses the same buffers.
#pragma once

#include "zel/platform/Types.h"

/// [any] 24-bit bitmap to packed 4:2:2.
///
/// With `xDst` of 2 or more (or negative) the rectangle is widened by one pixel to the left in the
/// destination only: column `xDst` - 1 + k receives source column `xSrc` + k, and source column
/// `xSrc` + `cxDst` is read, too (so that a `cxDst` of 0 converts one column). An odd last column
/// fills a whole group: its luma twice and its own chroma; these groups are written after all the
/// others.
///
/// Preconditions: neither pointer null, the destination rectangle within its pitch, the source
/// rectangle (before the widening) within its pitch.
ZEL_API void Rgb24_2_YUY2(unsigned char* lpBitsDst, int nPitchDst, int xDst, int yDst, int cxDst,
                          int cyDst, int bYUY2, unsigned char* lpBitsSrc, int nHeightSrc,
                          int nPitchSrc, int xSrc, int ySrc);

/// [any] Packed 4:2:2 to 24-bit bitmap.
///
/// With `xSrc` of 2 or more (or negative) the source is read from column `xSrc` - 1. The source is
/// taken as groups from that column on. Neither pointer may be null.
ZEL_API void YUY2_2_Rgb24(unsigned char* lpBitsDst, int nHeightDst, int nPitchDst, int xDst,
                          int yDst, int cx, int cy, unsigned char* lpBitsSrc, int nPitchSrc,
                          int bYUY2, int xSrc, int ySrc);

/// [any] Copies a packed rectangle, changing the byte order when `bDstYUY2` and `bSrcYUY2` differ.
/// They are compared as integers: 1 and 2 differ. A change of order works on whole groups, so that
/// an odd `cx` reaches one pixel further.
ZEL_API void YUY2_Blt_fast(unsigned char* lpBitsDst, int nPitchDst, int xDst, int yDst, int cx,
                           int cy, int bDstYUY2, unsigned char* lpBitsSrc, int nPitchSrc,
                           int bSrcYUY2, int xSrc, int ySrc);

/// [any] Copies a rectangle of a planar 4:2:0 picture: row pairs from `yDst` until `yDstEnd`
/// (exclusive) is reached, so that an odd count reaches one luma row further. Chroma columns are
/// (x + 1) / 2, chroma widths (`cx` + 1) / 2, and chroma starts at rows `yDst` / 2 and `ySrc` / 2,
/// all rounded toward zero. The result is that of copying pair after pair, each with its luma, U
/// and V in turn, even if the further row lies on another plane.
ZEL_API void YV12_Blt_fast(unsigned char* pDstY, unsigned char* pDstU, unsigned char* pDstV,
                           int nPitchDstY, int nPitchDstU, int nPitchDstV, int xDst, int yDst,
                           int cx, int yDstEnd, unsigned char* pSrcY, unsigned char* pSrcU,
                           unsigned char* pSrcV, int nPitchSrcY, int nPitchSrcU, int nPitchSrcV,
                           int xSrc, int ySrc);

/// [any] Packed 4:2:2 to planar 4:2:0. A chroma sample is the truncated mean of the two rows'
/// samples. Odd `cx` and `cy` are rounded up to even numbers. Chroma goes to row `yDst` / 2 and
/// column `xDst` / 2, rounded toward zero.
///
/// Precondition: no V sample lies beyond row `ySrc` + `cy` of the V plane's pitch (a sample's
/// address is at most `pV` + (`ySrc` + `cy`) `nPt_V`). For a positive pitch this means that `yDst`
/// is not much larger than 2 `ySrc` + `cy`: a rectangle from the top of one picture cannot go to
/// the bottom of a high one.
ZEL_API void YUY2_2_Yuv420(unsigned char* pY, unsigned char* pU, unsigned char* pV, int nPt_Y,
                           int nPt_U, int nPt_V, int xDst, int yDst, int cx, int cy,
                           unsigned char* lpBitsSrc, int nPitchSrc, int bYUY2, int xSrc, int ySrc);

/// [any] Planar 4:2:0 to packed 4:2:2. Both rows of a pair take the same chroma samples, those at
/// row `ySrc` / 2 and column `xSrc` / 2 on, rounded toward zero. Odd `cx` and `cy` are rounded up
/// to even numbers.
ZEL_API void Yuv420_2_YUY2(unsigned char* lpBitsDst, int nPitchDst, int xDst, int yDst, int cx,
                           int cy, int bYUY2, unsigned char* pY, unsigned char* pU,
                           unsigned char* pV, int nPt_Y, int nPt_U, int nPt_V, int xSrc, int ySrc);
