// The level avx2: 32 bytes at a time, two lanes.
#pragma once

#define ZEL_LEVEL avx2
#include <immintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "zel/detail/Inline.h"

namespace zel::avx2 {
namespace {

using Reg = __m256i;
using Half = __m128i;
using Lane = __m128i;
using Doubles = __m256d;
using Flags = __m256i;
constexpr bool kMaskedAccess = false;

#define ZEL_X86(instruction) _mm256_##instruction
#include "zel/detail/x86/Operations-inl.h"
#undef ZEL_X86

ZEL_INLINE Reg Load(const void* p) {
  return _mm256_loadu_si256(static_cast<const __m256i*>(p));
}
ZEL_INLINE void Store(void* p, Reg v) {
  _mm256_storeu_si256(static_cast<__m256i*>(p), v);
}
#include "zel/detail/PartByCopy-inl.h"
ZEL_INLINE Half LoadHalf(const void* p) {
  return LoadLane(p);
}
ZEL_INLINE void StoreHalf(void* p, Half v) {
  StoreLane(p, v);
}
ZEL_INLINE Half Low(Reg v) {
  return _mm256_castsi256_si128(v);
}
ZEL_INLINE Half High(Reg v) {
  return _mm256_extracti128_si256(v, 1);
}
ZEL_INLINE Reg Join(Half low, Half high) {
  return _mm256_inserti128_si256(_mm256_castsi128_si256(low), high, 1);
}
ZEL_INLINE Lane And(Lane a, Lane b) {
  return a & b;
}
ZEL_INLINE Reg LoadBytesAs16(const void* p) {
  return _mm256_cvtepu8_epi16(LoadHalf(p));
}
ZEL_INLINE Reg LoadBytesAs32(const void* p) {
  return _mm256_cvtepu8_epi32(_mm_loadl_epi64(static_cast<const __m128i*>(p)));
}
template <typename At>
ZEL_INLINE Reg LoadLanes(At at) {
  return Join(LoadLane(at(0)), LoadLane(at(1)));
}
ZEL_INLINE Reg EachLane(Lane lane) {
  return _mm256_broadcastsi128_si256(lane);
}
ZEL_INLINE Reg Set64(std::uint64_t value) {
  return _mm256_set1_epi64x(static_cast<long long>(value));
}

ZEL_INLINE Flags Equal16(Reg a, Reg b) {
  return _mm256_cmpeq_epi16(a, b);
}
ZEL_INLINE Flags Greater32(Reg a, Reg b) {
  return _mm256_cmpgt_epi32(a, b);
}
ZEL_INLINE bool Any(Flags flags) {
  return _mm256_testz_si256(flags, flags) == 0;
}

ZEL_INLINE Reg MulAddBytes(Reg a, Reg b) {
  return _mm256_maddubs_epi16(a, b);
}
ZEL_INLINE Reg Even32(Reg a, Reg b) {
  return _mm256_castps_si256(
      _mm256_shuffle_ps(_mm256_castsi256_ps(a), _mm256_castsi256_ps(b), _MM_SHUFFLE(2, 0, 2, 0)));
}
ZEL_INLINE Reg Odd32(Reg a, Reg b) {
  return _mm256_castps_si256(
      _mm256_shuffle_ps(_mm256_castsi256_ps(a), _mm256_castsi256_ps(b), _MM_SHUFFLE(3, 1, 3, 1)));
}
ZEL_INLINE Reg ShuffleBytes(Reg v, Reg places) {
  return _mm256_shuffle_epi8(v, places);
}
ZEL_INLINE Reg AddPairs32(Reg a, Reg b) {
  return _mm256_hadd_epi32(a, b);
}

/// Dword places[i] of the register.
ZEL_INLINE Reg Permute32(Reg v, Reg places) {
  return _mm256_permutevar8x32_epi32(v, places);
}
ZEL_INLINE Reg Spread32(Reg v) {
  return Permute32(v, _mm256_setr_epi32(0, 2, 4, 6, 1, 3, 5, 7));
}
ZEL_INLINE Reg Gather32(Reg v) {
  return Permute32(v, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
}
ZEL_INLINE Reg Spread64(Reg v) {
  return _mm256_permute4x64_epi64(v, _MM_SHUFFLE(3, 1, 2, 0));
}
ZEL_INLINE Reg Gather64(Reg v) {
  return Spread64(v);
}

}  // namespace
}  // namespace zel::avx2

#include "zel/detail/Cover-inl.h"
