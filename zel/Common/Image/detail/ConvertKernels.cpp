#include "zel/Common/Image/detail/ConvertKernels.h"

#include "zel/Common/Image/detail/ConvertTables.h"
#include "zel/detail/LevelTables.h"

namespace zel::image {
namespace {

constexpr LevelTables<ConvertKernels> kTables = {{
    &kConvertScalar,
#if defined(__x86_64__) || defined(__i386__)
    &kConvertSse2,
    &kConvertSsse3,
    &kConvertAvx2,
    &kConvertAvx512,
    &kConvertAvx512Vbmi,
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
