#include "zel/compositor/detail/DeliveryBuffer.h"

#include <algorithm>
#include <cstring>

namespace zel {

void DeliveryBuffer::Clear() {
  bytes_.clear();
  head_ = 0;
}

void DeliveryBuffer::Free() {
  *this = {};
}

short* DeliveryBuffer::Reserve(std::size_t count) {
  const std::size_t added = count * sizeof(short);
  if (bytes_.size() + added > bytes_.capacity()) {
    bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(head_));
    head_ = 0;
    bytes_.reserve(std::max(bytes_.size() + added, kInitialCapacity));
  }
  incoming_.resize(count);
  return incoming_.data();
}

void DeliveryBuffer::Commit() {
  const auto* begin = reinterpret_cast<const unsigned char*>(incoming_.data());
  bytes_.insert(bytes_.end(), begin, begin + incoming_.size() * sizeof(short));
}

void DeliveryBuffer::Take(unsigned char* out, std::size_t count) {
  if (count != 0) std::memcpy(out, bytes_.data() + head_, count);
  head_ += count;
  if (size() == 0) Clear();
}

}  // namespace zel
