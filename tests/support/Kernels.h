// The harness of kernel tests: buffers between pages that no access survives, random bytes by seed,
// and a routine's results at every level of the processor.
#pragma once

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <vector>

#include "zel/detail/Level.h"

namespace zel::test {

using Byte = unsigned char;
using Bytes = std::vector<Byte>;

/// The levels of this processor, plain first.
inline std::vector<Level> Levels() {
  std::vector<Level> levels = AllLevels();
  std::erase_if(levels, [](Level level) { return !HasLevel(level); });
  return levels;
}

/// Puts the processor's own kernels back in use after each test.
class KernelTest : public testing::Test {
 protected:
  ~KernelTest() override { UseLevel(Levels().back()); }
};

/// An engine with the draws that tests need. The same seed gives the same draws everywhere.
struct Random : std::mt19937 {
  using std::mt19937::mt19937;
  int Below(int n) { return static_cast<int>((*this)() % static_cast<unsigned>(n)); }
  int Between(int low, int high) { return low + Below(high - low + 1); }
};

/// A mapping that takes memory only where it is touched. Null where there is no room for it.
class Mapping {
 public:
  explicit Mapping(std::int64_t size, int protection = PROT_READ | PROT_WRITE)
      : size_(static_cast<std::size_t>(size)) {
    if (static_cast<std::int64_t>(size_) != size) return;
    void* all =
        mmap(nullptr, size_, protection, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (all != MAP_FAILED) begin_ = static_cast<Byte*>(all);
  }
  ~Mapping() {
    if (begin_ != nullptr) munmap(begin_, size_);
  }
  Mapping(const Mapping&) = delete;
  Mapping& operator=(const Mapping&) = delete;
  Byte* begin() const { return begin_; }

 private:
  std::size_t size_;
  Byte* begin_ = nullptr;
};

/// Gives a routine its buffers, each with a guard page right before it or right behind it. The same
/// calls after a Reset with the same seed give the same bytes, a quarter of them extreme.
class Arena {
 public:
  void Reset(unsigned seed) {
    seed_ = seed;
    used_ = 0;
  }

  template <typename T = Byte>
  T* Buffer(std::size_t count) {
    if (used_ == slots_.size()) slots_.emplace_back();
    Slot& slot = slots_[used_++];
    slot.Reserve(count * sizeof(T));
    const bool atBegin = (seed_ * 0x9e3779b9u >> 16) % 2 != 0;
    slot.bytes = slot.begin + (atBegin ? 0 : slot.capacity - slot.size);
    std::minstd_rand starts(seed_ * 31 + static_cast<unsigned>(used_));
    for (std::size_t at = 0; at < slot.size; at += kPool / 2) {
      const std::size_t start = starts() % (kPool / 2);
      std::memcpy(slot.bytes + at, Pool() + start, std::min(slot.size - at, kPool / 2));
    }
    return reinterpret_cast<T*>(slot.bytes);
  }
  /// The bytes of all buffers, sources included: they must not change.
  Bytes Contents() const {
    Bytes all;
    for (std::size_t i = 0; i < used_; ++i) {
      all.insert(all.end(), slots_[i].bytes, slots_[i].bytes + slots_[i].size);
    }
    return all;
  }

 private:
  static constexpr std::size_t kPool = std::size_t{1} << 20;
  static const Byte* Pool() {
    static const std::vector<std::uint16_t> pool = [] {
      constexpr std::uint16_t kExtremes[] = {0, 0xffff, 0x7fff, 0x8000};
      std::vector<std::uint16_t> words(kPool / 2);
      Random random(1);
      for (auto& word : words) {
        const auto r = random();
        word = r % 16 < 4 ? kExtremes[r % 16] : static_cast<std::uint16_t>(r >> 9);
      }
      return words;
    }();
    return reinterpret_cast<const Byte*>(pool.data());
  }

  struct Slot {
    void Reserve(std::size_t newSize) {
      size = newSize;
      if (mapping && capacity >= size) return;
      const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
      capacity = size / page * page + page;
      mapping =
          std::make_unique<Mapping>(static_cast<std::int64_t>(capacity + 2 * page), PROT_NONE);
      begin = mapping->begin() + page;
      if (mprotect(begin, capacity, PROT_READ | PROT_WRITE) != 0) std::abort();
    }
    std::unique_ptr<Mapping> mapping;
    Byte *begin, *bytes;
    std::size_t capacity, size;
  };
  unsigned seed_ = 0;
  std::vector<Slot> slots_;
  std::size_t used_ = 0;
};

/// Whether run(arena, false), a routine, leaves the same bytes at every level as run(arena, true),
/// its model.
inline testing::AssertionResult SameAtEveryLevel(
    unsigned seed, const std::function<void(Arena&, bool model)>& run) {
  static Arena arena;
  arena.Reset(seed);
  run(arena, true);
  const Bytes want = arena.Contents();
  for (const Level level : Levels()) {
    UseLevel(level);
    arena.Reset(seed);
    run(arena, false);
    const Bytes got = arena.Contents();
    if (got == want) continue;
    const auto at = std::mismatch(got.begin(), got.end(), want.begin()).first - got.begin();
    return testing::AssertionFailure()
           << LevelName(level) << ", seed " << seed << ": byte " << at << " of " << want.size()
           << " is " << int{got.begin()[at]} << ", not " << int{want.begin()[at]} << "; ";
  }
  return testing::AssertionSuccess();
}

}  // namespace zel::test
