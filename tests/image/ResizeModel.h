// The resizing routines once more, pixel by pixel, as plainly as they can be written. They read no
// pixel whose weight is 0, and share nothing with the library.
#pragma once

#include <functional>

#include "zel/Common/Image/AlphaResize.h"
#include "zel/Common/Image/detail/ResizePlan.h"

struct ResizeCase {
  const char* name;
  zel::image::ResizeRoutine* routine;
  int (*exported)(const IMG_PARAM&, IMG_PARAM&);
  void (*model)(const IMG_PARAM& src, const IMG_PARAM& dst);
  bool bottom_up;
  bool chroma;  // Planes have half the size of the rectangles.
  int src_bytes;
  int dst_bytes;
  int src_bits = 8;
};

extern const ResizeCase kResizeCases[14];
