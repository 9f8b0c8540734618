// The colours of the main conversions beside those of FFmpeg's swscale, whose factors are rounded
// otherwise and whose results are rounded where ours are floored.
#include <gtest/gtest.h>

extern "C" {
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "zel/Common/Image/ImageConvert.h"

namespace {

using Byte = unsigned char;
using Bytes = std::vector<Byte>;

constexpr int kW = 256, kH = 128;
constexpr std::size_t kPixels = std::size_t{kW} * kH;

/// A picture in one of the formats; planes of 4:2:0 follow each other.
struct Picture {
  explicit Picture(AVPixelFormat pixel_format) : format(pixel_format), bytes(4 * kPixels) {}

  Byte* plane(int i) { return bytes.data() + (i == 0 ? 0 : kPixels + (i - 1) * kPixels / 4); }
  int pitch() const {
    return format == AV_PIX_FMT_YUV420P   ? kW
           : format == AV_PIX_FMT_YUYV422 ? 2 * kW
           : format == AV_PIX_FMT_BGR24   ? 3 * kW
                                          : 4 * kW;
  }
  std::size_t size() const {
    return format == AV_PIX_FMT_YUV420P ? kPixels * 3 / 2 : std::size_t{kH} * pitch();
  }

  AVPixelFormat format;
  Bytes bytes;
};

/// With exact rounding, chroma taken from its own block and no filter.
void Scale(Picture& from, Picture& to) {
  const std::unique_ptr<SwsContext, void (*)(SwsContext*)> context(
      sws_getContext(kW, kH, from.format, kW, kH, to.format,
                     SWS_POINT | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT | SWS_BITEXACT, nullptr,
                     nullptr, nullptr),
      sws_freeContext);
  ASSERT_TRUE(context);
  const auto planes = [](Picture& p, Byte*(&plane)[4], int(&pitch)[4]) {
    const int count = p.format == AV_PIX_FMT_YUV420P ? 3 : 1;
    for (int i = 0; i < 4; ++i) {
      plane[i] = i < count ? p.plane(i) : nullptr;
      pitch[i] = i == 0 ? p.pitch() : i < count ? kW / 2 : 0;
    }
  };
  Byte *in[4], *out[4];
  int in_pitch[4], out_pitch[4];
  planes(from, in, in_pitch);
  planes(to, out, out_pitch);
  sws_scale(context.get(), in, in_pitch, 0, kH, out, out_pitch);
}

/// Colours of 2 x 2 blocks, so that no way of taking chroma from several pixels shows.
using Source = void (*)(Byte (&color)[3], int x, int y);
void Random(Byte (&color)[3], int, int) {
  static std::mt19937 engine(3);
  for (Byte& byte : color) byte = static_cast<Byte>(engine() >> 24);
}
void Gradient(Byte (&color)[3], int x, int y) {
  color[0] = static_cast<Byte>(x);
  color[1] = static_cast<Byte>(2 * y);
  color[2] = static_cast<Byte>((x + 2 * y) / 2);
}

/// The colours as Y, U, V or as blue, green, red. YUV is kept to values that mean a colour's
/// component.
Picture Paint(AVPixelFormat format, Source source) {
  Picture picture(format);
  const bool rgb = format == AV_PIX_FMT_BGR24 || format == AV_PIX_FMT_BGRA;
  const int pixel_bytes = format == AV_PIX_FMT_BGR24 ? 3 : 4;
  for (int y = 0; y < kH; y += 2) {
    for (int x = 0; x < kW; x += 2) {
      Byte color[3];
      source(color, x, y);
      const auto scaled = [&](int i, int range) {
        return static_cast<Byte>(16 + color[i] * range / 255);
      };
      const Byte yuv[3] = {scaled(0, 219), scaled(1, 224), scaled(2, 224)};
      for (int i = 0; i < 4; ++i) {
        const int row = y + i / 2, column = x + i % 2;
        Byte* const line = picture.plane(0) + row * picture.pitch();
        if (rgb) {
          std::copy(color, color + 3, line + column * pixel_bytes);
        } else if (format == AV_PIX_FMT_YUV420P) {
          line[column] = yuv[0];
          for (int c = 1; c < 3; ++c) picture.plane(c)[y / 2 * kW / 2 + x / 2] = yuv[c];
        } else {
          line[2 * column] = yuv[0];
          line[2 * column + 1] = yuv[1 + i % 2];
        }
      }
    }
  }
  return picture;
}

tagBITMAPINFOHEADER Header(int bits) {
  tagBITMAPINFOHEADER header{};
  header.biWidth = kW;
  header.biHeight = kH;
  header.biBitCount = static_cast<std::uint16_t>(bits);
  return header;
}

/// Turns a picture upside down: the other order of rows.
Picture Flipped(Picture picture) {
  for (int row = 0; row < kH / 2; ++row) {
    Byte* const line = picture.plane(0) + row * picture.pitch();
    std::swap_ranges(line, line + picture.pitch(),
                     picture.plane(0) + (kH - 1 - row) * picture.pitch());
  }
  return picture;
}

struct Conversion {
  const char* name;
  AVPixelFormat from, to;
  void (*convert)(Picture& in, Picture& out);
};

const Conversion kConversions[] = {
    {"Yuv420_2_rgb24", AV_PIX_FMT_YUV420P, AV_PIX_FMT_BGR24,
     [](Picture& in, Picture& out) {
       auto bmi = Header(24);
       Yuv420_2_rgb24(&bmi, out.plane(0), in.plane(0), in.plane(1), in.plane(2), kW, kW / 2,
                      kW / 2);
       out = Flipped(out);
     }},
    {"Yuv420_2_Argb", AV_PIX_FMT_YUV420P, AV_PIX_FMT_BGRA,
     [](Picture& in, Picture& out) {
       auto bmi = Header(32);
       Yuv420_2_Argb(&bmi, out.plane(0), in.plane(0), in.plane(1), in.plane(2), kW, kW / 2, kW / 2);
     }},
    {"Rgb24_2_yuv420", AV_PIX_FMT_BGR24, AV_PIX_FMT_YUV420P,
     [](Picture& in, Picture& out) {
       auto bmi = Header(24);
       Picture flipped = Flipped(in);
       Rgb24_2_yuv420(out.plane(0), out.plane(1), out.plane(2), kW, kW / 2, kW / 2, &bmi,
                      flipped.plane(0));
     }},
    {"Argb_2_yuv420", AV_PIX_FMT_BGRA, AV_PIX_FMT_YUV420P,
     [](Picture& in, Picture& out) {
       auto bmi = Header(32);
       Argb_2_yuv420(out.plane(0), out.plane(1), out.plane(2), kW, kW / 2, kW / 2, &bmi,
                     in.plane(0));
     }},
    {"Rgb24_2_YUY2", AV_PIX_FMT_BGR24, AV_PIX_FMT_YUYV422,
     [](Picture& in, Picture& out) {
       Picture flipped = Flipped(in);
       Rgb24_2_YUY2(out.plane(0), 2 * kW, 0, 0, kW, kH, 1, flipped.plane(0), kH, 3 * kW, 0, 0);
     }},
    {"YUY2_2_Rgb24", AV_PIX_FMT_YUYV422, AV_PIX_FMT_BGR24,
     [](Picture& in, Picture& out) {
       YUY2_2_Rgb24(out.plane(0), kH, 3 * kW, 0, 0, kW, kH, in.plane(0), 2 * kW, 1, 0, 0);
       out = Flipped(out);
     }},
};

class Swscale : public testing::TestWithParam<Conversion> {};

// Ours floors where the peer rounds to nearest, so that it gives the same or one less. The factors
// agree to a quarter of a step over the whole range.
TEST_P(Swscale, DiffersByTheRoundingOnly) {
  for (const Source source : {&Random, &Gradient}) {
    Picture in = Paint(GetParam().from, source);
    Picture ours(GetParam().to), theirs(GetParam().to);
    GetParam().convert(in, ours);
    Scale(in, theirs);
    int lowest = 0, highest = 0;
    for (std::size_t i = 0; i < ours.size(); ++i) {
      if (ours.format == AV_PIX_FMT_BGRA && i % 4 == 3) continue;
      lowest = std::min(lowest, ours.bytes[i] - theirs.bytes[i]);
      highest = std::max(highest, ours.bytes[i] - theirs.bytes[i]);
    }
    EXPECT_GE(lowest, -1);
    EXPECT_LE(highest, 0);
  }
}

INSTANTIATE_TEST_SUITE_P(Convert, Swscale, testing::ValuesIn(kConversions),
                         [](const auto& conversion) { return std::string(conversion.param.name); });

}  // namespace
