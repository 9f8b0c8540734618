// Where the rows of a bitmap are in memory. Files of vector kernels must not include it: its inline
// functions would be compiled for their processors.
#pragma once

#include <cstddef>
#include <cstdint>

#include "zel/Common/Image/detail/ConvertKernels.h"

namespace zel::image {

/// Offsets are 64-bit: rows times pitch may pass 2^31.
using Offset = std::int64_t;

/// A bitmap of `rows` rows, padded to a multiple of 4 bytes. Its top row is the last one in memory
/// if `bottomUp`.
template <typename Byte>
struct Bitmap {
  Byte* bits;
  int pixelBytes;
  bool bottomUp;
  Offset width, rows;

  /// Bytes from one row to the next in memory.
  Offset Stride() const { return ((width * 8 * pixelBytes + 31) >> 5) * 4; }
  /// The pixels from row `row` and column `x` on, counted from the top left.
  PixelRows<Byte> From(Offset row, Offset x) const {
    return {bits + (bottomUp ? rows - 1 - row : row) * Stride() + x * pixelBytes,
            static_cast<std::ptrdiff_t>(bottomUp ? -Stride() : Stride())};
  }
};

}  // namespace zel::image
