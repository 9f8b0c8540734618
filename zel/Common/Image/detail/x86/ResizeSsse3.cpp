#if defined(__x86_64__) || defined(__i386__)
#include "zel/Common/Image/detail/ResizeRows-inl.h"

namespace zel::image {
const ResizeKernels kResizeSsse3 = MakeKernels();
}
#endif
