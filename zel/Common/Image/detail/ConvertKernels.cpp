#include "zel/Common/Image/detail/ConvertKernels.h"

#include <atomic>

#include "zel/Common/Image/detail/ConvertTables.h"

namespace zel::image {
namespace {

std::atomic<const ConvertKernels*> g_active{nullptr};

}  // namespace

const ConvertKernels& ConvertKernelsFor(CpuLevel level) {
#if defined(__x86_64__) || defined(__i386__)
  switch (level) {
    case CpuLevel::kScalar:
      return kConvertScalar;
    case CpuLevel::kSse2:
      return kConvertSse2;
    case CpuLevel::kSsse3:
    case CpuLevel::kSse41:
      return kConvertSsse3;
    case CpuLevel::kAvx2:
      return kConvertAvx2;
    case CpuLevel::kAvx512:
      return kConvertAvx512;
    case CpuLevel::kAvx512Vbmi:
      return kConvertAvx512Vbmi;
  }
#endif
  static_cast<void>(level);
  return kConvertScalar;
}

const ConvertKernels& ActiveConvertKernels() {
  const ConvertKernels* active = g_active.load(std::memory_order_acquire);
  if (!active) {
    // Threads that come here together choose the same.
    active = &ConvertKernelsFor(DetectCpuLevel());
    g_active.store(active, std::memory_order_release);
  }
  return *active;
}

void UseConvertKernels(CpuLevel level) {
  g_active.store(&ConvertKernelsFor(level), std::memory_order_release);
}

}  // namespace zel::image
