// The colour conversions against libyuv, FFmpeg's swscale and memcpy.
//
// Where our bitmap is bottom-up, libyuv is given a negative height, so that it reads or writes the
// same bitmap; "top-down" is libyuv without that, which is faster and leaves the rows the other way
// round.
#include <array>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench/Compare.h"
#include "bench/image/Peers.h"
#include "zel/Common/Image/ImageConvert.h"
#include "zel/detail/Level.h"

namespace {

using zel::bench::Goal;
using zel::bench::Peer;
using Bytes = std::vector<std::uint8_t>;

/// A picture in every layout, with room for a padding column.
struct Picture {
  Picture(int width, int height) : w(width), h(height) {
    std::mt19937 random(1);
    for (Bytes* plane : {&y, &u, &v, &a, &bgr, &bgra, &packed, &indexes}) {
      plane->resize(std::size_t{4} * (w + 8) * (h + 1));
      for (auto& byte : *plane) byte = static_cast<std::uint8_t>(random() >> 24);
    }
    auto* const info = reinterpret_cast<tagBITMAPINFO*>(palette.data());
    for (auto& byte : palette) byte = static_cast<std::uint8_t>(random() >> 24);
    info->bmiHeader = *Header(8);
  }
  tagBITMAPINFOHEADER* Header(int bits) {
    header = {};
    header.biWidth = w;
    header.biHeight = h;
    header.biBitCount = static_cast<std::uint16_t>(bits);
    return &header;
  }
  tagBITMAPINFO* Info() { return reinterpret_cast<tagBITMAPINFO*>(palette.data()); }
  int stride24() const { return (w * 24 + 31) / 32 * 4; }

