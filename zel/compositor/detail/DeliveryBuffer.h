// A queue of bytes between the converter and the frames.
#pragma once

#include <cstddef>
#include <vector>

namespace zel {

/// Takes whole 16-bit samples at its end and gives any number of bytes from its front.
///
/// The first samples allocate kInitialCapacity bytes. The memory grows to exactly what is needed
/// and is kept until Free. Taking moves no bytes; they move to the front when the end of the memory
/// is reached.
///
/// Threads: used by one thread at a time.
class DeliveryBuffer {
 public:
  /// Bytes allocated at first use.
  static constexpr std::size_t kInitialCapacity = 0x80000;

  /// Bytes held.
  std::size_t size() const { return bytes_.size() - head_; }

  /// Drops the bytes held and keeps the memory.
  void Clear();
  /// Drops the bytes held and frees the memory.
  void Free();
  /// Makes room for `count` samples and returns where to write them; Commit adds them to the queue.
  /// @throws std::bad_alloc; the bytes held stay.
  short* Reserve(std::size_t count);
  /// Adds the samples that were written to the place last reserved. Does not throw.
  void Commit();
  /// Moves the oldest `count` bytes to `out`. REQUIRES: count <= size().
  void Take(unsigned char* out, std::size_t count);

 private:
  std::vector<unsigned char> bytes_;
  std::size_t head_ = 0;         // Bytes at the front of bytes_ that were taken.
  std::vector<short> incoming_;  // Samples need an even address; the end of bytes_ may be odd.
};

}  // namespace zel
