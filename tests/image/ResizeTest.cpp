#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/image/Guarded.h"
#include "tests/image/ResizeModel.h"
#include "zel/Common/Image/ImageConvert.h"
#include "zel/detail/Level.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using zel::Level;
using Bytes = std::vector<unsigned char>;

IMG_PARAM Rect(Bytes& bytes, int width, int height, int pixel_bytes = 1) {
  return {bytes.data(), 0, height, width * pixel_bytes, 8 * pixel_bytes, 0, 0, width, height};
}

// Literal values, worked out by hand ------------------------------------------------------------

struct Literal {
  const char* routine;
  int sw, sh, dw, dh;
  Bytes src;
  Bytes want;  // On a destination of 77s.
};

// Rows are given in the order of memory: bitmaps bottom row first.
const Literal kLiterals[] = {
    {"BiLinerY", 2, 2, 3, 3, {10, 20, 30, 40}, {10, 15, 20, 20, 25, 30, 30, 30, 40}},
    {"Convolve", 2, 2, 3, 3, {10, 20, 30, 40}, {10, 15, 20, 20, 25, 30, 30, 30, 40}},
    {"BiLiner8", 2, 2, 3, 3, {30, 40, 10, 20}, {30, 30, 40, 20, 25, 20, 10, 15, 20}},
    // The step, 2730, falls short of the last pixel: luma routines end there, bitmaps exactly.
    {"BiLinerY", 3, 2, 4, 2, {10, 20, 30, 50, 60, 70}, {10, 16, 23, 29, 50, 50, 60, 70}},
    {"BiLiner8", 3, 2, 4, 2, {50, 60, 70, 10, 20, 30}, {50, 50, 60, 70, 10, 16, 23, 30}},
    {"NearY", 3, 2, 4, 2, {10, 20, 30, 50, 60, 70}, {10, 10, 20, 20, 50, 50, 60, 60}},
    {"Near8", 3, 2, 4, 2, {10, 20, 30, 50, 60, 70}, {10, 20, 30, 30, 50, 60, 70, 70}},
    {"Near8", 1, 1, 9, 2, {5}, Bytes(18, 5)},
    {"Simulate", 3, 2, 4, 2, {10, 20, 30, 50, 60, 70}, {30, 35, 40, 45, 50, 77, 60, 77}},
    // 4 x 4 luma: the last chroma row ends one pixel early.
    {"NearUV", 4, 4, 4, 4, {1, 2, 3, 4}, {1, 2, 3, 77}},
    {"BiLinerUV", 4, 4, 4, 4, {1, 2, 3, 4}, {1, 2, 3, 77}},
    // 4 x 4 to 7 x 5: columns at luma 0, 1, 2, 3 (fractions 0), rows at 0, 1.5.
    {"BiLinerUV", 4, 4, 7, 5, {10, 50, 30, 90}, {10, 10, 50, 50, 20, 20, 70, 70, 30, 30, 90, 77}},
    {"Near", 2, 1, 3, 2, {1, 2, 3, 4, 5, 6, 7, 8}, {1, 2, 3, 4, 1, 2, 3, 4, 5, 6, 7, 8,
                                                    1, 2, 3, 4, 1, 2, 3, 4, 5, 6, 7, 8}},
    // Alpha is the left neighbour's: 4, not 6.
    {"BiLiner", 2, 1, 3, 2, {1, 2, 3, 4, 5, 6, 7, 8}, {1, 2, 3, 4, 1, 2, 3, 4, 5, 6, 7, 8,
                                                       1, 2, 3, 4, 3, 4, 5, 4, 5, 6, 7, 8}},
    // (77 * 155 + 10 * 100) / 255 = 50, with 15 instead of 10: 52; (77 * 55 + 20 * 200) / 255 = 32.
    // Only pixels off the last row and column get alpha: 77 * 155 / 255 + 100 = 146.
    {"Alpha", 2, 1, 3, 2, {10, 10, 10, 100, 20, 20, 20, 200}, {50, 50, 50, 77,  50, 50, 50, 77,
                                                               32, 32, 32, 77,  50, 50, 50, 146,
                                                               52, 52, 52, 146, 32, 32, 32, 77}},
    {"MaskNear", 2, 1, 2, 2, {0, 200}, {0, 0, 0, 0, 77, 77, 77, 200, 0, 0, 0, 0, 77, 77, 77, 200}},
    // 77 * 100 / 255 = 30; a mask of 1 clears the alpha but not the colour.
    {"MaskBiLiner", 3, 1, 5, 2, {0, 200, 1}, {0,  0,  0,  0,  0,  0,  0,  0,  77, 77,
                                              77, 60, 77, 77, 77, 60, 77, 77, 77, 0,
                                              0,  0,  0,  0,  77, 77, 77, 30, 77, 77,
                                              77, 60, 77, 77, 77, 30, 77, 77, 77, 0}},
};

