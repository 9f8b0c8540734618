// Kernels for what every processor of the build has.
#include "zel/Common/Image/detail/ConvertKernels.h"
#include "zel/Common/Image/detail/ConvertTables.h"
#include "zel/Common/Image/detail/ConvertWeights.h"

#ifdef __SSE2__
#include <emmintrin.h>

#include <type_traits>

namespace zel::image {
namespace {

const ConvertKernels& kNarrower = kConvertScalar;

#include "zel/Common/Image/detail/x86/ConvertSse128-inl.h"

inline V MaddBytes(V a, V b) {
  const V even = _mm_mullo_epi16(_mm_and_si128(a, _mm_set1_epi16(0xff)),
                                 _mm_srai_epi16(_mm_slli_epi16(b, 8), 8));
  return _mm_add_epi16(even, _mm_mullo_epi16(_mm_srli_epi16(a, 8), _mm_srai_epi16(b, 8)));
}
/// Pixels of 4 bytes, the fourth 0, to 12 bytes.
inline V Close(V v) {
  const V six = _mm_or_si128(
      _mm_and_si128(v, _mm_set_epi32(0, 0xffffff, 0, 0xffffff)),
      _mm_and_si128(_mm_srli_epi64(v, 8), _mm_set_epi32(0xffff, static_cast<int>(0xff000000U),
                                                        0xffff, static_cast<int>(0xff000000U))));
  const V low = _mm_set_epi32(0, 0, -1, -1);
  return _mm_or_si128(_mm_and_si128(six, low), _mm_srli_si128(_mm_andnot_si128(low, six), 2));
}
inline void StoreBgr24(std::uint8_t* p, const V (&v)[4]) {
  StoreGroups24(p, Close(v[0]), Close(v[1]), Close(v[2]), Close(v[3]));
}
template <int kBytes>
inline V Deal(V v) {
  if (kBytes == 3) {
    const V low = _mm_set_epi32(0, 0, 0xffff, -1), high = _mm_set_epi32(0xffff, -1, 0, 0);
    v = _mm_or_si128(_mm_and_si128(v, low), _mm_and_si128(_mm_slli_si128(v, 2), high));
    v = _mm_or_si128(_mm_and_si128(v, _mm_set_epi32(0, 0xffffff, 0, 0xffffff)),
                     _mm_and_si128(_mm_slli_epi64(v, 8), _mm_set_epi32(0xffffff, 0, 0xffffff, 0)));
  }
  v = _mm_shufflehi_epi16(_mm_shufflelo_epi16(v, _MM_SHUFFLE(3, 1, 2, 0)), _MM_SHUFFLE(3, 1, 2, 0));
  return _mm_shuffle_epi32(v, _MM_SHUFFLE(3, 1, 2, 0));
}
inline V SwapBytes(V v) {
  return _mm_or_si128(_mm_slli_epi16(v, 8), _mm_srli_epi16(v, 8));
}

#include "zel/Common/Image/detail/ConvertRows-inl.h"

}  // namespace

const ConvertKernels kConvertSse2 = kKernels;

}  // namespace zel::image
#endif
