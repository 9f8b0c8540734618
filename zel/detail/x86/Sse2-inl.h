// The level sse2: 16 bytes at a time, with what every processor of both builds has.
#pragma once

#define ZEL_LEVEL sse2
#include "zel/detail/x86/Registers128-inl.h"

namespace zel::sse2 {
namespace {

ZEL_INLINE Reg MulAddBytes(Reg a, Reg b) {
  const Reg even = Mul16(_mm_and_si128(a, Set16(0xff)), ShiftRightSigned16<8>(ShiftLeft16<8>(b)));
  return Add16(even, Mul16(ShiftRight16<8>(a), ShiftRightSigned16<8>(b)));
}

}  // namespace
}  // namespace zel::sse2
