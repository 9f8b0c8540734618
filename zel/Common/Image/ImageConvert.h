// The image routines: colour conversion, packed 4:2:2, copies, resizing, alpha and masks.
#pragma once

#include "zel/Common/Image/AlphaResize.h"
#include "zel/Common/Image/Bitmap.h"
#include "zel/Common/Image/Resize.h"
#include "zel/Common/Image/RgbToYuv.h"
#include "zel/Common/Image/Rotate.h"
#include "zel/Common/Image/YuvToRgb.h"
#include "zel/Common/Image/Yuy2.h"
