#include "zel/detail/x86/Sse2-inl.h"

#include "zel/Common/Image/detail/x86/ImageX86.h"
#include "zel/Common/Image/detail/x86/Pixels128-inl.h"

namespace zel::image::sse2 {
namespace {

struct Pixels {
  template <int kBytes>
  ZEL_INLINE static Reg Deal(Reg v) {
    if (kBytes == 3) {
      const Reg low = _mm_set_epi32(0, 0, 0xffff, -1), high = _mm_set_epi32(0xffff, -1, 0, 0);
      v = Or(And(v, low), And(_mm_slli_si128(v, 2), high));
      v = Or(And(v, _mm_set_epi32(0, 0xffffff, 0, 0xffffff)),
             And(ShiftLeft64<8>(v), _mm_set_epi32(0xffffff, 0, 0xffffff, 0)));
    }
    v = ShuffleQuads<0, 2, 1, 3>(v);
    return _mm_shuffle_epi32(v, _MM_SHUFFLE(3, 1, 2, 0));
  }
  ZEL_INLINE static Reg Close(Reg v) {
    constexpr int kFourth = static_cast<int>(0xff000000U);
    const Reg six = Or(And(v, _mm_set_epi32(0, 0xffffff, 0, 0xffffff)),
                       And(ShiftRight64<8>(v), _mm_set_epi32(0xffff, kFourth, 0xffff, kFourth)));
    const Reg low = _mm_set_epi32(0, 0, -1, -1);
    return Or(And(six, low), _mm_srli_si128(_mm_andnot_si128(low, six), 2));
  }
  ZEL_INLINE static Reg SwapBytes(Reg v) { return Or(ShiftLeft16<8>(v), ShiftRight16<8>(v)); }
};

}  // namespace

constinit const ConvertKernels kConvert =
    MakeKernels<CommonSteps<Pixels128<Pixels>, plain::kConvert>>();

}  // namespace zel::image::sse2
