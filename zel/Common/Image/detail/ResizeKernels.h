// The row functions of the resizers: one table per level of the processor.
//
// All levels give the plain level's bytes exactly. Files that are compiled for newer processors
// include this header, so it defines no functions: the linker could keep a copy that older
// processors cannot run.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zel {
enum class Level;
}

namespace zel::image {

/// Where the columns of a scaled row come from. The arrays hold `kColumnPad` more columns than
/// `count`, up to a multiple of it, so that kernels can use whole registers.
struct ResizeColumns {
  static constexpr std::size_t kColumnPad = 64;

  std::size_t count;
  /// Per column, the source pixel; bilinear rows also read its right neighbour.
  const std::int32_t* offset;
  /// Per column, the right neighbour's part in 1/4096, 0 to 4096. Rows of bytes.
  const std::int16_t* weight;
  /// The same for 32-bit pixels: four words, one for each channel.
  const std::uint64_t* weight4;

  // Near scale 1 a register of outputs comes from one short stretch of the row: `windows` (1 or 2)
  // windows of the kernel's width, from `base` on (one base per group), permuted by `index`. With 0
  // windows, pixels are fetched one by one by `offset`, for bilinear rows into `pairs`.
  int windows;
  const std::int32_t* base;   ///< Per group of outputs, in pixels.
  const std::uint8_t* index;  ///< Per output, its source pixel from `base` on.
  unsigned char* pairs;       ///< Room for two pixels per column.
};

/// How many outputs share a base, and how many source pixels a window has. 0: no windows.
/// An output is a pixel of a nearest row and half a pair of a bilinear one.
struct ResizeWindow {
  int group;
  int width;
};

/// Rows given to these functions do not overlap, and may have any address. Weights count 1/4096.
struct ResizeKernels {
  ResizeWindow bytes;
  ResizeWindow pixels;

  /// out[c] = (a * (4096 - w) + b * w) >> 12. `out` has room for the padded count.
  void (*bilinear8)(const ResizeColumns&, const unsigned char* source, unsigned char* out);
  void (*bilinear32)(const ResizeColumns&, const unsigned char* source, unsigned char* out);
  /// out[c] = source[offset[c]]. Writes `count` pixels and nothing more.
  void (*nearest8)(const ResizeColumns&, const unsigned char* source, unsigned char* out);
  void (*nearest32)(const ResizeColumns&, const unsigned char* source, unsigned char* out);

  /// out[i] = (top[i] * (4096 - weight) + bottom[i] * weight) >> 12 for n bytes.
  void (*blend8)(const unsigned char* top, const unsigned char* bottom, int weight, std::size_t n,
                 unsigned char* out);
  /// The same for n pixels of 4 bytes, whose channel 3 is top's.
  void (*blend32)(const unsigned char* top, const unsigned char* bottom, int weight, std::size_t n,
                  unsigned char* out);
  /// Blends n pixels as blend32 does and lays them over `out` with their channel 3 as alpha.
  /// out's own channel 3 stays as it is with `keepAlpha`.
  void (*over32)(const unsigned char* top, const unsigned char* bottom, int weight, std::size_t n,
                 bool keepAlpha, unsigned char* out);
  /// Channel 3 of n pixels becomes mask, or itself * mask / 255; where mask is 0, the pixel is 0.
  void (*replaceAlpha)(const unsigned char* mask, std::size_t n, unsigned char* out);
  void (*multiplyAlpha)(const unsigned char* mask, std::size_t n, unsigned char* out);
};

namespace plain {
extern const ResizeKernels kResize;
}

/// The kernels of `level`. The processor must have it when they are called.
const ResizeKernels& ResizeKernelsFor(Level level);
/// The kernels in use.
const ResizeKernels& ActiveResizeKernels();

}  // namespace zel::image
