#include "zel/Common/Image/detail/ResizePlan.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

namespace zel::image {
namespace {

constexpr unsigned kCacheLine = 64;

}  // namespace

bool Locate(const IMG_PARAM& image, RowOrder order, int pixelBytes, ImageRect* rect) {
  const std::int64_t left = std::int64_t{image.nLeft} * pixelBytes;
  const std::int64_t right = left + std::int64_t{image.nWidth} * pixelBytes;
  const std::int64_t pitch = std::abs(std::int64_t{image.nPitch});
  const std::int64_t bottom = std::int64_t{image.nTop} + image.nHeight;
  if (image.pBuffer == nullptr || image.nWidth < 1 || image.nHeight < 1) return false;
  if (image.nLeft < 0 || image.nTop < 0 || right > pitch) return false;
  if (order == RowOrder::kBottomUp && bottom > image.nImageHeight) return false;
  const std::int64_t rows = order == RowOrder::kTopDown ? bottom : image.nImageHeight;
  if (rows > std::numeric_limits<std::ptrdiff_t>::max() / pitch) return false;

  const std::ptrdiff_t step = image.nPitch;
  const std::ptrdiff_t top =
      order == RowOrder::kTopDown ? image.nTop : image.nImageHeight - 1 - image.nTop;
  rect->before = static_cast<std::ptrdiff_t>(left);
  rect->behind = static_cast<std::ptrdiff_t>(pitch - right);
  rect->first = image.pBuffer + top * step + rect->before;
  rect->step = order == RowOrder::kTopDown ? step : -step;
  rect->width = image.nWidth;
  rect->height = image.nHeight;
  return true;
}

bool LargeEnough(const IMG_PARAM& dst) {
  return dst.nWidth >= 2 && dst.nHeight >= 2;
}

bool LocateBoth(const IMG_PARAM& src, int srcBytes, const IMG_PARAM& dst, int dstBytes,
                RowOrder order, ImageRect* from, ImageRect* to) {
  return LargeEnough(dst) && Locate(src, order, srcBytes, from) && Locate(dst, order, dstBytes, to);
}

bool LocateChroma(const IMG_PARAM& image, ImageRect* rect) {
  if (image.nLeft < 0 || image.nTop < 0 || image.nWidth < 1 || image.nHeight < 1) return false;
  const auto half = [](std::int32_t from, std::int32_t size) {
    return static_cast<std::int32_t>((std::int64_t{from} + size - 1) / 2 - from / 2 + 1);
  };
  IMG_PARAM chroma = image;
  chroma.nLeft = image.nLeft / 2;
  chroma.nTop = image.nTop / 2;
  chroma.nWidth = half(image.nLeft, image.nWidth);
  chroma.nHeight = half(image.nTop, image.nHeight);
  return Locate(chroma, RowOrder::kTopDown, 1, rect);
}

Axis Axis::Steps(std::int32_t source, std::int32_t count) {
  Axis axis;
  axis.kind_ = Kind::kSteps;
  axis.step_ = (std::int64_t{source} - 1) * 4096 / (count - 1);
  axis.source_ = source;
  axis.count_ = count;
  return axis;
}

Axis Axis::ChromaSteps(std::int32_t source, std::int32_t count, std::int32_t origin) {
  Axis axis = Steps(source, count);
  axis.kind_ = Kind::kChroma;
  axis.count_ = count / 2 + count % 2;
  axis.origin_ = origin;
  return axis;
}

Axis Axis::Proportional(std::int32_t source, std::int32_t count) {
  Axis axis = Steps(source, count);
  axis.kind_ = Kind::kProportional;
  axis.exactEnd_ = true;
  return axis;
}

Axis Axis::WithExactEnd() const {
  Axis axis = *this;
  axis.exactEnd_ = true;
  return axis;
}

Axis Axis::Next() const {
  Axis axis = *this;
  axis.ahead_ = 1;
  return axis;
}

Position Axis::At(std::int64_t i) const {
  if (exactEnd_ && i == count_ - 1) return {source_ - 1, 0};
  switch (kind_) {
    case Kind::kSteps: {
      const std::int64_t position = (i + ahead_) * step_;
      const std::int64_t index = std::min<std::int64_t>(position >> 12, source_ - 1);
      return {static_cast<std::int32_t>(index), static_cast<int>(position & 4095)};
    }
    case Kind::kChroma: {
      // Between two luma columns of one chroma pixel there is nothing to interpolate.
      const std::int64_t position = 2 * i * step_;
      const std::int64_t luma = (position >> 12) + origin_;
      return {static_cast<std::int32_t>(luma / 2 - origin_ / 2),
              luma % 2 != 0 ? static_cast<int>(position & 4095) : 0};
    }
    case Kind::kProportional:
      break;
  }
  const std::int64_t index = (i * source_ + count_ / 2) / count_;
  return {static_cast<std::int32_t>(std::min<std::int64_t>(index, source_ - 1)), 0};
}

RowScaler::RowScaler(const ImageRect& source, int pixelBytes, std::ptrdiff_t sourceStride)
    : source_(source), pixelBytes_(pixelBytes), stride_(sourceStride) {}

// Bytes of the arrays, whole cache lines each, in the order in which they lie in memory.
struct RowScaler::Sizes {
  std::uint64_t offsets, weights, indices, bases, pairs, spare, rows[2], stage;

