// The level avx512vbmi: 64 bytes at a time, with permutations of bytes (VBMI) and multiplications
// that add to a sum (VNNI).
#pragma once

#define ZEL_LEVEL avx512vbmi
#include "zel/detail/x86/Registers512-inl.h"

namespace zel::avx512vbmi {
namespace {

/// Byte places[i] of the register, or of the registers one after the other.
ZEL_INLINE Reg Permute8(Reg v, Reg places) {
  return _mm512_permutexvar_epi8(places, v);
}
ZEL_INLINE Reg Permute8(Reg low, Reg high, Reg places) {
  return _mm512_permutex2var_epi8(low, places, high);
}
/// sum + MulAdd16(a, b).
ZEL_INLINE Reg AddMulAdd16(Reg sum, Reg a, Reg b) {
  return _mm512_dpwssd_epi32(sum, a, b);
}

}  // namespace
}  // namespace zel::avx512vbmi
