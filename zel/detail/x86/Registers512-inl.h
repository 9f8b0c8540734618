// Registers of 64 bytes, four lanes, with the instructions of AVX-512 F, BW, DQ and VL.
#pragma once

#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "zel/detail/Inline.h"

namespace zel::ZEL_LEVEL {
namespace {

using Reg = __m512i;
using Half = __m256i;
using Lane = __m128i;
using Doubles = __m512d;
using Flags = __mmask32;  // A bit for each element.
constexpr bool kMaskedAccess = true;

#define ZEL_X86(instruction) _mm512_##instruction
#include "zel/detail/x86/Operations-inl.h"
#undef ZEL_X86

ZEL_INLINE Reg Load(const void* p) {
  return _mm512_loadu_si512(p);
}
ZEL_INLINE void Store(void* p, Reg v) {
  _mm512_storeu_si512(p, v);
}
ZEL_INLINE Half LoadHalf(const void* p) {
  return _mm256_loadu_si256(static_cast<const __m256i*>(p));
}
ZEL_INLINE void StoreHalf(void* p, Half v) {
  _mm256_storeu_si256(static_cast<__m256i*>(p), v);
}
ZEL_INLINE Half Low(Reg v) {
  return _mm512_castsi512_si256(v);
}
ZEL_INLINE Half High(Reg v) {
  return _mm512_extracti64x4_epi64(v, 1);
}
ZEL_INLINE Reg Join(Half low, Half high) {
  return _mm512_inserti64x4(_mm512_castsi256_si512(low), high, 1);
}
// What the mask leaves out is not touched and does not fault.
ZEL_INLINE __mmask64 FirstBytes(std::size_t n) {
  return ~std::uint64_t{0} >> (64 - n);
}
ZEL_INLINE Reg LoadPart(const unsigned char* p, std::size_t n) {
  return _mm512_maskz_loadu_epi8(FirstBytes(n), p);
}
ZEL_INLINE void StorePart(unsigned char* p, Reg v, std::size_t n) {
  _mm512_mask_storeu_epi8(p, FirstBytes(n), v);
}
ZEL_INLINE Lane And(Lane a, Lane b) {
  return a & b;
}
ZEL_INLINE Reg LoadBytesAs16(const void* p) {
  return _mm512_cvtepu8_epi16(LoadHalf(p));
}
ZEL_INLINE Reg LoadBytesAs32(const void* p) {
  return _mm512_cvtepu8_epi32(LoadLane(p));
}
template <typename At>
ZEL_INLINE Reg LoadLanes(At at) {
  Reg v = _mm512_castsi128_si512(LoadLane(at(0)));
  v = _mm512_inserti32x4(v, LoadLane(at(1)), 1);
  v = _mm512_inserti32x4(v, LoadLane(at(2)), 2);
  return _mm512_inserti32x4(v, LoadLane(at(3)), 3);
}
ZEL_INLINE Reg EachLane(Lane lane) {
  return _mm512_broadcast_i32x4(lane);
}
ZEL_INLINE Reg Set64(std::uint64_t value) {
  return _mm512_set1_epi64(static_cast<long long>(value));
}

ZEL_INLINE Flags Equal16(Reg a, Reg b) {
  return _mm512_cmpeq_epi16_mask(a, b);
}
ZEL_INLINE Flags Greater32(Reg a, Reg b) {
  return _mm512_cmpgt_epi32_mask(a, b);
}
ZEL_INLINE Flags Or(Flags a, Flags b) {
  return a | b;
}
ZEL_INLINE bool Any(Flags flags) {
  return flags != 0;
}

ZEL_INLINE Reg MulAddBytes(Reg a, Reg b) {
  return _mm512_maddubs_epi16(a, b);
}
ZEL_INLINE Reg Even32(Reg a, Reg b) {
  return _mm512_castps_si512(
      _mm512_shuffle_ps(_mm512_castsi512_ps(a), _mm512_castsi512_ps(b), _MM_SHUFFLE(2, 0, 2, 0)));
}
ZEL_INLINE Reg Odd32(Reg a, Reg b) {
  return _mm512_castps_si512(
      _mm512_shuffle_ps(_mm512_castsi512_ps(a), _mm512_castsi512_ps(b), _MM_SHUFFLE(3, 1, 3, 1)));
}
ZEL_INLINE Reg ShuffleBytes(Reg v, Reg places) {
  return _mm512_shuffle_epi8(v, places);
}

/// Places for a permutation, as constants in memory: place(i) for element i.
template <typename T>
struct Places {
  alignas(64) T at[64 / sizeof(T)];
};
template <typename T, typename Place>
constexpr Places<T> MakePlaces(Place place) {
  Places<T> places{};
  for (int i = 0; i < static_cast<int>(64 / sizeof(T)); ++i) {
    places.at[i] = static_cast<T>(place(i));
  }
  return places;
}

/// Element places[i] of the register.
ZEL_INLINE Reg Permute16(Reg v, Reg places) {
  return _mm512_permutexvar_epi16(places, v);
}
ZEL_INLINE Reg Permute32(Reg v, Reg places) {
  return _mm512_permutexvar_epi32(places, v);
}
/// Of the registers one after the other.
ZEL_INLINE Reg Permute16(Reg low, Reg high, Reg places) {
  return _mm512_permutex2var_epi16(low, places, high);
}
ZEL_INLINE Reg Permute32(Reg low, Reg high, Reg places) {
  return _mm512_permutex2var_epi32(low, places, high);
}
ZEL_INLINE Reg Spread32(Reg v) {
  return Permute32(v, _mm512_setr_epi32(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15));
}
ZEL_INLINE Reg Gather32(Reg v) {
  return Spread32(v);
}
ZEL_INLINE Reg Spread64(Reg v) {
  return _mm512_permutexvar_epi64(_mm512_setr_epi64(0, 4, 1, 5, 2, 6, 3, 7), v);
}
ZEL_INLINE Reg Gather64(Reg v) {
  return _mm512_permutexvar_epi64(_mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7), v);
}

}  // namespace
}  // namespace zel::ZEL_LEVEL

#include "zel/detail/Cover-inl.h"
