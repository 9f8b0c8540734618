#include "tests/support/Allocations.h"

#include <atomic>
#include <cassert>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <utility>

namespace {

enum class Kind : std::size_t { kSingle = 0x51A61E, kArray = 0xA88A1, kFreed = 0xDEAD };

struct alignas(std::max_align_t) Head {
  Kind kind;
};

std::atomic<long> g_count = 0;
std::atomic<long> g_live = 0;
std::atomic<long> g_untilFailure = -1;

void* Allocate(std::size_t size, Kind kind) {
  if (g_untilFailure >= 0 && g_untilFailure-- == 0) throw std::bad_alloc();
  auto* head = static_cast<Head*>(std::malloc(sizeof(Head) + size));
  if (head == nullptr) throw std::bad_alloc();
  head->kind = kind;
  ++g_count;
  ++g_live;
  return head + 1;
}

void Free(void* memory, Kind kind) {
  if (memory == nullptr) return;
  Head* head = static_cast<Head*>(memory) - 1;
  const Kind allocatedAs = std::exchange(head->kind, Kind::kFreed);
  assert(allocatedAs == kind && "freed as it was allocated");
  --g_live;
  std::free(head);
}

}  // namespace

long AllocationCount() {
  return g_count;
}
long LiveAllocations() {
  return g_live;
}
void FailAllocationAfter(long count) {
  g_untilFailure = count;
}

void* operator new(std::size_t size) {
  return Allocate(size, Kind::kSingle);
}
void* operator new[](std::size_t size) {
  return Allocate(size, Kind::kArray);
}
// Forms that are left out a sanitizer brings itself.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept try {
  return Allocate(size, Kind::kSingle);
} catch (const std::bad_alloc&) {
  return nullptr;
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept try {
  return Allocate(size, Kind::kArray);
} catch (const std::bad_alloc&) {
  return nullptr;
}
void operator delete(void* memory) noexcept {
  Free(memory, Kind::kSingle);
}
void operator delete(void* memory, std::size_t) noexcept {
  Free(memory, Kind::kSingle);
}
void operator delete[](void* memory) noexcept {
  Free(memory, Kind::kArray);
}
void operator delete[](void* memory, std::size_t) noexcept {
  Free(memory, Kind::kArray);
}
