// Times in the unit of every time stamp that crosses an interface: 100 ns.
#pragma once

extern "C" {
#include <libavutil/mathematics.h>
#include <libavutil/rational.h>
}

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "zel/platform/Types.h"

namespace zel::media {

/// The 100-ns unit as FFmpeg's time base.
inline constexpr AVRational kTickBase = {1, kTicksPerSecond};

/// A file may hold any number for a time. Times read from one are limited to plus and minus this,
/// so that a sum of several does not overflow.
inline constexpr std::int64_t kFarthest = std::int64_t{1} << 60;

/// Limits `time`, in any unit, to kFarthest.
inline std::int64_t Bounded(std::int64_t time) {
  return std::clamp(time, -kFarthest, kFarthest);
}

/// The integer nearest to `value`, limited to kFarthest; 0 for NaN.
inline std::int64_t Rounded(long double value) {
  constexpr auto farthest = static_cast<long double>(kFarthest);
  return std::isnan(value) ? 0 : std::llround(std::clamp(value, -farthest, farthest));
}

/// Converts `time` from units of `base` to 100-ns units, limited to kFarthest.
inline std::int64_t ToTicks(std::int64_t time, AVRational base) {
  const std::int64_t ticks = av_rescale_q(time, base, kTickBase);
  if (ticks == INT64_MIN) return time < 0 ? -kFarthest : kFarthest;  // It does not fit 64 bits.
  return Bounded(ticks);
}

}  // namespace zel::media
