// The resizers against libyuv and swscale, and, where no library has their like, against their own
// plain kernels.

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "bench/Compare.h"
#include "bench/image/Peers.h"
#include "zel/Common/Image/AlphaResize.h"
#include "zel/detail/Level.h"

namespace {

using zel::bench::Case;
using zel::bench::Goal;
using zel::bench::Peer;

Goal AtLeast(double ratio, double aim) {
  Goal goal;
  goal.atLeast = ratio;
  goal.aim = aim;
  return goal;
}

struct Size {
  int width;
  int height;
};
struct Scale {
  const char* name;
  Size from;
  Size to;
};
constexpr Scale kSmall = {"64x64 to 96x96", {64, 64}, {96, 96}};
constexpr Scale kDown = {"1080p to 720p", {1920, 1080}, {1280, 720}};
constexpr Scale kUp = {"720p to 1080p", {1280, 720}, {1920, 1080}};
constexpr Scale kTo4K = {"1080p to 4K", {1920, 1080}, {3840, 2160}};

/// Up to three planes in one buffer: bytes, bitmap pixels, or a 4:2:0 picture.
class Picture {
 public:
  Picture(Size size, int pixelBytes, bool yuv420 = false) : size_(size), pixelBytes_(pixelBytes) {
    const Size half = {(size.width + 1) / 2, (size.height + 1) / 2};
    const std::size_t full = Area(size) * static_cast<unsigned>(pixelBytes);
    bytes_.resize(full + (yuv420 ? 2 * Area(half) : 0));
    std::mt19937 random(1);
    for (std::uint8_t& b : bytes_) b = static_cast<std::uint8_t>(random());
    plane[0] = bytes_.data();
    pitch[0] = size.width * pixelBytes;
    if (yuv420) {
      plane[1] = plane[0] + full;
      plane[2] = plane[1] + Area(half);
      pitch[1] = pitch[2] = half.width;
    }
  }
  IMG_PARAM Param() {
    return {plane[0], size_.width, size_.height, pitch[0],    8 * pixelBytes_,
            0,        0,           size_.width,  size_.height};
  }
  std::size_t bytes() const { return bytes_.size(); }
  double pixels() const { return static_cast<double>(Area(size_)); }

  std::uint8_t* plane[4] = {};
  int pitch[4] = {};

