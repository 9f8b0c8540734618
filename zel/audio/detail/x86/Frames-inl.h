// Frames from several places to one lane.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zel::audio::ZEL_LEVEL {
namespace {

using namespace ::zel::ZEL_LEVEL;

/// Two samples each from k[0] to k[3].
ZEL_INLINE Lane LoadPairs(const short* in, const std::int32_t* k) {
  return _mm_unpacklo_epi64(
      _mm_unpacklo_epi32(_mm_loadu_si32(in + k[0]), _mm_loadu_si32(in + k[1])),
      _mm_unpacklo_epi32(_mm_loadu_si32(in + k[2]), _mm_loadu_si32(in + k[3])));
}
/// Two frames of two channels each from k[0] and k[1].
ZEL_INLINE Lane LoadFrames(const short* in, const std::int32_t* k) {
  return _mm_unpacklo_epi64(_mm_loadu_si64(in + std::ptrdiff_t{2} * k[0]),
                            _mm_loadu_si64(in + std::ptrdiff_t{2} * k[1]));
}

}  // namespace
}  // namespace zel::audio::ZEL_LEVEL
