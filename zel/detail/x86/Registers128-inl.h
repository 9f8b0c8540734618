// Registers of 16 bytes, one lane, with the instructions of SSE2.
#pragma once

#include <emmintrin.h>

#include <cstdint>
#include <cstring>

#include "zel/detail/Inline.h"

namespace zel::ZEL_LEVEL {
namespace {

using Reg = __m128i;
using Half = __m128i;
using Lane = __m128i;
using Doubles = __m128d;
using Flags = __m128i;
constexpr bool kMaskedAccess = false;

#define ZEL_X86(instruction) _mm_##instruction
#include "zel/detail/x86/Operations-inl.h"
#undef ZEL_X86

ZEL_INLINE Reg Load(const void* p) {
  return _mm_loadu_si128(static_cast<const __m128i*>(p));
}
ZEL_INLINE void Store(void* p, Reg v) {
  _mm_storeu_si128(static_cast<__m128i*>(p), v);
}
#include "zel/detail/PartByCopy-inl.h"
ZEL_INLINE Half LoadHalf(const void* p) {
  return _mm_loadl_epi64(static_cast<const __m128i*>(p));
}
ZEL_INLINE void StoreHalf(void* p, Half v) {
  _mm_storel_epi64(static_cast<__m128i*>(p), v);
}
ZEL_INLINE Half Low(Reg v) {
  return v;
}
ZEL_INLINE Half High(Reg v) {
  return _mm_unpackhi_epi64(v, v);
}
ZEL_INLINE Reg Join(Half low, Half high) {
  return _mm_unpacklo_epi64(low, high);
}
ZEL_INLINE Reg LoadBytesAs16(const void* p) {
  return _mm_unpacklo_epi8(LoadHalf(p), _mm_setzero_si128());
}
ZEL_INLINE Reg LoadBytesAs32(const void* p) {
  std::int32_t bytes;
  std::memcpy(&bytes, p, 4);
  const Reg zero = _mm_setzero_si128();
  return _mm_unpacklo_epi16(_mm_unpacklo_epi8(_mm_cvtsi32_si128(bytes), zero), zero);
}
template <typename At>
ZEL_INLINE Reg LoadLanes(At at) {
  return LoadLane(at(0));
}
ZEL_INLINE Reg EachLane(Lane lane) {
  return lane;
}
ZEL_INLINE Reg Set64(std::uint64_t value) {
  return _mm_set1_epi64x(static_cast<long long>(value));
}

ZEL_INLINE Flags Equal16(Reg a, Reg b) {
  return _mm_cmpeq_epi16(a, b);
}
ZEL_INLINE Flags Greater32(Reg a, Reg b) {
  return _mm_cmpgt_epi32(a, b);
}
ZEL_INLINE bool Any(Flags flags) {
  return _mm_movemask_epi8(flags) != 0;
}

ZEL_INLINE Reg Spread32(Reg v) {
  return v;
}
ZEL_INLINE Reg Gather32(Reg v) {
  return v;
}
ZEL_INLINE Reg Spread64(Reg v) {
  return v;
}
ZEL_INLINE Reg Gather64(Reg v) {
  return v;
}

}  // namespace
}  // namespace zel::ZEL_LEVEL

#include "zel/detail/Cover-inl.h"
