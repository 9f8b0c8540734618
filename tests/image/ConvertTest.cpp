// The colour conversions, packed 4:2:2 routines and plane copies: worked-out values, a model of
// each family pixel by pixel, and every colour, with the kernels of every level.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <numeric>
#include <ostream>
#include <string>
#include <vector>

#include "tests/support/Kernels.h"
#include "zel/Common/Image/ImageConvert.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using namespace zel::test;  // NOLINT

using BitmapHeader = tagBITMAPINFOHEADER;

BitmapHeader Header(int width, int height, int bits) {
  BitmapHeader header{};
  header.biSize = 40;
  header.biWidth = width;
  header.biHeight = height;
  header.biBitCount = static_cast<std::uint16_t>(bits);
  return header;
}

// The arithmetic of a pixel.

Byte Clamp(int value, int low = 0, int high = 255) {
  return static_cast<Byte>(std::clamp(value, low, high));
}

void ToBgr(int y, int u, int v, bool simple, Byte* bgr) {
  if (simple) {
    bgr[0] = Clamp((1192 * y + 2065 * (u - 128) - 18560) >> 10);
    bgr[1] = Clamp((1192 * y - 401 * (u - 128) - 833 * (v - 128) - 18560) >> 10);
    bgr[2] = Clamp((1192 * y + 1634 * (v - 128) - 18560) >> 10);
  } else {
    bgr[0] = Clamp((9536 * y + 16532 * u - 2268594) >> 13);
    bgr[1] = Clamp((9536 * y - 3203 * u - 6660 * v + 1109918) >> 13);
    bgr[2] = Clamp((9536 * y + 13074 * v - 1826095) >> 13);
  }
}

Byte Luma(const Byte* bgr, bool simple = false) {
  if (simple) return Clamp((100 * bgr[0] + 516 * bgr[1] + 263 * bgr[2] + 16896) >> 10, 16, 235);
  return static_cast<Byte>(((1606 * bgr[0] + 8258 * bgr[1] + 4211 * bgr[2]) >> 14) + 16);
}

/// Chroma of 1, 2 or 4 pixels: the floored mean of floored terms.
class Chroma {
 public:
  void Add(const Byte* bgr, bool simple = false) {
    const int b = bgr[0], g = bgr[1], r = bgr[2];
    if (simple) {
      u_ += Clamp((450 * b - 298 * g - 152 * r + 131584) >> 10, 16, 240);
      v_ += Clamp((450 * r - 377 * g - 73 * b + 131584) >> 10, 16, 240);
    } else {
      u_ += ((7193 * b - 4768 * g - 2425 * r) >> 14) + 128;
      v_ += ((7193 * r - 6029 * g - 1163 * b) >> 14) + 128;
    }
    ++count_;
  }
  Byte u() const { return static_cast<Byte>(u_ / count_); }
  Byte v() const { return static_cast<Byte>(v_ / count_); }

 private:
  int u_ = 0, v_ = 0, count_ = 0;
};

// The families. Each allocates buffers for a shape and either calls the routine or models it.

struct Shape {
  int w, h;
  int pad = 0;        ///< Bytes by which pitches exceed the rows.
  bool flip = false;  ///< Negative pitches.
  int xDst = 0, yDst = 0, xSrc = 0, ySrc = 0;
  int flag = 1;
  int chromaPad = 0;  ///< The same for chroma planes, in addition. RGB to YUV only.
  int value = -1;     ///< Not negative: the source is every colour with one component of this.

  friend std::ostream& operator<<(std::ostream& out, const Shape& s) {
    return out << s.w << " x " << s.h << " pad " << s.pad << " and " << s.chromaPad
               << (s.flip ? " flipped" : "") << " from (" << s.xSrc << ", " << s.ySrc << ") to ("
               << s.xDst << ", " << s.yDst << ") flag " << s.flag << " value " << s.value;
  }
};

struct Plane {
  Byte* first;
  int pitch;
  Byte* operator[](int row) const { return first + std::ptrdiff_t{row} * pitch; }
};

/// `rows` rows of `rowBytes`; nothing after the last. With a negative padding rows overlap.
Plane Rows(Arena& arena, int rows, int rowBytes, const Shape& s) {
  const int pitch = std::max(rowBytes + s.pad, 0);
  const std::ptrdiff_t last = std::ptrdiff_t{rows - 1} * pitch;
  Byte* const bytes = arena.Buffer(static_cast<std::size_t>(last + rowBytes));
  return s.flip ? Plane{bytes + last, -pitch} : Plane{bytes, pitch};
}

/// A bitmap without the padding of the row that is last in memory. Row 0 is the top of the picture.
Plane Bitmap(Arena& arena, const Shape& s, int bits, bool topDown, Byte** bytes) {
  const int stride = (s.w * bits + 31) / 32 * 4;
  *bytes = Rows(arena, s.h, s.w * bits / 8, {s.w, s.h, stride - s.w * bits / 8}).first;
  return topDown ? Plane{*bytes, stride}
                 : Plane{*bytes + std::ptrdiff_t{s.h - 1} * stride, -stride};
}

struct Yuv {
  Plane y, u, v;
};

using Family = std::function<void(Arena&, const Shape&, bool model)>;

