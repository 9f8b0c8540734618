// The resizing routines: worked-out values, and a model pixel by pixel that reads no pixel whose
// weight is 0 and shares nothing with the library, with the kernels of every level.
#include <gmock/gmock.h>

#include <climits>
#include <cmath>
#include <string>

#include "tests/support/Kernels.h"
#include "zel/Common/Image/AlphaResize.h"
#include "zel/Common/Image/ImageConvert.h"

namespace {

using testing::ElementsAre;
using namespace zel::test;  // NOLINT

using Resizer = int (*)(const IMG_PARAM& src, IMG_PARAM& dst);

/// Leaves out the argument that is not used.
template <int (*kRoutine)(const IMG_PARAM&, IMG_PARAM&, int)>
int WithoutReserved(const IMG_PARAM& src, IMG_PARAM& dst) {
  return kRoutine(src, dst, 0);
}

// What sets the routines apart.
enum : unsigned {
  kNearest = 1,
  kBottomUp = 2,
  kLastRow = 4,        // The last row takes the source's last row, without weights.
  kLastColumn = 8,     // Columns likewise. In a last row they always do.
  kLuma = 16,          // Paints margins.
  kProportional = 32,  // Positions are not steps.
  kBox = 64,           // The mean of four pixels.
  kChroma = 128,       // Planes have half the size of the rectangles.
  kAlpha = 256,        // Lays the picture over what is there.
  kMask = 512,         // Changes only what the picture hides, and the fourth byte.
  kBitmap = kBottomUp | kLastRow | kLastColumn,
};

struct ResizeCase {
  const char* name;
  Resizer resize;
  unsigned is;
  int srcBytes = 1;
  int dstBytes = 1;
};

constexpr Resizer kBiLinerY = WithoutReserved<DIB_ResizeBiLinerY>,
                  kNearY = WithoutReserved<DIB_ResizeNearY>,
                  kSimulate = WithoutReserved<DIB_ResizeBiLinerY_Simulate>;
constexpr ResizeCase kResizeCases[] = {
    {"Near", DIB_ResizeNear, kBitmap | kNearest, 4, 4},
    {"BiLiner", DIB_ResizeBiLiner, kBitmap, 4, 4},
    {"Near8", DIB_ResizeNear8, kNearest | kProportional | kLastRow | kLastColumn},
    {"BiLiner8", DIB_ResizeBiLiner8, kBitmap},
    {"NearY", kNearY, kLuma | kNearest},
    {"BiLinerY", kBiLinerY, kLuma | kLastRow},
    {"Convolve", DIB_ResizeConvolve, kLuma | kLastRow},
    {"Simulate", kSimulate, kBox},
    {"NearUV", DIB_ResizeNearUV, kChroma | kNearest},
    {"BiLinerUV", DIB_ResizeBiLinerUV, kChroma},
    {"Alpha", DIB_AlphaResizeBiLiner, kBitmap | kAlpha, 4, 4},
    {"MaskNear", StretchMaskResizeNear, kBitmap | kMask | kNearest, 1, 4},
    {"MaskBiLiner", StretchMaskResizeBiLiner, kBitmap | kMask, 1, 4},
    {"MaskBiLiner24", StretchMaskResizeBiLiner, kBitmap | kMask, 3, 4},
};

/// The model of all of them.
class Model {
 public:
  Model(const ResizeCase& c, const IMG_PARAM& s, const IMG_PARAM& d) : c_(c), s_(s), d_(d) {}

  void Run() const {
    const int step = c_.is & kChroma ? 2 : 1;
    int y = 0;
    for (; y < d_.nHeight - (c_.is & kChroma ? 2 : 0); y += step) {
      if (c_.is & kLuma) std::memset(To(-d_.nLeft, y), 16, std::size_t(std::abs(d_.nPitch)));
      for (int x = 0; x < d_.nWidth; x += step) MakePixel(x, y);
    }
    for (int x = 0; c_.is & kChroma && x < d_.nWidth - 2; x += 2) {
      *To(x, y) = *From(At(x, s_.nWidth, d_.nWidth).i, s_.nHeight - 1);
    }
  }

