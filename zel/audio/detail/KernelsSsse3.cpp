// SSSE3: byte shuffles and pairwise sums make the mixing rules fit vectors.
#include <tmmintrin.h>

#include "zel/audio/detail/ChannelLanes.h"
#include "zel/audio/detail/KernelsX86.h"

namespace zel::audio {
namespace {

struct Ops {
  using V = __m128i;
  static constexpr int kLanes = 1;
  static V LoadLanes(const short* p, int) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  }
  static void Store(short* p, V v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }
  static V Constant(const void* p) { return _mm_load_si128(static_cast<const __m128i*>(p)); }
  static V Set(short s) { return _mm_set1_epi16(s); }
  static V Shuffle(V v, V bytes) { return _mm_shuffle_epi8(v, bytes); }
  template <int Bits>
  static V ShiftRight(V v) {
    return _mm_srai_epi16(v, Bits);
  }
  static V And(V a, V b) { return _mm_and_si128(a, b); }
  static V Add(V a, V b) { return _mm_add_epi16(a, b); }
  static V Subtract(V a, V b) { return _mm_sub_epi16(a, b); }
  static V Max(V a, V b) { return _mm_max_epi16(a, b); }
  static V MultiplyHigh(V a, V b) { return _mm_mulhi_epi16(a, b); }
  static V MultiplyAdd(V a, V b) { return _mm_madd_epi16(a, b); }
  static V AddPairs(V a, V b) { return _mm_hadd_epi32(a, b); }
  static V Pack(V a, V b) { return _mm_packs_epi32(a, b); }
};

}  // namespace

void SetSsse3Kernels(Kernels* kernels) {
  SetLaneKernels<Ops>(kernels);
}

}  // namespace zel::audio
