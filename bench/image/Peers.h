// The libraries that the image routines are measured against, as far as they are installed.
#pragma once

#include <memory>

#if ZEL_WITH_LIBYUV
#include <libyuv.h>
#endif
#if ZEL_WITH_LIBSWSCALE
extern "C" {
#include <libswscale/swscale.h>
}

namespace zel::bench {

/// One side of what swscale converts or scales.
struct SwsSide {
  int width, height;
  AVPixelFormat format;
};

inline std::shared_ptr<SwsContext> MakeSws(const SwsSide& from, const SwsSide& to, int flags) {
  return {sws_getContext(from.width, from.height, from.format, to.width, to.height, to.format,
                         flags, nullptr, nullptr, nullptr),
          sws_freeContext};
}

}  // namespace zel::bench
#endif
