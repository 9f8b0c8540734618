#include "zel/Common/Image/detail/ConvertKernels.h"

#include "zel/Common/Image/detail/x86/ImageX86.h"
#include "zel/detail/LevelTables.h"

namespace zel::image {
namespace {

constexpr LevelTables<ConvertKernels> kTables = {{
    &plain::kConvert,
#if defined(__x86_64__) || defined(__i386__)
    &sse2::kConvert,
    &ssse3::kConvert,
    &avx2::kConvert,
    &avx512::kConvert,
    &avx512vbmi::kConvert,
#endif
}};

}  // namespace

const ConvertKernels& ConvertKernelsFor(Level level) {
  return kTables.For(level);
}

const ConvertKernels& ActiveConvertKernels() {
  return kTables.Active();
}

}  // namespace zel::image