enum class Fourth { kNone, kKept, kOpaque, kAlpha, kAlphaNotRepeated };

using YuvToBitmap = void (*)(BitmapHeader*, Byte*, Byte*, Byte*, Byte*, int, int, int);
using YuvaToBitmap = void (*)(BitmapHeader*, Byte*, Byte*, Byte*, Byte*, Byte*, int, int, int);

template <typename Routine>
Family ToRgb(Routine routine, Fourth fourth, bool topDown = false, bool simple = false) {
  return [=](Arena& arena, const Shape& s, bool model) {
    const int size = fourth == Fourth::kNone ? 3 : 4;
    const Plane y = Rows(arena, s.h, s.w, s), u = Rows(arena, (s.h + 1) / 2, (s.w + 1) / 2, s),
                v = Rows(arena, (s.h + 1) / 2, (s.w + 1) / 2, s);
    Byte* bits;
    const Plane bitmap = Bitmap(arena, s, 8 * size, topDown, &bits);
    const Plane a = fourth == Fourth::kAlpha ? Rows(arena, s.h, s.w, s) : Plane{};
    for (int r = 0; s.value >= 0 && r < s.h; ++r) {
      for (int x = 0; x < s.w; ++x) {
        y[r][x] = static_cast<Byte>(2 * r + x % 2);
        u[r / 2][x / 2] = static_cast<Byte>(x / 2);
        v[r / 2][x / 2] = static_cast<Byte>(s.value);
      }
    }
    if (!model) {
      auto bmi = Header(s.w, s.h, 8 * size);
      if constexpr (std::is_same_v<Routine, YuvaToBitmap>) {
        routine(&bmi, bits, y[0], u[0], v[0], a[0], y.pitch, u.pitch, v.pitch);
      } else {
        routine(&bmi, bits, y[0], u[0], v[0], y.pitch, u.pitch, v.pitch);
      }
      return;
    }
    for (int r = 0; r < s.h; ++r) {
      for (int x = 0; x < s.w; ++x) {
        const bool lastColumn = s.w % 2 && x == s.w - 1, lastRow = s.h % 2 && r == s.h - 1;
        if ((lastColumn && lastRow) || (simple && (lastColumn || lastRow))) continue;
        Byte* const pixel = bitmap[r] + size * x;
        ToBgr(y[r][x], u[r / 2][x / 2], v[r / 2][x / 2], simple, pixel);
        if (fourth == Fourth::kOpaque) pixel[3] = 255;
        if (fourth == Fourth::kAlpha) pixel[3] = a[r][x];
      }
    }
  };
}

using BitmapToYuv = void (*)(Byte*, Byte*, Byte*, int, int, int, BitmapHeader*, Byte*);
using IndexedToYuv = void (*)(Byte*, Byte*, Byte*, int, int, int, tagBITMAPINFO*, Byte*);
using BitmapToYuva = void (*)(Byte*, Byte*, Byte*, Byte*, int, int, int, BitmapHeader*, Byte*);

template <typename Routine>
Family ToYuv(Routine routine, int bits, Fourth fourth = Fourth::kKept, bool topDown = false,
             bool simple = false) {
  return [=](Arena& arena, const Shape& s, bool model) {
    const int size = bits / 8;
    Byte *data, *info = nullptr;
    const Plane bitmap = Bitmap(arena, s, bits, topDown, &data);
    if (bits == 8) {
      // The colour table ends with the highest index of the picture.
      const int colors = s.value < 0 ? 1 + (s.w * 37 + s.h * 11) % 256 : 256;
      info = arena.Buffer(40 + 4 * static_cast<std::size_t>(colors));
      for (int r = 0; r < s.h; ++r) {
        for (int x = 0; x < s.w; ++x) {
          bitmap[r][x] = static_cast<Byte>(s.value < 0 ? bitmap[r][x] * colors / 256 : x / 2);
        }
      }
    }
    for (int r = 0; bits > 8 && s.value >= 0 && r < s.h; ++r) {
      for (int x = 0; x < s.w; ++x) {
        bitmap[r][size * x] = static_cast<Byte>(x / 2);
        bitmap[r][size * x + 1] = static_cast<Byte>(r / 2);
        bitmap[r][size * x + 2] = static_cast<Byte>(s.value);
      }
    }
    Shape chroma = s;
    chroma.pad += s.chromaPad;
    const int lumaWidth = s.w + s.w % 2;
    const Plane y = Rows(arena, s.h, lumaWidth, s),
                u = Rows(arena, (s.h + 1) / 2, (s.w + 1) / 2, chroma),
                v = Rows(arena, (s.h + 1) / 2, (s.w + 1) / 2, chroma);
    const bool alpha = fourth == Fourth::kAlpha || fourth == Fourth::kAlphaNotRepeated;
    const Plane a = alpha ? Rows(arena, s.h, lumaWidth, s) : Plane{};
    auto bmi = Header(s.w, s.h, bits);
    if (info) std::memcpy(info, &bmi, 40);
    if (!model) {
      if constexpr (std::is_same_v<Routine, BitmapToYuva>) {
        routine(y[0], u[0], v[0], a[0], y.pitch, u.pitch, v.pitch, &bmi, data);
      } else if constexpr (std::is_same_v<Routine, IndexedToYuv>) {
        routine(y[0], u[0], v[0], y.pitch, u.pitch, v.pitch, reinterpret_cast<tagBITMAPINFO*>(info),
                data);
      } else {
        routine(y[0], u[0], v[0], y.pitch, u.pitch, v.pitch, &bmi, data);
      }
      return;
    }
    // Blocks, then the last column, then the last row: where rows overlap, the order shows.
    for (int pass = 0; pass < (simple ? 1 : 3); ++pass) {
      for (int k = 0; k < s.h; k += 2) {
        for (int m = 0; m < s.w; m += 2) {
          if (pass != (m + 1 == s.w ? 1 : 0) + (k + 1 == s.h ? 2 : 0)) continue;
          Chroma mean;
          for (int r = k; r < std::min(k + 2, s.h); ++r) {
            for (int x = m; x < std::min(m + 2, s.w); ++x) {
              const Byte* const pixel = bitmap[r] + size * x;
              const Byte* const bgr = info ? info + 40 + 4 * *pixel : pixel;
              mean.Add(bgr, simple);
              const bool repeat = m + 1 == s.w && fourth != Fourth::kAlphaNotRepeated;
              for (int column = x; column <= x + repeat; ++column) {
                y[r][column] = Luma(bgr, simple);
                if (alpha) a[r][column] = pixel[3];
              }
            }
          }
          u[k / 2][m / 2] = mean.u();
          v[k / 2][m / 2] = mean.v();
        }
      }
    }
  };
}