 private:
  static std::size_t Area(Size s) {
    return static_cast<std::size_t>(s.width) * static_cast<std::size_t>(s.height);
  }
  Size size_;
  int pixelBytes_;
  std::vector<std::uint8_t> bytes_;
};

/// The pictures of a case, which its contestants share.
struct Pictures {
  Pictures(const Scale& s, int fromBytes, int toBytes, bool yuv420 = false)
      : from(s.from, fromBytes, yuv420),
        to(s.to, toBytes, yuv420),
        temporary(s.to, toBytes),
        scale(s) {}
  Picture from;
  Picture to;
  Picture temporary;
  Scale scale;
};
using Shared = std::shared_ptr<Pictures>;

using Routine = int (*)(const IMG_PARAM& src, IMG_PARAM& dst);

std::function<void()> Run(Routine routine, Shared p) {
  return [=] {
    IMG_PARAM to = p->to.Param();
    routine(p->from.Param(), to);
    zel::bench::Keep(p->to.plane[0]);
  };
}

// Without the argument that they do not use.
int NearY(const IMG_PARAM& src, IMG_PARAM& dst) {
  return DIB_ResizeNearY(src, dst);
}
int BiLinerY(const IMG_PARAM& src, IMG_PARAM& dst) {
  return DIB_ResizeBiLinerY(src, dst);
}
int BiLinerYSimulate(const IMG_PARAM& src, IMG_PARAM& dst) {
  return DIB_ResizeBiLinerY_Simulate(src, dst);
}

#if ZEL_WITH_LIBSWSCALE
Peer Swscale(Shared p, AVPixelFormat format, int flags) {
  const Size from = p->scale.from, to = p->scale.to;
  const auto context =
      zel::bench::MakeSws({from.width, from.height, format}, {to.width, to.height, format}, flags);
  return {flags == SWS_POINT ? "swscale point" : "swscale fast bilinear", [=] {
            sws_scale(context.get(), p->from.plane, p->from.pitch, 0, p->scale.from.height,
                      p->to.plane, p->to.pitch);
          }};
}
#endif

#if ZEL_WITH_LIBYUV
Peer YuvArgb(Shared p, libyuv::FilterMode filter, bool blend) {
  return {blend ? "libyuv scale, blend" : "libyuv", [=] {
            Picture& out = blend ? p->temporary : p->to;
            const Size from = p->scale.from, to = p->scale.to;
            libyuv::ARGBScale(p->from.plane[0], p->from.pitch[0], from.width, from.height,
                              out.plane[0], out.pitch[0], to.width, to.height, filter);
            if (blend) {
              libyuv::ARGBBlend(out.plane[0], out.pitch[0], p->to.plane[0], p->to.pitch[0],
                                p->to.plane[0], p->to.pitch[0], to.width, to.height);
            }
          }};
}
#endif

Case Named(const char* routine, const Scale& scale, const Shared& p, Goal goal) {
  Case c;
  c.name = std::string(routine) + ", " + scale.name;
  c.item = "pixel";
  c.items = p->to.pixels();
  c.bytes = p->to.bytes();
  c.goal = goal;
  return c;
}

enum class Method { kNearest, kBilinear, kAlpha };

#if ZEL_WITH_LIBYUV
libyuv::FilterMode YuvFilter(Method method) {
  return method == Method::kNearest ? libyuv::kFilterNone : libyuv::kFilterBilinear;
}
void YuvPlane(const Shared& p, Method method) {
  const Size from = p->scale.from, to = p->scale.to;
  libyuv::ScalePlane(p->from.plane[0], p->from.pitch[0], from.width, from.height, p->to.plane[0],
                     p->to.pitch[0], to.width, to.height, YuvFilter(method));
}
#endif

Case Luma(const Scale& scale, Method method, Goal goal) {
  const bool nearest = method == Method::kNearest;
  const Shared p = std::make_shared<Pictures>(scale, 1, 1);
  Case c = Named(nearest ? "NearY" : "BiLinerY", scale, p, goal);
  c.ours = Run(nearest ? NearY : BiLinerY, p);
#if ZEL_WITH_LIBYUV
  c.peers.push_back({"libyuv", [=] { YuvPlane(p, method); }});
#endif
#if ZEL_WITH_LIBSWSCALE
  c.peers.push_back(Swscale(p, AV_PIX_FMT_GRAY8, nearest ? SWS_POINT : SWS_FAST_BILINEAR));
#endif
  return c;
}

/// Four full planes, all in one place: each is read and written like the others.
Case Yv444(const Scale& scale) {
  const Shared p = std::make_shared<Pictures>(scale, 1, 1);
  Case c = Named("YV444", scale, p, {});
  c.bytes *= 4;
  c.ours = [=] {
    std::uint8_t *const from = p->from.plane[0], *const to = p->to.plane[0];
    const int in = p->from.pitch[0], out = p->to.pitch[0];
    ImageResizeYV444(p->from.Param(), from, from, from, from, in, in, in, in, p->to.Param(), to, to,
                     to, to, out, out, out, out, IMAGE_INTERPOLATION_BILINEAR);
    zel::bench::Keep(to);
  };
#if ZEL_WITH_LIBYUV
  c.peers.push_back({"libyuv", [=] {
                       for (int i = 0; i < 4; ++i) YuvPlane(p, Method::kBilinear);
                     }});
#endif
  return c;
}

Case Yv12(const Scale& scale, Goal goal) {
  const Shared p = std::make_shared<Pictures>(scale, 1, 1, true);
  Case c = Named("YV12", scale, p, goal);
  c.ours = [=] {
    Picture &from = p->from, &to = p->to;
    ImageResizeYV12(from.Param(), from.plane[0], from.plane[1], from.plane[2], from.pitch[0],
                    from.pitch[1], from.pitch[2], to.Param(), to.plane[0], to.plane[1], to.plane[2],
                    to.pitch[0], to.pitch[1], to.pitch[2], IMAGE_INTERPOLATION_BILINEAR, 0);
    zel::bench::Keep(to.plane[0]);
  };
#if ZEL_WITH_LIBYUV
  c.peers.push_back({"libyuv", [=] {
                       Picture &from = p->from, &to = p->to;
                       libyuv::I420Scale(from.plane[0], from.pitch[0], from.plane[1], from.pitch[1],
                                         from.plane[2], from.pitch[2], scale.from.width,
                                         scale.from.height, to.plane[0], to.pitch[0], to.plane[1],
                                         to.pitch[1], to.plane[2], to.pitch[2], scale.to.width,
                                         scale.to.height, libyuv::kFilterBilinear);
                     }});
#endif
#if ZEL_WITH_LIBSWSCALE
  c.peers.push_back(Swscale(p, AV_PIX_FMT_YUV420P, SWS_FAST_BILINEAR));
#endif
  return c;
}

Case Bitmap32(const Scale& scale, Method method, Goal goal) {
  const Shared p = std::make_shared<Pictures>(scale, 4, 4);
  constexpr const char* names[] = {"Near", "BiLiner", "AlphaResizeBiLiner"};
  constexpr Routine routines[] = {DIB_ResizeNear, DIB_ResizeBiLiner, DIB_AlphaResizeBiLiner};
  const int i = static_cast<int>(method);
  Case c = Named(names[i], scale, p, goal);
  c.ours = Run(routines[i], p);
#if ZEL_WITH_LIBYUV
  c.peers.push_back(YuvArgb(p, YuvFilter(method), method == Method::kAlpha));
#endif
#if ZEL_WITH_LIBSWSCALE
  // swscale does not blend.
  if (method != Method::kAlpha) {
    const int flags = method == Method::kNearest ? SWS_POINT : SWS_FAST_BILINEAR;
    c.peers.push_back(Swscale(p, AV_PIX_FMT_BGRA, flags));
    c.goal.against = "libyuv";
  }
#endif
  return c;
}

/// A case of one routine. Those of chroma planes write a quarter of the pixels.
Case Single(const char* name, Routine routine, const Shared& p, bool chroma, Goal goal) {
  Case c = Named(name, p->scale, p, goal);
  if (chroma) {
    c.items /= 4;
    c.bytes /= 4;
  }
  c.ours = Run(routine, p);
  return c;
}

/// Routines without a like elsewhere, against the plain kernels at -O3.
Case AgainstPlain(const char* name, Routine routine, const Scale& scale, int fromBytes, int toBytes,
                  bool chroma = false) {
  const Shared p = std::make_shared<Pictures>(scale, fromBytes, toBytes);
  Case c = Single(name, routine, p, chroma, AtLeast(4, 8));
  c.peers = {{"plain kernel", Run(routine, p), zel::Level::kPlain}};
  return c;
}

/// An odd size, against the even one next to it.
Case AtOddSize(const char* name, Routine routine, int fromBytes, int toBytes, bool chroma = false) {
  const Scale odd = {"to 1919x1079", {1279, 719}, {1919, 1079}};
  const Shared p = std::make_shared<Pictures>(odd, fromBytes, toBytes);
  const Shared even = std::make_shared<Pictures>(kUp, fromBytes, toBytes);
  Case c = Single(name, routine, p, chroma, AtLeast(0.9, 1.0));
  c.peers = {{"to 1920x1080", Run(routine, even)}};
  return c;
}

}  // namespace

