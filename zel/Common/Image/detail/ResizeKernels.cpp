#include "zel/Common/Image/detail/ResizeKernels.h"

#include "zel/Common/Image/detail/x86/ImageX86.h"
#include "zel/detail/LevelTables.h"

namespace zel::image {
namespace {

constexpr LevelTables<ResizeKernels> kTables = {{
    &plain::kResize,
#if defined(__x86_64__) || defined(__i386__)
    &sse2::kResize,
    &ssse3::kResize,
    &avx2::kResize,
    &avx512::kResize,
    &avx512vbmi::kResize,
#endif
}};

}  // namespace

const ResizeKernels& ResizeKernelsFor(Level level) {
  return kTables.For(level);
}

const ResizeKernels& ActiveResizeKernels() {
  return kTables.Active();
}

}  // namespace zel::image
