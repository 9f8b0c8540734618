// Planar YUV 4:2:0 pictures to bitmaps.
//
//   tagBITMAPINFOHEADER header = {};
//   header.biSize = sizeof(header);
//   header.biWidth = 1920;
//   header.biHeight = 1080;
//   header.biBitCount = 24;
//   Yuv420_2_rgb24(&header, bits, y, u, v, 1920, 960, 960);
//
// Source: a Y plane of W x H bytes and U (Cb) and V (Cr) planes of (W+1)/2 x (H+1)/2 bytes, ITU-R
// BT.601 studio range (Y 16..235, U and V centred on 128). Row r of a plane starts `pitch * r`
// bytes after its first row; pitches are in bytes, may exceed the row width and may be negative. A
// chroma sample serves its 2 x 2 block of pixels unchanged, without interpolation.
//
// Destination: `biWidth` x `biHeight` pixels, both positive; below 1 nothing is converted. No other
// field of the header but `biBitCount` is read, and the header is not written. Pixels are blue,
// green, red in memory (and a fourth byte with 32 bits); 24-bit rows are padded to a multiple of 4
// bytes, whose padding is not written. Where a routine is bottom-up, the top row of the picture is
// the last row in memory. Pointers and pitches need no alignment.
//
// When W and H are both odd, the bottom-right pixel is not written.
//
// Arithmetic: blue  = (9536 Y + 16532 U           - 2268594) >> 13
//             green = (9536 Y -  3203 U -  6660 V + 1109918) >> 13
//             red   = (9536 Y           + 13074 V - 1826095) >> 13
// with flooring shifts, clamped to 0..255: the BT.601 factors 1.164, 2.018, 0.391, 0.813 and 1.596
// scaled by 8192, and offsets rounded after their floating-point products. Results are truncated,
// so that Y = 235 gives 254.
//
// Errors: preconditions are assertions, active in the shipped library. Sources are never written
// and must not overlap the destination. Threads: each routine is marked [any]: any thread, at any
// time, as long as no other thread uses the same buffers.
#pragma once

#include "zel/Common/Image/Bitmap.h"
#include "zel/platform/Types.h"

/// [any] To 24 bits, bottom-up. `biBitCount` must be 24 and no pointer null.
ZEL_API void Yuv420_2_rgb24(tagBITMAPINFOHEADER* lpDstBmi, unsigned char* lpDstBits,
                            unsigned char* pY, unsigned char* pU, unsigned char* pV, int nPt_Y,
                            int nPt_U, int nPt_V);

/// [any] To 32 bits, bottom-up. The fourth byte of every pixel keeps its value; it is read and
/// stored again, so that no other thread may write it meanwhile. `biBitCount` must be 32 and no
/// pointer null.
ZEL_API void Yuv420_2_rgb32(tagBITMAPINFOHEADER* lpDstBmi, unsigned char* lpDstBits,
                            unsigned char* pY, unsigned char* pU, unsigned char* pV, int nPt_Y,
                            int nPt_U, int nPt_V);

/// [any] To 32 bits, top row first in memory although `biHeight` is positive. The fourth byte is
/// 255. `biBitCount` must be 32 and no pointer null.
ZEL_API void Yuv420_2_Argb(tagBITMAPINFOHEADER* lpDstBmi, unsigned char* lpDstBits,
                           unsigned char* pY, unsigned char* pU, unsigned char* pV, int nPt_Y,
                           int nPt_U, int nPt_V);

/// [any] To 32 bits, bottom-up. The fourth byte is the pixel's sample in the alpha plane `pA`: W x
/// H bytes, addressed with the luma pitch `nPt_Y`. `biBitCount` must be 32 and no pointer null.
ZEL_API void Yuv420_2_rgb32_Alpha(tagBITMAPINFOHEADER* lpDstBmi, unsigned char* lpDstBits,
                                  unsigned char* pY, unsigned char* pU, unsigned char* pV,
                                  unsigned char* pA, int nPt_Y, int nPt_U, int nPt_V);

/// [any] To 24 bits, bottom-up, whatever `biBitCount` says, with plainer arithmetic: the BT.601
/// factors scaled by 1024, and rounding instead of truncation (Y = 235 gives 255):
///   blue  = (1192 Y + 2065 (U - 128) - 18560) >> 10
///   green = (1192 Y - 401 (U - 128) - 833 (V - 128) - 18560) >> 10
///   red   = (1192 Y + 1634 (V - 128) - 18560) >> 10
/// clamped to 0..255; 18560 is 16 * 1192 less a half of 1024. An odd last column and an odd last
/// row are left as they were. No precondition is checked.
ZEL_API void Yuv420_2_rgb24Simple(tagBITMAPINFOHEADER* lpDstBmi, unsigned char* lpDstBits,
                                  unsigned char* pY, unsigned char* pU, unsigned char* pV,
                                  int nPt_Y, int nPt_U, int nPt_V);
