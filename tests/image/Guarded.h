// Buffers between pages that no access survives.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

/// Memory that ends, or begins, at an inaccessible page. The mapping is kept for reuse by `Place`.
class Guarded {
 public:
  enum class At { kBegin, kEnd };

  explicit Guarded(std::size_t capacity) {
    const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    capacity_ = (capacity + page - 1) / page * page;
    size_ = capacity_ + 2 * page;
    void* all = mmap(nullptr, size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (all == MAP_FAILED) std::abort();
    all_ = static_cast<std::uint8_t*>(all);
    begin_ = all_ + page;
    if (mprotect(begin_, capacity_, PROT_READ | PROT_WRITE) != 0) std::abort();
  }
  ~Guarded() { munmap(all_, size_); }
  Guarded(const Guarded&) = delete;
  Guarded& operator=(const Guarded&) = delete;

  /// `size` bytes with nothing before their begin or nothing after their end.
  std::uint8_t* Place(std::size_t size, At at) const {
    if (size > capacity_) std::abort();
    return at == At::kBegin ? begin_ : begin_ + capacity_ - size;
  }
  std::size_t capacity() const { return capacity_; }

 private:
  std::size_t capacity_;
  std::size_t size_;
  std::uint8_t* all_;
  std::uint8_t* begin_;
};

/// `size` bytes of zeros that take memory only where they are touched.
class Sparse {
 public:
  explicit Sparse(std::int64_t size) : size_(static_cast<std::size_t>(size)) {
    void* all = mmap(nullptr, size_, PROT_READ | PROT_WRITE,
                     MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (all != MAP_FAILED) begin_ = static_cast<std::uint8_t*>(all);
  }
  ~Sparse() {
    if (begin_ != nullptr) munmap(begin_, size_);
  }
  Sparse(const Sparse&) = delete;
  Sparse& operator=(const Sparse&) = delete;

  /// Null where the system does not lend so much.
  std::uint8_t* begin() const { return begin_; }

 private:
  std::size_t size_;
  std::uint8_t* begin_ = nullptr;
};
