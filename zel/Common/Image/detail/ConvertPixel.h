// The colour arithmetic of one pixel. Files of vector kernels must not include it: its inline
// functions would be compiled for their processors.
#pragma once

#include <cstdint>

namespace zel::image {

/// Factors of YUV to RGB: blue = (y Y + bu U + b0) >> shift, and so on.
struct ToRgbFactors {
  int y, bu, gu, gv, rv;
  int b0, g0, r0;
  int shift;
};
inline constexpr ToRgbFactors kToRgb{9536,     16532,   -3203,    -6660, 13074,
                                     -2268594, 1109918, -1826095, 13};
/// With 10 bits. The offset is 16 * 1192 less a half, which rounds; chroma is centred first.
inline constexpr ToRgbFactors kToRgbSimple{1192,
                                           2065,
                                           -401,
                                           -833,
                                           1634,
                                           -128 * 2065 - 18560,
                                           128 * (401 + 833) - 18560,
                                           -128 * 1634 - 18560,
                                           10};

/// Factors of RGB to YUV: Y = (yb B + yg G + yr R + y0) >> shift, and so on.
struct ToYuvFactors {
  int yb, yg, yr, y0;
  int ub, ug, ur;
  int vb, vg, vr;
  int c0;
  int shift;
};
inline constexpr ToYuvFactors kToYuv{1606,  8258,  4211,  16 << 14, 7193,      -4768,
                                     -2425, -1163, -6029, 7193,     128 << 14, 14};
/// The offsets include a half, which rounds. (Results lie in 16..235 and 16..240 by themselves.)
inline constexpr ToYuvFactors kToYuvSimple{100, 516,  263, (16 << 10) + 512,  450, -298, -152,
                                           -73, -377, 450, (128 << 10) + 512, 10};

constexpr std::uint8_t ClampToByte(int value) {
  return static_cast<std::uint8_t>(value < 0 ? 0 : value > 255 ? 255 : value);
}

/// Writes blue, green, red. (C++20 defines that right shifts floor.)
constexpr void PixelToRgb(const ToRgbFactors& f, int y, int u, int v, std::uint8_t* bgr) {
  bgr[0] = ClampToByte((f.y * y + f.bu * u + f.b0) >> f.shift);
  bgr[1] = ClampToByte((f.y * y + f.gu * u + f.gv * v + f.g0) >> f.shift);
  bgr[2] = ClampToByte((f.y * y + f.rv * v + f.r0) >> f.shift);
}

/// One pixel's luma, and its chroma before the mean of the block, offsets included.
struct YuvPixel {
  int y, u, v;
};

constexpr YuvPixel PixelToYuv(const ToYuvFactors& f, int b, int g, int r) {
  return {(f.yb * b + f.yg * g + f.yr * r + f.y0) >> f.shift,
          (f.ub * b + f.ug * g + f.ur * r + f.c0) >> f.shift,
          (f.vb * b + f.vg * g + f.vr * r + f.c0) >> f.shift};
}

}  // namespace zel::image