  int w, h;
  int py = (w + 1) / 2 * 2, pc = (w + 1) / 2;
  Bytes y, u, v, a, bgr, bgra, packed, indexes;
  alignas(4) std::array<std::uint8_t, 40 + 4 * 256> palette;
  tagBITMAPINFOHEADER header;
};

enum Order { kTopDown, kBottomUp };

struct Routine {
  const char* name;
  Order order;           ///< of the bitmap's rows
  double bytesPerPixel;  ///< of what is written
  void (*ours)(Picture& in, Picture& out);
  /// `h` is the height, negative to turn the picture upside down.
  void (*libyuv)(Picture& in, Picture& out, int h);
  /// swscale's formats, or "".
  const char *swsFrom, *swsTo;
  double goalSmall, goalHd, goal4k, aim;
};

#if ZEL_WITH_LIBYUV
#define LIBYUV(...) \
  [](Picture& i, [[maybe_unused]] Picture& o, [[maybe_unused]] int h) { __VA_ARGS__; }
const std::uint8_t kSwap[16] = {1, 0, 3, 2, 5, 4, 7, 6, 9, 8, 11, 10, 13, 12, 15, 14};
#define YUV_OF(p) p.y.data(), p.py, p.u.data(), p.pc, p.v.data(), p.pc
#else
#define LIBYUV(...) nullptr
#endif
#define OURS(...) [](Picture& i, Picture& o) { __VA_ARGS__; }
#define PLANES(p) p.y.data(), p.u.data(), p.v.data()
#define PITCHES(p) p.py, p.pc, p.pc

const Routine kRoutines[] = {
    {"Yuv420_2_rgb24", kBottomUp, 3,
     OURS(Yuv420_2_rgb24(o.Header(24), o.bgr.data(), PLANES(i), PITCHES(i))),
     LIBYUV(libyuv::I420ToRGB24(YUV_OF(i), o.bgr.data(), o.stride24(), i.w, h)), "yuv", "bgr", 1.3,
     1.3, 1.3, 2.0},
    {"Yuv420_2_rgb32", kBottomUp, 4,
     OURS(Yuv420_2_rgb32(o.Header(32), o.bgra.data(), PLANES(i), PITCHES(i))),
     LIBYUV(libyuv::I420ToARGB(YUV_OF(i), o.bgra.data(), 4 * o.w, i.w, h)), "yuv", "bgra", 1.0, 1.0,
     0.9, 1.5},
    {"Yuv420_2_Argb", kTopDown, 4,
     OURS(Yuv420_2_Argb(o.Header(32), o.bgra.data(), PLANES(i), PITCHES(i))),
     LIBYUV(libyuv::I420ToARGB(YUV_OF(i), o.bgra.data(), 4 * o.w, i.w, h)), "yuv", "bgra", 1.0, 1.0,
     0.9, 1.5},
    {"Yuv420_2_rgb32_Alpha", kBottomUp, 4,
     OURS(Yuv420_2_rgb32_Alpha(o.Header(32), o.bgra.data(), PLANES(i), i.a.data(), PITCHES(i))),
     LIBYUV(
         libyuv::I420AlphaToARGB(YUV_OF(i), i.a.data(), i.py, o.bgra.data(), 4 * o.w, i.w, h, 0)),
     "", "", 1.1, 1.1, 1.0, 1.5},
    {"Yuv420_2_rgb24Simple", kBottomUp, 3,
     OURS(Yuv420_2_rgb24Simple(o.Header(24), o.bgr.data(), PLANES(i), PITCHES(i))), nullptr, "", "",
     4, 4, 4, 8},
    {"Rgb24_2_yuv420", kBottomUp, 1.5,
     OURS(Rgb24_2_yuv420(PLANES(o), PITCHES(o), i.Header(24), i.bgr.data())),
     LIBYUV(libyuv::RGB24ToI420(i.bgr.data(), i.stride24(), YUV_OF(o), i.w, h)), "bgr", "yuv", 1.0,
     1.0, 0.95, 1.3},
    {"Rgb32_2_yuv420", kBottomUp, 1.5,
     OURS(Rgb32_2_yuv420(PLANES(o), PITCHES(o), i.Header(32), i.bgra.data())),
     LIBYUV(libyuv::ARGBToI420(i.bgra.data(), 4 * i.w, YUV_OF(o), i.w, h)), "bgra", "yuv", 1.0, 1.0,
     0.95, 1.3},
    {"Argb_2_yuv420", kTopDown, 1.5,
     OURS(Argb_2_yuv420(PLANES(o), PITCHES(o), i.Header(32), i.bgra.data())),
     LIBYUV(libyuv::ARGBToI420(i.bgra.data(), 4 * i.w, YUV_OF(o), i.w, h)), "", "", 1.0, 1.0, 0.95,
     1.3},
    {"Rgb32_2_yuv420_Alpha", kBottomUp, 2.5,
     OURS(Rgb32_2_yuv420_Alpha(PLANES(o), o.a.data(), PITCHES(o), i.Header(32), i.bgra.data())),
     LIBYUV(libyuv::ARGBToI420(i.bgra.data(), 4 * i.w, YUV_OF(o), i.w, h);
            libyuv::ARGBExtractAlpha(i.bgra.data(), 4 * i.w, o.a.data(), o.py, i.w, h)),
     "", "", 1.1, 1.1, 0.95, 1.4},
    {"Rgb32_2_yuv420A", kBottomUp, 2.5,
     OURS(Rgb32_2_yuv420A(PLANES(o), o.a.data(), PITCHES(o), i.Header(32), i.bgra.data())),
     LIBYUV(libyuv::ARGBToI420(i.bgra.data(), 4 * i.w, YUV_OF(o), i.w, h);
            libyuv::ARGBExtractAlpha(i.bgra.data(), 4 * i.w, o.a.data(), o.py, i.w, h)),
     "", "", 1.1, 1.1, 0.95, 1.4},
    {"Rgb24_2_yuv420Simple", kBottomUp, 1.5,
     OURS(Rgb24_2_yuv420Simple(PLANES(o), PITCHES(o), i.Header(24), i.bgr.data())), nullptr, "", "",
     4, 4, 4, 8},
    {"Rgb8_2_YUV420", kBottomUp, 1.5,
     OURS(Rgb8_2_YUV420(PLANES(o), PITCHES(o), i.Info(), i.indexes.data())), nullptr, "", "", 4, 4,
     4, 8},
    {"Rgb24_2_YUY2", kBottomUp, 2,
     OURS(Rgb24_2_YUY2(o.packed.data(), 2 * o.py, 0, 0, i.w, i.h, 1, i.bgr.data(), i.h,
                       i.stride24(), 0, 0)),
     LIBYUV(libyuv::RGB24ToARGB(i.bgr.data(), i.stride24(), o.bgra.data(), 4 * o.w, i.w, h);
            libyuv::ARGBToYUY2(o.bgra.data(), 4 * o.w, o.packed.data(), 2 * o.py, i.w, i.h)),
     "bgr", "yuy2", 1.3, 1.3, 1.3, 2.0},
    {"YUY2_2_Rgb24", kBottomUp, 3,
     OURS(YUY2_2_Rgb24(o.bgr.data(), o.h, o.stride24(), 0, 0, i.w, i.h, i.packed.data(), 2 * i.py,
                       1, 0, 0)),
     LIBYUV(libyuv::YUY2ToARGB(i.packed.data(), 2 * i.py, o.bgra.data(), 4 * o.w, i.w, h);
            libyuv::ARGBToRGB24(o.bgra.data(), 4 * o.w, o.bgr.data(), o.stride24(), i.w, i.h)),
     "yuy2", "bgr", 1.3, 1.3, 1.3, 2.0},
    {"YUY2_2_Yuv420", kTopDown, 1.5,
     OURS(YUY2_2_Yuv420(PLANES(o), PITCHES(o), 0, 0, i.w, i.h, i.packed.data(), 2 * i.py, 1, 0, 0)),
     LIBYUV(libyuv::YUY2ToI420(i.packed.data(), 2 * i.py, YUV_OF(o), i.w, h)), "", "", 1.0, 1.0,
     1.0, 1.3},
    {"Yuv420_2_YUY2", kTopDown, 2,
     OURS(Yuv420_2_YUY2(o.packed.data(), 2 * o.py, 0, 0, i.w, i.h, 1, PLANES(i), PITCHES(i), 0, 0)),
     LIBYUV(libyuv::I420ToYUY2(YUV_OF(i), o.packed.data(), 2 * o.py, i.w, h)), "", "", 0.95, 0.95,
     0.95, 1.0},
    {"YUY2_Blt_fast, order change", kTopDown, 2,
     OURS(YUY2_Blt_fast(o.packed.data(), 2 * o.py, 0, 0, i.w, i.h, 1, i.packed.data(), 2 * i.py, 0,
                        0, 0)),
     LIBYUV(libyuv::ARGBShuffle(i.packed.data(), 2 * i.py, o.packed.data(), 2 * o.py, kSwap,
                                (i.w + 1) / 2, h)),
     "", "", 0.95, 0.95, 0.95, 1.0},
    {"YV12_Blt_fast", kTopDown, 1.5,
     OURS(YV12_Blt_fast(PLANES(o), PITCHES(o), 0, 0, i.w, i.h, PLANES(i), PITCHES(i), 0, 0)),
     LIBYUV(libyuv::I420Copy(YUV_OF(i), YUV_OF(o), i.w, h)), "", "", 0.95, 0.95, 0.95, 1.0},
};

#if ZEL_WITH_LIBSWSCALE
AVPixelFormat SwsFormat(const std::string& name) {
  return name == "yuv"    ? AV_PIX_FMT_YUV420P
         : name == "bgr"  ? AV_PIX_FMT_BGR24
         : name == "bgra" ? AV_PIX_FMT_BGRA
                          : AV_PIX_FMT_YUYV422;
}
void SwsPlanes(Picture& p, const std::string& name, std::uint8_t* (&planes)[4], int (&pitches)[4]) {
  const bool yuv = name == "yuv";
  planes[0] = yuv              ? p.y.data()
              : name == "bgr"  ? p.bgr.data()
              : name == "bgra" ? p.bgra.data()
                               : p.packed.data();
  pitches[0] = yuv ? p.py : name == "bgr" ? p.stride24() : name == "bgra" ? 4 * p.w : 2 * p.py;
  planes[1] = yuv ? p.u.data() : nullptr;
  planes[2] = yuv ? p.v.data() : nullptr;
  pitches[1] = pitches[2] = yuv ? p.pc : 0;
  planes[3] = nullptr;
  pitches[3] = 0;
}
Peer Sws(const Routine& routine, Picture& in, Picture& out) {
  const auto context = zel::bench::MakeSws({in.w, in.h, SwsFormat(routine.swsFrom)},
                                           {in.w, in.h, SwsFormat(routine.swsTo)}, SWS_POINT);
  return {"swscale", [=, &routine, &in, &out] {
            std::uint8_t *from[4], *to[4];
            int fromPitches[4], toPitches[4];
            SwsPlanes(in, routine.swsFrom, from, fromPitches);
            SwsPlanes(out, routine.swsTo, to, toPitches);
            sws_scale(context.get(), from, fromPitches, 0, in.h, to, toPitches);
          }};
}
#endif

struct Size {
  int w, h;
  /// The column of the goals; null for a size that is held to 1920x1080 instead.
  double Routine::*goal;
};
struct Pictures {
  explicit Pictures(const Size& size) : in(size.w, size.h), out(size.w, size.h) {}
  Picture in, out;
};

std::vector<Peer> PeersOf(const Routine& routine, const Size& size, Pictures& p, Pictures& hd) {
  std::vector<Peer> peers;
  if (!size.goal) peers.push_back({"1920x1080", [&] { routine.ours(hd.in, hd.out); }});
  if (routine.libyuv) {
    const int h = routine.order == kBottomUp ? -p.in.h : p.in.h;
    peers.push_back({"libyuv", [&, h] { routine.libyuv(p.in, p.out, h); }});
    if (h < 0 && size.goal) {
      peers.push_back({"libyuv, top-down", [&] { routine.libyuv(p.in, p.out, p.in.h); }});
    }
  } else if (size.goal) {
    peers.push_back({"plain", [&] { routine.ours(p.in, p.out); }, zel::Level::kPlain});
  }
#if ZEL_WITH_LIBSWSCALE
  if (size.goal && routine.swsFrom[0]) peers.push_back(Sws(routine, p.in, p.out));
#endif
  return peers;
}

Goal GoalOf(const Routine& routine, const Size& size) {
  if (!size.goal) return {.atLeast = 0.9, .aim = 1.0, .against = "1920x1080"};
  const bool turned = routine.libyuv && routine.order == kBottomUp;
  return {.atLeast = routine.*size.goal, .aim = routine.aim, .against = turned ? "libyuv" : ""};
}

}  // namespace

