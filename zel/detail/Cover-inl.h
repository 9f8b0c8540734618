// Covering a row with registers, its end included, without a read or a write beyond it.
//
//   Cover           the same place may be written twice. Rows of at least a step: shorter ones go
//                   to the level below or to the plain kernel.
//   CoverInPlace    the same, where the output may be the input
//   CoverOnce       each byte is written once, the end through a part of a register. Rows of any
//                   length.
//   CoverPadded     the row's arrays are padded to whole steps
//   CoverThenPlain  a step reaches beyond the items that it makes, must not be repeated, or may
//                   fail: the plain kernel makes the end. (MixUnityOf in AudioRows-inl.h has loops
//                   of its own: its steps are of two sizes.)
#pragma once

#include "zel/detail/Registers-inl.h"

namespace zel::ZEL_LEVEL {
namespace {

/// Whether Cover has one copy of the step or two. One is for long steps, where a second copy costs
/// more than a test per step.
constexpr bool kShortStep = false, kLongStep = true;

/// Covers `count` items, at least `size`, with steps of `size`: calls step(x) for the first item of
/// each. The last step starts early enough to end with the row and overlaps the one before. It must
/// give the same again, so no step may read what another has written.
/// If `head` is not 0, the second step starts there and overlaps the first.
template <bool kLong = kShortStep, typename Count, typename Step>
ZEL_INLINE void Cover(Count count, Count size, Count head, Step step) {
  if (head > 0) step(Count{0});
  if constexpr (kLong) {
    for (Count x = head; x < count; x += size) {
      if (x > count - size) x = count - size;
      step(x);
    }
  } else {
    Count x = head;
    for (; x < count - size; x += size) step(x);
    step(count - size);
  }
}

/// Cover where the output may be the input: make(x) reads and computes what put(x, v) stores.
/// The overlapping ends are computed before anything is stored.
template <typename Count, typename Make, typename Put>
ZEL_INLINE void CoverInPlace(Count count, Count size, Count head, Make make, Put put) {
  const Reg first = make(Count{0}), last = make(count - size);
  Count x = head;
  for (; x <= count - 2 * size; x += 2 * size) {
    const Reg one = make(x), two = make(x + size);
    put(x, one);
    put(x + size, two);
  }
  if (x <= count - size) {
    put(x, make(x));
    x += size;
  }
  if (head > 0) put(Count{0}, first);
  if (x < count) put(count - size, last);
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

/// Calls step(x) for steps of `size` items. The last one may make items beyond `count`, for which
/// the row's arrays have room.
template <typename Count, typename Step>
ZEL_INLINE void CoverPadded(Count count, Count size, Step step) {
  for (Count x = 0; x < count; x += size) step(x);
}

/// Calls step(x) for steps of `size` items as long as `reach` items are left, which a step may
/// access, and until a step returns false. Then returns rest(x) for the first item not made.
template <typename Count, typename Step, typename Rest>
ZEL_INLINE auto CoverThenPlain(Count count, Count size, Count reach, Step step, Rest rest) {
  Count x = 0;
  while (count - x >= reach && step(x)) x += size;
  return rest(x);
}

}  // namespace
}  // namespace zel::ZEL_LEVEL
