#include "zel/detail/x86/Avx2-inl.h"

#include "zel/audio/detail/ChannelLanes-inl.h"
#include "zel/audio/detail/x86/AudioX86.h"
#include "zel/audio/detail/x86/Frames-inl.h"

namespace zel::audio::avx2 {
namespace {

struct Steps : LaneSteps<CommonSteps<ssse3::kKernels>> {
  /// Where the input frames lie close together, they come from one load and a shuffle.
  ZEL_INLINE static Reg MonoPairs(const short* in, const std::int32_t* k) {
    if (k[3] - k[0] > 6 || k[7] - k[4] > 6) return Join(LoadPairs(in, k), LoadPairs(in, k + 4));
    const Reg at = Load(k);
    // From each lane's first frame on, in bytes: every pair's first, four times.
    const Reg offset = ShiftLeft32<1>(Sub32(at, _mm256_shuffle_epi32(at, 0)));
    const Reg first = ShuffleBytes(
        offset, EachLane(MakeLane(0, 0, 0, 0, 4, 4, 4, 4, 8, 8, 8, 8, 12, 12, 12, 12)));
    const Reg frames = Join(LoadLane(in + k[0]), LoadLane(in + k[4]));
    return ShuffleBytes(frames, Add8(first, Set32(0x03020100)));
  }
  ZEL_INLINE static Reg StereoPairs(const short* in, const std::int32_t* k) {
    return ShuffleQuads<0, 2, 1, 3>(Join(LoadFrames(in, k), LoadFrames(in, k + 2)));
  }
  ZEL_INLINE static Doubles StereoFractions(const double* f) {
    return _mm256_permute4x64_pd(_mm256_castpd128_pd256(_mm_loadu_pd(f)), 0x50);
  }
  ZEL_INLINE static Lane EightSamples(const short* from, int channels, double f) {
    const Doubles at = SetDoubles(f);
    const Reg a = _mm256_cvtepi16_epi32(LoadLane(from));
    const Reg d = Sub32(_mm256_cvtepi16_epi32(LoadLane(from + channels)), a);
    const Reg v = Add32(a, Truncate(LowToDoubles(d) * at, HighToDoubles(d) * at));
    return _mm_max_epi16(_mm_packs_epi32(Low(v), High(v)), _mm_set1_epi16(-kFullScale));
  }
};

}  // namespace

constinit const Kernels kKernels = MakeKernels<Steps>();

}  // namespace zel::audio::avx2
