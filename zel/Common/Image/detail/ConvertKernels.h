// Kernels of the colour conversions, and their choice.
//
// A kernel converts a rectangle of rows, of which pairs share their chroma; it knows nothing of
// bitmaps, row order or positions. It reads and writes exactly `width` pixels of `rows` rows, both
// positive; an odd last row has its chroma for itself, and so has an odd last column. The scalar
// kernels state what is computed; every other level gives the same bytes.
//
// This header is included by files compiled for newer processors than the build's own. Its
// functions are always inlined, or the linker might keep the copy that older processors cannot run.
#pragma once

#include <cstddef>
#include <cstdint>

#include "zel/Common/Image/Bitmap.h"

namespace zel {
enum class Level;
}

namespace zel::image {

/// Planes to read or write. Row r of a plane begins `r * pitch` bytes after its first row; pitches
/// may be negative. Chroma planes have (width + 1) / 2 samples in (rows + 1) / 2 rows. Where they
/// are written, a sample is the mean of the pixels of its 2 x 2 block: 4, 2 or 1.
template <typename Byte>
struct Planes {
  Byte *y, *u, *v;
  Byte* a;  ///< Alpha, with the pitch of luma; used by `to_bgra32` and `from_bgra32` only.
  std::ptrdiff_t pitch_y, pitch_u, pitch_v;

  /// The same from row `row` and column `x` on; both are even.
  [[gnu::always_inline]] Planes From(std::ptrdiff_t row, std::ptrdiff_t x) const {
    const std::ptrdiff_t luma = row * pitch_y + x;
    return {y + luma,
            u + row / 2 * pitch_u + x / 2,
            v + row / 2 * pitch_v + x / 2,
            a ? a + luma : nullptr,
            pitch_y,
            pitch_u,
            pitch_v};
  }
  /// The same, beginning with the last of `rows` rows, an even number: each pair is the other way
  /// round, too.
  [[gnu::always_inline]] Planes Backward(std::ptrdiff_t rows) const {
    Planes all = From(rows - 2, 0);
    all.y += pitch_y;
    if (a) all.a += pitch_y;
    all.pitch_y = -pitch_y;
    all.pitch_u = -pitch_u;
    all.pitch_v = -pitch_v;
    return all;
  }
};
using YuvSource = Planes<const std::uint8_t>;
using YuvTarget = Planes<std::uint8_t>;

/// Rows of whole pixels to read or write: of a bitmap or of packed 4:2:2.
template <typename Byte>
struct PixelRows {
  Byte* bytes;
  std::ptrdiff_t pitch;

  [[gnu::always_inline]] Byte* operator[](std::ptrdiff_t row) const { return bytes + row * pitch; }
};
using PixelSource = PixelRows<const std::uint8_t>;
using PixelTarget = PixelRows<std::uint8_t>;

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
  using ToRgb = void (*)(const YuvSource& src, PixelTarget dst, std::ptrdiff_t width,
                         std::ptrdiff_t rows);
  ToRgb to_bgr24;
  ToRgb to_bgrx32;    ///< The fourth byte keeps its value.
  ToRgb to_opaque32;  ///< The fourth byte is 255.
  ToRgb to_bgra32;
  ToRgb to_bgr24_simple;

  using FromRgb = void (*)(PixelSource src, const YuvTarget& dst, std::ptrdiff_t width,
                           std::ptrdiff_t rows);
  FromRgb from_bgr24;
  FromRgb from_bgrx32;
  FromRgb from_bgra32;
  FromRgb from_bgr24_simple;

  /// The highest of `count` > 0 bytes.
  int (*highest)(const std::uint8_t* bytes, std::ptrdiff_t count);
  /// Every index must be below `palette.known`.
  void (*from_indexed)(PixelSource src, const YuvTarget& dst, std::ptrdiff_t width,
                       std::ptrdiff_t rows, const Palette& palette);

  // Packed 4:2:2: `width` is even, and `luma_first` tells Y0 U Y1 V from U Y0 V Y1.

  /// To planes; chroma of two rows is their truncated mean.
  void (*split)(PixelSource src, const YuvTarget& dst, std::ptrdiff_t width, std::ptrdiff_t rows,
                bool luma_first);
  void (*merge)(const YuvSource& src, PixelTarget dst, std::ptrdiff_t width, std::ptrdiff_t rows,
                bool luma_first);
  void (*packed_to_bgr24)(PixelSource src, PixelTarget dst, std::ptrdiff_t width,
                          std::ptrdiff_t rows, bool luma_first);
  void (*bgr24_to_packed)(PixelSource src, PixelTarget dst, std::ptrdiff_t width,
                          std::ptrdiff_t rows, bool luma_first);
  /// Exchanges the bytes of each of `count` 16-bit words in every row; `dst` may be `src`.
  void (*swap)(PixelSource src, PixelTarget dst, std::ptrdiff_t count, std::ptrdiff_t rows);
};

namespace plain {
extern const ConvertKernels kConvert;
}

/// The kernels of `level`. The processor must have it when they are called.
const ConvertKernels& ConvertKernelsFor(Level level);

/// The kernels in use.
const ConvertKernels& ActiveConvertKernels();

}  // namespace zel::image
