// The resizing routines: worked-out values, and a model pixel by pixel that reads no pixel whose
// weight is 0 and shares nothing with the library, with the kernels of every level.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstring>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/Kernels.h"
#include "zel/Common/Image/AlphaResize.h"
#include "zel/Common/Image/ImageConvert.h"

namespace {

using testing::ElementsAre;
using namespace zel::test;  // NOLINT

struct Pos {
  int i;
  int f;
};

/// One axis: `s` source pixels to `d` destination pixels.
struct Steps {
  int s, d;
  Pos At(long long k) const {
    const long long p = k * ((s - 1LL) * 4096 / (d - 1));
    return {static_cast<int>(p >> 12), static_cast<int>(p & 4095)};
  }
};

struct Image {
  const IMG_PARAM& p;
  bool bottomUp;
  int bytes;
  Byte* At(int x, int y) const {
    const long long row = bottomUp ? p.nImageHeight - 1LL - p.nTop - y : p.nTop + y;
    return p.pBuffer + row * p.nPitch + (p.nLeft + x) * bytes;
  }
};

int Weigh(int a, int b, int f) {
  return (a * (4096 - f) + b * f) >> 12;
}

/// `at(dx, dy)` gives the neighbours; those without weight are not asked for.
template <class At>
int Bilinear(int fx, int fy, At at) {
  const int top = Weigh(at(0, 0), fx ? at(1, 0) : 0, fx);
  return fy ? Weigh(top, Weigh(at(0, 1), fx ? at(1, 1) : 0, fx), fy) : top;
}

int BilinearOf(const Image& src, Pos x, Pos y, int channel) {
  return Bilinear(x.f, y.f, [&](int dx, int dy) { return src.At(x.i + dx, y.i + dy)[channel]; });
}

/// Calls each(c, r, x, y, edge) for the pixels of a bitmap; edge pixels take pixel (x.i, y.i).
template <class Each>
void WalkBitmap(const IMG_PARAM& s, const IMG_PARAM& d, Each each) {
  const Steps cols{s.nWidth, d.nWidth}, rows{s.nHeight, d.nHeight};
  for (int r = 0; r < d.nHeight; ++r) {
    for (int c = 0; c < d.nWidth; ++c) {
      const bool lastRow = r == d.nHeight - 1, lastColumn = c == d.nWidth - 1;
      each(c, r, lastColumn ? Pos{s.nWidth - 1, 0} : cols.At(c),
           lastRow ? Pos{s.nHeight - 1, 0} : rows.At(r), lastRow || lastColumn);
    }
  }
}

template <int kBytes, bool kNearest>
void Bitmap(const IMG_PARAM& s, const IMG_PARAM& d) {
  const Image src{s, true, kBytes}, dst{d, true, kBytes};
  WalkBitmap(s, d, [&](int c, int r, Pos x, Pos y, bool edge) {
    std::memcpy(dst.At(c, r), src.At(x.i, y.i), kBytes);
    for (int k = 0; k < std::min(kBytes, 3) && !edge && !kNearest; ++k) {
      dst.At(c, r)[k] = static_cast<Byte>(BilinearOf(src, x, y, k));
    }
  });
}

void Near8(const IMG_PARAM& s, const IMG_PARAM& d) {
  const auto entry = [](int k, int from, int to) {
    return k == to - 1 ? from - 1 : std::min((k * from + to / 2) / to, from - 1);
  };
  for (int r = 0; r < d.nHeight; ++r) {
    for (int c = 0; c < d.nWidth; ++c) {
      *Image{d, false, 1}.At(c, r) =
          *Image{s, false, 1}.At(entry(c, s.nWidth, d.nWidth), entry(r, s.nHeight, d.nHeight));
    }
  }
}

template <bool kNearest>
void Luma(const IMG_PARAM& s, const IMG_PARAM& d) {
  const Image src{s, false, 1}, dst{d, false, 1};
  const Steps cols{s.nWidth, d.nWidth}, rows{s.nHeight, d.nHeight};
  for (int r = 0; r < d.nHeight; ++r) {
    std::memset(dst.At(-d.nLeft, r), 16, static_cast<size_t>(std::abs(d.nPitch)));
    for (int c = 0; c < d.nWidth; ++c) {
      const Pos x = cols.At(c), y = rows.At(r);
      int v;
      if (kNearest) {
        v = *src.At(x.i, y.i);
      } else if (r < d.nHeight - 1) {
        v = BilinearOf(src, x, y, 0);
      } else {
        v = *src.At(c == d.nWidth - 1 ? s.nWidth - 1 : x.i, s.nHeight - 1);
      }
      *dst.At(c, r) = static_cast<Byte>(v);
    }
  }
}

void Box(const IMG_PARAM& s, const IMG_PARAM& d) {
  const Image src{s, false, 1}, dst{d, false, 1};
  const Steps cols{s.nWidth, d.nWidth}, rows{s.nHeight, d.nHeight};
  for (int r = 0; r < d.nHeight - 1; ++r) {
    for (int c = 0; c < d.nWidth; ++c) {
      const int x0 = cols.At(c).i, x1 = std::min(cols.At(c + 1).i, s.nWidth - 1);
      const int y0 = rows.At(r).i, y1 = rows.At(r + 1).i;
      *dst.At(c, r) = static_cast<Byte>(
          (*src.At(x0, y0) + *src.At(x1, y0) + *src.At(x0, y1) + *src.At(x1, y1)) >> 2);
    }
  }
  for (int c = 0; c < d.nWidth - 1; c += 2) {
    *dst.At(c, d.nHeight - 1) = *src.At(cols.At(c).i, s.nHeight - 1);
  }
}

template <bool kNearest>
void Chroma(const IMG_PARAM& s, const IMG_PARAM& d) {
  const Steps cols{s.nWidth, d.nWidth}, rows{s.nHeight, d.nHeight};
  const auto pixel = [](const IMG_PARAM& p, int x, int y) { return p.pBuffer + y * p.nPitch + x; };
  int y = d.nTop;
  for (; y < d.nTop + d.nHeight - 2; y += 2) {
    const Pos py = rows.At(y - d.nTop);
    for (int x = d.nLeft; x < d.nLeft + d.nWidth; x += 2) {
      const Pos px = cols.At(x - d.nLeft);
      const auto at = [&](int dx, int dy) {
        return *pixel(s, (px.i + s.nLeft + dx) / 2, (py.i + s.nTop + dy) / 2);
      };
      *pixel(d, x / 2, y / 2) = static_cast<Byte>(kNearest ? at(0, 0) : Bilinear(px.f, py.f, at));
    }
  }
  for (int x = d.nLeft; x < d.nLeft + d.nWidth - 2; x += 2) {
    *pixel(d, x / 2, y / 2) =
        *pixel(s, (cols.At(x - d.nLeft).i + s.nLeft) / 2, (s.nTop + s.nHeight - 1) / 2);
  }
}

void Alpha(const IMG_PARAM& s, const IMG_PARAM& d) {
  const Image src{s, true, 4}, dst{d, true, 4};
  WalkBitmap(s, d, [&](int c, int r, Pos x, Pos y, bool edge) {
    const int a = src.At(x.i, y.i)[3];
    Byte* out = dst.At(c, r);
    for (int k = 0; k < 3; ++k) {
      const int v = edge ? src.At(x.i, y.i)[k] : BilinearOf(src, x, y, k);
      out[k] = static_cast<Byte>((out[k] * (255 - a) + v * a) / 255);
    }
    if (!edge) out[3] = static_cast<Byte>(out[3] * (255 - a) / 255 + a);
  });
}

template <int kBytes, bool kNearest>
void Mask(const IMG_PARAM& s, const IMG_PARAM& d) {
  const Image src{s, true, kBytes}, dst{d, true, 4};
  WalkBitmap(s, d, [&](int c, int r, Pos x, Pos y, bool edge) {
    const int m =
        edge || kNearest ? src.At(x.i, y.i)[kBytes - 1] : BilinearOf(src, x, y, kBytes - 1);
    Byte* out = dst.At(c, r);
    if (m == 0) std::memset(out, 0, 4);
    out[3] = static_cast<Byte>(kNearest ? m : out[3] * m / 255);
  });
}

using Resizer = int (*)(const IMG_PARAM& src, IMG_PARAM& dst);

/// Leaves out the argument that is not used.
template <int (*kRoutine)(const IMG_PARAM&, IMG_PARAM&, int)>
int WithoutReserved(const IMG_PARAM& src, IMG_PARAM& dst) {
  return kRoutine(src, dst, 0);
}

struct ResizeCase {
  const char* name;
  Resizer resize;
  void (*model)(const IMG_PARAM& src, const IMG_PARAM& dst);
  bool bottomUp;
  bool chroma;  // Planes have half the size of the rectangles.
  int srcBytes;
  int dstBytes;

