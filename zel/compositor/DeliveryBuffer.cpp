#include "zel/compositor/detail/DeliveryBuffer.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace zel {

void DeliveryBuffer::Clear() {
  m_head = 0;
  m_size = 0;
}

void DeliveryBuffer::Free() {
  Clear();
  m_data.reset();
  m_capacity = 0;
}

// Moves the bytes held to the front of `data`, so that the place behind them is at an even address.
void DeliveryBuffer::MoveTo(unsigned char* data) {
  const std::size_t head = m_size % 2;
  if (m_size != 0) std::memmove(data + head, m_data.get() + m_head, m_size);
  m_head = head;
}

unsigned char* DeliveryBuffer::Reserve(std::size_t count) {
  const std::size_t needed = m_size + count;
  if (needed > m_capacity) {
    const std::size_t capacity = std::max(needed, kInitialCapacity);
    std::unique_ptr<unsigned char[]> data(new unsigned char[capacity + 1]);  // Not cleared.
    MoveTo(data.get());
    m_data = std::move(data);
    m_capacity = capacity;
  } else if (m_head + needed > m_capacity + 1) {
    MoveTo(m_data.get());
  }
  return m_data.get() + m_head + m_size;
}

void DeliveryBuffer::Commit(std::size_t count) {
  m_size += count;
}

void DeliveryBuffer::Take(unsigned char* out, std::size_t count) {
  std::memcpy(out, m_data.get() + m_head, count);
  m_size -= count;
  m_head = m_size == 0 ? 0 : m_head + count;
}

}  // namespace zel