  std::uint64_t Total() const {
    return offsets + weights + indices + bases + pairs + spare + rows[0] + rows[1] + stage;
  }
};

RowScaler::Sizes RowScaler::SizesFor(std::size_t padded) const {
  const auto lines = [](std::uint64_t bytes) {
    return (bytes + kCacheLine - 1) & ~std::uint64_t{kCacheLine - 1};
  };
  const std::uint64_t pixel = static_cast<unsigned>(pixelBytes_);
  const std::uint64_t columns = padded;
  const bool bilinear = method_ == Method::kBilinear;
  const std::uint64_t weight = !bilinear          ? 0
                               : pixelBytes_ == 1 ? sizeof(*weight_)
                                                  : sizeof(*weight4_);
  const std::uint64_t outputs = columns * static_cast<unsigned>(PixelsPerColumn());
  const ResizeWindow window = Window();
  const bool windows = window.group != 0;
  const std::uint64_t strided = stride_ != pixelBytes_ ? static_cast<unsigned>(source_.width) : 0;
  const std::uint64_t row = lines(columns * pixel);
  const std::uint64_t kept = bilinear ? row : 0;
  return {.offsets = lines(columns * sizeof(*offset_)),
          .weights = lines(columns * weight),
          .indices = windows ? lines(outputs) : 0,
          .bases = windows ? lines(outputs / window.group * sizeof(*base_)) : 0,
          .pairs = bilinear ? lines(outputs * pixel) : 0,
          .spare = row,
          .rows = {kept, kept},
          .stage = lines((strided + 2 * window.width + 2) * pixel)};
}

// Returns aligned memory, or null if there is none.
unsigned char* RowScaler::Allocate(std::uint64_t size) {
  const std::uint64_t total = size + kCacheLine;
  if (total <= sizeof(inline_)) return inline_;
  if (total > static_cast<std::uint64_t>(std::numeric_limits<std::ptrdiff_t>::max())) {
    return nullptr;
  }
  heap_.reset(new (std::nothrow) unsigned char[static_cast<std::size_t>(total)]);
  if (heap_ == nullptr) return nullptr;
  const auto address = reinterpret_cast<std::uintptr_t>(heap_.get());
  return heap_.get() + (kCacheLine - address % kCacheLine);
}

void RowScaler::HandOut(unsigned char* memory, const Sizes& sizes) {
  const auto take = [&memory](std::uint64_t size) {
    unsigned char* p = memory;
    memory += size;
    return static_cast<void*>(p);
  };
  offset_ = static_cast<std::int32_t*>(take(sizes.offsets));
  void* weight = take(sizes.weights);
  weight_ = static_cast<std::int16_t*>(weight);
  weight4_ = static_cast<std::uint64_t*>(weight);
  index_ = static_cast<std::uint8_t*>(take(sizes.indices));
  base_ = static_cast<std::int32_t*>(take(sizes.bases));
  columns_.pairs = static_cast<unsigned char*>(take(sizes.pairs));
  spare_ = static_cast<unsigned char*>(take(sizes.spare));
  for (int i = 0; i < 2; ++i) rows_[i] = static_cast<unsigned char*>(take(sizes.rows[i]));
  stage_ = static_cast<unsigned char*>(take(sizes.stage));
}

void RowScaler::FillColumns(const Axis& columns, std::size_t padded) {
  const bool bilinear = method_ == Method::kBilinear;
  const std::size_t count = columns_.count;
  identical_ = stride_ == pixelBytes_;
  for (std::size_t c = 0; c < padded; ++c) {
    Position p = columns.At(static_cast<std::int64_t>(std::min(c, count - 1)));
    identical_ =
        identical_ && p.weight == 0 && p.index == static_cast<std::int64_t>(std::min(c, count - 1));
    if (bilinear) {
      // The last pixel has no right neighbour. It becomes the right neighbour of the one before it.
      if (p.index + 1 >= reach_) p = {p.index - 1, 4096};
      constexpr std::uint64_t kColours = 0x000100010001U;
      constexpr std::uint64_t kAll = 0x0001000100010001U;
      if (pixelBytes_ == 1) {
        weight_[c] = static_cast<std::int16_t>(p.weight);
      } else {
        weight4_[c] = static_cast<std::uint64_t>(p.weight) * (p.weight == 4096 ? kAll : kColours);
      }
    }
    offset_[c] = p.index;
  }
}

bool RowScaler::WindowsFit(int windows) const {
  const std::size_t group = static_cast<unsigned>(Window().group / PixelsPerColumn());
  if (group == 0) return false;
  for (std::size_t c = 0; c < columns_.count; c += group) {
    const std::size_t last = std::min(c + group, columns_.count) - 1;
    const std::int64_t span = std::int64_t{offset_[last]} + PixelsPerColumn() - offset_[c];
    if (span > std::int64_t{Window().width} * windows) return false;
  }
  return true;
}

void RowScaler::FillWindows() {
  const std::int64_t width = std::int64_t{Window().width} * columns_.windows;
  // No window reaches beyond the row: the last ones begin early. A row shorter than a window is
  // read from a copy.
  staged_ = staged_ || reach_ < width;
  const std::int64_t latest = std::max<std::int64_t>(reach_ - width, 0);
  const std::size_t perColumn = static_cast<unsigned>(PixelsPerColumn());
  const std::size_t group = static_cast<unsigned>(Window().group) / perColumn;
  const std::size_t padded =
      (columns_.count + ResizeColumns::kColumnPad - 1) & ~(ResizeColumns::kColumnPad - 1);
  for (std::size_t c = 0, output = 0; c < padded; c += group) {
    const auto base = static_cast<std::int32_t>(std::min<std::int64_t>(offset_[c], latest));
    base_[c / group] = base;
    for (std::size_t k = c; k < c + group; ++k) {
      for (std::size_t i = 0; i < perColumn; ++i, ++output) {
        index_[output] =
            static_cast<std::uint8_t>(offset_[k] - base + static_cast<std::int32_t>(i));
      }
    }
  }
}

bool RowScaler::Prepare(const Axis& columns, Method method) {
  constexpr std::size_t kPad = ResizeColumns::kColumnPad;
  method_ = method;
  columns_.count = static_cast<unsigned>(columns.count());
  const std::size_t padded = (columns_.count + kPad - 1) & ~(kPad - 1);
  const Sizes sizes = SizesFor(padded);
  unsigned char* memory = Allocate(sizes.Total());
  if (memory == nullptr) return false;
  HandOut(memory, sizes);

  reach_ = source_.width;
  staged_ = stride_ != pixelBytes_;
  if (method == Method::kBilinear && source_.width == 1) {
    reach_ = 2;  // In a copy, where the one pixel stands twice.
    staged_ = true;
  }
  FillColumns(columns, padded);
  columns_.windows = WindowsFit(1) ? 1 : WindowsFit(2) ? 2 : 0;
  if (columns_.windows != 0) FillWindows();
  columns_.offset = offset_;
  columns_.weight = weight_;
  columns_.weight4 = weight4_;
  columns_.base = base_;
  columns_.index = index_;
  return true;
}

const unsigned char* RowScaler::SourceRow(std::int64_t y) {
  const unsigned char* source = source_.Row(y);
  if (!staged_) return source;
  const std::size_t pixel = static_cast<unsigned>(pixelBytes_);
  const std::size_t width = static_cast<unsigned>(source_.width);
  if (stride_ == pixelBytes_) {
    std::memcpy(stage_, source, width * pixel);
  } else {
    for (std::size_t x = 0; x < width; ++x)
      stage_[x] = source[static_cast<std::ptrdiff_t>(x) * stride_];
  }
  if (width == 1) std::memcpy(stage_ + pixel, stage_, pixel);
  return stage_;
}

// Returns source row y, scaled. Row `other`, if it is one of the two rows kept, stays.
const unsigned char* RowScaler::Row(std::int64_t y, std::int64_t other) {
  if (identical_) return source_.Row(y);
  for (int slot = 0; slot < 2; ++slot) {
    if (rowOf_[slot] == y) return rows_[slot];
  }
  const int slot = rowOf_[0] == other ? 1 : 0;
  rowOf_[slot] = y;
  unsigned char* row = rows_[slot];
  (pixelBytes_ == 1 ? kernels_.bilinear8 : kernels_.bilinear32)(columns_, SourceRow(y), row);
  return row;
}

RowPair RowScaler::Rows(const Position& p) {
  const std::int64_t below = std::int64_t{p.index} + 1;
  const unsigned char* top = Row(p.index, below);
  return {top, p.weight == 0 ? top : Row(below, p.index)};
}

void RowScaler::WriteNearest(std::int64_t y, std::int32_t n, unsigned char* out) {
  const std::size_t count = static_cast<unsigned>(n);
  const std::size_t pixel = static_cast<unsigned>(pixelBytes_);
  if (identical_) {
    std::memcpy(out, source_.Row(y), count * pixel);
    return;
  }
  const unsigned char* source = SourceRow(y);
  if (method_ == Method::kNearest) {
    ResizeColumns columns = columns_;
    columns.count = count;
    (pixelBytes_ == 1 ? kernels_.nearest8 : kernels_.nearest32)(columns, source, out);
    return;
  }
  for (std::size_t c = 0; c < count; ++c) {
    const bool isNeighbour = (pixel == 1 ? weight_[c] : weight4_[c] & 0xFFFF) == 4096;
    std::memcpy(out + c * pixel,
                source + static_cast<std::ptrdiff_t>(offset_[c] + isNeighbour) * pixelBytes_,
                pixel);
  }
}

}  // namespace zel::image
