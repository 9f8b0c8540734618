// The colour conversions, packed 4:2:2 routines and plane copies: worked-out values, a model of
// each family pixel by pixel, and every colour, with the kernels of every level.
#include <gmock/gmock.h>

#include <climits>
#include <string>

#include "tests/support/Kernels.h"
#include "zel/Common/Image/ImageConvert.h"

namespace {

using testing::HasSubstr;
using namespace zel::test;  // NOLINT

using BitmapHeader = tagBITMAPINFOHEADER;

BitmapHeader Header(int width, int height, int bits) {
  return {40, width, height, 1, static_cast<std::uint16_t>(bits), 0, 0, 0, 0, 0, 0};
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
  bool far = false;   ///< Rows are a gigabyte apart.

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

/// A plane of the arena, and the one whose rows are a gigabyte apart that stands in for it while a
/// routine works.
struct FarPlane {
  Plane near, far;
  int rows, rowBytes;
};
std::vector<FarPlane> farPlanes;

constexpr int kFarPitch = (1 << 30) + 3;
const Mapping& FarMemory() {
  static const Mapping memory(std::int64_t{kFarPitch} * 8);
  return memory;
}

void CopyRows(Plane to, Plane from, int rows, int rowBytes) {
  for (int r = 0; r < rows; ++r) std::memcpy(to[r], from[r], static_cast<std::size_t>(rowBytes));
}

/// The planes' rows lie between each other's.
Plane MoveFar(Plane near, int rows, int rowBytes) {
  Plane far = {FarMemory().begin() + (farPlanes.size() << 16), kFarPitch};
  if (near.pitch < 0) far = {far[rows - 1], -kFarPitch};
  CopyRows(far, near, rows, rowBytes);
  farPlanes.push_back({near, far, rows, rowBytes});
  return far;
}

/// `rows` rows of `rowBytes`; nothing after the last. With a negative padding rows overlap.
Plane Rows(Arena& arena, int rows, int rowBytes, const Shape& s) {
  const int pitch = std::max(rowBytes + s.pad, 0);
  if (rows < 1 || rowBytes < 1) return {arena.Buffer(0), pitch};
  const std::ptrdiff_t last = std::ptrdiff_t{rows - 1} * pitch;
  Byte* const bytes = arena.Buffer(static_cast<std::size_t>(last + rowBytes));
  const Plane plane = s.flip ? Plane{bytes + last, -pitch} : Plane{bytes, pitch};
  return s.far ? MoveFar(plane, rows, rowBytes) : plane;
}

template <typename F>
void EachPixel(const Shape& s, F f) {
  for (int r = 0; r < s.h; ++r) {
    for (int x = 0; x < s.w; ++x) f(r, x);
  }
}

/// A bitmap without the padding of the row that is last in memory. Row 0 is the top of the picture.
struct Bitmap {
  Byte* bits;
  Plane rows;
  int size;
  Byte* At(int r, int x) const { return rows[r] + size * x; }

  Bitmap(Arena& arena, const Shape& s, int bitCount, bool topDown) : size(bitCount / 8) {
    const int stride = (s.w * bitCount + 31) / 32 * 4;
    bits = Rows(arena, s.h, s.w * size, {s.w, s.h, stride - s.w * size}).first;
    rows = topDown ? Plane{bits, stride} : Plane{bits + std::ptrdiff_t{s.h - 1} * stride, -stride};
  }
};

int Even(int n) {
  return n + n % 2;
}

struct Yuv {
  Plane y, u, v, a;
};

/// The planes of a rectangle at (x, y), with some rows and columns of luma and alpha.
Yuv Planes(Arena& arena, const Shape& s, int x, int y, int rows, int columns, int chromaX) {
  Shape chroma = s;
  chroma.pad += s.chromaPad;
  const auto luma = [&] { return Rows(arena, y + rows, x + columns, s); };
  const auto half = [&] {
    return Rows(arena, y / 2 + Even(s.h) / 2, chromaX + Even(s.w) / 2, chroma);
  };
  return {luma(), half(), half(), luma()};
}

using Family = std::function<void(Arena&, const Shape&, bool model)>;

enum class Fourth { kNone, kKept, kOpaque, kAlpha, kAlphaNotRepeated };

using YuvToBitmap = void (*)(BitmapHeader*, Byte*, Byte*, Byte*, Byte*, int, int, int);
using YuvaToBitmap = void (*)(BitmapHeader*, Byte*, Byte*, Byte*, Byte*, Byte*, int, int, int);

template <typename Routine>
Family ToRgb(Routine routine, Fourth fourth, bool topDown = false, bool simple = false) {
  return [=](Arena& arena, const Shape& s, bool model) {
    const Yuv p = Planes(arena, s, 0, 0, s.h, s.w, 0);
    const int bitCount = fourth == Fourth::kNone ? 24 : 32;
    const Bitmap bitmap(arena, s, bitCount, topDown);
    EachPixel(s, [&](int r, int x) {
      if (s.value < 0) return;
      p.y[r][x] = static_cast<Byte>(2 * r + x % 2);
      p.u[r / 2][x / 2] = static_cast<Byte>(x / 2);
      p.v[r / 2][x / 2] = static_cast<Byte>(s.value);
    });
    auto bmi = Header(s.w, s.h, bitCount);
    if (model) {
      EachPixel(s, [&](int r, int x) {
        const bool lastColumn = s.w % 2 && x == s.w - 1, lastRow = s.h % 2 && r == s.h - 1;
        if ((lastColumn && lastRow) || (simple && (lastColumn || lastRow))) return;
        Byte* const pixel = bitmap.At(r, x);
        ToBgr(p.y[r][x], p.u[r / 2][x / 2], p.v[r / 2][x / 2], simple, pixel);
        if (fourth == Fourth::kOpaque) pixel[3] = 255;
        if (fourth == Fourth::kAlpha) pixel[3] = p.a[r][x];
      });
    } else if constexpr (std::is_same_v<Routine, YuvaToBitmap>) {
      routine(&bmi, bitmap.bits, p.y[0], p.u[0], p.v[0], p.a[0], p.y.pitch, p.u.pitch, p.v.pitch);
    } else {
      routine(&bmi, bitmap.bits, p.y[0], p.u[0], p.v[0], p.y.pitch, p.u.pitch, p.v.pitch);
    }
  };
}

using BitmapToYuv = void (*)(Byte*, Byte*, Byte*, int, int, int, BitmapHeader*, Byte*);
using IndexedToYuv = void (*)(Byte*, Byte*, Byte*, int, int, int, tagBITMAPINFO*, Byte*);
using BitmapToYuva = void (*)(Byte*, Byte*, Byte*, Byte*, int, int, int, BitmapHeader*, Byte*);

template <typename Routine>
Family ToYuv(Routine routine, int bitCount, Fourth fourth = Fourth::kKept, bool topDown = false,
             bool simple = false) {
  return [=](Arena& arena, const Shape& s, bool model) {
    const bool indexed = bitCount == 8;
    const Bitmap bitmap(arena, s, bitCount, topDown);
    // The colour table ends with the highest index of the picture.
    const int colors = s.value < 0 ? 1 + std::abs(s.w * 37 + s.h * 11) % 256 : 256;
    Byte* const info = arena.Buffer(40 + 4 * static_cast<std::size_t>(colors));
    EachPixel(s, [&](int r, int x) {
      Byte* const pixel = bitmap.At(r, x);
      if (s.value >= 0) pixel[0] = static_cast<Byte>(x / 2);
      if (s.value < 0 && indexed) pixel[0] = static_cast<Byte>(pixel[0] * colors / 256);
      if (s.value < 0 || indexed) return;
      pixel[1] = static_cast<Byte>(r / 2);
      pixel[2] = static_cast<Byte>(s.value);
    });
    const Yuv p = Planes(arena, s, 0, 0, s.h, Even(s.w), 0);
    auto bmi = Header(s.w, s.h, bitCount);
    std::memcpy(info, &bmi, 40);
    if (!model) {
      if constexpr (std::is_same_v<Routine, BitmapToYuva>) {
        routine(p.y[0], p.u[0], p.v[0], p.a[0], p.y.pitch, p.u.pitch, p.v.pitch, &bmi, bitmap.bits);
      } else if constexpr (std::is_same_v<Routine, IndexedToYuv>) {
        routine(p.y[0], p.u[0], p.v[0], p.y.pitch, p.u.pitch, p.v.pitch,
                reinterpret_cast<tagBITMAPINFO*>(info), bitmap.bits);
      } else {
        routine(p.y[0], p.u[0], p.v[0], p.y.pitch, p.u.pitch, p.v.pitch, &bmi, bitmap.bits);
      }
      return;
    }
    // Blocks, then the last column, then the last row: where rows overlap, the order shows.
    for (int pass = 0; pass < (simple ? 1 : 3); ++pass) {
      EachPixel({(s.w + 1) / 2, (s.h + 1) / 2}, [&](int k, int m) {
        const bool lastColumn = 2 * m + 1 == s.w, lastRow = 2 * k + 1 == s.h;
        if (pass != (lastColumn ? 1 : 0) + (lastRow ? 2 : 0)) return;
        Chroma mean;
        EachPixel({lastColumn ? 1 : 2, lastRow ? 1 : 2}, [&](int dy, int dx) {
          const int r = 2 * k + dy, x = 2 * m + dx;
          const Byte* const pixel = bitmap.At(r, x);
          const Byte* const bgr = indexed ? info + 40 + 4 * *pixel : pixel;
          mean.Add(bgr, simple);
          const bool repeat = lastColumn && fourth != Fourth::kAlphaNotRepeated;
          for (int column = x; column <= x + repeat; ++column) {
            p.y[r][column] = Luma(bgr, simple);
            if (fourth != Fourth::kKept) p.a[r][column] = pixel[3];
          }
        });
        p.u[k][m] = mean.u();
        p.v[k][m] = mean.v();
      });
    }
  };
}

/// Where Y0, U, Y1 and V are in a group of packed 4:2:2.
struct Group {
  int y0, u, y1, v;
  explicit Group(int flag) : y0(!flag), u(!!flag), y1(2 + y0), v(2 + u) {}
};

void Rgb24ToYuy2(Arena& arena, const Shape& s, bool model) {
  // From x = 2 on, the rectangle begins one column earlier.
  const int moved = s.xDst >= 2 ? 1 : 0, cx = s.w + moved, xDst = s.xDst - moved;
  Plane dst = Rows(arena, s.yDst + s.h, 2 * (xDst + Even(cx)), s);
  Shape source = {1, 1, std::max(s.pad, 0)};
  source.far = s.far;
  const Plane src = Rows(arena, s.ySrc + s.h, 3 * (s.xSrc + cx), source);
  // The precondition on the pitch cannot hold for a negative one.
  if (s.flip) dst = {dst[s.yDst + s.h - 1], -dst.pitch};
  if (!model) {
    Rgb24_2_YUY2(dst[0], dst.pitch, s.xDst, s.yDst, s.w, s.h, s.flag, src[0], s.ySrc + s.h,
                 src.pitch, s.xSrc, s.ySrc);
    return;
  }
  // A lone last group is written after all others.
  for (const bool lone : {false, true}) {
    EachPixel({(cx + 1) / 2, s.h}, [&](int t, int group) {
      const int k = 2 * group;
      if (lone != (k + 1 == cx)) return;
      const Byte* const first = src[s.h - 1 - t] + 3 * (s.xSrc + k);
      const Byte* const second = lone ? first : first + 3;
      Chroma mean;
      mean.Add(first);
      mean.Add(second);
      const Group at(s.flag);
      Byte* const out = dst[s.yDst + t] + 2 * (xDst + k);
      out[at.y0] = Luma(first);
      out[at.u] = mean.u();
      out[at.y1] = Luma(second);
      out[at.v] = mean.v();
    });
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
  EachPixel(s, [&](int t, int k) {
    const Group at(s.flag);
    const Byte* const group = src[s.ySrc + t] + 2 * (xSrc + k / 2 * 2);
    ToBgr(group[k % 2 ? at.y1 : at.y0], group[at.u], group[at.v], false,
          dst[s.h - 1 - t] + 3 * (s.xDst + k));
  });
}

template <bool kInPlace>
void Yuy2Blt(Arena& arena, const Shape& s, bool model) {
  const bool copy = s.flag == 2;  // Flags are compared as integers.
  const int bytes = 2 * (copy ? s.w : Even(s.w)), x = kInPlace ? s.xDst : s.xSrc;
  const int y = kInPlace ? s.yDst : s.ySrc;
  const Plane dst = Rows(arena, s.yDst + s.h, 2 * s.xDst + bytes, s);
  const Plane src = kInPlace ? dst : Rows(arena, s.ySrc + s.h, 2 * s.xSrc + bytes, s);
  if (!model) {
    YUY2_Blt_fast(dst[0], dst.pitch, s.xDst, s.yDst, s.w, s.h, s.flag, src[0], src.pitch, 2, x, y);
    return;
  }
  EachPixel({bytes / 2, s.h}, [&](int t, int pair) {
    Byte* const to = dst[s.yDst + t] + 2 * (s.xDst + pair);
    const Byte* const from = src[y + t] + 2 * (x + pair);
    const Byte first = from[0], second = from[1];
    to[copy ? 0 : 1] = first;
    to[copy ? 1 : 0] = second;
  });
}

void CopyYuv(const Yuv& dst, const Yuv& src, const Shape& s, bool model) {
  if (!model) {
    YV12_Blt_fast(dst.y[0], dst.u[0], dst.v[0], dst.y.pitch, dst.u.pitch, dst.v.pitch, s.xDst,
                  s.yDst, s.w, s.yDst + s.h, src.y[0], src.u[0], src.v[0], src.y.pitch, src.u.pitch,
                  src.v.pitch, s.xSrc, s.ySrc);
    return;
  }
  // Pair after pair: where planes lie on each other, the order shows.
  for (int i = 0; 2 * i < s.h && s.w > 0; ++i) {
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
  const Yuv src = Planes(arena, s, s.xSrc, s.ySrc, Even(s.h), s.w, (s.xSrc + 1) / 2);
  CopyYuv(Planes(arena, s, s.xDst, s.yDst, Even(s.h), s.w, (s.xDst + 1) / 2), src, s, model);
}

/// Planes that may lie on each other, and rows that may lie on each other, too.
void Yv12BltAnywhere(Arena& arena, const Shape& s, bool model) {
  Random random(static_cast<unsigned>(s.w * 997 + s.h + s.pad * 31 + s.xDst));
  const int w = 1 + std::abs(s.w) % 10, h = 1 + std::abs(s.h) % 9, chroma = (w + 1) / 2;
  const int pitch = w + random.Below(3) * random.Between(-3, 3);
  const int pitchU = chroma + random.Below(2) * random.Between(-2, 2);
  const int pitchV = random.Below(2) ? pitchU : -pitchU;
  Byte* const planes = arena.Buffer(1000);
  Byte *const atY = planes + 400 + random.Below(100), *const end = atY + h * pitch;
  Byte* const atU = random.Below(2) ? end : planes + 400 + random.Below(200);
  Byte* const atV = random.Below(2) ? end + (h + 1) / 2 * pitchU : planes + 400 + random.Below(200);
  const Yuv src = Planes(arena, {w, h}, 0, 0, Even(h), w, 0);
  CopyYuv({{atY, pitch}, {atU, pitchU}, {atV, pitchV}, {}}, src, {w, h}, model);
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
  const Yuv yuv = Planes(arena, s, xYuv, yYuv, Even(s.h), Even(s.w), xYuv / 2);
  if (!model && kToPlanes) {
    YUY2_2_Yuv420(yuv.y[0], yuv.u[0], yuv.v[0], yuv.y.pitch, yuv.u.pitch, yuv.v.pitch, xYuv, yYuv,
                  s.w, s.h, packed[0], packed.pitch, s.flag, x, y);
  } else if (!model) {
    Yuv420_2_YUY2(packed[0], packed.pitch, x, y, s.w, s.h, s.flag, yuv.y[0], yuv.u[0], yuv.v[0],
                  yuv.y.pitch, yuv.u.pitch, yuv.v.pitch, xYuv, yYuv);
  } else {
    EachPixel({Even(s.w) / 2, Even(s.h)}, [&](int row, int g) {
      const Group at(s.flag);
      Byte* const own = packed[y + row] + 2 * x + 4 * g;
      const Byte* const other = packed[y + (row ^ 1)] + 2 * x + 4 * g;
      Byte* const luma = yuv.y[yYuv + row] + xYuv + 2 * g;
      for (const int i : {0, 1}) {
        Byte& packedLuma = own[i ? at.y1 : at.y0];
        (kToPlanes ? luma[i] : packedLuma) = kToPlanes ? packedLuma : luma[i];
      }
      for (const auto& [plane, i] : {std::pair{yuv.u, at.u}, {yuv.v, at.v}}) {
        Byte& sample = plane[yYuv / 2 + row / 2][xYuv / 2 + g];
        if (kToPlanes) sample = static_cast<Byte>((own[i] + other[i]) / 2);
        if (!kToPlanes) own[i] = sample;
      }
    });
  }
}

struct Routine {
  const char* name;
  Family family;
  int allColors = 0;  ///< Rows of a picture 512 pixels wide with every colour; 0 without colours.
  bool overlaps = false;  ///< Whether it is defined what rows that overlap leave.
};
const Routine kRoutines[] = {
    {"Yuv420_2_rgb24", ToRgb(&Yuv420_2_rgb24, Fourth::kNone), 128},
    {"Yuv420_2_rgb32", ToRgb(&Yuv420_2_rgb32, Fourth::kKept), 128},
    {"Yuv420_2_Argb", ToRgb(&Yuv420_2_Argb, Fourth::kOpaque, true), 128},
    {"Yuv420_2_rgb32_Alpha", ToRgb(&Yuv420_2_rgb32_Alpha, Fourth::kAlpha), 128},
    {"Yuv420_2_rgb24Simple", ToRgb(&Yuv420_2_rgb24Simple, Fourth::kNone, false, true), 128},
    {"Rgb24_2_yuv420", ToYuv(&Rgb24_2_yuv420, 24), 512, true},
    {"Rgb32_2_yuv420", ToYuv(&Rgb32_2_yuv420, 32), 512, true},
    {"Argb_2_yuv420", ToYuv(&Argb_2_yuv420, 32, Fourth::kKept, true), 512, true},
    {"Rgb8_2_YUV420", ToYuv(&Rgb8_2_YUV420, 8), 2, true},
    {"Rgb32_2_yuv420_Alpha", ToYuv(&Rgb32_2_yuv420_Alpha, 32, Fourth::kAlpha), 512, true},
    {"Rgb32_2_yuv420A", ToYuv(&Rgb32_2_yuv420A, 32, Fourth::kAlphaNotRepeated), 512, true},
    {"Rgb24_2_yuv420Simple", ToYuv(&Rgb24_2_yuv420Simple, 24, Fourth::kKept, false, true), 512,
     true},
    {"Rgb24_2_YUY2", Rgb24ToYuy2},
    {"YUY2_2_Rgb24", Yuy2ToRgb24},
    {"YUY2_Blt_fast", Yuy2Blt<false>},
    {"YUY2_Blt_fast_InPlace", Yuy2Blt<true>},
    {"YV12_Blt_fast", Yv12Blt},
    {"YV12_Blt_fast_Anywhere", Yv12BltAnywhere},
    {"YUY2_2_Yuv420", BetweenPackedAndPlanes<true>},
    {"Yuv420_2_YUY2", BetweenPackedAndPlanes<false>},
};

class EveryRoutine : public KernelTest, public testing::WithParamInterface<Routine> {
 protected:
  void Check(const Shape& s) {
    const auto run = [&](Arena& arena, bool model) {
      Shape shape = s;
      shape.far = s.far && !model;
      GetParam().family(arena, shape, model);
      for (const FarPlane& p : farPlanes) CopyRows(p.near, p.far, p.rows, p.rowBytes);
      farPlanes.clear();
    };
    ASSERT_TRUE(SameAtEveryLevel(seed_++, run)) << s;
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

TEST_P(EveryRoutine, LargeAndEmptyShapes) {
  for (const Shape& shape :
       {Shape{1919, 5}, Shape{2051, 3, 5, true}, Shape{4097, 2, 0, false, 3, 1, 2, 1, 0},
        Shape{133, 211, 1}, Shape{2, 1027}, Shape{521, 255}, Shape{642, 207, 6, true},
        Shape{65541, 3}, Shape{131075, 1}, Shape{1, 70001}}) {
    ASSERT_NO_FATAL_FAILURE(Check(shape));
  }
  for (int w = 41; w <= 200; ++w) {
    ASSERT_NO_FATAL_FAILURE(Check({w, 3, w % 3, false, 0, 0, 0, 0, w % 2}));
  }
  for (const auto& [w, h] : {std::pair{0, 4}, {4, 0}, {-2, 4}, {4, -2}, {-3, 3}, {3, -3}}) {
    for (int i = 0; i < 4; ++i) ASSERT_NO_FATAL_FAILURE(Check({w, h}));
  }
}

// A caller who gives luma an odd width as its pitch forgot the column that is written behind it.
// One who gives a plane no pitch, or too little, keeps what is written last.
TEST_P(EveryRoutine, WritesOverlappingRowsInTheOrderOfThePasses) {
  // Three pixels as a pitch: the second half of a lone group lies on the next row's first pixel.
  if (std::string(GetParam().name) == "Rgb24_2_YUY2") {
    ASSERT_NO_FATAL_FAILURE(Check({3, 2, -2}));
  }
  if (!GetParam().overlaps) return;
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
  const int step = std::getenv("ZEL_ALL_COLOURS") ? 1 : 127, rows = GetParam().allColors;
  for (int value = 0; value < 256 && rows > 0; value += step) {
    ASSERT_NO_FATAL_FAILURE(Check({512, rows, 0, false, 0, 0, 0, 0, value % 2, 0, value}));
  }
}

// Planes with pitches of a gigabyte, of which only some pages are touched.
TEST_P(EveryRoutine, OffsetsMayExceedTwoGigabytes) {
  if (!FarMemory().begin()) GTEST_SKIP() << "no address space for such planes";
  for (const bool flip : {false, true}) {
    ASSERT_NO_FATAL_FAILURE(Check({70, 6, 0, flip, 2, 1, 3, 1, 1, 0, -1, true}));
  }
}

INSTANTIATE_TEST_SUITE_P(Convert, EveryRoutine, testing::ValuesIn(kRoutines),
                         [](const auto& routine) { return std::string(routine.param.name); });

// What the model cannot tell.

TEST(Convert, GivesTheWorkedOutColours) {
  auto bmi = Header(2, 2, 24);
  const struct {
    decltype(&Yuv420_2_rgb24) routine;
    Byte y, u, v;
    Bytes bgr;
  } colors[] = {{Yuv420_2_rgb24, 235, 128, 128, {254, 254, 254}},
                {Yuv420_2_rgb24Simple, 235, 128, 128, {255, 255, 255}},
                {Yuv420_2_rgb24, 81, 90, 240, {0, 0, 254}},
                {Yuv420_2_rgb24Simple, 41, 240, 110, {255, 0, 0}}};
  for (auto color : colors) {
    Bytes y(4, color.y), bits(16);
    color.routine(&bmi, bits.data(), y.data(), &color.u, &color.v, 2, 1, 1);
    EXPECT_EQ(Bytes(bits.begin() + 11, bits.begin() + 14), color.bgr);
  }
  // Two red and two blue pixels: the floored mean of floored terms.
  Bytes bits = {0, 0, 255, 255, 0, 0, 0, 0, 0, 0, 255, 255, 0, 0, 0, 0}, y(4);
  Byte u, v;
  Rgb24_2_yuv420(y.data(), &u, &v, 2, 1, 1, &bmi, bits.data());
  EXPECT_EQ((Bytes{y[0], y[1], u, v}), (Bytes{81, 40, 164, 174}));
  Bytes white(6, 255), group(4), row(8, 7);
  Rgb24_2_YUY2(group.data(), 4, 0, 0, 2, 1, 0, white.data(), 1, 6, 0, 0);
  EXPECT_EQ(group, (Bytes{128, 235, 128, 235}));
  // A single row needs no pitch.
  YUY2_2_Rgb24(row.data(), 1, INT_MIN, 0, 0, 2, 1, group.data(), 4, 0, 0, 0);
  EXPECT_EQ(row, (Bytes{254, 254, 254, 254, 254, 254, 7, 7}));
}

TEST(Convert, PreconditionsAreAssertions) {
  Byte bytes[64] = {};
  const auto dies = [&](int bits, const std::string& depth, const std::string& pointers,
                        void (*convert)(BitmapHeader*, Byte*, Byte*)) {
    tagBITMAPINFO right{Header(2, 2, bits), {}}, wrong{Header(2, 2, 40 - bits), {}};
    const auto wrongDepth = HasSubstr(depth + "biBitCount == " + std::to_string(bits) + "'");
    EXPECT_DEATH(convert(nullptr, bytes, bytes), wrongDepth);
    EXPECT_DEATH(convert(&wrong.bmiHeader, bytes, bytes), wrongDepth);
    EXPECT_DEATH(convert(&right.bmiHeader, nullptr, bytes), HasSubstr(pointers + "'"));
  };
  // `p` is one pointer that must not be null, each time another one.
  const std::string to = "lpDstBmi && lpDstBmi->", bitsTo = "lpDstBits && pY && pU && pV",
                    from = "lpSrcBmi && lpSrcBmi->", bitsFrom = "lpSrcBits && pY && pU && pV";
#define CALL(call) [](BitmapHeader* h, Byte* p, Byte* b) { call; }
  dies(24, to, bitsTo, CALL(Yuv420_2_rgb24(h, b, b, p, b, 2, 1, 1)));
  dies(32, to, bitsTo, CALL(Yuv420_2_rgb32(h, p, b, b, b, 2, 1, 1)));
  dies(32, to, bitsTo, CALL(Yuv420_2_Argb(h, b, p, b, b, 2, 1, 1)));
  dies(32, to, bitsTo + " && pA", CALL(Yuv420_2_rgb32_Alpha(h, b, b, b, b, p, 2, 1, 1)));
  dies(24, from, bitsFrom, CALL(Rgb24_2_yuv420(b, b, b, 2, 1, 1, h, p)));
  dies(32, from, bitsFrom, CALL(Rgb32_2_yuv420(b, b, p, 2, 1, 1, h, b)));
  dies(32, from, bitsFrom, CALL(Argb_2_yuv420(b, p, b, 2, 1, 1, h, b)));
  dies(8, "lpBitmapInfo && lpBitmapInfo->bmiHeader.", bitsFrom,
       CALL(Rgb8_2_YUV420(p, b, b, 2, 1, 1, reinterpret_cast<tagBITMAPINFO*>(h), b)));
  dies(32, from, bitsFrom + " && pA", CALL(Rgb32_2_yuv420_Alpha(b, b, b, p, 2, 1, 1, h, b)));
  dies(32, from, bitsFrom, CALL(Rgb32_2_yuv420A(b, b, b, b, 2, 1, 1, h, p)));
#undef CALL
  const std::string packed = "lpBitsDst && lpBitsSrc", fits = "(xDst + cxDst) * 2 <= nPitchDst";
  EXPECT_DEATH(Rgb24_2_YUY2(bytes, 4, 0, 0, 2, 1, 1, nullptr, 1, 6, 0, 0), HasSubstr(packed));
  EXPECT_DEATH(Rgb24_2_YUY2(bytes, 3, 0, 0, 2, 1, 1, bytes, 1, 6, 0, 0), HasSubstr(fits));
  EXPECT_DEATH(Rgb24_2_YUY2(bytes, 8, 0x7fffffff, 0, 2, 1, 1, bytes, 1, 6, 0, 0), HasSubstr(fits));
  EXPECT_DEATH(Rgb24_2_YUY2(bytes, 4, 0, 0, 2, 1, 1, bytes, 1, 8, 1, 0),
               HasSubstr("nPitchSrc / 3 - xSrc >= cxDst"));
  EXPECT_DEATH(YUY2_2_Rgb24(nullptr, 1, 6, 0, 0, 2, 1, bytes, 4, 1, 0, 0), HasSubstr(packed));
  EXPECT_DEATH(YUY2_2_Yuv420(bytes, bytes, bytes, 2, 1, 1, 0, 8, 2, 2, bytes, 4, 1, 0, 0),
               HasSubstr("(char*)V <= ((char*)pV + (ySrc + cy) * nPt_V)"));
  auto bmi32 = Header(2, 2, 32);
  Bytes y(4), u(1), v(1);
  Rgb32_2_yuv420A(y.data(), u.data(), v.data(), nullptr, 2, 1, 1, &bmi32, bytes);
  EXPECT_THAT(y, testing::Each(16));
}

}  // namespace
