// Vectors of one lane: what SSE2 and SSSE3 have in common. The order of lanes is no question here.

using V = __m128i;
#define ZEL_LANES 1
#define ZEL_MM(op) _mm_##op
#define ZEL_SI(op) _mm_##op##_si128

inline V Load(const std::uint8_t* p) {
  return _mm_loadu_si128(reinterpret_cast<const V*>(p));
}
inline void Store(std::uint8_t* p, V v) {
  _mm_storeu_si128(reinterpret_cast<V*>(p), v);
}
inline V Widen(const std::uint8_t* p) {
  return _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const V*>(p)), _mm_setzero_si128());
}
inline void StoreHalves(std::uint8_t* p, std::uint8_t* q, V v) {
  _mm_storel_epi64(reinterpret_cast<V*>(p), v);
  _mm_storel_epi64(reinterpret_cast<V*>(q), _mm_unpackhi_epi64(v, v));
}
inline void StoreChroma(std::uint8_t* u, std::uint8_t* v, V uv) {
  StoreHalves(u, v, uv);
}
inline V Spread(V v) {
  return v;
}
inline V Gather(V v) {
  return v;
}
inline V SpreadHalves(V v) {
  return v;
}
inline V GatherHalves(V v) {
  return v;
}
inline void LoadGroups24(const std::uint8_t* p, V (&v)[4]) {
  const V a = Load(p), b = Load(p + 16), c = Load(p + 32);
  v[0] = a;
  v[1] = _mm_or_si128(_mm_srli_si128(a, 12), _mm_slli_si128(b, 4));
  v[2] = _mm_or_si128(_mm_srli_si128(b, 8), _mm_slli_si128(c, 8));
  v[3] = _mm_srli_si128(c, 4);
}
/// Four times 12 bytes, the rest of each vector 0.
inline void StoreGroups24(std::uint8_t* p, V a, V b, V c, V d) {
  Store(p, _mm_or_si128(a, _mm_slli_si128(b, 12)));
  Store(p + 16, _mm_or_si128(_mm_srli_si128(b, 4), _mm_slli_si128(c, 8)));
  Store(p + 32, _mm_or_si128(_mm_srli_si128(c, 8), _mm_slli_si128(d, 4)));
}