const ResizeCase& Find(const std::string& name) {
  for (const ResizeCase& c : kResizeCases) {
    if (name == c.name) return c;
  }
  throw std::invalid_argument(name);
}

TEST(Resize, GivesTheValuesWorkedOutByHand) {
  for (const Literal& l : kLiterals) {
    const ResizeCase& c = Find(l.routine);
    Bytes src = l.src;
    Bytes dst(l.want.size(), 77);
    IMG_PARAM from = Rect(src, l.sw, l.sh, c.src_bytes);
    IMG_PARAM to = Rect(dst, l.dw, l.dh, c.dst_bytes);
    if (c.chroma) {
      from.nPitch = (l.sw + 1) / 2;
      to.nPitch = (l.dw + 1) / 2;
    }
    EXPECT_EQ(c.exported(from, to), 1) << l.routine;
    EXPECT_THAT(dst, ElementsAreArray(l.want)) << l.routine << " to " << l.dw << " x " << l.dh;
  }
}

// Every routine, at every level, against the model ----------------------------------------------

/// A picture whose memory ends, or begins, at a guard page with the rectangle's own bytes.
class Picture {
 public:
  Picture() : memory_(12 << 20) {}

  /// A rectangle (its memory: `columns` x `rows` pixels at `left`, `top`) in rows of some pitch.
  /// With `surrounded`, whole rows and one more above and below belong to the memory.
  void Make(IMG_PARAM* image, int columns, int rows, int left, int top, int bytes, bool bottom_up,
            bool surrounded, std::mt19937& random) {
    const int spare = static_cast<int>(random() % 20);
    const int pitch = (left + columns) * bytes + spare;
    const int image_rows = top + rows + static_cast<int>(random() % 3);
    const bool flipped = random() % 4 == 0;
    const auto at = random() % 2 ? Guarded::At::kBegin : Guarded::At::kEnd;
    image->nPitch = flipped ? -pitch : pitch;
    image->nImageHeight = image_rows;
    // The memory row, counted upwards in addresses, that holds the rectangle's first bytes.
    const bool upwards = bottom_up != flipped;
    size_ = static_cast<size_t>(rows - 1) * pitch + static_cast<size_t>(columns) * bytes;
    std::ptrdiff_t rect = 0;
    if (surrounded) {
      size_ = static_cast<size_t>(rows + 2) * pitch;
      rect = pitch + left * bytes;
    }
    begin_ = memory_.Place(size_, at);
    unsigned char* top_left = begin_ + rect + (upwards ? std::ptrdiff_t{rows - 1} * pitch : 0);
    const int top_row = bottom_up ? image_rows - 1 - top : top;
    image->pBuffer = reinterpret_cast<unsigned char*>(
        reinterpret_cast<std::uintptr_t>(top_left) - static_cast<std::uintptr_t>(left * bytes) -
        static_cast<std::uintptr_t>(std::ptrdiff_t{top_row} * image->nPitch));
    for (size_t i = 0; i < size_; ++i) begin_[i] = Value(random());
  }
  unsigned char* begin() const { return begin_; }
  size_t size() const { return size_; }
  Bytes Copy() const { return Bytes(begin_, begin_ + size_); }

