// Row kernels of the colour conversions, and their choice.
//
// A kernel converts one row or a pair of rows that share their chroma; it knows nothing of bitmaps,
// row order or rectangles. It reads and writes exactly the `width` pixels it is given. The scalar
// kernels state what is computed; every other level gives the same bytes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "zel/Common/Image/Bitmap.h"
#include "zel/Common/detail/Cpu.h"

namespace zel::image {

/// Rows to read: two luma rows and the chroma row they share. A kernel is given a single row by
/// leaving the second pointers null. An odd `width` has (width + 1) / 2 chroma samples.
struct YuvSource {
  const std::uint8_t* y[2];
  const std::uint8_t* u;
  const std::uint8_t* v;
  const std::uint8_t* a[2];  ///< Alpha rows; used by `to_bgra32` only.
};

/// Rows to write, in the same way. A chroma sample is the mean of the pixels that the kernel is
/// given of its 2 x 2 block: 4, 2 or 1.
struct YuvTarget {
  std::uint8_t* y[2];
  std::uint8_t* u;
  std::uint8_t* v;
  std::uint8_t* a[2];  ///< Alpha rows; used by `from_bgra32` only.
};

using RgbSource = const std::uint8_t* const[2];
using RgbTarget = std::uint8_t* const[2];

/// The colours of an indexed picture with what becomes of them. Only entries 0 to `known` - 1 have
/// been computed: a colour table may end where the highest index ends.
struct Palette {
  const tagRGBQUAD* colors;
  int known = 0;
  /// Y in bits 0..7, U from bit 10, V from bit 20: four of them add up without a carry between
  /// fields.
  std::uint32_t packed[256];
  std::uint8_t y[256], u[256], v[256];
};

struct ConvertKernels {
  using ToRgb = void (*)(const YuvSource& src, RgbTarget dst, std::ptrdiff_t width);
  ToRgb to_bgr24;
  ToRgb to_bgrx32;    ///< The fourth byte keeps its value.
  ToRgb to_opaque32;  ///< The fourth byte is 255.
  ToRgb to_bgra32;
  ToRgb to_bgr24_simple;

  using FromRgb = void (*)(RgbSource src, const YuvTarget& dst, std::ptrdiff_t width);
  FromRgb from_bgr24;
  FromRgb from_bgrx32;
  FromRgb from_bgra32;
  FromRgb from_bgr24_simple;

  /// The highest of `count` > 0 bytes.
  int (*highest)(const std::uint8_t* bytes, std::ptrdiff_t count);
  /// Every index must be below `palette.known`.
  void (*from_indexed)(RgbSource src, const YuvTarget& dst, std::ptrdiff_t width,
                       const Palette& palette);

  /// Packed 4:2:2 to planes; chroma of two rows is their truncated mean. `width` is even, and
  /// `luma_first` tells Y0 U Y1 V from U Y0 V Y1.
  void (*split)(RgbSource src, const YuvTarget& dst, std::ptrdiff_t width, bool luma_first);
  /// Planes to packed 4:2:2. `width` is even.
  void (*merge)(const YuvSource& src, RgbTarget dst, std::ptrdiff_t width, bool luma_first);
  /// One row of packed 4:2:2 to 24 bits and back; `width` is even.
  void (*packed_to_bgr24)(const std::uint8_t* src, std::uint8_t* dst, std::ptrdiff_t width,
                          bool luma_first);
  void (*bgr24_to_packed)(const std::uint8_t* src, std::uint8_t* dst, std::ptrdiff_t width,
                          bool luma_first);
  /// Exchanges the bytes of each of `count` 16-bit words; `dst` may be `src`.
  void (*swap)(std::uint8_t* dst, const std::uint8_t* src, std::ptrdiff_t count);
};

/// The kernels for a processor of this level. Levels without kernels of their own have those of the
/// level below.
const ConvertKernels& ConvertKernelsFor(CpuLevel level);

/// The kernels in use: at first those for this processor.
const ConvertKernels& ActiveConvertKernels();

/// Makes `level`, which the processor must have, the one in use, in tests and benchmarks. Not to be
/// called while a conversion runs.
void UseConvertKernels(CpuLevel level);

}  // namespace zel::image