 private:
  struct Pos {
    int i, f;
  };
  Pos At(long long k, int from, int to) const {
    if (c_.is & kProportional) {
      return {static_cast<int>(std::min((k * from + to / 2) / to, from - 1LL)), 0};
    }
    const long long p = k * ((from - 1LL) * 4096 / (to - 1));
    return {static_cast<int>(p >> 12), static_cast<int>(p & 4095)};
  }
  Byte* Pixel(const IMG_PARAM& p, int x, int y, int bytes) const {
    const int half = c_.is & kChroma ? 2 : 1;
    x = (p.nLeft + x) / half;
    y = (p.nTop + y) / half;
    return p.pBuffer + std::ptrdiff_t{c_.is & kBottomUp ? p.nImageHeight - 1 - y : y} * p.nPitch +
           std::ptrdiff_t{x} * bytes;
  }
  Byte* From(int x, int y) const { return Pixel(s_, x, y, c_.srcBytes); }
  Byte* To(int x, int y) const { return Pixel(d_, x, y, c_.dstBytes); }

  /// Pixels without weight are not read.
  int Bilinear(Pos x, Pos y, int channel) const {
    const auto weigh = [](int a, int b, int f) { return (a * (4096 - f) + b * f) >> 12; };
    const auto row = [&](int r) {
      const int left = From(x.i, r)[channel];
      return x.f ? weigh(left, From(x.i + 1, r)[channel], x.f) : left;
    };
    return y.f ? weigh(row(y.i), row(y.i + 1), y.f) : row(y.i);
  }
  void MakePixel(int column, int row) const {
    const bool lastRow = c_.is & kLastRow && row == d_.nHeight - 1;
    const bool lastColumn = (c_.is & kLastColumn || lastRow) && column == d_.nWidth - 1;
    const Pos x = lastColumn ? Pos{s_.nWidth - 1, 0} : At(column, s_.nWidth, d_.nWidth);
    const Pos y = lastRow ? Pos{s_.nHeight - 1, 0} : At(row, s_.nHeight, d_.nHeight);
    Byte* const out = To(column, row);
    if (c_.is & kBox) {
      MakeBox(column, row, x.i, y.i, out);
      return;
    }
    const Byte* const here = From(x.i, y.i);
    const bool edge = lastRow || lastColumn;
    Byte v[4];
    for (int k = 0; k < c_.srcBytes; ++k) {
      const bool copied = edge || c_.is & kNearest || k == 3;
      v[k] = copied ? here[k] : static_cast<Byte>(Bilinear(x, y, k));
    }
    const int m = v[c_.srcBytes - 1];
    if (c_.is & kMask) {
      if (m == 0) std::memset(out, 0, 4);
      out[3] = static_cast<Byte>(c_.is & kNearest ? m : out[3] * m / 255);
    } else if (c_.is & kAlpha) {
      for (int k = 0; k < 3; ++k) out[k] = static_cast<Byte>((out[k] * (255 - m) + v[k] * m) / 255);
      if (!edge) out[3] = static_cast<Byte>(out[3] * (255 - m) / 255 + m);
    } else {
      std::memcpy(out, v, static_cast<std::size_t>(c_.dstBytes));
    }
  }
  void MakeBox(int column, int row, int x, int y, Byte* out) const {
    if (row < d_.nHeight - 1) {
      const int right = std::min(At(column + 1, s_.nWidth, d_.nWidth).i, s_.nWidth - 1);
      const int below = At(row + 1, s_.nHeight, d_.nHeight).i;
      *out = static_cast<Byte>(
          (*From(x, y) + *From(right, y) + *From(x, below) + *From(right, below)) >> 2);
    } else if (column < d_.nWidth - 1 && column % 2 == 0) {
      *out = *From(x, s_.nHeight - 1);
    }
  }