int Even(int n) {
  return n + n % 2;
}

/// A group of packed 4:2:2 by its parts.
struct Group {
  Byte &y0, &u, &y1, &v;
  Group(Byte* at, int lumaFirst)
      : y0(at[!lumaFirst]), u(at[!!lumaFirst]), y1(at[2 + !lumaFirst]), v(at[2 + !!lumaFirst]) {}
  void Set(Byte newY0, Byte newU, Byte newY1, Byte newV) {
    y0 = newY0;
    u = newU;
    y1 = newY1;
    v = newV;
  }
};

void Rgb24ToYuy2(Arena& arena, const Shape& s, bool model) {
  // From x = 2 on, the rectangle begins one column earlier.
  const int moved = s.xDst >= 2 ? 1 : 0, cx = s.w + moved, xDst = s.xDst - moved;
  Plane dst = Rows(arena, s.yDst + s.h, 2 * (xDst + Even(cx)), s);
  const Plane src = Rows(arena, s.ySrc + s.h, 3 * (s.xSrc + cx), {1, 1, std::max(s.pad, 0)});
  // The precondition on the pitch cannot hold for a negative one.
  if (s.flip) dst = {dst[s.yDst + s.h - 1], -dst.pitch};
  if (!model) {
    Rgb24_2_YUY2(dst[0], dst.pitch, s.xDst, s.yDst, s.w, s.h, s.flag, src[0], s.ySrc + s.h,
                 src.pitch, s.xSrc, s.ySrc);
    return;
  }
  // A lone last group is written after all others.
  for (const bool lone : {false, true}) {
    for (int t = 0; t < s.h; ++t) {
      for (int k = lone ? cx / 2 * 2 : 0; lone ? k < cx : k + 1 < cx; k += 2) {
        const Byte* const first = src[s.h - 1 - t] + 3 * (s.xSrc + k);
        const Byte* const second = lone ? first : first + 3;
        Chroma mean;
        mean.Add(first);
        mean.Add(second);
        Group(dst[s.yDst + t] + 2 * (xDst + k), s.flag)
            .Set(Luma(first), mean.u(), Luma(second), mean.v());
      }
    }
  }
}

void Yuy2ToRgb24(Arena& arena, const Shape& s, bool model) {
  const int xSrc = s.xSrc >= 2 ? s.xSrc - 1 : s.xSrc;
  // The last group of an odd width gives no second luma: only its first bytes are there.
  const int lastGroup = s.w % 2 == 0 ? 0 : s.flag ? 4 : 3;
  const Plane src = Rows(arena, s.ySrc + s.h, 2 * (xSrc + s.w / 2 * 2) + lastGroup, s);
  const Plane dst = Rows(arena, s.yDst + s.h, 3 * (s.xDst + s.w), s);
  if (!model) {
    YUY2_2_Rgb24(dst[0], s.yDst + s.h, dst.pitch, s.xDst, s.yDst, s.w, s.h, src[0], src.pitch,
                 s.flag, s.xSrc, s.ySrc);
    return;
  }
  for (int t = 0; t < s.h; ++t) {
    for (int k = 0; k < s.w; ++k) {
      const Group group(src[s.ySrc + t] + 2 * (xSrc + k / 2 * 2), s.flag);
      ToBgr(k % 2 ? group.y1 : group.y0, group.u, group.v, false,
            dst[s.h - 1 - t] + 3 * (s.xDst + k));
    }
  }
}

