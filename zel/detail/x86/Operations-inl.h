// Operations that are one instruction which x86 calls alike at every width. The register sets
// include this file, each once, with ZEL_X86(instruction) giving the name at its width.

#define ZEL_BINARY(name, instruction)  \
  ZEL_INLINE Reg name(Reg a, Reg b) {  \
    return ZEL_X86(instruction)(a, b); \
  }
ZEL_BINARY(Add8, add_epi8)
ZEL_BINARY(Add16, add_epi16)
ZEL_BINARY(Add32, add_epi32)
ZEL_BINARY(Sub8, sub_epi8)
ZEL_BINARY(Sub16, sub_epi16)
ZEL_BINARY(Sub32, sub_epi32)
ZEL_BINARY(Mul16, mullo_epi16)
ZEL_BINARY(AddSat16, adds_epi16)
ZEL_BINARY(AddSatU8, adds_epu8)
ZEL_BINARY(AddSatU16, adds_epu16)
ZEL_BINARY(SubSat16, subs_epi16)
ZEL_BINARY(SubSatU16, subs_epu16)
ZEL_BINARY(MulHigh16, mulhi_epi16)
ZEL_BINARY(MulHighU16, mulhi_epu16)
ZEL_BINARY(MulAdd16, madd_epi16)
ZEL_BINARY(Max16, max_epi16)
ZEL_BINARY(MaxU8, max_epu8)
ZEL_BINARY(AverageU8, avg_epu8)
ZEL_BINARY(InterleaveLow8, unpacklo_epi8)
ZEL_BINARY(InterleaveHigh8, unpackhi_epi8)
ZEL_BINARY(InterleaveLow16, unpacklo_epi16)
ZEL_BINARY(InterleaveHigh16, unpackhi_epi16)
ZEL_BINARY(InterleaveLow64, unpacklo_epi64)
ZEL_BINARY(InterleaveHigh64, unpackhi_epi64)
ZEL_BINARY(PackU8, packus_epi16)
ZEL_BINARY(Pack16, packs_epi32)
#undef ZEL_BINARY

#define ZEL_SHIFT(name, instruction)       \
  template <int kBits>                     \
  ZEL_INLINE Reg name(Reg v) {             \
    return ZEL_X86(instruction)(v, kBits); \
  }
ZEL_SHIFT(ShiftLeft16, slli_epi16)
ZEL_SHIFT(ShiftLeft32, slli_epi32)
ZEL_SHIFT(ShiftLeft64, slli_epi64)
ZEL_SHIFT(ShiftRight16, srli_epi16)
ZEL_SHIFT(ShiftRight32, srli_epi32)
ZEL_SHIFT(ShiftRight64, srli_epi64)
ZEL_SHIFT(ShiftRightSigned16, srai_epi16)
ZEL_SHIFT(ShiftRightSigned32, srai_epi32)
#undef ZEL_SHIFT

ZEL_INLINE Reg Set8(int value) {
  return ZEL_X86(set1_epi8)(static_cast<char>(value));
}
ZEL_INLINE Reg Set16(int value) {
  return ZEL_X86(set1_epi16)(static_cast<short>(value));
}
ZEL_INLINE Reg Set32(int value) {
  return ZEL_X86(set1_epi32)(value);
}

template <int kA, int kB, int kC, int kD>
ZEL_INLINE Reg ShuffleQuads(Reg v) {
  constexpr int kOrder = kA | kB << 2 | kC << 4 | kD << 6;
  return ZEL_X86(shufflehi_epi16)(ZEL_X86(shufflelo_epi16)(v, kOrder), kOrder);
}

ZEL_INLINE Lane LoadLane(const void* p) {
  return _mm_loadu_si128(static_cast<const __m128i*>(p));
}
ZEL_INLINE void StoreLane(void* p, Lane v) {
  _mm_storeu_si128(static_cast<__m128i*>(p), v);
}
/// The first four bytes; the others are 0.
ZEL_INLINE Lane LaneFrom32(std::uint32_t value) {
  return _mm_cvtsi32_si128(static_cast<int>(value));
}
template <typename... Bytes>
ZEL_INLINE Lane MakeLane(Bytes... bytes) {
  return _mm_setr_epi8(static_cast<char>(bytes)...);
}

ZEL_INLINE Doubles SetDoubles(double value) {
  return ZEL_X86(set1_pd)(value);
}
ZEL_INLINE Doubles LoadDoubles(const double* p) {
  return ZEL_X86(loadu_pd)(p);
}
ZEL_INLINE void StoreDoubles(double* p, Doubles v) {
  ZEL_X86(storeu_pd)(p, v);
}
ZEL_INLINE Doubles Min(Doubles a, Doubles b) {
  return ZEL_X86(min_pd)(a, b);
}
ZEL_INLINE Doubles Max(Doubles a, Doubles b) {
  return ZEL_X86(max_pd)(a, b);
}
ZEL_INLINE Doubles ToDoubles(Half dwords) {
  return ZEL_X86(cvtepi32_pd)(dwords);
}
ZEL_INLINE Half Truncate(Doubles v) {
  return ZEL_X86(cvttpd_epi32)(v);
}