  friend std::ostream& operator<<(std::ostream& out, const ResizeCase& c) { return out << c.name; }
};

constexpr ResizeCase kResizeCases[] = {
    {"Near", DIB_ResizeNear, Bitmap<4, true>, true, false, 4, 4},
    {"BiLiner", DIB_ResizeBiLiner, Bitmap<4, false>, true, false, 4, 4},
    {"Near8", DIB_ResizeNear8, Near8, false, false, 1, 1},
    {"BiLiner8", DIB_ResizeBiLiner8, Bitmap<1, false>, true, false, 1, 1},
    {"NearY", WithoutReserved<DIB_ResizeNearY>, Luma<true>, false, false, 1, 1},
    {"BiLinerY", WithoutReserved<DIB_ResizeBiLinerY>, Luma<false>, false, false, 1, 1},
    {"Convolve", DIB_ResizeConvolve, Luma<false>, false, false, 1, 1},
    {"Simulate", WithoutReserved<DIB_ResizeBiLinerY_Simulate>, Box, false, false, 1, 1},
    {"NearUV", DIB_ResizeNearUV, Chroma<true>, false, true, 1, 1},
    {"BiLinerUV", DIB_ResizeBiLinerUV, Chroma<false>, false, true, 1, 1},
    {"Alpha", DIB_AlphaResizeBiLiner, Alpha, true, false, 4, 4},
    {"MaskNear", StretchMaskResizeNear, Mask<1, true>, true, false, 1, 4},
    {"MaskBiLiner", StretchMaskResizeBiLiner, Mask<1, false>, true, false, 1, 4},
    {"MaskBiLiner24", StretchMaskResizeBiLiner, Mask<3, false>, true, false, 3, 4},
};

/// A picture that is its own rectangle.
IMG_PARAM Rect(Bytes& bytes, int width, int height, int pixelBytes = 1) {
  return {bytes.data(), 0, height, width * pixelBytes, 8 * pixelBytes, 0, 0, width, height};
}

class Resize : public KernelTest {};

TEST_F(Resize, GivesTheValuesWorkedOutByHand) {
  Bytes src = {10, 20, 30, 50, 60, 70}, dst(8), bilinear(9);
  IMG_PARAM from = Rect(src, 3, 2), to = Rect(dst, 4, 2);
  // The step, 2730, falls short of the last pixel: luma routines end there, bitmaps exactly.
  EXPECT_EQ(DIB_ResizeBiLinerY(from, to, 0), 1);
  EXPECT_THAT(dst, ElementsAre(10, 16, 23, 29, 50, 50, 60, 70));
  EXPECT_EQ(DIB_ResizeBiLiner8(from, to), 1);
  EXPECT_THAT(dst, ElementsAre(10, 10, 20, 30, 50, 56, 63, 70));
  from = Rect(src, 2, 2);
  to = Rect(bilinear, 3, 3);
  EXPECT_EQ(DIB_ResizeBiLinerY(from, to, 0), 1);
  EXPECT_THAT(bilinear, ElementsAre(10, 15, 20, 20, 27, 35, 30, 30, 50));
}

/// Finds memory for the record's rectangle, in rows of some pitch: its own bytes, or with
/// `surrounded` whole rows and one more above and below.
void Place(Arena& arena, Random& random, const ResizeCase& c, bool surrounded, IMG_PARAM* p) {
  const int bytes = surrounded ? c.dstBytes : c.srcBytes, half = c.chroma ? 2 : 1;
  const int left = p->nLeft / half, columns = (p->nLeft + p->nWidth - 1) / half - left + 1;
  const int top = p->nTop / half, rows = (p->nTop + p->nHeight - 1) / half - top + 1;
  const int pitch = (left + columns) * bytes + random.Below(20);
  const bool flipped = random.Below(4) == 0;
  p->nPitch = flipped ? -pitch : pitch;
  p->nImageHeight = top + rows + random.Below(3);
  // Rows that are upwards in memory begin with the last one.
  const bool upwards = c.bottomUp != flipped;
  const std::ptrdiff_t size = surrounded ? std::ptrdiff_t{rows + 2} * pitch
                                         : std::ptrdiff_t{rows - 1} * pitch + columns * bytes;
  Byte* const begin = arena.Buffer(static_cast<std::size_t>(size));
  const std::ptrdiff_t corner =
      (surrounded ? pitch + left * bytes : 0) + (upwards ? std::ptrdiff_t{rows - 1} * pitch : 0);
  const int topRow = c.bottomUp ? p->nImageHeight - 1 - top : top;
  p->pBuffer = begin + corner - left * bytes - std::ptrdiff_t{topRow} * p->nPitch;
}

class EveryResizer : public KernelTest, public testing::WithParamInterface<ResizeCase> {
 protected:
  void Check(int sw, int sh, int dw, int dh) {
    const ResizeCase& c = GetParam();
    const auto run = [&](Arena& arena, bool model) {
      Random random(seed_);
      IMG_PARAM from = {nullptr,         -1, 0, 0, 8 * c.srcBytes, random.Below(6),
                        random.Below(4), sw, sh};
      IMG_PARAM to = {nullptr, -1, 0, 0, -1, random.Below(6), random.Below(4), dw, dh};
      Place(arena, random, c, false, &from);
      Place(arena, random, c, true, &to);
      if (model) {
        c.model(from, to);
      } else {
        EXPECT_EQ(c.resize(from, to), 1);
      }
    };
    ++seed_;
    ASSERT_TRUE(SameAtEveryLevel(
        seed_, [&](Arena& arena) { run(arena, true); }, [&](Arena& arena) { run(arena, false); }))
        << sw << " x " << sh << " to " << dw << " x " << dh;
  }
  unsigned seed_ = 0;
};

TEST_P(EveryResizer, SmallSizes) {
  Random random(1);
  for (int sw = 1; sw <= 40; ++sw) {
    for (int dw = 2; dw <= 40; ++dw) {
      const int sh = random.Between(1, 12), dh = random.Between(2, 13);
      ASSERT_NO_FATAL_FAILURE(Check(sw, sh, dw, dh));
      if ((sw + dw) % 4 != 0) continue;
      ASSERT_NO_FATAL_FAILURE(Check(sh, sw, dh, dw));
    }
  }
}

TEST_P(EveryResizer, LargeSizes) {
  // About the scales at which a level's way of fetching changes, and far from them.
  for (const int sw : {47, 63, 64, 65, 127, 128, 129, 333, 640, 1001}) {
    for (const double scale : {0.013, 0.11, 0.23, 0.24, 0.3, 0.49, 0.5, 0.51, 0.67, 0.98, 1.0, 1.02,
                               1.5, 2.0, 3.3, 10.0}) {
      const int dw = std::max(2, static_cast<int>(std::lround(sw * scale)));
      ASSERT_NO_FATAL_FAILURE(Check(sw, 3, dw, 4));
    }
  }
  const int sizes[][4] = {
      {5, 301, 6, 200}, {5, 200, 6, 301}, {19, 70000, 3, 7}, {70000, 2, 9, 3}, {9, 2, 70000, 3}};
  for (const auto& s : sizes) ASSERT_NO_FATAL_FAILURE(Check(s[0], s[1], s[2], s[3]));
}

INSTANTIATE_TEST_SUITE_P(All, EveryResizer, testing::ValuesIn(kResizeCases),
                         [](const auto& c) { return std::string(c.param.name); });

// 32 bits would overflow from 524,289 source pixels on.
TEST_F(Resize, WidePicturesDoNotOverflowThePositions) {
  const int width = 3000001;
  Bytes src(static_cast<size_t>(width)), dst(7 * 2);
  for (size_t i = 0; i < src.size(); ++i) src[i] = static_cast<Byte>(i / 16000);
  IMG_PARAM from = Rect(src, width, 1), to = Rect(dst, 7, 2);
  EXPECT_EQ(DIB_ResizeNearY(from, to), 1);
  EXPECT_THAT(dst, ElementsAre(0, 31, 62, 93, 125, 156, 187, 0, 31, 62, 93, 125, 156, 187));
}

// Pictures of 40,000 x 40,000 as a whole source, and as a destination up to its far corner, in
// mappings of which only some pages are touched.
TEST_F(Resize, OffsetsMayExceedTwoGigabytes) {
  constexpr int kSide = 40000, kPixel = 4;
  const Mapping large(std::int64_t{kSide} * kSide * kPixel);
  if (!large.begin()) GTEST_SKIP() << "no address space for such a picture";
  for (const ResizeCase& c : kResizeCases) {
    if (c.chroma || c.srcBytes != c.dstBytes) continue;
    IMG_PARAM picture = {large.begin(), 0, kSide, kSide * c.srcBytes, 0, 0, 0, kSide, kSide};
    const auto at = [&](std::int64_t x, std::int64_t y) {
      return large.begin() + y * picture.nPitch + x * c.srcBytes;
    };
    // The corners, which every scaled picture has.
    for (int i = 0; i < 4; ++i) {
      std::memset(at(i % 2 * (kSide - 1), i / 2 * (kSide - 1)), 50 + i, c.srcBytes);
    }
    Bytes small(static_cast<size_t>(9 * c.dstBytes), 77);
    IMG_PARAM to = Rect(small, 3, 3, c.dstBytes);
    EXPECT_EQ(c.resize(picture, to), 1) << c;
    const bool box = std::strcmp(c.name, "Simulate") == 0,
               alpha = std::strcmp(c.name, "Alpha") == 0;
    EXPECT_EQ(small[0], box ? 50 / 4 : alpha ? (77 * 205 + 50 * 50) / 255 : 50) << c;
    Bytes source(static_cast<size_t>(9 * c.srcBytes), 255);
    picture.nLeft = picture.nTop = kSide - 3;
    if (c.bottomUp) picture.nTop = 0;
    picture.nWidth = picture.nHeight = 3;
    EXPECT_EQ(c.resize(Rect(source, 3, 3, c.srcBytes), picture), 1) << c;
    EXPECT_EQ(*at(kSide - 3, kSide - 1), 255) << c;
    EXPECT_EQ(*at(kSide - 1, kSide - 2), 255) << c;
  }
}

TEST_F(Resize, RefusesWhatCannotBeDoneAndWritesNothing) {
  Bytes src(4 * 64 * 64, 5), dst(4 * 64 * 64, 77);
  for (const ResizeCase& c : kResizeCases) {
    const IMG_PARAM good = {nullptr, 0, 16, 64, 8 * c.srcBytes, 0, 0, 8, 8};
    const auto resize = [&](int IMG_PARAM::*field, int value, bool source, bool buffers = true) {
      IMG_PARAM from = good, to = good;
      from.pBuffer = buffers || !source ? src.data() : nullptr;
      to.pBuffer = buffers || source ? dst.data() : nullptr;
      IMG_PARAM& changed = source ? from : to;
      changed.*field = value;
      return c.resize(from, to);
    };
    for (const bool source : {true, false}) {
      const auto refuses = [&](int IMG_PARAM::*field, int value) {
        EXPECT_EQ(resize(field, value, source), 0) << c << ", " << source << ", " << value;
      };
      for (int IMG_PARAM::*size : {&IMG_PARAM::nWidth, &IMG_PARAM::nHeight}) {
        for (const int n : {0, -1, INT_MIN}) refuses(size, n);
        if (!source) refuses(size, 1);
      }
      for (const int n : {-1, INT_MIN, INT_MAX}) {
        refuses(&IMG_PARAM::nLeft, n);
        if (n < 0 || c.bottomUp) refuses(&IMG_PARAM::nTop, n);
      }
      for (const int n : {3, -3}) refuses(&IMG_PARAM::nPitch, n);
      if (c.bottomUp) refuses(&IMG_PARAM::nImageHeight, 7);
      // More rows than an address space of 32 bits has bytes.
      if (sizeof(void*) == 4) refuses(&IMG_PARAM::nHeight, INT_MAX);
      EXPECT_EQ(resize(&IMG_PARAM::nWidth, 8, source, false), 0) << c;
    }
    if (c.resize == StretchMaskResizeBiLiner) {
      for (const int n : {0, 7, -8, 40}) EXPECT_EQ(resize(&IMG_PARAM::nBitCount, n, true), 0) << n;
    }
    EXPECT_EQ(dst, Bytes(dst.size(), 77)) << c;
    EXPECT_EQ(resize(&IMG_PARAM::nWidth, 8, true), 1) << c;
    dst.assign(dst.size(), 77);
  }
}

TEST_F(Resize, DispatchersRunTheirRoutines) {
  const auto luma = [](const IMG_PARAM& s, IMG_PARAM& d, IMAGE_INTERPOLATION m) {
    return ImageResizeY(s, d, m, 9);
  };
  const auto stretch = [](const IMG_PARAM& s, IMG_PARAM& d, IMAGE_INTERPOLATION) {
    return ImageStretchMask(s, d);
  };
  const Resizer nearestY = WithoutReserved<DIB_ResizeNearY>;
  const Resizer bilinearY = WithoutReserved<DIB_ResizeBiLinerY>;
  const Resizer alpha = DIB_AlphaResizeBiLiner, mask = StretchMaskResizeBiLiner;
  struct Dispatcher {
    int (*dispatch)(const IMG_PARAM&, IMG_PARAM&, IMAGE_INTERPOLATION);
    int bytes;
    Resizer routine[5];  // By method.
  };
  const Dispatcher dispatchers[] = {
      {ImageResize,
       4,
       {DIB_ResizeBiLiner, DIB_ResizeNear, DIB_ResizeBiLiner, DIB_ResizeConvolve, nullptr}},
      {ImageResize8,
       1,
       {DIB_ResizeBiLiner8, DIB_ResizeNear8, DIB_ResizeBiLiner8, nullptr, nullptr}},
      {ImageResizeUV,
       1,
       {DIB_ResizeBiLinerUV, DIB_ResizeNearUV, DIB_ResizeBiLinerUV, nullptr, nullptr}},
      {luma, 1, {bilinearY, nearestY, bilinearY, DIB_ResizeConvolve, nullptr}},
      {ImageAlphaResize, 4, {alpha, alpha, alpha, alpha, alpha}},
      {stretch, 4, {mask, mask, mask, mask, mask}},
  };
  for (const Dispatcher& d : dispatchers) {
    for (int method = -1; method < 5; ++method) {
      const Resizer routine = d.routine[method < 0 ? 4 : method];
      Bytes src(4 * 6 * 6), got(4 * 9 * 9, 77), want = got;
      for (size_t i = 0; i < src.size(); ++i) src[i] = static_cast<Byte>(i * 37);
      const IMG_PARAM from = Rect(src, 6, 6, d.bytes);
      IMG_PARAM to = Rect(got, 9, 9, d.bytes), expected = Rect(want, 9, 9, d.bytes);
      const int result = routine == nullptr ? 0 : routine(from, expected);
      EXPECT_EQ(d.dispatch(from, to, static_cast<IMAGE_INTERPOLATION>(method)), result);
      EXPECT_EQ(got, want) << &d - dispatchers << " method " << method;
      // No method leaves the bitmap of the record.
      if (d.dispatch != ImageResize) continue;
      --to.nImageHeight;
      EXPECT_EQ(d.dispatch(from, to, static_cast<IMAGE_INTERPOLATION>(method)), 0) << method;
      EXPECT_EQ(got, want) << method;
    }
  }
}

TEST_F(Resize, PicturesAreScaledPlaneByPlane) {
  const int srcPitch[] = {7, 5, 6, 9}, dstPitch[] = {11, 8, 12, 13};
  Bytes src(4 * 90), got(4 * 160);
  for (size_t i = 0; i < src.size(); ++i) src[i] = static_cast<Byte>(i * 37);
  const IMG_PARAM from = {nullptr, 0, 0, 0, 0, 1, 1, 6, 6};
  IMG_PARAM to = {nullptr, 0, 0, 0, 0, 2, 1, 9, 10};
  const auto s = [&](int i) { return src.data() + 90 * i; };
  const auto d = [&](int i) { return got.data() + 160 * i; };
  const auto yv12 = [&](IMAGE_INTERPOLATION method) {
    return ImageResizeYV12(from, s(0), s(1), s(2), 7, 5, 6, to, d(0), nullptr, d(2), 11, 8, 12,
                           method, 1);
  };
  const auto yv444 = [&](IMAGE_INTERPOLATION method) {
    return ImageResizeYV444(from, s(0), s(1), s(2), s(3), 7, 5, 6, 9, to, d(0), nullptr, d(2), d(3),
                            11, 8, 12, 13, method);
  };
  // U has no destination: the other planes are scaled all the same.
  for (const bool full : {false, true}) {
    for (int method = 0; method < 5; ++method) {
      const auto m = static_cast<IMAGE_INTERPOLATION>(method);
      got.assign(got.size(), 77);
      for (const int i : {0, 2, 3}) {
        IMG_PARAM oneFrom = from, oneTo = to;
        oneFrom.pBuffer = s(i);
        oneFrom.nPitch = srcPitch[i];
        oneTo.pBuffer = d(i);
        oneTo.nPitch = dstPitch[i];
        if (full || i == 0) {
          ImageResizeY(oneFrom, oneTo, m, 0);
        } else if (i < 3) {
          ImageResizeUV(oneFrom, oneTo, m);
        }
      }
      const Bytes want = got;
      got.assign(got.size(), 77);
      EXPECT_EQ(full ? yv444(m) : yv12(m), 1);
      EXPECT_EQ(got, want) << full << method;
    }
  }
  for (int IMG_PARAM::*size : {&IMG_PARAM::nWidth, &IMG_PARAM::nHeight}) {
    const Bytes before = got;
    const int old = std::exchange(to.*size, 1);
    EXPECT_EQ(yv12(IMAGE_INTERPOLATION_NEAREST) + yv444(IMAGE_INTERPOLATION_NEAREST), 0);
    EXPECT_EQ(got, before);
    to.*size = old;
  }
}

TEST(Rotate, ScalesSoThatAQuarterTurnFits) {
  const auto scale = [](int width, int height, int angle) {
    return CalcResizeScaleforRotate({nullptr, 0, 0, 0, 0, 0, 0, width, height}, angle);
  };
  for (const int angle : {0, 180, 360, -180, -360}) EXPECT_EQ(scale(640, 480, angle), 1.0);
  for (const int angle : {90, 270, 1, -90}) {
    EXPECT_EQ(scale(640, 480, angle), 0.75);
    EXPECT_EQ(scale(480, 640, angle), 0.75);
    EXPECT_EQ(scale(77, 77, angle), 1.0);
    EXPECT_EQ(scale(0, 0, angle), 1.0);
  }
}

TEST(Rotate, EntryPointsReadAndWriteNothing) {
  const IMG_PARAM image = {nullptr, 8, 8, 8, 8, 0, 0, 8, 8};
  const Mapping forbidden(1, PROT_NONE);
  Byte* const p = forbidden.begin();
  for (const auto entry : {ImageRotateYV12, ImageDragYUV, ImageRotateResizeYUV}) {
    EXPECT_EQ(
        entry(image, p, p, p, 8, 8, 8, image, p, p, p, 8, 8, 8, IMAGE_INTERPOLATION_LINEAR, 0), 1);
  }
}

}  // namespace
