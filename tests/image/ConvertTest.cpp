// The colour conversions, packed 4:2:2 routines and plane copies: worked-out values, an independent
// model over many shapes between guard pages, and every colour, with the kernels of every level the
// processor has.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "tests/image/ConvertModel.h"
#include "tests/image/Guarded.h"
#include "zel/Common/Image/ImageConvert.h"
#include "zel/detail/Level.h"

namespace {

using Byte = unsigned char;
using Bytes = std::vector<Byte>;
using testing::ElementsAre;
using testing::HasSubstr;
using zel::Level;

/// The levels of this processor.
std::vector<Level> Levels() {
  std::vector<Level> levels = zel::AllLevels();
  std::erase_if(levels, [](Level level) { return !zel::HasLevel(level); });
  return levels;
}

/// Leaves the processor's own kernels in use, whatever a test has done.
class ConvertTest : public testing::Test {
 protected:
  ~ConvertTest() override { zel::UseLevel(Levels().back()); }
};

tagBITMAPINFOHEADER Header(int width, int height, int bits) {
  tagBITMAPINFOHEADER header{};
  header.biSize = 40;
  header.biWidth = width;
  header.biHeight = height;
  header.biBitCount = static_cast<std::uint16_t>(bits);
  return header;
}

// --- Worked-out values
// -------------------------------------------------------------------------------

TEST_F(ConvertTest, GivesTheWorkedOutColours) {
  struct {
    int y, u, v;
    Bytes exact, simple;
  } const colors[] = {
      {16, 128, 128, {0, 0, 0}, {0, 0, 0}},
      {235, 128, 128, {254, 254, 254}, {255, 255, 255}},
      {255, 128, 128, {255, 255, 255}, {255, 255, 255}},
      {81, 90, 240, {0, 0, 254}, {0, 0, 254}},
      {41, 240, 110, {255, 0, 0}, {255, 0, 0}},
  };
  for (auto color : colors) {
    Bytes y(4, static_cast<Byte>(color.y)), u(1, static_cast<Byte>(color.u)),
        v(1, static_cast<Byte>(color.v));
    for (auto [convert, expected] : {std::pair{&Yuv420_2_rgb24, color.exact},
                                     std::pair{&Yuv420_2_rgb24Simple, color.simple}}) {
      Bytes bits(16);
      auto bmi = Header(2, 2, 24);
      convert(&bmi, bits.data(), y.data(), u.data(), v.data(), 2, 1, 1);
      EXPECT_EQ(Bytes(bits.begin() + 11, bits.begin() + 14), expected) << color.y;
    }
  }

  struct {
    Byte b, g, r;
    Bytes exact, simple;
  } const pixels[] = {
      {255, 255, 255, {235, 128, 128}, {235, 128, 128}},
      {0, 0, 0, {16, 128, 128}, {16, 128, 128}},
      {128, 128, 128, {125, 128, 128}, {126, 128, 128}},
      {0, 0, 255, {81, 90, 239}, {81, 90, 240}},
  };
  for (const auto& pixel : pixels) {
    Bytes bits(16);
    for (int at : {0, 3, 8, 11}) {
      bits[at] = pixel.b;
      bits[at + 1] = pixel.g;
      bits[at + 2] = pixel.r;
    }
    for (auto [convert, expected] : {std::pair{&Rgb24_2_yuv420, pixel.exact},
                                     std::pair{&Rgb24_2_yuv420Simple, pixel.simple}}) {
      Bytes y(4), u(1), v(1);
      auto bmi = Header(2, 2, 24);
      convert(y.data(), u.data(), v.data(), 2, 1, 1, &bmi, bits.data());
      EXPECT_EQ((Bytes{y[3], u[0], v[0]}), expected) << int{pixel.b};
    }
  }
}

TEST_F(ConvertTest, ChromaIsTheFlooredMeanOfFlooredTerms) {
  const Bytes red = {0, 0, 255, 0}, blue = {255, 0, 0, 0};
  Bytes bits;
  for (int row = 0; row < 3; ++row) {
    bits.insert(bits.end(), red.begin(), red.end());
    bits.insert(bits.end(), blue.begin(), blue.end());
  }
  Bytes y(6), u(2), v(2);
  auto bmi = Header(2, 3, 32);
  Rgb32_2_yuv420(y.data(), u.data(), v.data(), 2, 1, 1, &bmi, bits.data());
  EXPECT_THAT(u, ElementsAre(164, 164));
  EXPECT_THAT(v, ElementsAre(174, 174));
}

TEST_F(ConvertTest, TheLastOfCoincidingRowsRemains) {
  // In memory blue rows, then red ones: red is the upper pair.
  Bytes bits = {255, 0, 0,   0, 255, 0, 0,   0, 255, 0, 0,   0, 255, 0, 0,   0,
                0,   0, 255, 0, 0,   0, 255, 0, 0,   0, 255, 0, 0,   0, 255, 0};
  for (Level level : Levels()) {
    zel::UseLevel(level);
    Bytes y(8), u(2), v(2);
    auto bmi = Header(2, 4, 32);
    Rgb32_2_yuv420(y.data(), u.data(), v.data(), 2, 0, 0, &bmi, bits.data());
    EXPECT_EQ((Bytes{u[0], v[0]}), (Bytes{239, 109}));
    Rgb32_2_yuv420(y.data(), u.data(), v.data(), 0, 1, 1, &bmi, bits.data());
    EXPECT_EQ(y[0], 40);
  }
}

TEST_F(ConvertTest, OddSizesLeaveWhatIsNotDescribed) {
  Bytes y(5 * 3, 235), u(3 * 2, 128), v(3 * 2, 128), bits(16 * 3, 7);
  auto bmi = Header(5, 3, 24);
  Yuv420_2_rgb24(&bmi, bits.data(), y.data(), u.data(), v.data(), 5, 3, 3);
  Bytes expected(16 * 3, 254);
  for (int k = 0; k < 3; ++k) expected[16 * k + 15] = 7;
  for (int i = 12; i < 15; ++i) expected[i] = 7;  // pixel (4, 2), bitmap row 0
  EXPECT_EQ(bits, expected);

  const Bytes white(12 * 2, 255);
  Bytes luma(8, 7);
  bmi = Header(3, 2, 24);
  Rgb24_2_yuv420(luma.data(), u.data(), v.data(), 4, 2, 2, &bmi, const_cast<Byte*>(white.data()));
  EXPECT_THAT(luma, testing::Each(235));
  luma.assign(8, 7);
  bmi = Header(3, 2, 32);
  Bytes alpha(8, 7);
  Rgb32_2_yuv420A(luma.data(), u.data(), v.data(), alpha.data(), 4, 2, 2, &bmi,
                  const_cast<Byte*>(white.data()));
  EXPECT_THAT(luma, ElementsAre(235, 235, 235, 7, 235, 235, 235, 7));
  EXPECT_THAT(alpha, ElementsAre(255, 255, 255, 7, 255, 255, 255, 7));
}

TEST_F(ConvertTest, PackedGroups) {
  Bytes white(12, 255), group(4), bits(8);
  Rgb24_2_YUY2(group.data(), 4, 0, 0, 2, 1, 1, white.data(), 1, 6, 0, 0);
  EXPECT_THAT(group, ElementsAre(235, 128, 235, 128));
  Rgb24_2_YUY2(group.data(), 4, 0, 0, 2, 1, 0, white.data(), 1, 6, 0, 0);
  EXPECT_THAT(group, ElementsAre(128, 235, 128, 235));
  group = {16, 128, 235, 128};
  YUY2_2_Rgb24(bits.data(), 1, 8, 0, 0, 2, 1, group.data(), 4, 1, 0, 0);
  EXPECT_THAT(bits, ElementsAre(0, 0, 0, 254, 254, 254, 0, 0));
  // A single row needs no pitch.
  bits.assign(8, 7);
  YUY2_2_Rgb24(bits.data(), 1, INT_MIN, 0, 0, 2, 1, group.data(), 4, 1, 0, 0);
  EXPECT_THAT(bits, ElementsAre(0, 0, 0, 254, 254, 254, 7, 7));

  Bytes upper = {1, 100, 2, 30, 3, 103, 4, 33}, y(4), u(1), v(1);
  YUY2_2_Yuv420(y.data(), u.data(), v.data(), 2, 1, 1, 0, 0, 2, 2, upper.data(), 4, 1, 0, 0);
  EXPECT_EQ((Bytes{y[0], y[1], y[2], y[3], u[0], v[0]}), (Bytes{1, 2, 3, 4, 101, 31}));

  // Flags are compared as integers; an odd width changes whole groups.
  Bytes src = {1, 2, 3, 4, 5, 6, 7, 8}, dst(8);
  YUY2_Blt_fast(dst.data(), 8, 0, 0, 3, 1, 2, src.data(), 8, 2, 0, 0);
  EXPECT_THAT(dst, ElementsAre(1, 2, 3, 4, 5, 6, 0, 0));
  YUY2_Blt_fast(dst.data(), 8, 0, 0, 3, 1, 1, src.data(), 8, 2, 0, 0);
  EXPECT_THAT(dst, ElementsAre(2, 1, 4, 3, 6, 5, 8, 7));
}

TEST_F(ConvertTest, LoneLastGroupsAreWrittenAfterAllOthers) {
  // A pitch of exactly three pixels: the second half of a lone group lies on the next row's first
  // pixel.
  Bytes bits(2 * 9);
  std::iota(bits.begin(), bits.end(), Byte{60});
  Bytes real(14, 1), naive(14, 1);
  Rgb24_2_YUY2(real.data(), 6, 0, 0, 3, 2, 1, bits.data(), 2, 9, 0, 0);
  model::Rgb24_2_YUY2(naive.data(), 6, 0, 0, 3, 2, 1, bits.data(), 2, 9, 0, 0);
  EXPECT_EQ(real, naive);
}

TEST_F(ConvertTest, CopiesPairAfterPair) {
  // Luma of three rows, V and U one behind the other: the fourth row that is copied with the third
  // lies on V, of which the last pair's row is copied later.
  Bytes y(16), u = {101, 102, 103, 104}, v = {201, 202, 203, 204}, d(28);
  std::iota(y.begin(), y.end(), Byte{1});
  YV12_Blt_fast(&d[0], &d[16], &d[12], 4, 2, 2, 0, 0, 4, 3, y.data(), u.data(), v.data(), 4, 2, 2,
                0, 0);
  EXPECT_EQ(Bytes(d.begin() + 12, d.begin() + 20), (Bytes{13, 14, 203, 204, 101, 102, 103, 104}));

  // Planes anywhere, with rows that lie on each other, too.
  std::mt19937 random(2);
  Bytes src(4096);
  for (Byte& byte : src) byte = static_cast<Byte>(random() >> 24);
  for (int round = 0; round < 20000; ++round) {
    const auto upto = [&](int n) { return static_cast<int>(random() % (n + 1)); };
    const int cx = 1 + upto(9), rows = 1 + upto(8), chroma = (cx + 1) / 2;
    const int pitch = cx + upto(2) * (upto(6) - 3), pitch_u = chroma + upto(1) * (upto(4) - 2);
    const int pitch_v = upto(1) ? pitch_u : -pitch_u;
    const int at_y = 400 + upto(99), end = at_y + rows * pitch;
    const int at_u = upto(1) ? end : 400 + upto(200);
    const int at_v = upto(1) ? end + (rows + 1) / 2 * pitch_u : 400 + upto(200);
    const auto copy = [&](auto blt) {
      Bytes planes(1000);
      blt(&planes[at_y], &planes[at_u], &planes[at_v], pitch, pitch_u, pitch_v, 0, 0, cx, rows,
          &src[0], &src[1000], &src[2000], cx, chroma, chroma, 0, 0);
      return planes;
    };
    ASSERT_EQ(copy(&::YV12_Blt_fast), copy(&model::YV12_Blt_fast))
        << cx << " x " << rows << " at " << at_y << ", " << at_u << ", " << at_v << ", pitches "
        << pitch << ", " << pitch_u << ", " << pitch_v;
  }
}

TEST_F(ConvertTest, ByteOrderChangesInPlace) {
  for (Level level : Levels()) {
    zel::UseLevel(level);
    for (int groups = 1; groups < 1100; groups += groups < 80 ? 1 : 93) {
      Bytes bytes(4 * groups), expected(4 * groups);
      std::iota(bytes.begin(), bytes.end(), Byte{0});
      model::YUY2_Blt_fast(expected.data(), 0, 0, 0, 2 * groups, 1, 1, bytes.data(), 0, 0, 0, 0);
      YUY2_Blt_fast(bytes.data(), 0, 0, 0, 2 * groups, 1, 1, bytes.data(), 0, 0, 0, 0);
      ASSERT_EQ(bytes, expected) << zel::LevelName(level);
    }
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
  tagBITMAPINFO info8{Header(2, 2, 8), {}}, info24{Header(2, 2, 24), {}};
  struct {
    const char* text;
    std::function<void()> call;
  } const violations[] = {
      {"lpDstBmi && lpDstBmi->biBitCount == 24",
       [&] { Yuv420_2_rgb24(&bmi32, b, b, b, b, 2, 1, 1); }},
      {"lpDstBits && pY && pU && pV", [&] { Yuv420_2_rgb24(&bmi24, b, b, nullptr, b, 2, 1, 1); }},
      {"lpDstBmi && lpDstBmi->biBitCount == 32",
       [&] { Yuv420_2_rgb32(nullptr, b, b, b, b, 2, 1, 1); }},
      {"lpDstBits && pY && pU && pV", [&] { Yuv420_2_rgb32(&bmi32, nullptr, b, b, b, 2, 1, 1); }},
      {"lpDstBmi && lpDstBmi->biBitCount == 32",
       [&] { Yuv420_2_Argb(&bmi24, b, b, b, b, 2, 1, 1); }},
      {"lpDstBits && pY && pU && pV", [&] { Yuv420_2_Argb(&bmi32, b, nullptr, b, b, 2, 1, 1); }},
      {"lpDstBmi && lpDstBmi->biBitCount == 32",
       [&] { Yuv420_2_rgb32_Alpha(&bmi24, b, b, b, b, b, 2, 1, 1); }},
      {"lpDstBits && pY && pU && pV && pA",
       [&] { Yuv420_2_rgb32_Alpha(&bmi32, b, b, b, b, nullptr, 2, 1, 1); }},
      {"lpSrcBmi && lpSrcBmi->biBitCount == 24",
       [&] { Rgb24_2_yuv420(b, b, b, 2, 1, 1, &bmi32, b); }},
      {"lpSrcBits && pY && pU && pV", [&] { Rgb24_2_yuv420(b, b, b, 2, 1, 1, &bmi24, nullptr); }},
      {"lpSrcBmi && lpSrcBmi->biBitCount == 32",
       [&] { Rgb32_2_yuv420(b, b, b, 2, 1, 1, &bmi24, b); }},
      {"lpSrcBits && pY && pU && pV", [&] { Rgb32_2_yuv420(b, b, nullptr, 2, 1, 1, &bmi32, b); }},
      {"lpSrcBmi && lpSrcBmi->biBitCount == 32",
       [&] { Argb_2_yuv420(b, b, b, 2, 1, 1, nullptr, b); }},
      {"lpSrcBits && pY && pU && pV", [&] { Argb_2_yuv420(b, nullptr, b, 2, 1, 1, &bmi32, b); }},
      {"lpBitmapInfo && lpBitmapInfo->bmiHeader.biBitCount == 8",
       [&] { Rgb8_2_YUV420(b, b, b, 2, 1, 1, &info24, b); }},
      {"lpSrcBits && pY && pU && pV", [&] { Rgb8_2_YUV420(nullptr, b, b, 2, 1, 1, &info8, b); }},
      {"lpSrcBmi && lpSrcBmi->biBitCount == 32",
       [&] { Rgb32_2_yuv420_Alpha(b, b, b, b, 2, 1, 1, &bmi24, b); }},
      {"lpSrcBits && pY && pU && pV && pA",
       [&] { Rgb32_2_yuv420_Alpha(b, b, b, nullptr, 2, 1, 1, &bmi32, b); }},
      {"lpSrcBmi && lpSrcBmi->biBitCount == 32",
       [&] { Rgb32_2_yuv420A(b, b, b, b, 2, 1, 1, &bmi24, b); }},
      {"lpSrcBits && pY && pU && pV",
       [&] { Rgb32_2_yuv420A(b, b, b, b, 2, 1, 1, &bmi32, nullptr); }},
      {"lpBitsDst && lpBitsSrc", [&] { Rgb24_2_YUY2(b, 4, 0, 0, 2, 1, 1, nullptr, 1, 6, 0, 0); }},
      {"(xDst + cxDst) * 2 <= nPitchDst",
       [&] { Rgb24_2_YUY2(b, 3, 0, 0, 2, 1, 1, b, 1, 6, 0, 0); }},
      {"(xDst + cxDst) * 2 <= nPitchDst",
       [&] { Rgb24_2_YUY2(b, 8, 0x7fffffff, 0, 2, 1, 1, b, 1, 6, 0, 0); }},
      {"nPitchSrc / 3 - xSrc >= cxDst", [&] { Rgb24_2_YUY2(b, 4, 0, 0, 2, 1, 1, b, 1, 8, 1, 0); }},
      {"lpBitsDst && lpBitsSrc", [&] { YUY2_2_Rgb24(nullptr, 1, 6, 0, 0, 2, 1, b, 4, 1, 0, 0); }},
      {"(char*)V <= ((char*)pV + (ySrc + cy) * nPt_V)",
       [&] { YUY2_2_Yuv420(b, b, b, 2, 1, 1, 0, 8, 2, 2, b, 4, 1, 0, 0); }},
  };
  for (const auto& violation : violations)
    EXPECT_DEATH(violation.call(), HasSubstr(violation.text));
  Bytes y(4), u(1), v(1);
  Rgb32_2_yuv420A(y.data(), u.data(), v.data(), nullptr, 2, 1, 1, &bmi32, b);
  EXPECT_THAT(y, testing::Each(16));
}

// --- The model over many shapes
// ----------------------------------------------------------------------

/// What a routine is called with: a size, positions for the rectangle routines, and variations.
struct Shape {
  int w, h;
  int pad = 0;        ///< Bytes by which pitches exceed the rows.
  bool flip = false;  ///< Negative pitches.
  int x_dst = 0, y_dst = 0, x_src = 0, y_src = 0;
  int flag = 1;
  int chroma_pad = 0;  ///< The same for chroma planes, in addition. RGB to YUV only.
};

constexpr std::size_t kCapacity = std::size_t{1} << 21;

/// Gives a routine its buffers. Two arenas of one seed hold the same bytes.
class Arena {
 public:
  struct Plane {
    Byte* first;
    int pitch;
  };

  void Reset(Guarded::At at, unsigned seed) {
    at_ = at;
    seed_ = seed;
    used_ = 0;
  }
  Byte* Buffer(std::size_t size) {
    static const Bytes random = [] {
      Bytes bytes(2 * kCapacity);
      std::mt19937 engine(5);
      for (Byte& byte : bytes) byte = static_cast<Byte>(engine() >> 24);
      return bytes;
    }();
    if (used_ == slots_.size()) slots_.emplace_back(kCapacity);
    Byte* const bytes = slots_[used_].Place(size, at_);
    std::memcpy(bytes, random.data() + (seed_ + used_ * 7919) * 101 % kCapacity, size);
    sizes_.resize(slots_.size());
    sizes_[used_++] = size;
    return bytes;
  }
  /// `rows` rows of `row_bytes`; nothing after the last. With a negative padding rows overlap.
  Plane Rows(int rows, int row_bytes, const Shape& shape) {
    const int pitch = std::max(row_bytes + shape.pad, 0);
    Byte* const bytes = Buffer(static_cast<std::size_t>(rows - 1) * pitch + row_bytes);
    if (!shape.flip) return {bytes, pitch};
    return {bytes + static_cast<std::size_t>(rows - 1) * pitch, -pitch};
  }
  /// A bitmap without the padding of the row that is last in memory.
  Byte* Bitmap(const Shape& shape, int bits) {
    const std::size_t stride = (static_cast<std::size_t>(shape.w) * bits + 31) / 32 * 4;
    return Buffer(stride * (shape.h - 1) + static_cast<std::size_t>(shape.w) * bits / 8);
  }
  /// Every buffer, sources included: they must not change.
  Bytes Contents() const {
    Bytes all;
    for (std::size_t i = 0; i < used_; ++i) {
      const Byte* const bytes = slots_[i].Place(sizes_[i], at_);
      all.insert(all.end(), bytes, bytes + sizes_[i]);
    }
    return all;
  }

 private:
  Guarded::At at_ = Guarded::At::kEnd;
  unsigned seed_ = 0;
  std::size_t used_ = 0;
  std::deque<Guarded> slots_;
  std::vector<std::size_t> sizes_;
};

using Run = std::function<void(Arena&, const Shape&)>;
struct Routine {
  const char* name;
  Run real, naive;
};

template <typename F>
Run ToRgb(F convert, int bits) {
  return [=](Arena& arena, const Shape& s) {
    auto bmi = Header(s.w, s.h, bits);
    const auto y = arena.Rows(s.h, s.w, s), u = arena.Rows((s.h + 1) / 2, (s.w + 1) / 2, s),
               v = arena.Rows((s.h + 1) / 2, (s.w + 1) / 2, s);
    Byte* const dst = arena.Bitmap(s, bits);
    if constexpr (std::is_same_v<F, decltype(&Yuv420_2_rgb32_Alpha)>) {
      convert(&bmi, dst, y.first, u.first, v.first, arena.Rows(s.h, s.w, s).first, y.pitch, u.pitch,
              v.pitch);
    } else {
      convert(&bmi, dst, y.first, u.first, v.first, y.pitch, u.pitch, v.pitch);
    }
  };
}

template <typename F>
Run ToYuv(F convert, int bits) {
  return [=](Arena& arena, const Shape& s) {
    auto bmi = Header(s.w, s.h, bits);
    Byte* const src = arena.Bitmap(s, bits);
    const int luma_width = s.w + s.w % 2;
    Shape chroma = s;
    chroma.pad += s.chroma_pad;
    const auto y = arena.Rows(s.h, luma_width, s),
               u = arena.Rows((s.h + 1) / 2, (s.w + 1) / 2, chroma),
               v = arena.Rows((s.h + 1) / 2, (s.w + 1) / 2, chroma);
    if constexpr (std::is_same_v<F, decltype(&Rgb32_2_yuv420_Alpha)>) {
      convert(y.first, u.first, v.first, arena.Rows(s.h, luma_width, s).first, y.pitch, u.pitch,
              v.pitch, &bmi, src);
    } else if constexpr (std::is_same_v<F, decltype(&Rgb8_2_YUV420)>) {
      // The colour table ends with the highest index of the picture.
      const int colors = 1 + (s.w * 37 + s.h * 11) % 256;
      const std::size_t bytes = static_cast<std::size_t>((s.w + 3) / 4 * 4) * (s.h - 1) + s.w;
      for (std::size_t i = 0; i < bytes; ++i) src[i] = static_cast<Byte>(src[i] * colors / 256);
      Byte* const table = arena.Buffer(40 + 4 * static_cast<std::size_t>(colors));
      std::memcpy(table, &bmi, 40);
      convert(y.first, u.first, v.first, y.pitch, u.pitch, v.pitch,
              reinterpret_cast<tagBITMAPINFO*>(table), src);
    } else {
      convert(y.first, u.first, v.first, y.pitch, u.pitch, v.pitch, &bmi, src);
    }
  };
}

int Even(int n) {
  return n + n % 2;
}

template <typename F>
Run Rgb24ToYuy2(F convert) {
  return [=](Arena& arena, const Shape& s) {
    const int moved = s.x_dst >= 2 ? 1 : 0;
    const auto dst = arena.Rows(s.y_dst + s.h, 2 * (s.x_dst - moved + Even(s.w + moved)), s);
    const auto src = arena.Rows(s.y_src + s.h, 3 * (s.x_src + s.w + moved), {1, 1, s.pad});
    // With a negative pitch the precondition on the pitch cannot hold.
    const int pitch = std::abs(dst.pitch);
    Byte* const first = s.flip ? dst.first + (s.y_dst + s.h - 1) * dst.pitch : dst.first;
    convert(first, pitch, s.x_dst, s.y_dst, s.w, s.h, s.flag, src.first, s.y_src + s.h, src.pitch,
            s.x_src, s.y_src);
  };
}

template <typename F>
Run Yuy2ToRgb24(F convert) {
  return [=](Arena& arena, const Shape& s) {
    const int column = s.x_src >= 2 ? s.x_src - 1 : s.x_src;
    // The last group of an odd width gives no second luma: only its first bytes are there.
    const int group_bytes = s.w % 2 == 0 ? 0 : s.flag ? 4 : 3;
    const auto src = arena.Rows(s.y_src + s.h, 2 * (column + s.w / 2 * 2) + group_bytes, s);
    const auto dst = arena.Rows(s.y_dst + s.h, 3 * (s.x_dst + s.w), s);
    convert(dst.first, s.y_dst + s.h, dst.pitch, s.x_dst, s.y_dst, s.w, s.h, src.first, src.pitch,
            s.flag, s.x_src, s.y_src);
  };
}

template <typename F>
Run Yuy2Blt(F convert) {
  return [=](Arena& arena, const Shape& s) {
    const int width = s.flag == 2 ? s.w : Even(s.w);
    const auto src = arena.Rows(s.y_src + s.h, 2 * (s.x_src + width), s);
    const auto dst = arena.Rows(s.y_dst + s.h, 2 * (s.x_dst + width), s);
    convert(dst.first, dst.pitch, s.x_dst, s.y_dst, s.w, s.h, s.flag, src.first, src.pitch, 2,
            s.x_src, s.y_src);
  };
}

/// The planes of a rectangle at (x, y): luma, then chroma from column `chroma_x` on.
struct Yuv {
  Arena::Plane y, u, v;
};
Yuv YuvPlanes(Arena& arena, const Shape& s, int x, int y, int luma_width, int chroma_x) {
  const int chroma_rows = y / 2 + Even(s.h) / 2, chroma_width = chroma_x + (s.w + 1) / 2;
  return {arena.Rows(y + Even(s.h), x + luma_width, s), arena.Rows(chroma_rows, chroma_width, s),
          arena.Rows(chroma_rows, chroma_width, s)};
}

template <typename F>
Run Yv12Blt(F convert) {
  return [=](Arena& arena, const Shape& s) {
    const Yuv src = YuvPlanes(arena, s, s.x_src, s.y_src, s.w, (s.x_src + 1) / 2);
    const Yuv dst = YuvPlanes(arena, s, s.x_dst, s.y_dst, s.w, (s.x_dst + 1) / 2);
    convert(dst.y.first, dst.u.first, dst.v.first, dst.y.pitch, dst.u.pitch, dst.v.pitch, s.x_dst,
            s.y_dst, s.w, s.y_dst + s.h, src.y.first, src.u.first, src.v.first, src.y.pitch,
            src.u.pitch, src.v.pitch, s.x_src, s.y_src);
  };
}

template <typename F>
Run Yuy2ToYuv(F convert) {
  return [=](Arena& arena, Shape s) {
    const auto src = arena.Rows(s.y_src + Even(s.h), 2 * (s.x_src + Even(s.w)), s);
    s.flip = false;  // the precondition on V does not hold with a negative pitch
    s.y_dst = std::min(s.y_dst, s.y_src);
    const Yuv dst = YuvPlanes(arena, s, s.x_dst, s.y_dst, Even(s.w), s.x_dst / 2);
    convert(dst.y.first, dst.u.first, dst.v.first, dst.y.pitch, dst.u.pitch, dst.v.pitch, s.x_dst,
            s.y_dst, s.w, s.h, src.first, src.pitch, s.flag, s.x_src, s.y_src);
  };
}

template <typename F>
Run YuvToYuy2(F convert) {
  return [=](Arena& arena, const Shape& s) {
    const Yuv src = YuvPlanes(arena, s, s.x_src, s.y_src, Even(s.w), s.x_src / 2);
    const auto dst = arena.Rows(s.y_dst + Even(s.h), 2 * (s.x_dst + Even(s.w)), s);
    convert(dst.first, dst.pitch, s.x_dst, s.y_dst, s.w, s.h, s.flag, src.y.first, src.u.first,
            src.v.first, src.y.pitch, src.u.pitch, src.v.pitch, s.x_src, s.y_src);
  };
}

#define ROUTINE(make, name, ...) \
  { #name, make(&::name __VA_OPT__(, ) __VA_ARGS__), make(&model::name __VA_OPT__(, ) __VA_ARGS__) }
const Routine kRoutines[] = {
    ROUTINE(ToRgb, Yuv420_2_rgb24, 24),       ROUTINE(ToRgb, Yuv420_2_rgb32, 32),
    ROUTINE(ToRgb, Yuv420_2_Argb, 32),        ROUTINE(ToRgb, Yuv420_2_rgb32_Alpha, 32),
    ROUTINE(ToRgb, Yuv420_2_rgb24Simple, 24), ROUTINE(ToYuv, Rgb24_2_yuv420, 24),
    ROUTINE(ToYuv, Rgb32_2_yuv420, 32),       ROUTINE(ToYuv, Argb_2_yuv420, 32),
    ROUTINE(ToYuv, Rgb8_2_YUV420, 8),         ROUTINE(ToYuv, Rgb32_2_yuv420_Alpha, 32),
    ROUTINE(ToYuv, Rgb32_2_yuv420A, 32),      ROUTINE(ToYuv, Rgb24_2_yuv420Simple, 24),
    ROUTINE(Rgb24ToYuy2, Rgb24_2_YUY2),       ROUTINE(Yuy2ToRgb24, YUY2_2_Rgb24),
    ROUTINE(Yuy2Blt, YUY2_Blt_fast),          ROUTINE(Yv12Blt, YV12_Blt_fast),
    ROUTINE(Yuy2ToYuv, YUY2_2_Yuv420),        ROUTINE(YuvToYuy2, Yuv420_2_YUY2),
};

class EveryRoutine : public ConvertTest, public testing::WithParamInterface<Routine> {
 protected:
  void Check(const Shape& s, Guarded::At at) {
    static Arena naive, real;
    const auto seed = static_cast<unsigned>(s.w * 64 + s.h);
    naive.Reset(at, seed);
    GetParam().naive(naive, s);
    const Bytes expected = naive.Contents();
    for (Level level : Levels()) {
      zel::UseLevel(level);
      real.Reset(at, seed);
      GetParam().real(real, s);
      ASSERT_TRUE(real.Contents() == expected)
          << s.w << " x " << s.h << " pad " << s.pad << (s.flip ? " flipped" : "") << " from ("
          << s.x_src << ", " << s.y_src << ") to (" << s.x_dst << ", " << s.y_dst << ") flag "
          << s.flag << ", " << zel::LevelName(level);
    }
  }
};

TEST_P(EveryRoutine, MatchesTheModelOnSmallShapes) {
  std::mt19937 random(1);
  for (int h = 1; h <= 40; ++h) {
    for (int w = 1; w <= 40; ++w) {
      const auto upto = [&](unsigned n) { return static_cast<int>(random() % (n + 1)); };
      // YUY2_2_Yuv420's check needs chroma rows that are not above the source's.
      const Shape shape{
          w, h, upto(1) * upto(70), upto(1) == 1, upto(4), upto(3), upto(4), upto(3), upto(2)};
      ASSERT_NO_FATAL_FAILURE(Check(shape, upto(1) ? Guarded::At::kBegin : Guarded::At::kEnd));
      ASSERT_NO_FATAL_FAILURE(Check({w, h}, Guarded::At::kEnd));
    }
  }
}

TEST_P(EveryRoutine, MatchesTheModelOnLargeShapes) {
  for (const Shape& shape :
       {Shape{1919, 5}, Shape{2051, 3, 5, true}, Shape{4097, 2, 0, false, 3, 1, 2, 1, 0},
        Shape{133, 211, 1}, Shape{2, 1027}, Shape{521, 255}, Shape{642, 207, 6, true},
        Shape{65541, 3}, Shape{131075, 1}, Shape{1, 70001}}) {
    for (auto at : {Guarded::At::kBegin, Guarded::At::kEnd}) {
      ASSERT_NO_FATAL_FAILURE(Check(shape, at));
    }
  }
}

TEST_P(EveryRoutine, MatchesTheModelOnWidthsAroundVectors) {
  for (int w = 41; w <= 200; ++w) {
    ASSERT_NO_FATAL_FAILURE(Check({w, 3, w % 3, false, 0, 0, 0, 0, w % 2}, Guarded::At::kEnd));
  }
}

// A caller who gives luma an odd width as its pitch forgot the column that is written behind it.
// One who gives a plane no pitch, or too little, keeps what is written last.
TEST_P(EveryRoutine, WritesOverlappingRowsInTheOrderOfThePasses) {
  const std::string name = GetParam().name;
  if (name.find("_2_yuv420") == name.npos && name != "Rgb8_2_YUV420") GTEST_SKIP() << "none";
  for (const int w : {1, 2, 3, 4, 5, 6, 40, 41, 63, 64, 65, 128, 129, 256, 257}) {
    for (int h = 1; h <= 7; ++h) {
      for (const bool flip : {false, true}) {
        for (const int pad : {-1, -2, -3, 1 - w, -w, -w - 1}) {
          ASSERT_NO_FATAL_FAILURE(Check({w, h, pad, flip}, Guarded::At::kEnd));
          ASSERT_NO_FATAL_FAILURE(
              Check({w, h, 0, flip, 0, 0, 0, 0, 1, pad / 2}, Guarded::At::kEnd));
          ASSERT_NO_FATAL_FAILURE(Check({w, h, pad, flip, 0, 0, 0, 0, 1, w}, Guarded::At::kEnd));
        }
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Convert, EveryRoutine, testing::ValuesIn(kRoutines),
                         [](const auto& routine) { return std::string(routine.param.name); });

// --- Every colour
// ------------------------------------------------------------------------------------

/// Values of one component to try: all with ZEL_ALL_COLOURS in the environment, else a sample.
std::vector<int> Values() {
  if (std::getenv("ZEL_ALL_COLOURS") == nullptr) {
    return {0, 16, 17, 90, 127, 128, 240, 255};
  }
  std::vector<int> all(256);
  std::iota(all.begin(), all.end(), 0);
  return all;
}

/// Of the colours with one component of `value`, what a routine (or, without a level, its model)
/// makes.
using Colors = std::function<Bytes(int value)>;

void CheckColors(const char* name, const Colors& naive, const Colors& real) {
  for (int value : Values()) {
    const Bytes expected = naive(value);
    for (Level level : Levels()) {
      zel::UseLevel(level);
      ASSERT_TRUE(real(value) == expected)
          << name << ", " << value << ", " << zel::LevelName(level);
    }
  }
}

#define COLORS(make, name, ...) \
  CheckColors(#name, make(&model::name, __VA_ARGS__), make(&::name, __VA_ARGS__))

TEST_F(ConvertTest, EveryYuvColour) {
  // Chroma column m has U = m; a pair of rows has four of the lumas.
  constexpr int kW = 512, kH = 128;
  Bytes y(kW * kH), u(256 * kH / 2), v(u.size()), packed(kW * kH * 2);
  for (int r = 0; r < kH; ++r) {
    for (int x = 0; x < kW; ++x) y[r * kW + x] = static_cast<Byte>(2 * r + x % 2);
    for (int m = 0; m < 256; ++m) u[r / 2 * 256 + m] = static_cast<Byte>(m);
  }
  const auto planar = [&](auto convert, int bits) -> Colors {
    return [=, &y, &u, &v](int value) {
      auto bmi = Header(kW, kH, bits);
      v.assign(v.size(), static_cast<Byte>(value));
      Bytes pixels(kW * kH * bits / 8, 7);
      if constexpr (std::is_same_v<decltype(convert), decltype(&Yuv420_2_rgb32_Alpha)>) {
        convert(&bmi, pixels.data(), y.data(), u.data(), v.data(), y.data(), kW, 256, 256);
      } else {
        convert(&bmi, pixels.data(), y.data(), u.data(), v.data(), kW, 256, 256);
      }
      return pixels;
    };
  };
  COLORS(planar, Yuv420_2_rgb24, 24);
  COLORS(planar, Yuv420_2_rgb32, 32);
  COLORS(planar, Yuv420_2_Argb, 32);
  COLORS(planar, Yuv420_2_rgb32_Alpha, 32);
  COLORS(planar, Yuv420_2_rgb24Simple, 24);
  const auto from_packed = [&](auto convert, int luma_first) -> Colors {
    return [=, &y, &packed](int value) {
      for (int i = 0; i < kW * kH; ++i) {
        const int chroma = i % 2 ? value : i % kW / 2;
        packed[2 * i + (luma_first ? 0 : 1)] = y[i];
        packed[2 * i + (luma_first ? 1 : 0)] = static_cast<Byte>(chroma);
      }
      Bytes pixels(kW * kH * 3);
      convert(pixels.data(), kH, 3 * kW, 0, 0, kW, kH, packed.data(), 2 * kW, luma_first, 0, 0);
      return pixels;
    };
  };
  COLORS(from_packed, YUY2_2_Rgb24, 1);
  COLORS(from_packed, YUY2_2_Rgb24, 0);
}

TEST_F(ConvertTest, EveryRgbColour) {
  // Each colour fills a 2 x 2 block, so that its own chroma shows.
  constexpr int kW = 512, kH = 512;
  const auto fill = [](int bytes, int red) {
    Bytes pixels(kW * kH * bytes);
    for (int i = 0; i < kW * kH; ++i) {
      Byte* const pixel = &pixels[bytes * i];
      pixel[0] = static_cast<Byte>(i % kW / 2);
      pixel[1] = static_cast<Byte>(i / kW / 2);
      pixel[2] = static_cast<Byte>(red);
      if (bytes == 4) pixel[3] = static_cast<Byte>(i);
    }
    return pixels;
  };
  const auto planar = [&](auto convert, int bits) -> Colors {
    return [=](int value) {
      auto bmi = Header(kW, kH, bits);
      Bytes pixels = fill(bits / 8, value), planes(kW * kH * 5 / 2);
      Byte *const y = planes.data(), *const u = y + kW * kH, *const v = u + kW * kH / 4;
      if constexpr (std::is_same_v<decltype(convert), decltype(&Rgb32_2_yuv420_Alpha)>) {
        convert(y, u, v, v + kW * kH / 4, kW, 256, 256, &bmi, pixels.data());
      } else {
        convert(y, u, v, kW, 256, 256, &bmi, pixels.data());
      }
      return planes;
    };
  };
  COLORS(planar, Rgb24_2_yuv420, 24);
  COLORS(planar, Rgb32_2_yuv420, 32);
  COLORS(planar, Argb_2_yuv420, 32);
  COLORS(planar, Rgb32_2_yuv420_Alpha, 32);
  COLORS(planar, Rgb32_2_yuv420A, 32);
  COLORS(planar, Rgb24_2_yuv420Simple, 24);
  const auto to_packed = [&](auto convert, int luma_first) -> Colors {
    return [=](int value) {
      Bytes pixels = fill(3, value), packed(kW * kH * 2);
      convert(packed.data(), 2 * kW, 0, 0, kW, kH, luma_first, pixels.data(), kH, 3 * kW, 0, 0);
      return packed;
    };
  };
  COLORS(to_packed, Rgb24_2_YUY2, 1);
  COLORS(to_packed, Rgb24_2_YUY2, 0);
  // 256 pictures of 32 x 32 with a colour table each.
  const auto indexed = [](auto convert, int) -> Colors {
    return [=](int value) {
      Bytes all, indexes(32 * 32), planes(32 * 32 * 3 / 2), info(40 + 4 * 256);
      for (int i = 0; i < 32 * 32; ++i) indexes[i] = static_cast<Byte>(i / 64 * 16 + i % 32 / 2);
      const auto bmi = Header(32, 32, 8);
      std::memcpy(info.data(), &bmi, 40);
      for (int green = 0; green < 256; ++green) {
        for (int blue = 0; blue < 256; ++blue) {
          Byte* const color = &info[40 + 4 * blue];
          color[0] = static_cast<Byte>(blue);
          color[1] = static_cast<Byte>(green);
          color[2] = static_cast<Byte>(value);
        }
        convert(planes.data(), &planes[32 * 32], &planes[32 * 32 * 5 / 4], 32, 16, 16,
                reinterpret_cast<tagBITMAPINFO*>(info.data()), indexes.data());
        all.insert(all.end(), planes.begin(), planes.end());
      }
      return all;
    };
  };
  COLORS(indexed, Rgb8_2_YUV420, 8);
}

std::vector<std::pair<Level, int>> LevelsAndPitches(int pitch) {
  std::vector<std::pair<Level, int>> all;
  for (Level level : Levels()) {
    all.emplace_back(level, pitch);
    all.emplace_back(level, -pitch);
  }
  return all;
}

// Offsets beyond 2^31 bytes, in mappings of which only some pages exist.
TEST_F(ConvertTest, PlanesMayBeLargerThanTwoGigabytes) {
  if (sizeof(void*) == 4) GTEST_SKIP() << "no room for such planes";
  constexpr std::int64_t kPitch = (std::int64_t{1} << 30) + 3;
  constexpr int kW = 70, kH = 6;
  const Sparse sparse(kPitch * kH), other(kPitch * kH);
  if (!sparse.begin() || !other.begin()) GTEST_SKIP() << "no address space for such planes";
  for (const auto& [level, pitch] : LevelsAndPitches(static_cast<int>(kPitch))) {
    zel::UseLevel(level);
    Byte* const first = pitch > 0 ? sparse.begin() : sparse.begin() + kPitch * (kH - 1);
    Byte* const second = pitch > 0 ? other.begin() : other.begin() + kPitch * (kH - 1);
    std::mt19937 random(3);
    Bytes bits(4 * kW * kH), u(kW * kH), v(kW * kH), got(bits.size()), want(bits.size());
    for (Byte& byte : bits) byte = static_cast<Byte>(random() >> 24);
    auto bmi = Header(kW, kH, 32);
    Rgb32_2_yuv420(first, u.data(), v.data(), pitch, kW, kW, &bmi, bits.data());
    Yuv420_2_Argb(&bmi, got.data(), first, u.data(), v.data(), pitch, kW, kW);
    Bytes luma(kW * kH);
    Rgb32_2_yuv420(luma.data(), u.data(), v.data(), kW, kW, kW, &bmi, bits.data());
    Yuv420_2_Argb(&bmi, want.data(), luma.data(), u.data(), v.data(), kW, kW, kW);
    EXPECT_EQ(got, want) << pitch << ", " << zel::LevelName(level);

    YUY2_Blt_fast(second, pitch, 0, 0, kW / 2, kH, 1, first, pitch, 0, 0, 0);
    for (int row = 0; row < kH; ++row) {
      for (int x = 0; x < kW; ++x) {
        ASSERT_EQ(second[std::ptrdiff_t{row} * pitch + (x ^ 1)], luma[row * kW + x])
            << pitch << ", " << zel::LevelName(level);
      }
    }
  }
}

}  // namespace
