#include "tools/zel/picture/Orientation.h"

#include <cstdint>
#include <cstdlib>
#include <optional>

extern "C" {
#include <libavutil/display.h>
}

namespace zel::tool {
namespace {

/// An entry of a display matrix, in units of 1 / 65,536, as -1, 0 or 1; nothing when it is not near
/// any of them.
std::optional<int> Direction(std::int32_t entry) {
  constexpr std::int64_t kOne = 1 << 16;
  constexpr std::int64_t kSlack = kOne / 16;
  const std::int64_t size = std::abs(std::int64_t{entry});
  if (size < kSlack) return 0;
  if (size <= kOne - kSlack) return std::nullopt;
  return entry > 0 ? 1 : -1;
}

}  // namespace

Orientation OrientationOf(const AVStream& stream) {
  std::size_t size = 0;
  const auto* matrix = reinterpret_cast<const std::int32_t*>(
      av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, &size));
  if (matrix == nullptr || size < 9 * sizeof(*matrix)) return {};
  const auto xx = Direction(matrix[0]);
  const auto xy = Direction(matrix[3]);
  const auto yx = Direction(matrix[1]);
  const auto yy = Direction(matrix[4]);
  if (!xx || !xy || !yx || !yy) return {};
  const bool straight = *xx != 0 && *yy != 0 && *xy == 0 && *yx == 0;
  const bool turned = *xx == 0 && *yy == 0 && *xy != 0 && *yx != 0;
  return straight || turned ? Orientation{*xx, *xy, *yx, *yy} : Orientation{};
}

}  // namespace zel::tool