int main(int argc, char** argv) {
  zel::bench::Comparison all("image resizing", argc, argv, zel::bench::Kernels::kOfALevel);
  all.Add(Luma(kSmall, Method::kBilinear, {}));
  all.Add(Luma(kDown, Method::kBilinear, AtLeast(3, 7)));
  all.Add(Luma(kUp, Method::kBilinear, AtLeast(2, 3)));
  all.Add(Luma(kTo4K, Method::kBilinear, AtLeast(0.9, 1)));
  all.Add(Yv12(kSmall, {}));
  all.Add(Yv12(kDown, AtLeast(2.5, 5)));
  all.Add(Yv12(kUp, AtLeast(1.8, 3)));
  all.Add(Yv12(kTo4K, AtLeast(0.85, 1)));
  for (const Scale& scale : {kSmall, kDown, kUp, kTo4K}) {
    all.Add(Bitmap32(scale, Method::kBilinear, AtLeast(0.9, 1.5)));
    const bool large = scale.to.width > 1920;
    all.Add(Bitmap32(scale, Method::kNearest, AtLeast(large ? 0.8 : 1.2, 2)));
    all.Add(Bitmap32(scale, Method::kAlpha, AtLeast(1, 2)));
  }
  for (const Scale& scale : {kDown, kUp}) {
    all.Add(Luma(scale, Method::kNearest, {}));
    all.Add(Yv444(scale));
    all.Add(AgainstPlain("BiLinerY_Simulate", BiLinerYSimulate, scale, 1, 1));
    all.Add(AgainstPlain("Near8", DIB_ResizeNear8, scale, 1, 1));
    all.Add(AgainstPlain("BiLiner8", DIB_ResizeBiLiner8, scale, 1, 1));
    all.Add(AgainstPlain("NearUV", DIB_ResizeNearUV, scale, 1, 1, true));
    all.Add(AgainstPlain("BiLinerUV", DIB_ResizeBiLinerUV, scale, 1, 1, true));
    all.Add(AgainstPlain("MaskNear", StretchMaskResizeNear, scale, 1, 4));
    all.Add(AgainstPlain("MaskBiLiner", StretchMaskResizeBiLiner, scale, 1, 4));
  }
  all.Add(AtOddSize("BiLinerY", BiLinerY, 1, 1));
  all.Add(AtOddSize("NearY", NearY, 1, 1));
  all.Add(AtOddSize("BiLinerY_Simulate", BiLinerYSimulate, 1, 1));
  all.Add(AtOddSize("BiLiner8", DIB_ResizeBiLiner8, 1, 1));
  all.Add(AtOddSize("BiLinerUV", DIB_ResizeBiLinerUV, 1, 1, true));
  all.Add(AtOddSize("NearUV", DIB_ResizeNearUV, 1, 1, true));
  all.Add(AtOddSize("Near8", DIB_ResizeNear8, 1, 1));
  all.Add(AtOddSize("BiLiner", DIB_ResizeBiLiner, 4, 4));
  all.Add(AtOddSize("Near", DIB_ResizeNear, 4, 4));
  all.Add(AtOddSize("AlphaResizeBiLiner", DIB_AlphaResizeBiLiner, 4, 4));
  all.Add(AtOddSize("MaskBiLiner", StretchMaskResizeBiLiner, 1, 4));
  all.Add(AtOddSize("MaskNear", StretchMaskResizeNear, 1, 4));
  return all.Run();
}