 private:
  // The ends of the range are what arithmetic goes wrong at.
  static unsigned char Value(std::uint32_t r) {
    return static_cast<unsigned char>(r % 8 == 0 ? 0 : r % 8 == 1 ? 255 : r >> 8);
  }
  Guarded memory_;
  unsigned char* begin_ = nullptr;
  size_t size_ = 0;
};

class ResizeModelTest : public testing::TestWithParam<ResizeCase> {
 protected:
  void Check(int sw, int sh, int dw, int dh) {
    const ResizeCase& c = GetParam();
    const auto below = [&](int n) {
      return static_cast<int>(random_() % static_cast<unsigned>(n));
    };
    IMG_PARAM from = {nullptr, -1, 0, 0, c.src_bits, below(6), below(4), sw, sh};
    IMG_PARAM to = {nullptr, -1, 0, 0, -1, below(6), below(4), dw, dh};
    const auto make = [&](Picture& picture, IMG_PARAM& p, int bytes, bool surrounded) {
      if (!c.chroma) {
        picture.Make(&p, p.nWidth, p.nHeight, p.nLeft, p.nTop, bytes, c.bottom_up, surrounded,
                     random_);
        return;
      }
      picture.Make(&p, (p.nLeft + p.nWidth - 1) / 2 - p.nLeft / 2 + 1,
                   (p.nTop + p.nHeight - 1) / 2 - p.nTop / 2 + 1, p.nLeft / 2, p.nTop / 2, bytes,
                   c.bottom_up, surrounded, random_);
    };
    make(source_, from, c.src_bytes, false);
    make(destination_, to, c.dst_bytes, true);
    const Bytes source = source_.Copy();
    const Bytes before = destination_.Copy();
    c.model(from, to);
    const Bytes want = destination_.Copy();
    const auto check = [&](const char* level, int result) {
      ASSERT_EQ(result, 1);
      if (destination_.Copy() != want) {
        size_t i = 0;
        while (destination_.begin()[i] == want[i]) ++i;
        FAIL() << level << ": " << sw << " x " << sh << " to " << dw << " x " << dh << ", pitch "
               << to.nPitch << ", byte " << i << " is " << int{destination_.begin()[i]} << ", not "
               << int{want[i]};
      }
      std::memcpy(destination_.begin(), before.data(), before.size());
    };
    std::memcpy(destination_.begin(), before.data(), before.size());
    for (const Level level : zel::AllLevels()) {
      if (!zel::HasLevel(level)) break;
      check(LevelName(level), c.routine(zel::image::ResizeKernelsFor(level), from, to));
      if (HasFatalFailure()) return;
    }
    check("exported", c.exported(from, to));
    EXPECT_EQ(source_.Copy(), source);
  }

  std::mt19937 random_{20261124};
  Picture source_;
  Picture destination_;
};

TEST_P(ResizeModelTest, SmallSizes) {
  for (int sw = 1; sw <= 40 && !HasFailure(); ++sw) {
    for (int dw = 2; dw <= 40; ++dw) {
      const auto size = [&](int least) { return least + static_cast<int>(random_() % 12); };
      Check(sw, size(1), dw, size(2));
      if ((sw + dw) % 4 == 0) Check(size(1), sw, size(2), dw);
    }
  }
}

TEST_P(ResizeModelTest, LargeSizes) {
  // About the scales at which a level's way of fetching changes, and far from them.
  for (const int sw : {47, 63, 64, 65, 127, 128, 129, 333, 640, 1001}) {
    for (const double scale : {0.013, 0.11, 0.23, 0.24, 0.3, 0.49, 0.5, 0.51, 0.67, 0.98, 1.0, 1.02,
                               1.5, 2.0, 3.3, 10.0}) {
      if (HasFailure()) return;
      Check(sw, 3, std::max(2, static_cast<int>(std::lround(sw * scale))), 4);
    }
  }
  Check(5, 301, 6, 200);
  Check(5, 200, 6, 301);
  Check(19, 70000, 3, 7);
  Check(70000, 2, 9, 3);
  Check(9, 2, 70000, 3);
}

