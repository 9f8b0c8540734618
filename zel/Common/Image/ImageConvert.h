// The image routines: colour conversion, packed 4:2:2, copies, resizing, alpha and masks.
//
// Pictures are plain memory of the caller's: bitmaps in the published Windows layout (Bitmap.h),
// planes of YUV 4:2:0, packed YUV 4:2:2. Each header begins with a call. For instance, a bitmap at
// half its size:
//
//   const IMG_PARAM from = {source, 640, 480, 4 * 640, 32, 0, 0, 640, 480};
//   IMG_PARAM to = {target, 320, 240, 4 * 320, 32, 0, 0, 320, 240};
//   ImageResize(from, to, IMAGE_INTERPOLATION_BILINEAR);
//
// Nothing is kept between calls. Threads: any, at any time, as long as no other thread uses the
// same buffers; each routine is marked [any] for that.
#pragma once

#include "zel/Common/Image/AlphaResize.h"
#include "zel/Common/Image/Bitmap.h"
#include "zel/Common/Image/Resize.h"
#include "zel/Common/Image/RgbToYuv.h"
#include "zel/Common/Image/Rotate.h"
#include "zel/Common/Image/YuvToRgb.h"
#include "zel/Common/Image/Yuy2.h"