void Yuy2Blt(Arena& arena, const Shape& s, bool model) {
  const bool copy = s.flag == 2;  // Flags are compared as integers.
  const int bytes = 2 * (copy ? s.w : Even(s.w));
  const Plane src = Rows(arena, s.ySrc + s.h, 2 * s.xSrc + bytes, s);
  const Plane dst = Rows(arena, s.yDst + s.h, 2 * s.xDst + bytes, s);
  if (!model) {
    YUY2_Blt_fast(dst[0], dst.pitch, s.xDst, s.yDst, s.w, s.h, s.flag, src[0], src.pitch, 2, s.xSrc,
                  s.ySrc);
    return;
  }
  for (int t = 0; t < s.h; ++t) {
    for (int i = 0; i < bytes; ++i) {
      dst[s.yDst + t][2 * s.xDst + i] = src[s.ySrc + t][2 * s.xSrc + (copy ? i : i ^ 1)];
    }
  }
}

/// The planes of a rectangle at (x, y): luma, then chroma from column `chromaX` on.
Yuv YuvPlanes(Arena& arena, const Shape& s, int x, int y, int lumaWidth, int chromaX) {
  const int chromaRows = y / 2 + Even(s.h) / 2, chromaWidth = chromaX + (s.w + 1) / 2;
  return {Rows(arena, y + Even(s.h), x + lumaWidth, s), Rows(arena, chromaRows, chromaWidth, s),
          Rows(arena, chromaRows, chromaWidth, s)};
}

void CopyYuv(const Yuv& dst, const Yuv& src, const Shape& s, bool model) {
  if (!model) {
    YV12_Blt_fast(dst.y[0], dst.u[0], dst.v[0], dst.y.pitch, dst.u.pitch, dst.v.pitch, s.xDst,
                  s.yDst, s.w, s.yDst + s.h, src.y[0], src.u[0], src.v[0], src.y.pitch, src.u.pitch,
                  src.v.pitch, s.xSrc, s.ySrc);
    return;
  }
  // Pair after pair: where planes lie on each other, the order shows.
  for (int i = 0; 2 * i < s.h; ++i) {
    for (const int row : {2 * i, 2 * i + 1}) {
      std::memcpy(dst.y[s.yDst + row] + s.xDst, src.y[s.ySrc + row] + s.xSrc,
                  static_cast<std::size_t>(s.w));
    }
    for (Plane Yuv::*plane : {&Yuv::u, &Yuv::v}) {
      std::memcpy((dst.*plane)[s.yDst / 2 + i] + (s.xDst + 1) / 2,
                  (src.*plane)[s.ySrc / 2 + i] + (s.xSrc + 1) / 2,
                  static_cast<std::size_t>((s.w + 1) / 2));
    }
  }
}

void Yv12Blt(Arena& arena, const Shape& s, bool model) {
  const Yuv src = YuvPlanes(arena, s, s.xSrc, s.ySrc, s.w, (s.xSrc + 1) / 2);
  CopyYuv(YuvPlanes(arena, s, s.xDst, s.yDst, s.w, (s.xDst + 1) / 2), src, s, model);
}

/// Planes that may lie on each other, and rows that may lie on each other, too.
void Yv12BltAnywhere(Arena& arena, const Shape& s, bool model) {
  Random random(static_cast<unsigned>(s.w * 997 + s.h + s.pad * 31 + s.xDst));
  const int w = 1 + s.w % 10, h = 1 + s.h % 9, chroma = (w + 1) / 2;
  const int pitch = w + random.Below(3) * random.Between(-3, 3);
  const int pitchU = chroma + random.Below(2) * random.Between(-2, 2);
  const int pitchV = random.Below(2) ? pitchU : -pitchU;
  Byte* const planes = arena.Buffer(1000);
  Byte *const atY = planes + 400 + random.Below(100), *const end = atY + h * pitch;
  Byte* const atU = random.Below(2) ? end : planes + 400 + random.Below(200);
  Byte* const atV = random.Below(2) ? end + (h + 1) / 2 * pitchU : planes + 400 + random.Below(200);
  const Yuv src = YuvPlanes(arena, {w, h}, 0, 0, w, 0);
  CopyYuv({{atY, pitch}, {atU, pitchU}, {atV, pitchV}}, src, {w, h}, model);
}

/// Packed to planes and back. Odd sizes are rounded up; planes get the mean chroma of two rows.
template <bool kToPlanes>
void BetweenPackedAndPlanes(Arena& arena, const Shape& given, bool model) {
  Shape s = given;
  // To planes, the precondition on V asks for a positive pitch and rows not below the source's.
  if (kToPlanes) s.yDst = std::min(s.yDst, s.ySrc);
  const int x = kToPlanes ? s.xSrc : s.xDst, y = kToPlanes ? s.ySrc : s.yDst;
  const int xYuv = kToPlanes ? s.xDst : s.xSrc, yYuv = kToPlanes ? s.yDst : s.ySrc;
  const Plane packed = Rows(arena, y + Even(s.h), 2 * (x + Even(s.w)), s);
  if (kToPlanes) s.flip = false;
  const Yuv yuv = YuvPlanes(arena, s, xYuv, yYuv, Even(s.w), xYuv / 2);
  if (!model && kToPlanes) {
    YUY2_2_Yuv420(yuv.y[0], yuv.u[0], yuv.v[0], yuv.y.pitch, yuv.u.pitch, yuv.v.pitch, xYuv, yYuv,
                  s.w, s.h, packed[0], packed.pitch, s.flag, x, y);
  } else if (!model) {
    Yuv420_2_YUY2(packed[0], packed.pitch, x, y, s.w, s.h, s.flag, yuv.y[0], yuv.u[0], yuv.v[0],
                  yuv.y.pitch, yuv.u.pitch, yuv.v.pitch, xYuv, yYuv);
  }
  for (int row = 0; model && row < Even(s.h); ++row) {
    for (int g = 0; 2 * g < s.w; ++g) {
      Group own(packed[y + row] + 2 * x + 4 * g, s.flag);
      const Group other(packed[y + (row ^ 1)] + 2 * x + 4 * g, s.flag);
      Byte* const luma = yuv.y[yYuv + row] + xYuv + 2 * g;
      Byte& u = yuv.u[yYuv / 2 + row / 2][xYuv / 2 + g];
      Byte& v = yuv.v[yYuv / 2 + row / 2][xYuv / 2 + g];
      if (kToPlanes) {
        luma[0] = own.y0;
        luma[1] = own.y1;
        u = static_cast<Byte>((own.u + other.u) / 2);
        v = static_cast<Byte>((own.v + other.v) / 2);
      } else {
        own.Set(luma[0], u, luma[1], v);
      }
    }
  }
}

