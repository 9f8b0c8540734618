#include "zel/Common/Image/Resize.h"

#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "zel/Common/Image/detail/ResizePlan.h"

namespace {

using zel::image::Axis;
using zel::image::ImageRect;
using zel::image::LargeEnough;
using zel::image::LocateBoth;
using zel::image::LocateChroma;
using zel::image::Position;
using zel::image::RowOrder;
using zel::image::RowPair;
using zel::image::RowScaler;
using Method = RowScaler::Method;

constexpr int kBlack = 16;

void PaintMargins(const ImageRect& rect, std::int64_t y) {
  unsigned char* row = rect.Row(y);
  std::memset(row - rect.before, kBlack, static_cast<std::size_t>(rect.before));
  std::memset(row + rect.width, kBlack, static_cast<std::size_t>(rect.behind));
}

/// Writes `rows` rows of n columns. (Scaling a repeated row again is faster than copying it.)
void WriteNearestRows(RowScaler& scaler, const Axis& axis, std::int32_t rows, std::int32_t n,
                      const ImageRect& to) {
  for (std::int32_t i = 0; i < rows; ++i) {
    const std::int32_t y = to.InMemoryOrder(i, rows);
    scaler.WriteNearest(axis.At(y).index, n, to.Row(y));
  }
}

int Nearest(const ImageRect& from, const ImageRect& to, int pixelBytes, const Axis& columns,
            const Axis& rows) {
  RowScaler scaler(from, pixelBytes, pixelBytes);
  if (!scaler.Prepare(columns, Method::kNearest)) return 0;
  WriteNearestRows(scaler, rows, to.height, to.width, to);
  return 1;
}

/// Writes the first n columns of `rows` rows, bilinear. finish(y, sourceY) completes each row.
template <class Finish>
void BlendRows(RowScaler& scaler, const Axis& axis, std::int32_t rows, std::int32_t n,
               int pixelBytes, const ImageRect& to, Finish finish) {
  const auto blend = pixelBytes == 1 ? scaler.kernels().blend8 : scaler.kernels().blend32;
  const std::size_t count = static_cast<unsigned>(n);
  for (std::int32_t i = 0; i < rows; ++i) {
    const std::int32_t y = to.InMemoryOrder(i, rows);
    const Position p = axis.At(y);
    const RowPair pair = scaler.Rows(p);
    if (p.weight == 0) {
      std::memcpy(to.Row(y), pair.top, count * static_cast<unsigned>(pixelBytes));
    } else {
      blend(pair.top, pair.bottom, p.weight, count, to.Row(y));
    }
    finish(y, p.index);
  }
}

int BilinearBitmap(const IMG_PARAM& src, const IMG_PARAM& dst, int pixelBytes) {
  ImageRect from;
  ImageRect to;
  if (!LocateBoth(src, pixelBytes, dst, pixelBytes, RowOrder::kBottomUp, &from, &to)) return 0;
  RowScaler scaler(from, pixelBytes, pixelBytes);
  if (!scaler.Prepare(Axis::Steps(from.width, to.width), Method::kBilinear)) return 0;
  const auto finish = [&](std::int32_t y, std::int32_t sourceY) {
    std::memcpy(to.Row(y) + std::ptrdiff_t{to.width - 1} * pixelBytes, scaler.LastPixel(sourceY),
                static_cast<unsigned>(pixelBytes));
  };
  BlendRows(scaler, Axis::Steps(from.height, to.height), to.height - 1, to.width - 1, pixelBytes,
            to, finish);
  scaler.WriteNearest(from.height - 1, to.width - 1, to.Row(to.height - 1));
  finish(to.height - 1, from.height - 1);
  return 1;
}

/// Both chroma routines. They treat the last row alike.
int Chroma(const IMG_PARAM& src, const IMG_PARAM& dst, Method method) {
  ImageRect from;
  ImageRect to;
  if (!LargeEnough(dst) || !LocateChroma(src, &from) || !LocateChroma(dst, &to)) return 0;
  RowScaler scaler(from, 1, 1);
  const Axis columns = Axis::ChromaSteps(src.nWidth, dst.nWidth, src.nLeft);
  const Axis rows = Axis::ChromaSteps(src.nHeight, dst.nHeight, src.nTop);
  if (!scaler.Prepare(columns, method)) return 0;
  const std::int32_t last = rows.count() - 1;
  if (method == Method::kBilinear) {
    BlendRows(scaler, rows, last, columns.count(), 1, to, [](std::int32_t, std::int32_t) {});
  } else {
    WriteNearestRows(scaler, rows, last, columns.count(), to);
  }
  // This row ends two luma columns, that is, one chroma pixel, before the others.
  scaler.WriteNearest(from.height - 1, columns.count() - 1, to.Row(last));
  return 1;
}

}  // namespace

int DIB_ResizeNear(const IMG_PARAM& src, IMG_PARAM& dst) {
  ImageRect from;
  ImageRect to;
  if (!LocateBoth(src, 4, dst, 4, RowOrder::kBottomUp, &from, &to)) return 0;
  return Nearest(from, to, 4, Axis::Steps(from.width, to.width).WithExactEnd(),
                 Axis::Steps(from.height, to.height).WithExactEnd());
}

