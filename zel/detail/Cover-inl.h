// Covering a row with registers, its end included, without a read or a write beyond it. There are
// two ways, by whether a kernel may do the same place twice.
#pragma once

#include "zel/detail/Registers-inl.h"

namespace zel::ZEL_LEVEL {
namespace {

/// Calls step(x) so that steps of `size` items cover `count` items, which are at least that many.
/// The last step begins early enough to end with the row, within the one before it: what it makes
/// again must come out the same, so no step may read what another has written.
/// With a `head`, the second step begins there, within the first.
template <typename Count, typename Step>
ZEL_INLINE void Cover(Count count, Count size, Count head, Step step) {
  if (head > 0) step(Count{0});
  Count x = head;
  for (; x < count - size; x += size) step(x);
  step(count - size);
}

/// How CoverOnce has a step access its place: a whole register, or the first `bytes` of one.
struct Whole {
  ZEL_INLINE Reg Get(const unsigned char* p) const { return Load(p); }
  ZEL_INLINE void Put(unsigned char* p, Reg v) const { Store(p, v); }
  /// A byte for each dword of the place.
  ZEL_INLINE Reg GetBytesAs32(const unsigned char* p) const { return LoadBytesAs32(p); }
};
struct Part {
  std::size_t bytes;

  ZEL_INLINE Reg Get(const unsigned char* p) const { return LoadPart(p, bytes); }
  ZEL_INLINE void Put(unsigned char* p, Reg v) const { StorePart(p, v, bytes); }
  ZEL_INLINE Reg GetBytesAs32(const unsigned char* p) const {
    unsigned char copy[kRegBytes / 4] = {};
    std::memcpy(copy, p, bytes / 4);
    return LoadBytesAs32(copy);
  }
};

/// Calls step(i, access) for registers that cover `count` bytes, each byte once, so that a step may
/// change its bytes in place. `access` is Whole, at the end of the row Part.
template <typename Step>
inline void CoverOnce(std::size_t count, Step step) {
  std::size_t i = 0;
  for (; i + kRegBytes <= count; i += kRegBytes) step(i, Whole{});
  if (i < count) step(i, Part{count - i});
}

}  // namespace
}  // namespace zel::ZEL_LEVEL