struct Routine {
  const char* name;
  Family family;
  int allColors = 0;  ///< Rows of a picture 512 pixels wide with every colour; 0 without colours.
};
const Routine kRoutines[] = {
    {"Yuv420_2_rgb24", ToRgb(&Yuv420_2_rgb24, Fourth::kNone), 128},
    {"Yuv420_2_rgb32", ToRgb(&Yuv420_2_rgb32, Fourth::kKept), 128},
    {"Yuv420_2_Argb", ToRgb(&Yuv420_2_Argb, Fourth::kOpaque, true), 128},
    {"Yuv420_2_rgb32_Alpha", ToRgb(&Yuv420_2_rgb32_Alpha, Fourth::kAlpha), 128},
    {"Yuv420_2_rgb24Simple", ToRgb(&Yuv420_2_rgb24Simple, Fourth::kNone, false, true), 128},
    {"Rgb24_2_yuv420", ToYuv(&Rgb24_2_yuv420, 24), 512},
    {"Rgb32_2_yuv420", ToYuv(&Rgb32_2_yuv420, 32), 512},
    {"Argb_2_yuv420", ToYuv(&Argb_2_yuv420, 32, Fourth::kKept, true), 512},
    {"Rgb8_2_YUV420", ToYuv(&Rgb8_2_YUV420, 8), 2},
    {"Rgb32_2_yuv420_Alpha", ToYuv(&Rgb32_2_yuv420_Alpha, 32, Fourth::kAlpha), 512},
    {"Rgb32_2_yuv420A", ToYuv(&Rgb32_2_yuv420A, 32, Fourth::kAlphaNotRepeated), 512},
    {"Rgb24_2_yuv420Simple", ToYuv(&Rgb24_2_yuv420Simple, 24, Fourth::kKept, false, true), 512},
    {"Rgb24_2_YUY2", Rgb24ToYuy2},
    {"YUY2_2_Rgb24", Yuy2ToRgb24},
    {"YUY2_Blt_fast", Yuy2Blt},
    {"YV12_Blt_fast", Yv12Blt},
    {"YV12_Blt_fast_Anywhere", Yv12BltAnywhere},
    {"YUY2_2_Yuv420", BetweenPackedAndPlanes<true>},
    {"Yuv420_2_YUY2", BetweenPackedAndPlanes<false>},
};

class EveryRoutine : public KernelTest, public testing::WithParamInterface<Routine> {
 protected:
  void Check(const Shape& s) {
    const Family& family = GetParam().family;
    ASSERT_TRUE(SameAtEveryLevel(
        seed_++, [&](Arena& arena) { family(arena, s, true); },
        [&](Arena& arena) { family(arena, s, false); }))
        << s;
  }
  unsigned seed_ = 1;
};

TEST_P(EveryRoutine, SmallShapes) {
  Random random(1);
  for (int w = 1; w <= 40; ++w) {
    for (int i = 0; i < 16; ++i) {
      const int h = i < 7 ? i + 1 : random.Between(1, 40);
      ASSERT_NO_FATAL_FAILURE(
          Check({w, h, random.Below(2) * random.Below(71), random.Below(2) == 1, random.Below(5),
                 random.Below(4), random.Below(5), random.Below(4), random.Below(3)}));
      ASSERT_NO_FATAL_FAILURE(Check({w, h}));
    }
  }
}

TEST_P(EveryRoutine, LargeShapes) {
  for (const Shape& shape :
       {Shape{1919, 5}, Shape{2051, 3, 5, true}, Shape{4097, 2, 0, false, 3, 1, 2, 1, 0},
        Shape{133, 211, 1}, Shape{2, 1027}, Shape{521, 255}, Shape{642, 207, 6, true},
        Shape{65541, 3}, Shape{131075, 1}, Shape{1, 70001}}) {
    ASSERT_NO_FATAL_FAILURE(Check(shape));
  }
  for (int w = 41; w <= 200; ++w) {
    ASSERT_NO_FATAL_FAILURE(Check({w, 3, w % 3, false, 0, 0, 0, 0, w % 2}));
  }
}

