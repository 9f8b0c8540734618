// The reference row functions of the resizers, in the plainest form.
#include <cstring>

#include "zel/Common/Image/detail/ResizeKernels.h"

namespace zel::image::plain {
namespace {

unsigned char Mix(int a, int b, int weight) {
  return static_cast<unsigned char>((a * (4096 - weight) + b * weight) >> 12);
}

void Bilinear8(const ResizeColumns& columns, const unsigned char* source, unsigned char* out) {
  for (std::size_t c = 0; c < columns.count; ++c) {
    const unsigned char* p = source + columns.offset[c];
    out[c] = Mix(p[0], p[1], columns.weight[c]);
  }
}

void Bilinear32(const ResizeColumns& columns, const unsigned char* source, unsigned char* out) {
  for (std::size_t c = 0; c < columns.count; ++c) {
    const unsigned char* p = source + std::size_t{4} * static_cast<unsigned>(columns.offset[c]);
    const std::uint64_t weights = columns.weight4[c];
    for (unsigned i = 0; i < 4; ++i) {
      out[4 * c + i] = Mix(p[i], p[4 + i], static_cast<int>(weights >> (16 * i) & 0xFFFF));
    }
  }
}

void Nearest8(const ResizeColumns& columns, const unsigned char* source, unsigned char* out) {
  for (std::size_t c = 0; c < columns.count; ++c) out[c] = source[columns.offset[c]];
}

void Nearest32(const ResizeColumns& columns, const unsigned char* source, unsigned char* out) {
  for (std::size_t c = 0; c < columns.count; ++c) {
    std::memcpy(out + 4 * c, source + std::size_t{4} * static_cast<unsigned>(columns.offset[c]), 4);
  }
}

void Blend8(const unsigned char* top, const unsigned char* bottom, int weight, std::size_t n,
            unsigned char* out) {
  for (std::size_t i = 0; i < n; ++i) out[i] = Mix(top[i], bottom[i], weight);
}

void Blend32(const unsigned char* top, const unsigned char* bottom, int weight, std::size_t n,
             unsigned char* out) {
  for (std::size_t i = 0; i < 4 * n; ++i) {
    out[i] = i % 4 == 3 ? top[i] : Mix(top[i], bottom[i], weight);
  }
}

void Over32(const unsigned char* top, const unsigned char* bottom, int weight, std::size_t n,
            bool keepAlpha, unsigned char* out) {
  for (std::size_t i = 0; i < 4 * n; i += 4) {
    const int alpha = top[i + 3];
    for (std::size_t k = i; k < i + 3; ++k) {
      const int v = Mix(top[k], bottom[k], weight);
      out[k] = static_cast<unsigned char>((out[k] * (255 - alpha) + v * alpha) / 255);
    }
    if (!keepAlpha) {
      out[i + 3] = static_cast<unsigned char>(out[i + 3] * (255 - alpha) / 255 + alpha);
    }
  }
}

void ReplaceAlpha(const unsigned char* mask, std::size_t n, unsigned char* out) {
  for (std::size_t i = 0; i < n; ++i) {
    if (mask[i] == 0) std::memset(out + 4 * i, 0, 4);
    out[4 * i + 3] = mask[i];
  }
}

void MultiplyAlpha(const unsigned char* mask, std::size_t n, unsigned char* out) {
  for (std::size_t i = 0; i < n; ++i) {
    if (mask[i] == 0) std::memset(out + 4 * i, 0, 4);
    out[4 * i + 3] = static_cast<unsigned char>(out[4 * i + 3] * mask[i] / 255);
  }
}

}  // namespace

const ResizeKernels kResize = {{0, 0}, {0, 0},  Bilinear8, Bilinear32,   Nearest8,     Nearest32,
                               Blend8, Blend32, Over32,    ReplaceAlpha, MultiplyAlpha};

}  // namespace zel::image::plain
