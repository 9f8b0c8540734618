#include "zel/Common/Image/detail/ConvertKernels.h"
#include "zel/Common/Image/detail/ConvertTables.h"
#include "zel/Common/Image/detail/ConvertWeights.h"

#ifdef __SSSE3__
#include <tmmintrin.h>

#include <type_traits>

namespace zel::image {
namespace {

const ConvertKernels& kNarrower = kConvertScalar;

#include "zel/Common/Image/detail/x86/ConvertSse128-inl.h"

inline V MaddBytes(V a, V b) {
  return _mm_maddubs_epi16(a, b);
}
inline void StoreBgr24(std::uint8_t* p, const V (&v)[4]) {
  const V close = _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
  StoreGroups24(p, _mm_shuffle_epi8(v[0], close), _mm_shuffle_epi8(v[1], close),
                _mm_shuffle_epi8(v[2], close), _mm_shuffle_epi8(v[3], close));
}
template <int kBytes>
inline V Deal(V v) {
  return _mm_shuffle_epi8(
      v, kBytes == 3 ? _mm_setr_epi8(0, 1, 3, 4, 6, 7, 9, 10, 2, -1, 5, -1, 8, -1, 11, -1)
                     : _mm_setr_epi8(0, 1, 4, 5, 8, 9, 12, 13, 2, 3, 6, 7, 10, 11, 14, 15));
}
inline V SwapBytes(V v) {
  return _mm_shuffle_epi8(v, _mm_setr_epi8(1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14));
}

#include "zel/Common/Image/detail/ConvertRows-inl.h"

}  // namespace

const ConvertKernels kConvertSsse3 = kKernels;

}  // namespace zel::image
#endif
