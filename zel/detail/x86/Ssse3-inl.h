// The level ssse3: 16 bytes at a time, with byte shuffles.
#pragma once

#define ZEL_LEVEL ssse3
#include <tmmintrin.h>

#include "zel/detail/x86/Registers128-inl.h"

namespace zel::ssse3 {
namespace {

ZEL_INLINE Reg MulAddBytes(Reg a, Reg b) {
  return _mm_maddubs_epi16(a, b);
}
ZEL_INLINE Reg ShuffleBytes(Reg v, Reg places) {
  return _mm_shuffle_epi8(v, places);
}
ZEL_INLINE Reg AddPairs32(Reg a, Reg b) {
  return _mm_hadd_epi32(a, b);
}

}  // namespace
}  // namespace zel::ssse3
