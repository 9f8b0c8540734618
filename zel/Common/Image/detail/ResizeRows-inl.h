// The vector row functions of the resizers, in the operations of the level that the file includes
// before this one (zel/detail/Registers-inl.h).
//
// The heart of all of them: for bytes a, b and a weight w in 1/4096,
//   (a * (4096 - w) + b * w) >> 12  =  a + floor((b - a) * 16 * w / 65536),
// a multiplication that keeps the high halves of 16-bit products. (b - a) * 16 fits 16 bits.
//
// The functions are templates over `Steps`. CommonSteps below has the defaults. A level derives
// from it and redefines the steps that it can do faster, or that it has beyond them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "zel/Common/Image/detail/ResizeKernels.h"

namespace zel::image::ZEL_LEVEL {
namespace {

using namespace ::zel::ZEL_LEVEL;

struct CommonSteps {
  /// The windows that PermuteBytes<kWindows>(source, base, index) and PermutePixels read; a group
  /// of 0: the level has no such step. `kBases` is how many bases a register of bytes has.
  static constexpr ResizeWindow kByteWindow = {0, 0};
  static constexpr ResizeWindow kPixelWindow = {0, 0};
  static constexpr std::size_t kBases = 0;

  /// (b - a) * 16 of pairs of bytes a, b, as words; `a` has the pairs' first bytes as words.
  ZEL_INLINE static Reg Difference(Reg pairs, Reg /*a*/) {
    return MulAddBytes(pairs, SetPairs8(-16, 16));
  }
};

// Arithmetic --------------------------------------------------------------------------------------

/// From pairs of bytes a, b: the words a + (b - a) * weight / 4096.
template <class Steps>
ZEL_INLINE Reg Mix(Reg pairs, Reg weights) {
  const Reg a = And(pairs, Set16(0x00FF));
  return Add16(a, MulHigh16(Steps::Difference(pairs, a), weights));
}

/// Words / 255, truncated: exact for all 16 bits.
ZEL_INLINE Reg Over255(Reg words) {
  return ShiftRight16<7>(MulHighU16(words, Set16(0x8081)));
}

ZEL_INLINE Reg PixelWeights(int weight) {
  return Set64(static_cast<std::uint64_t>(weight) * 0x000100010001U);  // Channel 3 stays.
}

/// The bytes of first's words, then those of second's.
ZEL_INLINE Reg PackInOrder(Reg first, Reg second) {
  return Gather64(PackU8(first, second));
}

/// Register i of the bytes or pixels that a row asks for. 0 windows: of the pairs fetched before.
template <class Steps, int kWindows>
ZEL_INLINE Reg BytesOf(const ResizeColumns& columns, const unsigned char* source, std::size_t i) {
  if constexpr (kWindows == 0) {
    return Load(columns.pairs + i * kRegBytes);
  } else {
    return Steps::template PermuteBytes<kWindows>(source, columns.base + i * Steps::kBases,
                                                  columns.index + i * kRegBytes);
  }
}
template <class Steps, int kWindows>
ZEL_INLINE Reg PixelsOf(const ResizeColumns& columns, const unsigned char* source, std::size_t i) {
  if constexpr (kWindows == 0) {
    return Load(columns.pairs + i * kRegBytes);
  } else {
    return Steps::template PermutePixels<kWindows>(source, columns.base + i,
                                                   columns.index + i * (kRegBytes / 4));
  }
}

// Rows --------------------------------------------------------------------------------------------

template <class Steps, int kWindows>
ZEL_INLINE void Bilinear8Rows(const ResizeColumns& columns, const unsigned char* source,
                              unsigned char* out) {
  constexpr std::size_t kWords = kRegBytes / 2;
  CoverPadded(columns.count, std::size_t{kRegBytes}, [&](std::size_t c) ZEL_INLINE_LAMBDA {
    const std::size_t i = 2 * c / kRegBytes;
    const Reg first =
        Mix<Steps>(BytesOf<Steps, kWindows>(columns, source, i), Load(columns.weight + c));
    const Reg second = Mix<Steps>(BytesOf<Steps, kWindows>(columns, source, i + 1),
                                  Load(columns.weight + c + kWords));
    Store(out + c, PackInOrder(first, second));
  });
}

template <class Steps>
void Bilinear8(const ResizeColumns& columns, const unsigned char* source, unsigned char* out) {
  if constexpr (Steps::kByteWindow.group > 0) {
    if (columns.windows == 1) return Bilinear8Rows<Steps, 1>(columns, source, out);
    if (columns.windows == 2) return Bilinear8Rows<Steps, 2>(columns, source, out);
  }
  for (std::size_t c = 0; c < columns.count; ++c) {
    std::memcpy(columns.pairs + 2 * c, source + columns.offset[c], 2);
  }
  Bilinear8Rows<Steps, 0>(columns, source, out);
}

template <class Steps, int kWindows>
ZEL_INLINE void Bilinear32Rows(const ResizeColumns& columns, const unsigned char* source,
                               unsigned char* out) {
  constexpr std::size_t kStep = kRegBytes / 4;
  CoverPadded(columns.count, kStep, [&](std::size_t c) ZEL_INLINE_LAMBDA {
    const std::size_t i = 2 * c / kStep;
    const Reg first = Mix<Steps>(Steps::PairChannels(PixelsOf<Steps, kWindows>(columns, source, i)),
                                 Load(columns.weight4 + c));
    const Reg second =
        Mix<Steps>(Steps::PairChannels(PixelsOf<Steps, kWindows>(columns, source, i + 1)),
                   Load(columns.weight4 + c + kStep / 2));
    Store(out + 4 * c, PackInOrder(first, second));
  });
}

template <class Steps>
void Bilinear32(const ResizeColumns& columns, const unsigned char* source, unsigned char* out) {
  if constexpr (Steps::kPixelWindow.group > 0) {
    if (columns.windows == 1) return Bilinear32Rows<Steps, 1>(columns, source, out);
    if (columns.windows == 2) return Bilinear32Rows<Steps, 2>(columns, source, out);
  }
  for (std::size_t c = 0; c < columns.count; ++c) {
    std::memcpy(columns.pairs + 8 * c,
                source + std::size_t{4} * static_cast<unsigned>(columns.offset[c]), 8);
  }
  Bilinear32Rows<Steps, 0>(columns, source, out);
}

template <class Steps, int kWindows>
ZEL_INLINE void Nearest8Rows(const ResizeColumns& columns, const unsigned char* source,
                             unsigned char* out) {
  CoverOnce(columns.count, [&](std::size_t i, auto access) {
    access.Put(out + i, BytesOf<Steps, kWindows>(columns, source, i / kRegBytes));
  });
}

template <class Steps>
void Nearest8(const ResizeColumns& columns, const unsigned char* source, unsigned char* out) {
  if constexpr (Steps::kByteWindow.group > 0) {
    if (columns.windows == 1) return Nearest8Rows<Steps, 1>(columns, source, out);
    if (columns.windows == 2) return Nearest8Rows<Steps, 2>(columns, source, out);
  }
  for (std::size_t c = 0; c < columns.count; ++c) out[c] = source[columns.offset[c]];
}

template <class Steps, int kWindows>
ZEL_INLINE void Nearest32Rows(const ResizeColumns& columns, const unsigned char* source,
                              unsigned char* out) {
  CoverOnce(4 * columns.count, [&](std::size_t i, auto access) {
    access.Put(out + i, PixelsOf<Steps, kWindows>(columns, source, i / kRegBytes));
  });
}

template <class Steps>
void Nearest32(const ResizeColumns& columns, const unsigned char* source, unsigned char* out) {
  if constexpr (Steps::kPixelWindow.group > 0) {
    if (columns.windows == 1) return Nearest32Rows<Steps, 1>(columns, source, out);
    if (columns.windows == 2) return Nearest32Rows<Steps, 2>(columns, source, out);
  }
  for (std::size_t c = 0; c < columns.count; ++c) {
    std::memcpy(out + 4 * c, source + std::size_t{4} * static_cast<unsigned>(columns.offset[c]), 4);
  }
}

/// Both halves of each register's lanes, mixed with the weights of the words.
template <class Steps>
ZEL_INLINE Reg BlendRegister(Reg top, Reg bottom, Reg weights) {
  return PackU8(Mix<Steps>(InterleaveLow8(top, bottom), weights),
                Mix<Steps>(InterleaveHigh8(top, bottom), weights));
}

template <class Steps>
ZEL_INLINE void BlendRow(const unsigned char* top, const unsigned char* bottom, Reg weights,
                         std::size_t n, unsigned char* out) {
  // Without masks, making some bytes twice is cheaper than a part of a register.
  if (!kMaskedAccess && n > kRegBytes) {
    return Cover(n, std::size_t{kRegBytes}, std::size_t{0}, [&](std::size_t i) {
      Store(out + i, BlendRegister<Steps>(Load(top + i), Load(bottom + i), weights));
    });
  }
  CoverOnce(n, [&](std::size_t i, auto access) {
    access.Put(out + i, BlendRegister<Steps>(access.Get(top + i), access.Get(bottom + i), weights));
  });
}

template <class Steps>
void Blend8(const unsigned char* top, const unsigned char* bottom, int weight, std::size_t n,
            unsigned char* out) {
  BlendRow<Steps>(top, bottom, Set16(weight), n, out);
}

template <class Steps>
void Blend32(const unsigned char* top, const unsigned char* bottom, int weight, std::size_t n,
             unsigned char* out) {
  BlendRow<Steps>(top, bottom, PixelWeights(weight), 4 * n, out);
}

/// old * (255 - alpha) + value * alpha, over 255. `value` has the pixels' alpha in its word 3.
ZEL_INLINE Reg Composite(Reg value, Reg old, Reg blended) {
  const Reg alpha = ShuffleQuads<3, 3, 3, 3>(value);
  // The same formula with 255 for the value gives old * (255 - alpha) / 255 + alpha.
  value = Or(value, Set64(0x00FF000000000000U));
  const Reg difference = And(Sub16(value, old), blended);
  const Reg old255 = Sub16(ShiftLeft16<8>(old), old);
  return Over255(Add16(old255, Mul16(difference, alpha)));
}

template <class Steps>
void Over32(const unsigned char* top, const unsigned char* bottom, int weight, std::size_t n,
            bool keepAlpha, unsigned char* out) {
  const Reg weights = PixelWeights(weight);
  const Reg blended = Set64(keepAlpha ? 0x0000FFFFFFFFFFFFU : ~std::uint64_t{0});
  CoverOnce(4 * n, [&](std::size_t i, auto access) {
    const Reg t = access.Get(top + i);
    const Reg b = access.Get(bottom + i);
    const Reg old = access.Get(out + i);
    const Reg low =
        Composite(Mix<Steps>(InterleaveLow8(t, b), weights), InterleaveLow8(old, Zero()), blended);
    const Reg high = Composite(Mix<Steps>(InterleaveHigh8(t, b), weights),
                               InterleaveHigh8(old, Zero()), blended);
    access.Put(out + i, PackU8(low, high));
  });
}

/// Gives pixels `alpha`, and clears those whose mask is 0. All in 32-bit words.
ZEL_INLINE Reg SetAlpha(Reg pixels, Reg alpha, Reg mask) {
  const Reg visible = ShiftRightSigned32<31>(Sub32(Zero(), mask));
  const Reg colour = And(pixels, Set32(0x00FFFFFF));
  return And(Or(colour, ShiftLeft32<24>(alpha)), visible);
}

void ReplaceAlpha(const unsigned char* mask, std::size_t n, unsigned char* out) {
  CoverOnce(4 * n, [&](std::size_t i, auto access) {
    const Reg m = access.GetBytesAs32(mask + i / 4);
    access.Put(out + i, SetAlpha(access.Get(out + i), m, m));
  });
}

void MultiplyAlpha(const unsigned char* mask, std::size_t n, unsigned char* out) {
  CoverOnce(4 * n, [&](std::size_t i, auto access) {
    const Reg m = access.GetBytesAs32(mask + i / 4);
    const Reg old = access.Get(out + i);
    const Reg alpha = Over255(Mul16(ShiftRight32<24>(old), m));
    access.Put(out + i, SetAlpha(old, alpha, m));
  });
}

template <class Steps>
constexpr ResizeKernels MakeKernels() {
  return {Steps::kByteWindow, Steps::kPixelWindow, Bilinear8<Steps>, Bilinear32<Steps>,
          Nearest8<Steps>,    Nearest32<Steps>,    Blend8<Steps>,    Blend32<Steps>,
          Over32<Steps>,      ReplaceAlpha,        MultiplyAlpha};
}

}  // namespace
}  // namespace zel::image::ZEL_LEVEL