// A caller who gives luma an odd width as its pitch forgot the column that is written behind it.
// One who gives a plane no pitch, or too little, keeps what is written last.
TEST_P(EveryRoutine, WritesOverlappingRowsInTheOrderOfThePasses) {
  const std::string name = GetParam().name;
  if (name.find("_2_yuv420") == name.npos && name != "Rgb8_2_YUV420") GTEST_SKIP() << "none";
  for (const int w : {1, 2, 3, 4, 5, 6, 40, 41, 64, 65, 128, 129, 257}) {
    for (int h = 1; h <= 7; ++h) {
      for (const int pad : {-1, -2, -3, 1 - w, -w, -w - 1}) {
        const bool flip = (h + pad) % 2 != 0;
        ASSERT_NO_FATAL_FAILURE(Check({w, h, pad, flip}));
        ASSERT_NO_FATAL_FAILURE(Check({w, h, 0, flip, 0, 0, 0, 0, 1, pad / 2}));
        ASSERT_NO_FATAL_FAILURE(Check({w, h, pad, flip, 0, 0, 0, 0, 1, w}));
      }
    }
  }
}

// All values of one component with ZEL_ALL_COLOURS in the environment, else a few.
TEST_P(EveryRoutine, EveryColour) {
  if (GetParam().allColors == 0) GTEST_SKIP() << "no colours";
  const int step = std::getenv("ZEL_ALL_COLOURS") ? 1 : 127;
  for (int value = 0; value < 256; value += step) {
    ASSERT_NO_FATAL_FAILURE(
        Check({512, GetParam().allColors, 0, false, 0, 0, 0, 0, value % 2, 0, value}));
  }
}

INSTANTIATE_TEST_SUITE_P(Convert, EveryRoutine, testing::ValuesIn(kRoutines),
                         [](const auto& routine) { return std::string(routine.param.name); });

// What the model cannot tell.

class ConvertTest : public KernelTest {};

TEST_F(ConvertTest, GivesTheWorkedOutColours) {
  auto bmi = Header(2, 2, 24);
  const struct {
    Byte y, u, v;
    Bytes bgr;
    bool simple;
  } colors[] = {{235, 128, 128, {254, 254, 254}, false},
                {235, 128, 128, {255, 255, 255}, true},
                {81, 90, 240, {0, 0, 254}, false},
                {41, 240, 110, {255, 0, 0}, true}};
  for (auto color : colors) {
    Bytes y(4, color.y), bits(16);
    (color.simple ? Yuv420_2_rgb24Simple : Yuv420_2_rgb24)(&bmi, bits.data(), y.data(), &color.u,
                                                           &color.v, 2, 1, 1);
    EXPECT_EQ(Bytes(bits.begin() + 11, bits.begin() + 14), color.bgr);
  }
  // Two red and two blue pixels: the floored mean of floored terms.
  Bytes bits = {0, 0, 255, 255, 0, 0, 0, 0, 0, 0, 255, 255, 0, 0, 0, 0}, y(4);
  Byte u, v;
  Rgb24_2_yuv420(y.data(), &u, &v, 2, 1, 1, &bmi, bits.data());
  EXPECT_EQ((Bytes{y[0], y[1], u, v}), (Bytes{81, 40, 164, 174}));
}

TEST_F(ConvertTest, PackedGroups) {
  Bytes white(6, 255), group(4), bits(8, 7);
  Rgb24_2_YUY2(group.data(), 4, 0, 0, 2, 1, 0, white.data(), 1, 6, 0, 0);
  EXPECT_THAT(group, ElementsAre(128, 235, 128, 235));
  group = {16, 128, 235, 128};
  // A single row needs no pitch.
  YUY2_2_Rgb24(bits.data(), 1, INT_MIN, 0, 0, 2, 1, group.data(), 4, 1, 0, 0);
  EXPECT_THAT(bits, ElementsAre(0, 0, 0, 254, 254, 254, 7, 7));
}

// A pitch of exactly three pixels: the second half of a lone group lies on the next row's first
// pixel.
TEST_F(ConvertTest, LoneLastGroupsAreWrittenAfterAllOthers) {
  EXPECT_TRUE(SameAtEveryLevel(
      1,
      [](Arena& arena) {
        Rgb24ToYuy2(arena, {3, 2, -2}, true);
      },
      [](Arena& arena) {
        Rgb24ToYuy2(arena, {3, 2, -2}, false);
      }));
}

TEST_F(ConvertTest, ByteOrderChangesInPlace) {
  for (int groups = 1; groups < 1100; groups += groups < 80 ? 1 : 93) {
    const auto size = 4 * static_cast<std::size_t>(groups);
    EXPECT_TRUE(SameAtEveryLevel(
        static_cast<unsigned>(groups),
        [&](Arena& arena) {
          Byte* const bytes = arena.Buffer(size);
          for (std::size_t i = 0; i < size; i += 2) std::swap(bytes[i], bytes[i + 1]);
        },
        [&](Arena& arena) {
          Byte* const bytes = arena.Buffer(size);
          YUY2_Blt_fast(bytes, 0, 0, 0, 2 * groups, 1, 1, bytes, 0, 0, 0, 0);
        }))
        << groups << " groups";
  }
}

