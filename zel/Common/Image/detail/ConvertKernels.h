// The kernels of the colour conversions: one table per level of the processor.
//
// A kernel converts a rectangle of rows. It knows nothing of bitmaps, row order or positions. It
// reads and writes exactly `width` pixels of `rows` rows, both positive. Two rows share their
// chroma; an odd last row has its own, and so has an odd last column. The plain kernels are the
// reference; every other level gives the same bytes.
//
// Files that are compiled for newer processors include this header, so its functions are always
// inlined: the linker could keep a copy that older processors cannot run.
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
  Byte* a;  ///< Alpha, with the pitch of luma; used by `toBgra32` and `fromBgra32` only.
  std::ptrdiff_t pitchY, pitchU, pitchV;

  /// The same from row `row` and column `x` on; both are even.
  [[gnu::always_inline]] Planes From(std::ptrdiff_t row, std::ptrdiff_t x) const {
    const std::ptrdiff_t luma = row * pitchY + x;
    return {y + luma,
            u + row / 2 * pitchU + x / 2,
            v + row / 2 * pitchV + x / 2,
            a ? a + luma : nullptr,
            pitchY,
            pitchU,
            pitchV};
  }
  /// The same from the last of `rows` rows backwards. `rows` is even.
  [[gnu::always_inline]] Planes Backward(std::ptrdiff_t rows) const {
    Planes all = From(rows - 2, 0);
    all.y += pitchY;
    if (a) all.a += pitchY;
    all.pitchY = -pitchY;
    all.pitchU = -pitchU;
    all.pitchV = -pitchV;
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

/// The colours of an indexed picture, converted. Only entries 0 to `known` - 1 are: a colour table
/// may end with the highest index that the picture uses.
struct Palette {
  const tagRGBQUAD* colors;
  int known = 0;
  /// Y in bits 0..7, U from bit 10, V from bit 20. The sum of four has no carry between fields.
  std::uint32_t packed[256];
  std::uint8_t y[256], u[256], v[256];
};

struct ConvertKernels {
  using ToRgb = void (*)(const YuvSource& src, PixelTarget dst, std::ptrdiff_t width,
                         std::ptrdiff_t rows);
  ToRgb toBgr24;
  ToRgb toBgrx32;    ///< The fourth byte keeps its value.
  ToRgb toOpaque32;  ///< The fourth byte is 255.
  ToRgb toBgra32;
  ToRgb toBgr24Simple;

  using FromRgb = void (*)(PixelSource src, const YuvTarget& dst, std::ptrdiff_t width,
                           std::ptrdiff_t rows);
  FromRgb fromBgr24;
  FromRgb fromBgrx32;
  FromRgb fromBgra32;
  FromRgb fromBgr24Simple;

  /// The highest of `count` > 0 bytes.
  int (*highest)(const std::uint8_t* bytes, std::ptrdiff_t count);
  /// Every index must be below `palette.known`.
  void (*fromIndexed)(PixelSource src, const YuvTarget& dst, std::ptrdiff_t width,
                      std::ptrdiff_t rows, const Palette& palette);

  // Packed 4:2:2. `width` is even. The order is Y0 U Y1 V with `lumaFirst`, else U Y0 V Y1.

  /// To planes. Chroma is the truncated mean of two rows.
  void (*split)(PixelSource src, const YuvTarget& dst, std::ptrdiff_t width, std::ptrdiff_t rows,
                bool lumaFirst);
  void (*merge)(const YuvSource& src, PixelTarget dst, std::ptrdiff_t width, std::ptrdiff_t rows,
                bool lumaFirst);
  void (*packedToBgr24)(PixelSource src, PixelTarget dst, std::ptrdiff_t width, std::ptrdiff_t rows,
                        bool lumaFirst);
  void (*bgr24ToPacked)(PixelSource src, PixelTarget dst, std::ptrdiff_t width, std::ptrdiff_t rows,
                        bool lumaFirst);
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
