#include "zel/Common/Image/AlphaResize.h"

#include "zel/Common/Image/detail/ResizePlan.h"

namespace {

using zel::image::Axis;
using zel::image::ImageRect;
using zel::image::LocateBoth;
using zel::image::Position;
using zel::image::RowOrder;
using zel::image::RowPair;
using zel::image::RowScaler;
using Method = RowScaler::Method;

}  // namespace

int DIB_AlphaResizeBiLiner(const IMG_PARAM& src, IMG_PARAM& dst) {
  ImageRect from;
  ImageRect to;
  if (!LocateBoth(src, 4, dst, 4, RowOrder::kBottomUp, &from, &to)) return 0;
  RowScaler scaler(from, 4, 4);
  if (!scaler.Prepare(Axis::Steps(from.width, to.width), Method::kBilinear)) return 0;
  const Axis rows = Axis::Steps(from.height, to.height);
  const std::size_t inner = static_cast<unsigned>(to.width) - 1;
  const auto overEdge = [&](std::int32_t sourceY, unsigned char* out) {
    const unsigned char* pixel = scaler.LastPixel(sourceY);
    zel::image::plain::kResize.over32(pixel, pixel, 0, 1, true, out);
  };
  const std::int32_t last = to.height - 1;
  for (std::int32_t i = 0; i < last; ++i) {
    const std::int32_t y = to.InMemoryOrder(i, last);
    const Position p = rows.At(y);
    const RowPair pair = scaler.Rows(p);
    scaler.kernels().over32(pair.top, pair.bottom, p.weight, inner, false, to.Row(y));
    overEdge(p.index, to.Row(y) + 4 * inner);
  }
  unsigned char* nearest = scaler.spare();
  scaler.WriteNearest(from.height - 1, to.width - 1, nearest);
  scaler.kernels().over32(nearest, nearest, 0, inner, true, to.Row(last));
  overEdge(from.height - 1, to.Row(last) + 4 * inner);
  return 1;
}

int ImageAlphaResize(const IMG_PARAM& src, IMG_PARAM& dst, IMAGE_INTERPOLATION) {
  return DIB_AlphaResizeBiLiner(src, dst);
}

int StretchMaskResizeNear(const IMG_PARAM& mask, IMG_PARAM& dst) {
  ImageRect from;
  ImageRect to;
  if (!LocateBoth(mask, 1, dst, 4, RowOrder::kBottomUp, &from, &to)) return 0;
  RowScaler scaler(from, 1, 1);
  const Axis columns = Axis::Steps(from.width, to.width).WithExactEnd();
  const Axis rows = Axis::Steps(from.height, to.height).WithExactEnd();
  if (!scaler.Prepare(columns, Method::kNearest)) return 0;
  std::int32_t scaled = -1;
  for (std::int32_t i = 0; i < to.height; ++i) {
    const std::int32_t y = to.InMemoryOrder(i, to.height);
    const std::int32_t sourceY = rows.At(y).index;
    if (sourceY != scaled) scaler.WriteNearest(sourceY, to.width, scaler.spare());
    scaled = sourceY;
    scaler.kernels().replaceAlpha(scaler.spare(), static_cast<unsigned>(to.width), to.Row(y));
  }
  return 1;
}

int StretchMaskResizeBiLiner(const IMG_PARAM& mask, IMG_PARAM& dst) {
  ImageRect from;
  ImageRect to;
  const int maskBytes = mask.nBitCount / 8;
  if (maskBytes < 1 || maskBytes > 4 ||
      !LocateBoth(mask, maskBytes, dst, 4, RowOrder::kBottomUp, &from, &to)) {
    return 0;
  }
  from.first += maskBytes - 1;  // The mask is the pixel's last byte.
  RowScaler scaler(from, 1, maskBytes);
  if (!scaler.Prepare(Axis::Steps(from.width, to.width), Method::kBilinear)) return 0;
  const Axis rows = Axis::Steps(from.height, to.height);
  const std::size_t width = static_cast<unsigned>(to.width);
  unsigned char* scaled = scaler.spare();
  const std::int32_t last = to.height - 1;
  for (std::int32_t i = 0; i < to.height; ++i) {
    const std::int32_t y = to.InMemoryOrder(i, to.height);
    const Position p = y < last ? rows.At(y) : Position{from.height - 1, 0};
    if (y == last) {
      scaler.WriteNearest(p.index, to.width - 1, scaled);
    } else {
      const RowPair pair = scaler.Rows(p);
      scaler.kernels().blend8(pair.top, pair.bottom, p.weight, width - 1, scaled);
    }
    scaled[width - 1] = *scaler.LastPixel(p.index);
    scaler.kernels().multiplyAlpha(scaled, width, to.Row(y));
  }
  return 1;
}

int ImageStretchMask(const IMG_PARAM& mask, IMG_PARAM& dst) {
  return StretchMaskResizeBiLiner(mask, dst);
}
