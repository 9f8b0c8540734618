// What the resizing routines share: where a rectangle lies, which source positions an axis asks
// for, and the horizontal pass over source rows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "zel/Common/Image/Resize.h"
#include "zel/Common/Image/detail/ResizeKernels.h"

namespace zel::image {

/// A rectangle in memory, its rows in the order of the picture, top first.
struct ImageRect {
  unsigned char* first;  ///< Left end of the top row.
  std::ptrdiff_t step;   ///< Bytes to the row below.
  std::int32_t width;
  std::int32_t height;
  std::ptrdiff_t before;  ///< Bytes of a row left of the rectangle.
  std::ptrdiff_t behind;  ///< Bytes of a row right of it, to the end of the pitch.

  /// Row i in the order of memory, counted from the top or from the bottom: streams of rows that
  /// run against the addresses defeat the processor's prefetching.
  std::int32_t InMemoryOrder(std::int32_t i, std::int32_t rows) const {
    return step < 0 ? rows - 1 - i : i;
  }
  unsigned char* Row(std::int64_t y) const { return first + static_cast<std::ptrdiff_t>(y) * step; }
};

enum class RowOrder { kTopDown, kBottomUp };

/// Finds a rectangle of pixels of `pixelBytes` bytes. False if the buffer is null, the rectangle is
/// empty, or the record shows that it leaves the buffer.
bool Locate(const IMG_PARAM& image, RowOrder order, int pixelBytes, ImageRect* rect);
/// Whether a destination has the 2 x 2 pixels that every routine needs.
bool LargeEnough(const IMG_PARAM& dst);
/// Finds the rectangles of a source and of a destination that is large enough.
bool LocateBoth(const IMG_PARAM& src, int srcBytes, const IMG_PARAM& dst, int dstBytes,
                RowOrder order, ImageRect* from, ImageRect* to);
/// Finds the half-resolution rectangle of a chroma plane, from the luma pixel at its corner to the
/// one at the opposite corner.
bool LocateChroma(const IMG_PARAM& image, ImageRect* rect);

/// Where an output takes its value from: the pixel at `index`, counted from the rectangle's edge,
/// and weight / 4096 of the pixel after it.
struct Position {
  std::int32_t index;
  int weight;
};

/// The source position of each output along one axis, that is, of each column or row.
class Axis {
 public:
  /// Steps of 1/4096 that map the first and last of `source` pixels to those of `count`.
  static Axis Steps(std::int32_t source, std::int32_t count);
  /// The same for a chroma plane: `source` and `count` are luma pixels, every second of them has an
  /// output, and positions are chroma pixels. Their rounding depends on `origin`, the rectangle's
  /// luma edge.
  static Axis ChromaSteps(std::int32_t source, std::int32_t count, std::int32_t origin);
  /// The nearest pixel in proportion. The last output takes the last pixel.
  static Axis Proportional(std::int32_t source, std::int32_t count);
  /// This axis, with its last output moved to the source's last pixel.
  Axis WithExactEnd() const;
  /// This axis, with each output moved to the position of the next one, at most to the source's
  /// last pixel.
  Axis Next() const;

  std::int32_t count() const { return count_; }
  Position At(std::int64_t i) const;

 private:
  enum class Kind { kSteps, kChroma, kProportional };

  Kind kind_ = Kind::kSteps;
  std::int64_t step_ = 0;
  std::int32_t source_ = 0;
  std::int32_t count_ = 0;
  std::int32_t origin_ = 0;
  bool exactEnd_ = false;
  std::int32_t ahead_ = 0;
};

/// Two scaled rows; the same row twice if only the upper one counts.
struct RowPair {
  const unsigned char* top;
  const unsigned char* bottom;
};

/// The horizontal pass: picks or interpolates the columns of source rows.
///
/// The bilinear value is truncated after its horizontal half, so that half depends on the source
/// row alone: it is computed once per row, and the two rows that a vertical step needs are kept.
/// There is at most one allocation per call, and none for narrow pictures.
class RowScaler {
 public:
  enum class Method { kNearest, kBilinear };

  /// @param sourceStride bytes from one source pixel to the next. The first `pixelBytes` (1 or 4)
  /// of them are scaled.
  RowScaler(const ImageRect& source, int pixelBytes, std::ptrdiff_t sourceStride);
  RowScaler(const RowScaler&) = delete;
  RowScaler& operator=(const RowScaler&) = delete;

  /// Call it once, before anything else. False if there is no memory.
  bool Prepare(const Axis& columns, Method method);

  /// The scaled source rows that an output row at `p` lies between. Bilinear only.
  RowPair Rows(const Position& p);
  /// Writes the first `n` columns of source row y, by nearest neighbour.
  void WriteNearest(std::int64_t y, std::int32_t n, unsigned char* out);
  /// The last pixel of source row y.
  const unsigned char* LastPixel(std::int64_t y) const {
    return source_.Row(y) + (source_.width - 1) * stride_;
  }
  /// The kernels in use when it was made.
  const ResizeKernels& kernels() const { return kernels_; }
  /// Room for one scaled row.
  unsigned char* spare() { return spare_; }

 private:
  struct Sizes;

  Sizes SizesFor(std::size_t padded) const;
  unsigned char* Allocate(std::uint64_t size);
  void HandOut(unsigned char* memory, const Sizes& sizes);
  void FillColumns(const Axis& columns, std::size_t padded);
  void FillWindows();
  bool WindowsFit(int windows) const;
  const unsigned char* SourceRow(std::int64_t y);
  const unsigned char* Row(std::int64_t y, std::int64_t other);

  ResizeWindow Window() const { return pixelBytes_ == 1 ? kernels_.bytes : kernels_.pixels; }
  int PixelsPerColumn() const { return method_ == Method::kBilinear ? 2 : 1; }

  const ResizeKernels& kernels_ = ActiveResizeKernels();
  const ImageRect source_;
  const int pixelBytes_;
  const std::ptrdiff_t stride_;
  Method method_ = Method::kNearest;
  bool identical_ = false;  // Each column is its own source pixel: nothing to do.
  ResizeColumns columns_ = {};

  bool staged_ = false;     // Rows are copied first: they are too short for a window, or strided.
  std::int64_t reach_ = 0;  // Source pixels that kernels may read.

  // What columns_ points to, and the rows.
  std::int32_t* offset_ = nullptr;
  std::int16_t* weight_ = nullptr;
  std::uint64_t* weight4_ = nullptr;
  std::int32_t* base_ = nullptr;
  std::uint8_t* index_ = nullptr;
  unsigned char* stage_ = nullptr;
  unsigned char* spare_ = nullptr;
  unsigned char* rows_[2] = {};
  std::int64_t rowOf_[2] = {-1, -1};

  std::unique_ptr<unsigned char[]> heap_;
  alignas(64) unsigned char inline_[6144];
};

}  // namespace zel::image