int main(int argc, char** argv) {
  zel::bench::Comparison comparison("image conversion", argc, argv, zel::bench::Kernels::kOfALevel);
  const Size sizes[] = {{64, 64, &Routine::goalSmall},
                        {1920, 1080, &Routine::goalHd},
                        {3840, 2160, &Routine::goal4k},
                        {1919, 1079, nullptr}};
  std::vector<std::unique_ptr<Pictures>> pictures;
  for (const Size& size : sizes) pictures.push_back(std::make_unique<Pictures>(size));
  Pictures& hd = *pictures[1];
  for (std::size_t i = 0; i < pictures.size(); ++i) {
    const Size& size = sizes[i];
    Pictures& p = *pictures[i];
    for (const Routine& routine : kRoutines) {
      const double pixels = double{1} * size.w * size.h;
      comparison.Add({.name = std::string(routine.name) + ' ' + std::to_string(size.w) + 'x' +
                              std::to_string(size.h),
                      .item = "pixel",
                      .items = pixels,
                      .bytes = static_cast<std::size_t>(pixels * routine.bytesPerPixel),
                      .ours = [&] { routine.ours(p.in, p.out); },
                      .peers = PeersOf(routine, size, p, hd),
                      .goal = GoalOf(routine, size)});
    }
  }
  return comparison.Run();
}
