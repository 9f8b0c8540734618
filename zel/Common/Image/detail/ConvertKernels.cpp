#include "zel/Common/Image/detail/ConvertKernels.h"

#include <atomic>

#include "zel/Common/Image/detail/ConvertTables.h"

namespace zel::image {
namespace {

std::atomic<const ConvertKernels*> g_active{nullptr};

}  // namespace

const ConvertKernels& ConvertKernelsFor(CpuLevel) {
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