INSTANTIATE_TEST_SUITE_P(All, ResizeModelTest, testing::ValuesIn(kResizeCases),
                         [](const auto& param) {
                           std::string name = param.param.name;
                           std::erase_if(name, [](char c) { return !std::isalnum(c); });
                           return name;
                         });

// 32 bits would overflow from 524,289 source pixels on.
TEST(Resize, WidePicturesDoNotOverflowThePositions) {
  const int width = 3000001;
  Bytes src(static_cast<size_t>(width));
  for (int i = 0; i < width; ++i)
    src[static_cast<size_t>(i)] = static_cast<unsigned char>(i / 16000);
  Bytes dst(7 * 2);
  IMG_PARAM from = Rect(src, width, 1);
  IMG_PARAM to = Rect(dst, 7, 2);
  EXPECT_EQ(DIB_ResizeNearY(from, to), 1);
  EXPECT_THAT(dst, ElementsAre(0, 31, 62, 93, 125, 156, 187, 0, 31, 62, 93, 125, 156, 187));
}

// What the routines share ----------------------------------------------------------------------

TEST(Resize, RefusesWhatCannotBeDoneAndWritesNothing) {
  Bytes src(4 * 64 * 64, 5);
  Bytes dst(4 * 64 * 64, 77);
  for (const ResizeCase& c : kResizeCases) {
    const IMG_PARAM good = [&] {
      IMG_PARAM p = Rect(src, 8, 8, c.src_bytes);
      p.nImageHeight = 16;
      p.nPitch = 64;
      p.nBitCount = c.src_bits;
      return p;
    }();
    std::vector<std::pair<IMG_PARAM, IMG_PARAM>> bad;
    const auto add = [&](int IMG_PARAM::*field, int value, bool source, bool destination) {
      for (int i = 0; i < 2; ++i) {
        if (!(i == 0 ? source : destination)) continue;
        std::pair<IMG_PARAM, IMG_PARAM> both(good, good);
        both.second.pBuffer = dst.data();
        IMG_PARAM& changed = i == 0 ? both.first : both.second;
        changed.*field = value;
        bad.push_back(both);
      }
    };
    for (const int n : {0, -1, -2147483647 - 1}) {
      add(&IMG_PARAM::nWidth, n, true, true);
      add(&IMG_PARAM::nHeight, n, true, true);
    }
    add(&IMG_PARAM::nWidth, 1, false, true);
    add(&IMG_PARAM::nHeight, 1, false, true);
    for (const int n : {-1, -2147483647 - 1, 2147483647}) {
      add(&IMG_PARAM::nLeft, n, true, true);
      if (n < 0 || c.bottom_up) add(&IMG_PARAM::nTop, n, true, true);
    }
    add(&IMG_PARAM::nPitch, 3, true, true);
    add(&IMG_PARAM::nPitch, -3, true, true);
    if (c.bottom_up) add(&IMG_PARAM::nImageHeight, 7, true, true);
    // More rows than an address space of 32 bits has bytes.
    if (sizeof(void*) == 4) add(&IMG_PARAM::nHeight, 2147483647, true, true);
    if (std::strstr(c.name, "MaskBiLiner") != nullptr) {
      for (const int n : {0, 7, -8, 40}) add(&IMG_PARAM::nBitCount, n, true, false);
    }
    bad.emplace_back(good, good);
    bad.back().second.pBuffer = nullptr;
    bad.emplace_back(good, good);
    bad.back().first.pBuffer = nullptr;
    bad.back().second.pBuffer = dst.data();
    for (size_t i = 0; i < bad.size(); ++i) {
      EXPECT_EQ(c.exported(bad[i].first, bad[i].second), 0) << c.name << ", record " << i;
    }
    EXPECT_EQ(dst, Bytes(dst.size(), 77)) << c.name;
    IMG_PARAM other = good;
    other.pBuffer = dst.data();
    EXPECT_EQ(c.exported(good, other), 1) << c.name;
    std::fill(dst.begin(), dst.end(), 77);
  }
}

