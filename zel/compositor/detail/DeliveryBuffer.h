// A byte queue for PCM between the converter and the frames.
#pragma once

#include <cstddef>
#include <memory>

namespace zel {

/// Bytes in, bytes out, in order. Memory comes with the first use, grows to exactly what is needed
/// and stays; a take moves no bytes, and bytes move to the front only when the end of the memory is
/// reached.
class DeliveryBuffer {
 public:
  /// Bytes allocated at the first use.
  static constexpr std::size_t kInitialCapacity = 0x80000;

  std::size_t size() const { return m_size; }
  std::size_t capacity() const { return m_capacity; }

  /// Forgets the bytes held.
  void Clear();
  /// Forgets the bytes held and frees the memory.
  void Free();
  /// Makes room for `count` bytes behind those held and returns where they go; Commit makes them
  /// count.
  /// @throws std::bad_alloc; the bytes held stay.
  unsigned char* Reserve(std::size_t count);
  /// Adds `count` bytes that were written at the reserved place.
  void Commit(std::size_t count);
  /// Moves the oldest `count` bytes to `out`. REQUIRES: count <= size().
  void Take(unsigned char* out, std::size_t count);

 private:
  void MoveTo(unsigned char* data);

  std::unique_ptr<unsigned char[]> m_data;  // One byte more than the capacity, for the alignment.
  std::size_t m_capacity = 0;
  std::size_t m_head = 0;
  std::size_t m_size = 0;
};

}  // namespace zel
