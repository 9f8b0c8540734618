// Vectors of four lanes: what the two AVX-512 levels have in common.

using V = __m512i;
#define ZEL_LANES 4
#define ZEL_MM(op) _mm512_##op
#define ZEL_SI(op) _mm512_##op##_si512
// Exchanging bytes is all loads and stores, of which half as wide ones cross fewer cache lines.
#define ZEL_NARROWER_SWAP

inline V Load(const void* p) {
  return _mm512_loadu_si512(p);
}
inline void Store(void* p, V v) {
  _mm512_storeu_si512(p, v);
}
inline V Widen(const std::uint8_t* p) {
  return _mm512_cvtepu8_epi16(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)));
}
inline void StoreHalves(std::uint8_t* p, std::uint8_t* q, V v) {
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), _mm512_castsi512_si256(v));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(q), _mm512_extracti64x4_epi64(v, 1));
}
inline V MaddBytes(V a, V b) {
  return _mm512_maddubs_epi16(a, b);
}
inline V Shuffle(V v, __m128i places) {
  return _mm512_shuffle_epi8(v, _mm512_broadcast_i32x4(places));
}
inline V Spread(V v) {
  return _mm512_permutexvar_epi32(
      _mm512_setr_epi32(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15), v);
}
inline V Gather(V v) {
  return Spread(v);
}
inline V SpreadHalves(V v) {
  return _mm512_permutexvar_epi64(_mm512_setr_epi64(0, 4, 1, 5, 2, 6, 3, 7), v);
}
inline V GatherHalves(V v) {
  return _mm512_permutexvar_epi64(_mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7), v);
}

/// Places for a permutation, as constants in memory.
template <typename T>
struct Places {
  alignas(64) T at[64 / sizeof(T)];
};
template <typename T, typename F>
constexpr Places<T> MakePlaces(F place) {
  Places<T> places{};
  for (int i = 0; i < static_cast<int>(64 / sizeof(T)); ++i) {
    places.at[i] = static_cast<T>(place(i));
  }
  return places;
}

/// Word 4 j + k of either half comes from lane k, where U has words 0..3 and V words 4..7.
constexpr auto kChromaPlaces =
    MakePlaces<std::uint16_t>([](int i) { return 8 * (i % 4) + i % 16 / 4 + i / 16 * 4; });

inline void StoreChroma(std::uint8_t* u, std::uint8_t* v, V uv) {
  StoreHalves(u, v, _mm512_permutexvar_epi16(Load(kChromaPlaces.at), uv));
}