int DIB_ResizeBiLiner(const IMG_PARAM& src, IMG_PARAM& dst) {
  return BilinearBitmap(src, dst, 4);
}

int DIB_ResizeNear8(const IMG_PARAM& src, IMG_PARAM& dst) {
  ImageRect from;
  ImageRect to;
  if (!LocateBoth(src, 1, dst, 1, RowOrder::kTopDown, &from, &to)) return 0;
  return Nearest(from, to, 1, Axis::Proportional(from.width, to.width),
                 Axis::Proportional(from.height, to.height));
}

int DIB_ResizeBiLiner8(const IMG_PARAM& src, IMG_PARAM& dst) {
  return BilinearBitmap(src, dst, 1);
}

int DIB_ResizeNearY(const IMG_PARAM& src, IMG_PARAM& dst, int) {
  ImageRect from;
  ImageRect to;
  if (!LocateBoth(src, 1, dst, 1, RowOrder::kTopDown, &from, &to)) return 0;
  if (Nearest(from, to, 1, Axis::Steps(from.width, to.width),
              Axis::Steps(from.height, to.height)) == 0) {
    return 0;
  }
  for (std::int32_t y = 0; y < to.height; ++y) PaintMargins(to, y);
  return 1;
}

int DIB_ResizeBiLinerY(const IMG_PARAM& src, IMG_PARAM& dst, int) {
  ImageRect from;
  ImageRect to;
  if (!LocateBoth(src, 1, dst, 1, RowOrder::kTopDown, &from, &to)) return 0;
  RowScaler scaler(from, 1, 1);
  if (!scaler.Prepare(Axis::Steps(from.width, to.width), Method::kBilinear)) return 0;
  const std::int32_t last = to.height - 1;
  BlendRows(scaler, Axis::Steps(from.height, to.height), last, to.width, 1, to,
            [&](std::int32_t y, std::int32_t) { PaintMargins(to, y); });
  scaler.WriteNearest(from.height - 1, to.width - 1, to.Row(last));
  to.Row(last)[to.width - 1] = *scaler.LastPixel(from.height - 1);
  PaintMargins(to, last);
  return 1;
}

int DIB_ResizeConvolve(const IMG_PARAM& src, IMG_PARAM& dst) {
  return DIB_ResizeBiLinerY(src, dst, 0);
}

int DIB_ResizeBiLinerY_Simulate(const IMG_PARAM& src, IMG_PARAM& dst, int) {
  ImageRect from;
  ImageRect to;
  if (!LocateBoth(src, 1, dst, 1, RowOrder::kTopDown, &from, &to)) return 0;
  const Axis columns = Axis::Steps(from.width, to.width);
  const Axis rows = Axis::Steps(from.height, to.height);
  RowScaler here(from, 1, 1);
  RowScaler next(from, 1, 1);
  if (!here.Prepare(columns, Method::kNearest) || !next.Prepare(columns.Next(), Method::kNearest)) {
    return 0;
  }
  const std::size_t width = static_cast<unsigned>(to.width);
  const std::unique_ptr<std::uint16_t[]> sums(new (std::nothrow) std::uint16_t[2 * width]);
  if (sums == nullptr) return 0;
  // The lower pair of source rows of one output row is the upper pair of the next.
  const auto addPairs = [&](std::int32_t y, std::uint16_t* out) {
    const unsigned char* a = here.spare();
    const unsigned char* b = next.spare();
    here.WriteNearest(y, to.width, here.spare());
    next.WriteNearest(y, to.width, next.spare());
    for (std::size_t c = 0; c < width; ++c) out[c] = static_cast<std::uint16_t>(a[c] + b[c]);
  };
  std::uint16_t* upper = sums.get();
  std::uint16_t* lower = upper + width;
  addPairs(0, lower);
  const std::int32_t last = to.height - 1;
  for (std::int32_t y = 0; y < last; ++y) {
    std::swap(upper, lower);
    addPairs(rows.At(std::int64_t{y} + 1).index, lower);
    unsigned char* out = to.Row(y);
    for (std::size_t c = 0; c < width; ++c) {
      out[c] = static_cast<unsigned char>((upper[c] + lower[c]) >> 2);
    }
  }
  here.WriteNearest(from.height - 1, to.width, here.spare());
  for (std::size_t c = 0; c < width - 1; c += 2) to.Row(last)[c] = here.spare()[c];
  return 1;
}

int DIB_ResizeNearUV(const IMG_PARAM& src, IMG_PARAM& dst) {
  return Chroma(src, dst, Method::kNearest);
}

int DIB_ResizeBiLinerUV(const IMG_PARAM& src, IMG_PARAM& dst) {
  return Chroma(src, dst, Method::kBilinear);
}

namespace {

bool EndsWithin(const IMG_PARAM& bitmap) {
  return std::int64_t{bitmap.nTop} + bitmap.nHeight <= bitmap.nImageHeight;
}

}  // namespace