  const ResizeCase& c_;
  const IMG_PARAM &s_, &d_;
};

void Apply(const ResizeCase& c, bool model, const IMG_PARAM& from, IMG_PARAM to) {
  if (model) {
    Model(c, from, to).Run();
  } else {
    EXPECT_EQ(c.resize(from, to), 1) << c.name;
  }
}

/// A picture that is its own rectangle.
IMG_PARAM Rect(Bytes& bytes, int width, int height, int pixelBytes = 1) {
  return {bytes.data(), 0, height, width * pixelBytes, 8 * pixelBytes, 0, 0, width, height};
}

Bytes Ramp(std::size_t size) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<Byte>(i * 37);
  return bytes;
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
  const int bytes = surrounded ? c.dstBytes : c.srcBytes, half = c.is & kChroma ? 2 : 1;
  const int left = p->nLeft / half, columns = (p->nLeft + p->nWidth - 1) / half - left + 1;
  const int top = p->nTop / half, rows = (p->nTop + p->nHeight - 1) / half - top + 1;
  const int pitch = (left + columns) * bytes + random.Below(20);
  const bool flipped = random.Below(4) == 0, bottomUp = c.is & kBottomUp;
  p->nPitch = flipped ? -pitch : pitch;
  p->nImageHeight = top + rows + random.Below(3);
  const std::ptrdiff_t before = surrounded ? pitch + left * bytes : 0,
                       lastRow = std::ptrdiff_t{rows - 1} * pitch;
  Byte* const begin = arena.Buffer(static_cast<std::size_t>(
      lastRow + (surrounded ? 3 * std::ptrdiff_t{pitch} : columns * bytes)));
  // Rows that are upwards in memory begin with the last one.
  Byte* const corner = begin + before + (bottomUp != flipped ? lastRow : 0);
  const int topRow = bottomUp ? p->nImageHeight - 1 - top : top;
  p->pBuffer = corner - left * bytes - std::ptrdiff_t{topRow} * p->nPitch;
}