TEST_F(ConvertTest, NothingToConvert) {
  for (auto [w, h] : {std::pair{0, 4}, {4, 0}, {-2, 4}, {4, -2}, {-3, 3}, {3, -3}, {1, 1}}) {
    Byte byte = 9;
    auto bmi24 = Header(w, h, 24), bmi32 = Header(w, h, 32);
    Yuv420_2_rgb24(&bmi24, &byte, &byte, &byte, &byte, 1, 1, 1);
    Yuv420_2_rgb24Simple(&bmi24, nullptr, nullptr, nullptr, nullptr, 1, 1, 1);
    Yuv420_2_Argb(&bmi32, &byte, &byte, &byte, &byte, 1, 1, 1);
    Rgb24_2_yuv420(&byte, &byte, &byte, 1, 1, 1, &bmi24, &byte);
    Rgb24_2_yuv420Simple(nullptr, nullptr, nullptr, 1, 1, 1, &bmi24, nullptr);
    Rgb32_2_yuv420A(&byte, &byte, &byte, &byte, 1, 1, 1, &bmi32, &byte);
    EXPECT_EQ(byte, 9) << w << " x " << h;
    if (w * h == 1) continue;
    Rgb24_2_YUY2(&byte, 64, 0, 0, w, h, 1, &byte, 1, 192, 0, 0);
    YUY2_2_Rgb24(&byte, 1, 1, 0, 0, w, h, &byte, 1, 1, 0, 0);
    YUY2_Blt_fast(&byte, 1, 0, 0, w, h, 1, &byte, 1, 1, 0, 0);
    YV12_Blt_fast(&byte, &byte, &byte, 1, 1, 1, 0, 0, w, h, &byte, &byte, &byte, 1, 1, 1, 0, 0);
    YUY2_2_Yuv420(&byte, &byte, &byte, 1, 1, 1, 0, 0, w, h, &byte, 1, 1, 0, 0);
    Yuv420_2_YUY2(&byte, 1, 0, 0, w, h, 1, &byte, &byte, &byte, 1, 1, 1, 0, 0);
    EXPECT_EQ(byte, 9) << w << " x " << h;
  }
}

TEST_F(ConvertTest, PreconditionsAreAssertions) {
  Byte b[64] = {};
  auto bmi24 = Header(2, 2, 24), bmi32 = Header(2, 2, 32);
  tagBITMAPINFO info8{Header(2, 2, 8), {}}, info24{bmi24, {}};
  const std::string to = "lpDstBmi && lpDstBmi->biBitCount == ",
                    toPlanes = "lpDstBits && pY && pU && pV";
  const std::string from = "lpSrcBmi && lpSrcBmi->biBitCount == ",
                    fromPlanes = "lpSrcBits && pY && pU && pV";
  const std::string packed = "lpBitsDst && lpBitsSrc", fits = "(xDst + cxDst) * 2 <= nPitchDst";
#define DIES(text, call) EXPECT_DEATH(call, HasSubstr(std::string(text) + "'"))
  DIES(to + "24", Yuv420_2_rgb24(&bmi32, b, b, b, b, 2, 1, 1));
  DIES(toPlanes, Yuv420_2_rgb24(&bmi24, b, b, nullptr, b, 2, 1, 1));
  DIES(to + "32", Yuv420_2_rgb32(nullptr, b, b, b, b, 2, 1, 1));
  DIES(toPlanes, Yuv420_2_rgb32(&bmi32, nullptr, b, b, b, 2, 1, 1));
  DIES(to + "32", Yuv420_2_Argb(&bmi24, b, b, b, b, 2, 1, 1));
  DIES(toPlanes, Yuv420_2_Argb(&bmi32, b, nullptr, b, b, 2, 1, 1));
  DIES(to + "32", Yuv420_2_rgb32_Alpha(&bmi24, b, b, b, b, b, 2, 1, 1));
  DIES(toPlanes + " && pA", Yuv420_2_rgb32_Alpha(&bmi32, b, b, b, b, nullptr, 2, 1, 1));
  DIES(from + "24", Rgb24_2_yuv420(b, b, b, 2, 1, 1, &bmi32, b));
  DIES(fromPlanes, Rgb24_2_yuv420(b, b, b, 2, 1, 1, &bmi24, nullptr));
  DIES(from + "32", Rgb32_2_yuv420(b, b, b, 2, 1, 1, &bmi24, b));
  DIES(fromPlanes, Rgb32_2_yuv420(b, b, nullptr, 2, 1, 1, &bmi32, b));
  DIES(from + "32", Argb_2_yuv420(b, b, b, 2, 1, 1, nullptr, b));
  DIES(fromPlanes, Argb_2_yuv420(b, nullptr, b, 2, 1, 1, &bmi32, b));
  DIES("lpBitmapInfo && lpBitmapInfo->bmiHeader.biBitCount == 8",
       Rgb8_2_YUV420(b, b, b, 2, 1, 1, &info24, b));
  DIES(fromPlanes, Rgb8_2_YUV420(nullptr, b, b, 2, 1, 1, &info8, b));
  DIES(from + "32", Rgb32_2_yuv420_Alpha(b, b, b, b, 2, 1, 1, &bmi24, b));
  DIES(fromPlanes + " && pA", Rgb32_2_yuv420_Alpha(b, b, b, nullptr, 2, 1, 1, &bmi32, b));
  DIES(from + "32", Rgb32_2_yuv420A(b, b, b, b, 2, 1, 1, &bmi24, b));
  DIES(fromPlanes, Rgb32_2_yuv420A(b, b, b, b, 2, 1, 1, &bmi32, nullptr));
  DIES(packed, Rgb24_2_YUY2(b, 4, 0, 0, 2, 1, 1, nullptr, 1, 6, 0, 0));
  DIES(fits, Rgb24_2_YUY2(b, 3, 0, 0, 2, 1, 1, b, 1, 6, 0, 0));
  DIES(fits, Rgb24_2_YUY2(b, 8, 0x7fffffff, 0, 2, 1, 1, b, 1, 6, 0, 0));
  DIES("nPitchSrc / 3 - xSrc >= cxDst", Rgb24_2_YUY2(b, 4, 0, 0, 2, 1, 1, b, 1, 8, 1, 0));
  DIES(packed, YUY2_2_Rgb24(nullptr, 1, 6, 0, 0, 2, 1, b, 4, 1, 0, 0));
  DIES("(char*)V <= ((char*)pV + (ySrc + cy) * nPt_V)",
       YUY2_2_Yuv420(b, b, b, 2, 1, 1, 0, 8, 2, 2, b, 4, 1, 0, 0));
#undef DIES
  Bytes y(4), u(1), v(1);
  Rgb32_2_yuv420A(y.data(), u.data(), v.data(), nullptr, 2, 1, 1, &bmi32, b);
  EXPECT_THAT(y, testing::Each(16));
}

