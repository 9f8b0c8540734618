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

/// Finds a rectangle of pixels of `pixel_bytes` bytes. False if the record has none: a null buffer,
/// an empty rectangle, or one that leaves the buffer as far as the record describes it.
bool Locate(const IMG_PARAM& image, RowOrder order, int pixel_bytes, ImageRect* rect);
/// Finds the half-resolution rectangle of a chroma plane, from the luma pixel at its corner to the
/// one at the opposite corner.
bool LocateChroma(const IMG_PARAM& image, ImageRect* rect);

/// Where an output takes its value from: `index`, counted from the rectangle's edge, and
/// weight / 4096 of the pixel after it.
struct Position {
  std::int32_t index;
  int weight;
};

/// The source positions of an axis' outputs: of a rectangle's columns, or of its rows.
class Axis {
 public:
  /// Steps of 1/4096 that map the first and last of `source` pixels to those of `count`.
  static Axis Steps(std::int32_t source, std::int32_t count);
  /// The same in luma pixels, by twos, for every second of `count`; positions are chroma pixels.
  /// `origin` is the rectangle's luma edge, on which the rounding to chroma pixels depends.
  static Axis ChromaSteps(std::int32_t source, std::int32_t count, std::int32_t origin);
  /// The nearest pixel in proportion; the last output is the last pixel.
  static Axis Proportional(std::int32_t source, std::int32_t count);
  /// This axis with its last output at the source's last pixel.
  Axis WithExactEnd() const;
  /// This axis, each output at the position of the next one, at most at the source's last pixel.
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
  bool exact_end_ = false;
  std::int32_t ahead_ = 0;
};

/// The horizontal pass: rows of a source rectangle with their columns picked or interpolated.
///
/// The bilinear value truncates after its horizontal half, so that half depends on the
/// source row alone: it is computed once per row, and the two rows that a vertical step needs are
/// kept. One allocation per call at most; narrow pictures need none.
class RowScaler {
 public:
  enum class Method { kNearest, kBilinear };

  /// @param source_stride bytes from one source pixel to the next, of which the first
  /// `pixel_bytes` (1 or 4) are scaled.
  RowScaler(const ResizeKernels& kernels, const ImageRect& source, int pixel_bytes,
            std::ptrdiff_t source_stride);
  RowScaler(const RowScaler&) = delete;
  RowScaler& operator=(const RowScaler&) = delete;

  /// Must come first, once. False if there is no memory.
  bool Prepare(const Axis& columns, Method method);

  /// Source row y, scaled. Of two rows kept, row `other` is not replaced. Bilinear only.
  const unsigned char* Row(std::int64_t y, std::int64_t other);
  /// Writes the first `n` columns of source row y, each the nearest pixel.
  void WriteNearest(std::int64_t y, std::int32_t n, unsigned char* out);
  /// The last pixel of source row y.
  const unsigned char* LastPixel(std::int64_t y) const {
    return source_.Row(y) + (source_.width - 1) * stride_;
  }
  /// Room for one scaled row.
  unsigned char* spare() { return spare_; }

 private:
  bool Allocate(std::size_t padded);
  void FillColumns(const Axis& columns, std::size_t padded);
  void FillWindows();
  bool WindowsFit(int windows) const;
  const unsigned char* SourceRow(std::int64_t y);

  ResizeWindow Window() const { return pixel_bytes_ == 1 ? kernels_.bytes : kernels_.pixels; }
  int PixelsPerColumn() const { return method_ == Method::kBilinear ? 2 : 1; }

  const ResizeKernels& kernels_;
  const ImageRect source_;
  const int pixel_bytes_;
  const std::ptrdiff_t stride_;
  Method method_ = Method::kNearest;
  bool identical_ = false;  // Every column is its source pixel: rows need no pass.
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
  std::int64_t row_of_[2] = {-1, -1};

  std::unique_ptr<unsigned char[]> heap_;
  alignas(64) unsigned char inline_[6144];
};

/// The routines of Resize.h and AlphaResize.h on given kernels. They differ in name where the
/// public names do not tell what they do.
using ResizeRoutine = int(const ResizeKernels& kernels, const IMG_PARAM& src, const IMG_PARAM& dst);

ResizeRoutine NearestBitmap32;
ResizeRoutine BilinearBitmap32;
ResizeRoutine NearestPlane8;
ResizeRoutine BilinearBitmap8;
ResizeRoutine NearestLuma;
ResizeRoutine BilinearLuma;
ResizeRoutine BoxLuma;
ResizeRoutine NearestChroma;
ResizeRoutine BilinearChroma;
ResizeRoutine AlphaOverBitmap32;
ResizeRoutine NearestMask;
ResizeRoutine BilinearMask;

}  // namespace zel::image