TEST(Resize, DispatchersRunTheirRoutines) {
  using Two = int (*)(const IMG_PARAM&, IMG_PARAM&);
  const auto luma = [](const IMG_PARAM& s, IMG_PARAM& d, IMAGE_INTERPOLATION m) {
    return ImageResizeY(s, d, m, 9);
  };
  const auto stretch = [](const IMG_PARAM& s, IMG_PARAM& d, IMAGE_INTERPOLATION) {
    return ImageStretchMask(s, d);
  };
  const Two nearest_y = Find("NearY").exported, bilinear_y = Find("BiLinerY").exported;
  const Two alpha = DIB_AlphaResizeBiLiner, mask = StretchMaskResizeBiLiner;
  struct Dispatcher {
    int (*dispatch)(const IMG_PARAM&, IMG_PARAM&, IMAGE_INTERPOLATION);
    int bytes;
    Two routine[5];  // By method.
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
      {luma, 1, {bilinear_y, nearest_y, bilinear_y, DIB_ResizeConvolve, nullptr}},
      {ImageAlphaResize, 4, {alpha, alpha, alpha, alpha, alpha}},
      {stretch, 4, {mask, mask, mask, mask, mask}},
  };
  for (const Dispatcher& d : dispatchers) {
    for (int method = -1; method < 5; ++method) {
      const Two routine = d.routine[method < 0 ? 4 : method];
      Bytes src(4 * 6 * 6), got(4 * 9 * 9, 77), want = got;
      for (size_t i = 0; i < src.size(); ++i) src[i] = static_cast<unsigned char>(i * 37);
      const IMG_PARAM from = Rect(src, 6, 6, d.bytes);
      IMG_PARAM to = Rect(got, 9, 9, d.bytes), expected = Rect(want, 9, 9, d.bytes);
      const int result = routine == nullptr ? 0 : routine(from, expected);
      EXPECT_EQ(d.dispatch(from, to, static_cast<IMAGE_INTERPOLATION>(method)), result);
      EXPECT_EQ(got, want) << &d - dispatchers << " method " << method;
    }
  }
}

TEST(Resize, NoMethodLeavesTheBitmapOfTheRecord) {
  for (const bool source : {true, false}) {
    for (int method = 0; method < 4; ++method) {
      Bytes src(4 * 6 * 6, 1), got(4 * 9 * 9, 77);
      IMG_PARAM from = Rect(src, 6, 6, 4), to = Rect(got, 9, 9, 4);
      --(source ? from : to).nImageHeight;
      EXPECT_EQ(ImageResize(from, to, static_cast<IMAGE_INTERPOLATION>(method)), 0) << method;
      EXPECT_EQ(got, Bytes(got.size(), 77));
    }
  }
}

TEST(Resize, PicturesAreScaledPlaneByPlane) {
  const int src_pitch[] = {7, 5, 6, 9}, dst_pitch[] = {11, 8, 12, 13};
  Bytes src(4 * 90), got(4 * 160);
  for (size_t i = 0; i < src.size(); ++i) src[i] = static_cast<unsigned char>(i * 37);
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
        IMG_PARAM one_from = from, one_to = to;
        one_from.pBuffer = s(i);
        one_from.nPitch = src_pitch[i];
        one_to.pBuffer = d(i);
        one_to.nPitch = dst_pitch[i];
        if (full || i == 0) {
          ImageResizeY(one_from, one_to, m, 0);
        } else if (i < 3) {
          ImageResizeUV(one_from, one_to, m);
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
  Guarded memory(1);
  unsigned char* p = memory.Place(1, Guarded::At::kEnd) + 1;
  for (const auto entry : {ImageRotateYV12, ImageDragYUV, ImageRotateResizeYUV}) {
    EXPECT_EQ(
        entry(image, p, p, p, 8, 8, 8, image, p, p, p, 8, 8, 8, IMAGE_INTERPOLATION_LINEAR, 0), 1);
  }
}

}  // namespace