// Pictures of 40,000 x 40,000 and planes with pitches of a gigabyte: offsets beyond 2^31 bytes, in
// mappings of which only some pages are touched.
TEST_F(ConvertTest, OffsetsMayExceedTwoGigabytes) {
  constexpr std::int64_t kPitch = (std::int64_t{1} << 30) + 3;
  constexpr int kW = 70, kH = 6, kSide = 40000, kAt = kSide - kW;
  const Mapping one(kPitch * kH), two(kPitch * kH);
  if (!one.begin() || !two.begin()) GTEST_SKIP() << "no address space for such planes";
  Bytes bits(4 * kW * kH), got(bits.size()), want(bits.size());
  Bytes luma(kW * kH), u(kW * kH), v(kW * kH), packed(2 * kW * kH), bgr(3 * kW * kH), back(bgr);
  Random random(3);
  for (Byte& byte : bits) byte = static_cast<Byte>(random());
  auto bmi = Header(kW, kH, 32);
  for (const zel::Level level : Levels()) {
    zel::UseLevel(level);
    SCOPED_TRACE(zel::LevelName(level));
    Rgb32_2_yuv420(luma.data(), u.data(), v.data(), kW, kW, kW, &bmi, bits.data());
    Yuv420_2_Argb(&bmi, want.data(), luma.data(), u.data(), v.data(), kW, kW, kW);
    for (const int pitch : {static_cast<int>(kPitch), -static_cast<int>(kPitch)}) {
      const std::int64_t first = pitch > 0 ? 0 : kPitch * (kH - 1);
      Byte *const plane = one.begin() + first, *const swapped = two.begin() + first;
      Rgb32_2_yuv420(plane, u.data(), v.data(), pitch, kW, kW, &bmi, bits.data());
      Yuv420_2_Argb(&bmi, got.data(), plane, u.data(), v.data(), pitch, kW, kW);
      EXPECT_EQ(got, want) << pitch;
      YUY2_Blt_fast(swapped, pitch, 0, 0, kW / 2, kH, 1, plane, pitch, 0, 0, 0);
      for (int i = 0; i < kW * kH; ++i) {
        ASSERT_EQ(swapped[std::ptrdiff_t{i / kW} * pitch + i % kW], luma[std::size_t(i) ^ 1]);
      }
    }
    // The far corner of a bitmap, by way of the far corner of a packed picture.
    constexpr int kBgrPitch = 3 * kSide, kPackedPitch = 2 * kSide;
    YUY2_2_Rgb24(one.begin(), kSide, kBgrPitch, kAt, 0, kW, kH, bits.data(), 2 * kW, 1, 0, 0);
    YUY2_2_Rgb24(bgr.data(), kH, 3 * kW, 0, 0, kW, kH, bits.data(), 2 * kW, 1, 0, 0);
    Rgb24_2_YUY2(two.begin(), kPackedPitch, 0, kSide - kH, kW, kH, 1, one.begin(), kSide, kBgrPitch,
                 kAt, 0);
    Rgb24_2_YUY2(packed.data(), 2 * kW, 0, 0, kW, kH, 1, bgr.data(), kH, 3 * kW, 0, 0);
    YUY2_2_Rgb24(back.data(), kH, 3 * kW, 0, 0, kW, kH, two.begin(), kPackedPitch, 1, 0,
                 kSide - kH);
    YUY2_2_Rgb24(bgr.data(), kH, 3 * kW, 0, 0, kW, kH, packed.data(), 2 * kW, 1, 0, 0);
    EXPECT_EQ(back, bgr);
  }
}

}  // namespace
