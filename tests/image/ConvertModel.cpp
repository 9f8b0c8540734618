#include "tests/image/ConvertModel.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <vector>

namespace model {
namespace {

using std::int64_t;

int64_t FloorDiv(int64_t a, int64_t b) {
  return a >= 0 ? a / b : -((b - 1 - a) / b);
}

Byte Clamp(int64_t value, int64_t low, int64_t high) {
  return static_cast<Byte>(std::clamp(value, low, high));
}

using Bgr = std::array<Byte, 3>;

Bgr ToBgr(int64_t y, int64_t u, int64_t v, bool simple) {
  if (simple) {
    const int64_t cb = u - 128, cr = v - 128;
    return {Clamp(FloorDiv(1192 * y + 2065 * cb - 18560, 1024), 0, 255),
            Clamp(FloorDiv(1192 * y - 401 * cb - 833 * cr - 18560, 1024), 0, 255),
            Clamp(FloorDiv(1192 * y + 1634 * cr - 18560, 1024), 0, 255)};
  }
  return {Clamp(FloorDiv(9536 * y + 16532 * u - 2268594, 8192), 0, 255),
          Clamp(FloorDiv(9536 * y - 3203 * u - 6660 * v + 1109918, 8192), 0, 255),
          Clamp(FloorDiv(9536 * y + 13074 * v - 1826095, 8192), 0, 255)};
}

Byte Luma(const Bgr& c, bool simple) {
  if (simple) {
    return Clamp(FloorDiv(100 * c[0] + 516 * c[1] + 263 * c[2] + 16896, 1024), 16, 235);
  }
  return static_cast<Byte>(FloorDiv(1606 * c[0] + 8258 * c[1] + 4211 * c[2], 16384) + 16);
}

/// The U and V of 1, 2 or 4 pixels.
std::array<Byte, 2> Chroma(const std::vector<Bgr>& pixels, bool simple) {
  int64_t u = 0, v = 0;
  const auto count = static_cast<int64_t>(pixels.size());
  for (const auto& [b, g, r] : pixels) {
    if (simple) {
      u += Clamp(FloorDiv(450 * b - 298 * g - 152 * r + 131584, 1024), 16, 240);
      v += Clamp(FloorDiv(450 * r - 377 * g - 73 * b + 131584, 1024), 16, 240);
    } else {
      u += FloorDiv(7193 * b - 4768 * g - 2425 * r, 16384);
      v += FloorDiv(7193 * r - 6029 * g - 1163 * b, 16384);
    }
  }
  const int64_t offset = simple ? 0 : 128 * count;
  return {static_cast<Byte>(FloorDiv(u + offset, count)),
          static_cast<Byte>(FloorDiv(v + offset, count))};
}

int64_t Stride(int64_t width, int bits) {
  return (width * bits + 31) / 32 * 4;
}

enum class Fourth { kNone, kKept, kOpaque, kAlpha };

void ToRgb(const Header& bmi, Byte* bits, const Byte* y, const Byte* u, const Byte* v,
           const Byte* a, int64_t py, int64_t pu, int64_t pv, Fourth fourth, bool top_down = false,
           bool simple = false) {
  const int64_t w = bmi.biWidth, h = bmi.biHeight, bytes = fourth == Fourth::kNone ? 3 : 4;
  const int64_t stride = Stride(w, static_cast<int>(8 * bytes));
  for (int64_t r = 0; r < h; ++r) {
    for (int64_t x = 0; x < w; ++x) {
      const bool last_column = w % 2 == 1 && x == w - 1, last_row = h % 2 == 1 && r == h - 1;
      if ((last_column && last_row) || (simple && (last_column || last_row))) continue;
      Byte* const pixel = bits + (top_down ? r : h - 1 - r) * stride + bytes * x;
      const Bgr color = ToBgr(y[r * py + x], u[r / 2 * pu + x / 2], v[r / 2 * pv + x / 2], simple);
      std::copy(color.begin(), color.end(), pixel);
      if (fourth == Fourth::kOpaque) pixel[3] = 255;
      if (fourth == Fourth::kAlpha) pixel[3] = a[r * py + x];
    }
  }
}

void ToYuv(const Header& bmi, const Byte* bits, Byte* y, Byte* u, Byte* v, Byte* a, int64_t py,
           int64_t pu, int64_t pv, int bytes, bool repeat = true, bool top_down = false,
           bool simple = false, const tagRGBQUAD* colors = nullptr) {
  const int64_t w = bmi.biWidth, h = bmi.biHeight, stride = Stride(w, 8 * bytes);
  // Blocks, then the last column, then the last row: where rows overlap, the order shows.
  for (int pass = 0; pass < (simple ? 1 : 3); ++pass) {
    for (int64_t k = 0; k < h; k += 2) {
      for (int64_t m = 0; m < w; m += 2) {
        if (pass != (m + 1 == w ? 1 : 0) + (k + 1 == h ? 2 : 0)) continue;
        std::vector<Bgr> block;
        for (int64_t r = k; r < std::min(k + 2, h); ++r) {
          for (int64_t x = m; x < std::min(m + 2, w); ++x) {
            const Byte* const p = bits + (top_down ? r : h - 1 - r) * stride + bytes * x;
            if (colors) {
              const tagRGBQUAD& color = colors[*p];
              block.push_back({color.rgbBlue, color.rgbGreen, color.rgbRed});
            } else {
              block.push_back({p[0], p[1], p[2]});
            }
            for (int64_t column : {x, x + 1}) {
              if (column > x && !(repeat && m + 1 == w)) continue;
              y[r * py + column] = Luma(block.back(), simple);
              if (a) a[r * py + column] = p[3];
            }
          }
        }
        const auto chroma = Chroma(block, simple);
        u[k / 2 * pu + m / 2] = chroma[0];
        v[k / 2 * pv + m / 2] = chroma[1];
      }
    }
  }
}

/// Byte of a group that holds Y0, U, Y1, V.
std::array<int, 4> Order(int yuy2) {
  return yuy2 ? std::array<int, 4>{0, 1, 2, 3} : std::array<int, 4>{1, 0, 3, 2};
}

bool Moved(int x) {
  return x < 0 || x >= 2;
}

}  // namespace

void Yuv420_2_rgb24(Header* bmi, Byte* bits, Byte* y, Byte* u, Byte* v, int py, int pu, int pv) {
  ToRgb(*bmi, bits, y, u, v, nullptr, py, pu, pv, Fourth::kNone);
}
void Yuv420_2_rgb32(Header* bmi, Byte* bits, Byte* y, Byte* u, Byte* v, int py, int pu, int pv) {
  ToRgb(*bmi, bits, y, u, v, nullptr, py, pu, pv, Fourth::kKept);
}
void Yuv420_2_Argb(Header* bmi, Byte* bits, Byte* y, Byte* u, Byte* v, int py, int pu, int pv) {
  ToRgb(*bmi, bits, y, u, v, nullptr, py, pu, pv, Fourth::kOpaque, true);
}
void Yuv420_2_rgb32_Alpha(Header* bmi, Byte* bits, Byte* y, Byte* u, Byte* v, Byte* a, int py,
                          int pu, int pv) {
  ToRgb(*bmi, bits, y, u, v, a, py, pu, pv, Fourth::kAlpha);
}
void Yuv420_2_rgb24Simple(Header* bmi, Byte* bits, Byte* y, Byte* u, Byte* v, int py, int pu,
                          int pv) {
  ToRgb(*bmi, bits, y, u, v, nullptr, py, pu, pv, Fourth::kNone, false, true);
}

void Rgb24_2_yuv420(Byte* y, Byte* u, Byte* v, int py, int pu, int pv, Header* bmi, Byte* bits) {
  ToYuv(*bmi, bits, y, u, v, nullptr, py, pu, pv, 3);
}
void Rgb32_2_yuv420(Byte* y, Byte* u, Byte* v, int py, int pu, int pv, Header* bmi, Byte* bits) {
  ToYuv(*bmi, bits, y, u, v, nullptr, py, pu, pv, 4);
}
void Argb_2_yuv420(Byte* y, Byte* u, Byte* v, int py, int pu, int pv, Header* bmi, Byte* bits) {
  ToYuv(*bmi, bits, y, u, v, nullptr, py, pu, pv, 4, true, true);
}
void Rgb8_2_YUV420(Byte* y, Byte* u, Byte* v, int py, int pu, int pv, tagBITMAPINFO* info,
                   Byte* bits) {
  ToYuv(info->bmiHeader, bits, y, u, v, nullptr, py, pu, pv, 1, true, false, false,
        info->bmiColors);
}
void Rgb32_2_yuv420_Alpha(Byte* y, Byte* u, Byte* v, Byte* a, int py, int pu, int pv, Header* bmi,
                          Byte* bits) {
  ToYuv(*bmi, bits, y, u, v, a, py, pu, pv, 4);
}
void Rgb32_2_yuv420A(Byte* y, Byte* u, Byte* v, Byte* a, int py, int pu, int pv, Header* bmi,
                     Byte* bits) {
  ToYuv(*bmi, bits, y, u, v, a, py, pu, pv, 4, false);
}
void Rgb24_2_yuv420Simple(Byte* y, Byte* u, Byte* v, int py, int pu, int pv, Header* bmi,
                          Byte* bits) {
  ToYuv(*bmi, bits, y, u, v, nullptr, py, pu, pv, 3, false, false, true);
}

void Rgb24_2_YUY2(Byte* dst, int pitch_dst, int x_dst, int y_dst, int cx, int cy, int yuy2,
                  Byte* src, int height_src, int pitch_src, int x_src, int y_src) {
  if (Moved(x_dst)) --x_dst, ++cx;
  const auto order = Order(yuy2);
  for (bool lone : {false, true}) {
    for (int t = 0; t < cy; ++t) {
      for (int k = lone ? cx / 2 * 2 : 0; lone ? k < cx : k < cx / 2 * 2; k += 2) {
        std::vector<Bgr> pixels;
        for (int i = k; i < std::min(k + 2, cx); ++i) {
          const Byte* p = src + (height_src - 1 - y_src - t) * pitch_src + 3 * (x_src + i);
          pixels.push_back({p[0], p[1], p[2]});
        }
        const auto chroma = Chroma(pixels, false);
        Byte* const group = dst + (y_dst + t) * pitch_dst + 2 * (x_dst + k);
        group[order[0]] = Luma(pixels.front(), false);
        group[order[1]] = chroma[0];
        group[order[2]] = Luma(pixels.back(), false);
        group[order[3]] = chroma[1];
      }
    }
  }
}

void YUY2_2_Rgb24(Byte* dst, int height_dst, int pitch_dst, int x_dst, int y_dst, int cx, int cy,
                  Byte* src, int pitch_src, int yuy2, int x_src, int y_src) {
  if (Moved(x_src)) --x_src;
  const auto order = Order(yuy2);
  for (int t = 0; t < cy; ++t) {
    for (int k = 0; k < cx; ++k) {
      const Byte* const group = src + (y_src + t) * pitch_src + 2 * (x_src + k / 2 * 2);
      const Bgr color =
          ToBgr(group[order[k % 2 == 0 ? 0 : 2]], group[order[1]], group[order[3]], false);
      std::copy(color.begin(), color.end(),
                dst + (height_dst - 1 - y_dst - t) * pitch_dst + 3 * (x_dst + k));
    }
  }
}

void YUY2_Blt_fast(Byte* dst, int pitch_dst, int x_dst, int y_dst, int cx, int cy, int yuy2_dst,
                   Byte* src, int pitch_src, int yuy2_src, int x_src, int y_src) {
  const bool copy = yuy2_dst == yuy2_src;
  for (int t = 0; t < cy; ++t) {
    for (int i = 0; i < 2 * (copy ? cx : (cx + 1) / 2 * 2); ++i) {
      dst[(y_dst + t) * pitch_dst + 2 * x_dst + i] =
          src[(y_src + t) * pitch_src + 2 * x_src + (copy ? i : i ^ 1)];
    }
  }
}

void YV12_Blt_fast(Byte* dst_y, Byte* dst_u, Byte* dst_v, int dpy, int dpu, int dpv, int x_dst,
                   int y_dst, int cx, int y_end, Byte* src_y, Byte* src_u, Byte* src_v, int spy,
                   int spu, int spv, int x_src, int y_src) {
  // Pair after pair: where planes lie on each other, the order shows.
  for (int i = 0; y_dst + 2 * i < y_end; ++i) {
    for (int row : {2 * i, 2 * i + 1}) {
      for (int x = 0; x < cx; ++x) {
        dst_y[(y_dst + row) * dpy + x_dst + x] = src_y[(y_src + row) * spy + x_src + x];
      }
    }
    const int dst_x = (x_dst + 1) / 2, src_x = (x_src + 1) / 2;
    for (int m = 0; m < (cx + 1) / 2; ++m) {
      dst_u[(y_dst / 2 + i) * dpu + dst_x + m] = src_u[(y_src / 2 + i) * spu + src_x + m];
    }
    for (int m = 0; m < (cx + 1) / 2; ++m) {
      dst_v[(y_dst / 2 + i) * dpv + dst_x + m] = src_v[(y_src / 2 + i) * spv + src_x + m];
    }
  }
}

void YUY2_2_Yuv420(Byte* y, Byte* u, Byte* v, int py, int pu, int pv, int x_dst, int y_dst, int cx,
                   int cy, Byte* src, int pitch_src, int yuy2, int x_src, int y_src) {
  const auto order = Order(yuy2);
  for (int k = 0; k < cy; k += 2) {
    for (int g = 0; 2 * g < cx; ++g) {
      const Byte* const upper = src + (y_src + k) * pitch_src + 2 * x_src + 4 * g;
      const Byte* const lower = upper + pitch_src;
      for (int row : {0, 1}) {
        for (int i : {0, 1}) {
          y[(y_dst + k + row) * py + x_dst + 2 * g + i] = (row ? lower : upper)[order[2 * i]];
        }
      }
      u[(y_dst / 2 + k / 2) * pu + x_dst / 2 + g] =
          static_cast<Byte>((upper[order[1]] + lower[order[1]]) / 2);
      v[(y_dst / 2 + k / 2) * pv + x_dst / 2 + g] =
          static_cast<Byte>((upper[order[3]] + lower[order[3]]) / 2);
    }
  }
}

void Yuv420_2_YUY2(Byte* dst, int pitch_dst, int x_dst, int y_dst, int cx, int cy, int yuy2,
                   Byte* y, Byte* u, Byte* v, int py, int pu, int pv, int x_src, int y_src) {
  const auto order = Order(yuy2);
  for (int k = 0; k < cy; k += 2) {
    for (int g = 0; 2 * g < cx; ++g) {
      for (int row : {k, k + 1}) {
        Byte* const group = dst + (y_dst + row) * pitch_dst + 2 * x_dst + 4 * g;
        group[order[0]] = y[(y_src + row) * py + x_src + 2 * g];
        group[order[2]] = y[(y_src + row) * py + x_src + 2 * g + 1];
        group[order[1]] = u[(y_src / 2 + k / 2) * pu + x_src / 2 + g];
        group[order[3]] = v[(y_src / 2 + k / 2) * pv + x_src / 2 + g];
      }
    }
  }
}

}  // namespace model
