// Scaling a picture with alpha over another, and a mask over a picture's alpha.
//
// Destinations and sources are bottom-up bitmaps; positions, bilinear values, return values, limits
// and thread rules are those of zel/Common/Image/Resize.h.
#pragma once

#include "zel/Common/Image/Resize.h"

/// Scales a 32-bit source bilinearly and lays it over the destination. With v the bilinear value of
/// a channel and a the alpha of the top-left neighbour source(sx, sy), neither premultiplied,
///   channels 0 to 2 become (old * (255 - a) + v * a) / 255,
///   channel 3 becomes old * (255 - a) / 255 + a, all truncated.
/// The last column takes source(sw - 1, sy), the last row source(sx, sh - 1) and, at its end, the
/// bottom-right pixel, each with its own alpha; these pixels keep the destination's channel 3.
ZEL_API int DIB_AlphaResizeBiLiner(const IMG_PARAM& src, IMG_PARAM& dst);
/// DIB_AlphaResizeBiLiner, whatever `method` says.
ZEL_API int ImageAlphaResize(const IMG_PARAM& src, IMG_PARAM& dst, IMAGE_INTERPOLATION method);

/// Replaces the destination's channel 3 with a mask of one byte per pixel, scaled by nearest
/// neighbour as in DIB_ResizeNear. Where the mask is 0, all four bytes become 0.
ZEL_API int StretchMaskResizeNear(const IMG_PARAM& mask, IMG_PARAM& dst);
/// Multiplies the destination's channel 3 with a mask, scaled bilinearly, over 255 (truncated).
/// Where the mask is 0, all four bytes become 0. Last column and row as in DIB_ResizeBiLiner.
///
/// @param mask its `nBitCount` / 8 gives the bytes per mask pixel, 1 to 4 (else 0 is returned); the
/// last of them is the mask value.
ZEL_API int StretchMaskResizeBiLiner(const IMG_PARAM& mask, IMG_PARAM& dst);
/// StretchMaskResizeBiLiner.
ZEL_API int ImageStretchMask(const IMG_PARAM& mask, IMG_PARAM& dst);
