// Bitmaps to planar YUV 4:2:0 pictures.
//
//   tagBITMAPINFOHEADER header = {};
//   header.biWidth = 1920;
//   header.biHeight = 1080;
//   header.biBitCount = 32;
//   Rgb32_2_yuv420(y, u, v, 1920, 960, 960, &header, bits);
//
// Source: `biWidth` x `biHeight` pixels (W x H), both positive; below 1 nothing is converted. No
// other field of the header but `biBitCount` is read, and the header is not written. Pixels are
// blue, green, red in memory (and a fourth byte with 32 bits); 24-bit and 8-bit rows are padded to
// a multiple of 4 bytes. Where a routine is bottom-up, the top row of the picture is the last row
// in memory.
//
// Destination: a Y plane of W x H bytes and U (Cb) and V (Cr) planes of (W+1)/2 x (H+1)/2 bytes,
// ITU-R BT.601 studio range. Row r of a plane starts `pitch * r` bytes after its first row; pitches
// are in bytes and may be negative. When W is odd, every routine but `Rgb32_2_yuv420A` and
// `Rgb24_2_yuv420Simple` writes the last pixel's luma (and alpha) a second time, at column W, in
// each row of a pair: these planes need room for W + 1 columns, and a pitch of as many bytes, or
// the next row's first pixel is overwritten. Pointers and pitches need no alignment; a row's
// padding is not read. When W and H are both odd, nothing of the bottom-right pixel is written.
//
// Arithmetic: Y  = ((1606 B + 8258 G + 4211 R) >> 14) + 16
//             tu =  (7193 B - 4768 G - 2425 R) >> 14
//             tv =  (7193 R - 6029 G - 1163 B) >> 14
// with flooring shifts: the BT.601 factors scaled by 16384. A chroma sample is 128 plus the floored
// mean of the (already floored) terms of its block: of four pixels, of two in an odd last column or
// row. Converting there and back lowers brightness by 1 to 2 each time.
//
// Errors: preconditions are assertions, active in the shipped library. Sources are never written
// and must not overlap the destination. Threads: each routine is marked [any]: any thread, at any
// time, as long as no other thread uses the same buffers.
#pragma once

#include "zel/Common/Image/Bitmap.h"
#include "zel/platform/Types.h"

/// [any] From 24 bits, bottom-up. `biBitCount` must be 24 and no pointer null.
ZEL_API void Rgb24_2_yuv420(unsigned char* pY, unsigned char* pU, unsigned char* pV, int nPt_Y,
                            int nPt_U, int nPt_V, tagBITMAPINFOHEADER* lpSrcBmi,
                            unsigned char* lpSrcBits);

/// [any] From 32 bits, bottom-up; the fourth byte is ignored. `biBitCount` must be 32 and no
/// pointer null.
ZEL_API void Rgb32_2_yuv420(unsigned char* pY, unsigned char* pU, unsigned char* pV, int nPt_Y,
                            int nPt_U, int nPt_V, tagBITMAPINFOHEADER* lpSrcBmi,
                            unsigned char* lpSrcBits);

/// [any] From 32 bits, top row first in memory although `biHeight` is positive; the fourth byte is
/// ignored. `biBitCount` must be 32 and no pointer null.
ZEL_API void Argb_2_yuv420(unsigned char* pY, unsigned char* pU, unsigned char* pV, int nPt_Y,
                           int nPt_U, int nPt_V, tagBITMAPINFOHEADER* lpSrcBmi,
                           unsigned char* lpSrcBits);

/// [any] From 8 bits, bottom-up. Each byte is an index into the colour table, which starts 40 bytes
/// after `lpBitmapInfo` and need only reach the highest index in the picture; `biSize` and
/// `biClrUsed` are not consulted. `biBitCount` must be 8 and no pointer null.
ZEL_API void Rgb8_2_YUV420(unsigned char* pY, unsigned char* pU, unsigned char* pV, int nPt_Y,
                           int nPt_U, int nPt_V, tagBITMAPINFO* lpBitmapInfo,
                           unsigned char* lpSrcBits);

/// [any] From 32 bits, bottom-up; the fourth byte goes to the alpha plane `pA`, which has the size
/// and the pitch of the luma plane. `biBitCount` must be 32 and no pointer null.
ZEL_API void Rgb32_2_yuv420_Alpha(unsigned char* pY, unsigned char* pU, unsigned char* pV,
                                  unsigned char* pA, int nPt_Y, int nPt_U, int nPt_V,
                                  tagBITMAPINFOHEADER* lpSrcBmi, unsigned char* lpSrcBits);

/// [any] As `Rgb32_2_yuv420_Alpha`, but never writes column W, and does not check `pA`: with a null
/// `pA` no alpha is written.
ZEL_API void Rgb32_2_yuv420A(unsigned char* pY, unsigned char* pU, unsigned char* pV,
                             unsigned char* pA, int nPt_Y, int nPt_U, int nPt_V,
                             tagBITMAPINFOHEADER* lpSrcBmi, unsigned char* lpSrcBits);

/// [any] From 24 bits, bottom-up, whatever `biBitCount` says, with plainer arithmetic: the BT.601
/// factors scaled by 1024, and rounding:
///   Y = (100 B + 516 G + 263 R + 16896) >> 10, in 16..235
///   U = (450 B - 298 G - 152 R + 131584) >> 10, in 16..240
///   V = (450 R - 377 G -  73 B + 131584) >> 10, in 16..240
///
/// 16896 and 131584 are 1024 times 16 and 128 and a half of 1024. A chroma sample is the floored
/// mean of its four pixels' values. An odd last column and an odd last row are left out. No
/// precondition is checked.
ZEL_API void Rgb24_2_yuv420Simple(unsigned char* pY, unsigned char* pU, unsigned char* pV,
                                  int nPt_Y, int nPt_U, int nPt_V, tagBITMAPINFOHEADER* lpSrcBmi,
                                  unsigned char* lpSrcBits);