int ImageResize(const IMG_PARAM& src, IMG_PARAM& dst, IMAGE_INTERPOLATION method) {
  switch (method) {
    case IMAGE_INTERPOLATION_LINEAR:
    case IMAGE_INTERPOLATION_BILINEAR:
      return DIB_ResizeBiLiner(src, dst);
    case IMAGE_INTERPOLATION_NEAREST:
      return DIB_ResizeNear(src, dst);
    case IMAGE_INTERPOLATION_CONVOLVE:
      // DIB_ResizeConvolve takes planes and does not check their height. Bitmaps have one.
      return EndsWithin(src) && EndsWithin(dst) ? DIB_ResizeConvolve(src, dst) : 0;
  }
  return 0;
}

int ImageResize8(const IMG_PARAM& src, IMG_PARAM& dst, IMAGE_INTERPOLATION method) {
  switch (method) {
    case IMAGE_INTERPOLATION_LINEAR:
    case IMAGE_INTERPOLATION_BILINEAR:
      return DIB_ResizeBiLiner8(src, dst);
    case IMAGE_INTERPOLATION_NEAREST:
      return DIB_ResizeNear8(src, dst);
    default:
      return 0;
  }
}

int ImageResizeUV(const IMG_PARAM& src, IMG_PARAM& dst, IMAGE_INTERPOLATION method) {
  switch (method) {
    case IMAGE_INTERPOLATION_LINEAR:
    case IMAGE_INTERPOLATION_BILINEAR:
      return DIB_ResizeBiLinerUV(src, dst);
    case IMAGE_INTERPOLATION_NEAREST:
      return DIB_ResizeNearUV(src, dst);
    default:
      return 0;
  }
}

int ImageResizeY(const IMG_PARAM& src, IMG_PARAM& dst, IMAGE_INTERPOLATION method, int) {
  switch (method) {
    case IMAGE_INTERPOLATION_LINEAR:
    case IMAGE_INTERPOLATION_BILINEAR:
      return DIB_ResizeBiLinerY(src, dst, 0);
    case IMAGE_INTERPOLATION_NEAREST:
      return DIB_ResizeNearY(src, dst, 0);
    case IMAGE_INTERPOLATION_CONVOLVE:
      return DIB_ResizeConvolve(src, dst);
  }
  return 0;
}

namespace {

IMG_PARAM PlaneOf(const IMG_PARAM& picture, unsigned char* plane, int pitch) {
  IMG_PARAM image = picture;
  image.pBuffer = plane;
  image.nPitch = pitch;
  return image;
}

}  // namespace

int ImageResizeYV12(const IMG_PARAM& src, unsigned char* pSrcY, unsigned char* pSrcU,
                    unsigned char* pSrcV, int nSrcPitchY, int nSrcPitchU, int nSrcPitchV,
                    const IMG_PARAM& dst, unsigned char* pDstY, unsigned char* pDstU,
                    unsigned char* pDstV, int nDstPitchY, int nDstPitchU, int nDstPitchV,
                    IMAGE_INTERPOLATION method, int) {
  if (!LargeEnough(dst)) return 0;
  IMG_PARAM y = PlaneOf(dst, pDstY, nDstPitchY);
  IMG_PARAM u = PlaneOf(dst, pDstU, nDstPitchU);
  IMG_PARAM v = PlaneOf(dst, pDstV, nDstPitchV);
  ImageResizeY(PlaneOf(src, pSrcY, nSrcPitchY), y, method, 0);
  ImageResizeUV(PlaneOf(src, pSrcV, nSrcPitchV), v, method);
  ImageResizeUV(PlaneOf(src, pSrcU, nSrcPitchU), u, method);
  return 1;
}

int ImageResizeYV444(const IMG_PARAM& src, unsigned char* pSrcY, unsigned char* pSrcU,
                     unsigned char* pSrcV, unsigned char* pSrcA, int nSrcPitchY, int nSrcPitchU,
                     int nSrcPitchV, int nSrcPitchA, const IMG_PARAM& dst, unsigned char* pDstY,
                     unsigned char* pDstU, unsigned char* pDstV, unsigned char* pDstA,
                     int nDstPitchY, int nDstPitchU, int nDstPitchV, int nDstPitchA,
                     IMAGE_INTERPOLATION method) {
  if (!LargeEnough(dst)) return 0;
  const auto scale = [&](unsigned char* from, int fromPitch, unsigned char* to, int toPitch) {
    IMG_PARAM plane = PlaneOf(dst, to, toPitch);
    ImageResizeY(PlaneOf(src, from, fromPitch), plane, method, 0);
  };
  scale(pSrcY, nSrcPitchY, pDstY, nDstPitchY);
  scale(pSrcU, nSrcPitchU, pDstU, nDstPitchU);
  scale(pSrcV, nSrcPitchV, pDstV, nDstPitchV);
  scale(pSrcA, nSrcPitchA, pDstA, nDstPitchA);
  return 1;
}
