#include "tests/image/ResizeModel.h"

#include <algorithm>
#include <cstring>

namespace {

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
  bool bottom_up;
  int bytes;
  unsigned char* At(int x, int y) const {
    const long long row = bottom_up ? p.nImageHeight - 1LL - p.nTop - y : p.nTop + y;
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
      const bool last_row = r == d.nHeight - 1, last_column = c == d.nWidth - 1;
      each(c, r, last_column ? Pos{s.nWidth - 1, 0} : cols.At(c),
           last_row ? Pos{s.nHeight - 1, 0} : rows.At(r), last_row || last_column);
    }
  }
}

template <int kBytes, bool kNearest>
void Bitmap(const IMG_PARAM& s, const IMG_PARAM& d) {
  const Image src{s, true, kBytes}, dst{d, true, kBytes};
  WalkBitmap(s, d, [&](int c, int r, Pos x, Pos y, bool edge) {
    std::memcpy(dst.At(c, r), src.At(x.i, y.i), kBytes);
    for (int k = 0; k < std::min(kBytes, 3) && !edge && !kNearest; ++k) {
      dst.At(c, r)[k] = static_cast<unsigned char>(BilinearOf(src, x, y, k));
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
      *dst.At(c, r) = static_cast<unsigned char>(v);
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
      *dst.At(c, r) = static_cast<unsigned char>(
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
      *pixel(d, x / 2, y / 2) =
          static_cast<unsigned char>(kNearest ? at(0, 0) : Bilinear(px.f, py.f, at));
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
    unsigned char* out = dst.At(c, r);
    for (int k = 0; k < 3; ++k) {
      const int v = edge ? src.At(x.i, y.i)[k] : BilinearOf(src, x, y, k);
      out[k] = static_cast<unsigned char>((out[k] * (255 - a) + v * a) / 255);
    }
    if (!edge) out[3] = static_cast<unsigned char>(out[3] * (255 - a) / 255 + a);
  });
}

template <int kBytes, bool kNearest>
void Mask(const IMG_PARAM& s, const IMG_PARAM& d) {
  const Image src{s, true, kBytes}, dst{d, true, 4};
  WalkBitmap(s, d, [&](int c, int r, Pos x, Pos y, bool edge) {
    const int m =
        edge || kNearest ? src.At(x.i, y.i)[kBytes - 1] : BilinearOf(src, x, y, kBytes - 1);
    unsigned char* out = dst.At(c, r);
    if (m == 0) std::memset(out, 0, 4);
    out[3] = static_cast<unsigned char>(kNearest ? m : out[3] * m / 255);
  });
}

template <int (*kRoutine)(const IMG_PARAM&, IMG_PARAM&, int)>
int WithoutReserved(const IMG_PARAM& src, IMG_PARAM& dst) {
  return kRoutine(src, dst, 0);
}

}  // namespace

using namespace zel::image;  // NOLINT

const ResizeCase kResizeCases[14] = {
    {"Near", NearestBitmap32, DIB_ResizeNear, Bitmap<4, true>, true, false, 4, 4},
    {"BiLiner", BilinearBitmap32, DIB_ResizeBiLiner, Bitmap<4, false>, true, false, 4, 4},
    {"Near8", NearestPlane8, DIB_ResizeNear8, Near8, false, false, 1, 1},
    {"BiLiner8", BilinearBitmap8, DIB_ResizeBiLiner8, Bitmap<1, false>, true, false, 1, 1},
    {"NearY", NearestLuma, WithoutReserved<DIB_ResizeNearY>, Luma<true>, false, false, 1, 1},
    {"BiLinerY", BilinearLuma, WithoutReserved<DIB_ResizeBiLinerY>, Luma<false>, false, false, 1,
     1},
    {"Convolve", BilinearLuma, DIB_ResizeConvolve, Luma<false>, false, false, 1, 1},
    {"Simulate", BoxLuma, WithoutReserved<DIB_ResizeBiLinerY_Simulate>, Box, false, false, 1, 1},
    {"NearUV", NearestChroma, DIB_ResizeNearUV, Chroma<true>, false, true, 1, 1},
    {"BiLinerUV", BilinearChroma, DIB_ResizeBiLinerUV, Chroma<false>, false, true, 1, 1},
    {"Alpha", AlphaOverBitmap32, DIB_AlphaResizeBiLiner, Alpha, true, false, 4, 4},
    {"MaskNear", NearestMask, StretchMaskResizeNear, Mask<1, true>, true, false, 1, 4},
    {"MaskBiLiner", BilinearMask, StretchMaskResizeBiLiner, Mask<1, false>, true, false, 1, 4},
    {"MaskBiLiner, 24 bits", BilinearMask, StretchMaskResizeBiLiner, Mask<3, false>, true, false, 3,
     4, 24},
};
