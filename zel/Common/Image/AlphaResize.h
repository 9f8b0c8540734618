// Scaling a picture with alpha over another, and a mask over a picture's alpha.
//
//   const IMG_PARAM logo = {pixels, 64, 64, 4 * 64, 32, 0, 0, 64, 64};
//   IMG_PARAM corner = {picture, 640, 480, 4 * 640, 32, 520, 20, 100, 100};
//   DIB_AlphaResizeBiLiner(logo, corner);
//
// Destinations and sources are bottom-up bitmaps; positions, bilinear values, return values, limits
// and thread rules ([any]) are those of zel/Common/Image/Resize.h.
#pragma once

#include "zel/Common/Image/Resize.h"

/// [any] Scales a 32-bit source bilinearly and lays it over the destination. With v the bilinear
/// value of a channel and a the alpha of the top-left neighbour source(sx, sy), neither
/// premultiplied,
///   channels 0 to 2 become (old * (255 - a) + v * a) / 255,
///   channel 3 becomes old * (255 - a) / 255 + a, all truncated.
/// The last column takes source(sw - 1, sy), the last row source(sx, sh - 1) and, at its end, the
/// bottom-right pixel, each with its own alpha; these pixels keep the destination's channel 3.
ZEL_API int DIB_AlphaResizeBiLiner(const IMG_PARAM& src, IMG_PARAM& dst);
/// [any] DIB_AlphaResizeBiLiner, whatever `method` says.
ZEL_API int ImageAlphaResize(const IMG_PARAM& src, IMG_PARAM& dst, IMAGE_INTERPOLATION method);

/// [any] Replaces the destination's channel 3 with a mask of one byte per pixel, scaled by nearest
/// neighbour as in DIB_ResizeNear. Where the mask is 0, all four bytes become 0.
ZEL_API int StretchMaskResizeNear(const IMG_PARAM& mask, IMG_PARAM& dst);
/// [any] Multiplies the destination's channel 3 with a mask, scaled bilinearly, over 255
/// (truncated). Where the mask is 0, all four bytes become 0. Last column and row as in
/// DIB_ResizeBiLiner.
///
/// @param mask its `nBitCount` / 8 gives the bytes per mask pixel, 1 to 4 (else 0 is returned); the
/// last of them is the mask value.
ZEL_API int StretchMaskResizeBiLiner(const IMG_PARAM& mask, IMG_PARAM& dst);
/// [any] StretchMaskResizeBiLiner.
ZEL_API int ImageStretchMask(const IMG_PARAM& mask, IMG_PARAM& dst);