class EveryResizer : public KernelTest, public testing::WithParamInterface<ResizeCase> {
 protected:
  void Check(int sw, int sh, int dw, int dh) {
    const ResizeCase& c = GetParam();
    const auto run = [&](Arena& arena, bool model) {
      Random random(seed_);
      IMG_PARAM from = {}, to = {};
      for (IMG_PARAM* p : {&from, &to}) {
        p->nImageWidth = -1;
        p->nBitCount = 8 * c.srcBytes;
        p->nLeft = random.Below(6);
        p->nTop = random.Below(4);
        p->nWidth = p == &from ? sw : dw;
        p->nHeight = p == &from ? sh : dh;
        Place(arena, random, c, p == &to, p);
      }
      Apply(c, model, from, to);
    };
    ++seed_;
    ASSERT_TRUE(SameAtEveryLevel(seed_, run)) << sw << " x " << sh << " to " << dw << " x " << dh;
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
  // From 524,289 source pixels on, 32 bits would overflow.
  const int sizes[][4] = {{5, 301, 6, 200}, {5, 200, 6, 301}, {19, 70000, 3, 7},
                          {70000, 2, 9, 3}, {9, 2, 70000, 3}, {600001, 1, 9, 2}};
  for (const auto& s : sizes) ASSERT_NO_FATAL_FAILURE(Check(s[0], s[1], s[2], s[3]));
}

INSTANTIATE_TEST_SUITE_P(All, EveryResizer, testing::ValuesIn(kResizeCases),
                         [](const auto& c) { return std::string(c.param.name); });

// Pictures of 40,000 x 40,000 as a whole source, and as a destination up to its far corner, in
// mappings of which only some pages are touched.
TEST_F(Resize, OffsetsMayExceedTwoGigabytes) {
  constexpr int kSide = 40000;
  const Mapping large(std::int64_t{kSide} * kSide * 4);
  if (!large.begin()) GTEST_SKIP() << "no address space for such a picture";
  for (const ResizeCase& c : kResizeCases) {
    if (c.is & (kChroma | kMask)) continue;
    const int pitch = kSide * c.dstBytes, y = c.is & kBottomUp ? 0 : kSide - 3;
    const IMG_PARAM whole = {large.begin(), 0, kSide, pitch, 0, 0, 0, kSide, kSide};
    const IMG_PARAM corner = {large.begin(), 0, kSide, pitch, 0, kSide - 3, y, 3, 3};
    Byte* const lastRows = large.begin() + std::ptrdiff_t{kSide - 3} * pitch;
    Bytes source = Ramp(static_cast<std::size_t>(9 * c.srcBytes)), results[2];
    for (const bool model : {false, true}) {
      Bytes& result = results[model];
      std::memset(lastRows, 77, static_cast<std::size_t>(3 * pitch));
      Apply(c, model, Rect(source, 3, 3, c.srcBytes), corner);
      result.assign(lastRows, lastRows + 3 * pitch);
      Bytes small(static_cast<std::size_t>(9 * c.dstBytes), 77);
      Apply(c, model, whole, Rect(small, 3, 3, c.dstBytes));
      result.insert(result.end(), small.begin(), small.end());
    }
    EXPECT_TRUE(results[0] == results[1]) << c.name;
  }
}

TEST_F(Resize, RefusesWhatCannotBeDoneAndWritesNothing) {
  using Param = IMG_PARAM;
  const struct {
    std::int32_t Param::*field;
    std::vector<int> values;
    unsigned only = ~0U;  // Routines with one of these traits.
    bool ofSource = true;
  } refused[] = {{&Param::nWidth, {0, -1, INT_MIN}},
                 {&Param::nHeight, {0, -1, INT_MIN}},
                 {&Param::nWidth, {1}, ~0U, false},
                 {&Param::nHeight, {1}, ~0U, false},
                 {&Param::nLeft, {-1, INT_MIN, INT_MAX}},
                 {&Param::nTop, {-1, INT_MIN}},
                 {&Param::nTop, {INT_MAX}, kBottomUp},
                 {&Param::nPitch, {3, -3}},
                 {&Param::nImageHeight, {7}, kBottomUp},
                 // More rows than an address space of 32 bits has bytes.
                 {&Param::nHeight, {INT_MAX}, sizeof(void*) == 4 ? ~0U : 0}};
  Bytes src(4 * 64 * 64, 5), dst(4 * 64 * 64, 77);
  for (const ResizeCase& c : kResizeCases) {
    const Param from = {src.data(), 0, 16, 64, 8 * c.srcBytes, 0, 0, 8, 8};
    const Param to = {dst.data(), 0, 16, 64, 8 * c.srcBytes, 0, 0, 8, 8};
    const auto refuses = [&](bool source, auto change) {
      Param badFrom = from, badTo = to;
      change(source ? badFrom : badTo);
      EXPECT_EQ(c.resize(badFrom, badTo), 0) << c.name << (source ? " source" : " destination");
    };
    for (const bool source : {true, false}) {
      refuses(source, [](Param& p) { p.pBuffer = nullptr; });
      for (const auto& r : refused) {
        if ((c.is & r.only) == 0 || (source && !r.ofSource)) continue;
        for (const int value : r.values) {
          SCOPED_TRACE(testing::Message() << "row " << &r - refused << ", " << value);
          refuses(source, [&](Param& p) { p.*r.field = value; });
        }
      }
    }
    for (const int bits : {0, 7, -8, 40}) {
      if (c.resize == StretchMaskResizeBiLiner) {
        refuses(true, [&](Param& p) { p.nBitCount = bits; });
      }
    }
    EXPECT_EQ(dst, Bytes(dst.size(), 77)) << c.name;
    Param good = to;
    EXPECT_EQ(c.resize(from, good), 1) << c.name;
    dst.assign(dst.size(), 77);
  }
}

constexpr IMAGE_INTERPOLATION kMethods[] = {
    IMAGE_INTERPOLATION_LINEAR, IMAGE_INTERPOLATION_NEAREST, IMAGE_INTERPOLATION_BILINEAR,
    IMAGE_INTERPOLATION_CONVOLVE, static_cast<IMAGE_INTERPOLATION>(4)};

TEST_F(Resize, DispatchersRunTheirRoutines) {
  using Dispatch = int (*)(const IMG_PARAM&, IMG_PARAM&, IMAGE_INTERPOLATION);
  const Dispatch luma = [](const IMG_PARAM& s, IMG_PARAM& d, IMAGE_INTERPOLATION m) {
    return ImageResizeY(s, d, m, 9);
  };
  const Dispatch stretch = [](const IMG_PARAM& s, IMG_PARAM& d, IMAGE_INTERPOLATION) {
    return ImageStretchMask(s, d);
  };
  const Resizer linear = DIB_ResizeBiLiner, alpha = DIB_AlphaResizeBiLiner,
                mask = StretchMaskResizeBiLiner;
  const struct {
    Dispatch dispatch;
    int bytes;
    Resizer routines[5];  // By method.
  } dispatchers[] = {
      {ImageResize, 4, {linear, DIB_ResizeNear, linear, DIB_ResizeConvolve}},
      {ImageResize8, 1, {DIB_ResizeBiLiner8, DIB_ResizeNear8, DIB_ResizeBiLiner8}},
      {ImageResizeUV, 1, {DIB_ResizeBiLinerUV, DIB_ResizeNearUV, DIB_ResizeBiLinerUV}},
      {luma, 1, {kBiLinerY, kNearY, kBiLinerY, DIB_ResizeConvolve}},
      {ImageAlphaResize, 4, {alpha, alpha, alpha, alpha, alpha}},
      {stretch, 4, {mask, mask, mask, mask, mask}},
  };
  for (const auto& d : dispatchers) {
    for (const auto method : kMethods) {
      Bytes src = Ramp(4 * 6 * 6), got(4 * 9 * 9, 77), want = got;
      const IMG_PARAM from = Rect(src, 6, 6, d.bytes);
      IMG_PARAM to = Rect(got, 9, 9, d.bytes), expected = Rect(want, 9, 9, d.bytes);
      const Resizer routine = d.routines[method];
      const int result = routine == nullptr ? 0 : routine(from, expected);
      EXPECT_EQ(d.dispatch(from, to, method), result);
      EXPECT_EQ(got, want) << &d - dispatchers << " method " << method;
      // No method leaves the bitmap of the record.
      if (d.dispatch != ImageResize) continue;
      --to.nImageHeight;
      EXPECT_EQ(d.dispatch(from, to, method), 0) << method;
      EXPECT_EQ(got, want) << method;
    }
  }
}

TEST_F(Resize, PicturesAreScaledPlaneByPlane) {
  Bytes src = Ramp(4 * 90), got, want;
  const IMG_PARAM from = {nullptr, 0, 0, 0, 0, 1, 1, 6, 6};
  const auto s = [&](int i) { return src.data() + 90 * i; };
  const auto d = [&](int i) { return got.data() + 160 * i; };
  // U has no destination: the other planes are scaled all the same.
  const auto scale = [&](bool full, const IMG_PARAM& to, IMAGE_INTERPOLATION method) {
    got.assign(4 * 160, 77);
    return full ? ImageResizeYV444(from, s(0), s(1), s(2), s(3), 7, 5, 6, 9, to, d(0), nullptr,
                                   d(2), d(3), 11, 8, 12, 13, method)
                : ImageResizeYV12(from, s(0), s(1), s(2), 7, 5, 6, to, d(0), nullptr, d(2), 11, 8,
                                  12, method, 1);
  };
  for (const bool full : {false, true}) {
    IMG_PARAM to = {nullptr, 0, 0, 0, 0, 2, 1, 9, 10};
    for (const auto method : kMethods) {
      EXPECT_EQ(scale(full, to, method), 1);
      want.swap(got);
      got.assign(want.size(), 77);
      for (const auto& [i, pitch, toPitch] : {std::tuple{0, 7, 11}, {2, 6, 12}, {3, 9, 13}}) {
        const IMG_PARAM source = {s(i), 0, 0, pitch, 0, 1, 1, 6, 6};
        IMG_PARAM target = {d(i), 0, 0, toPitch, 0, 2, 1, 9, 10};
        if (full || i == 0) {
          ImageResizeY(source, target, method);
        } else if (i < 3) {
          ImageResizeUV(source, target, method);
        }
      }
      EXPECT_EQ(got, want) << full << method;
    }
    for (std::int32_t IMG_PARAM::*size : {&IMG_PARAM::nWidth, &IMG_PARAM::nHeight}) {
      const int old = std::exchange(to.*size, 1);
      EXPECT_EQ(scale(full, to, IMAGE_INTERPOLATION_NEAREST), 0);
      EXPECT_EQ(got, Bytes(got.size(), 77));
      to.*size = old;
    }
  }
}

TEST(Rotate, ScalesSoThatAQuarterTurnFits) {
  for (const int angle : {0, 180, 360, -180, -360, 90, 270, 1, -90}) {
    const double turned = angle % 180 == 0 ? 1.0 : 0.75;
    for (const auto& [w, h, want] :
         {std::tuple{640, 480, turned}, {480, 640, turned}, {77, 77, 1.0}, {0, 0, 1.0}}) {
      const IMG_PARAM picture = {nullptr, 0, 0, 0, 0, 0, 0, w, h};
      EXPECT_EQ(CalcResizeScaleforRotate(picture, angle), want) << angle;
    }
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
