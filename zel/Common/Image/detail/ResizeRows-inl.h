// The vector row functions of the resizers, written once over the widest registers that the flags
// of the including file allow: 128 (SSE2, SSSE3), 256 (AVX2) or 512 bits (AVX-512, with or without
// VBMI). Everything here has internal linkage, for the reason given in ResizeKernels.h.
//
// The heart of all of them: for bytes a, b and a weight w in 1/4096,
//   (a * (4096 - w) + b * w) >> 12  =  a + floor((b - a) * 16 * w / 65536),
// a multiplication that keeps the high halves of 16-bit products. (b - a) * 16 fits 16 bits and
// comes out of one multiply-add of neighbouring bytes with -16 and 16.

#if defined(__GNUC__) && !defined(__clang__)
// The compiler's own AVX-512 header gives its undefined registers this warning.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#include <immintrin.h>

#include <cstring>

#include "zel/Common/Image/detail/ResizeKernels.h"

namespace zel::image {
namespace {

// Registers ---------------------------------------------------------------------------------------

#if defined(__AVX512BW__)

#define ZEL_OP(name) _mm512_##name
using Reg = __m512i;

inline Reg Load(const void* p) {
  return _mm512_loadu_si512(p);
}
inline void Store(void* p, Reg v) {
  _mm512_storeu_si512(p, v);
}
inline Reg Set64(std::uint64_t v) {
  return _mm512_set1_epi64(static_cast<long long>(v));
}
inline Reg BytesToDwords(const void* p) {
  return _mm512_cvtepu8_epi32(_mm_loadu_si128(static_cast<const __m128i*>(p)));
}
/// The bytes of first's words, then those of second's.
inline Reg PackInOrder(Reg first, Reg second) {
  const Reg order = _mm512_set_epi64(7, 5, 3, 1, 6, 4, 2, 0);
  return _mm512_permutexvar_epi64(order, _mm512_packus_epi16(first, second));
}

#elif defined(__AVX2__)

#define ZEL_OP(name) _mm256_##name
using Reg = __m256i;

inline Reg Load(const void* p) {
  return _mm256_loadu_si256(static_cast<const Reg*>(p));
}
inline void Store(void* p, Reg v) {
  _mm256_storeu_si256(static_cast<Reg*>(p), v);
}
inline Reg Set64(std::uint64_t v) {
  return _mm256_set1_epi64x(static_cast<long long>(v));
}
inline Reg BytesToDwords(const void* p) {
  return _mm256_cvtepu8_epi32(_mm_loadl_epi64(static_cast<const __m128i*>(p)));
}
inline Reg PackInOrder(Reg first, Reg second) {
  return _mm256_permute4x64_epi64(_mm256_packus_epi16(first, second), 0xD8);
}

#else

#define ZEL_OP(name) _mm_##name
using Reg = __m128i;

inline Reg Load(const void* p) {
  return _mm_loadu_si128(static_cast<const Reg*>(p));
}
inline void Store(void* p, Reg v) {
  _mm_storeu_si128(static_cast<Reg*>(p), v);
}
inline Reg Set64(std::uint64_t v) {
  return _mm_set1_epi64x(static_cast<long long>(v));
}
inline Reg BytesToDwords(const void* p) {
  std::int32_t bytes;
  std::memcpy(&bytes, p, 4);
  return _mm_unpacklo_epi16(_mm_unpacklo_epi8(_mm_cvtsi32_si128(bytes), Reg{}), Reg{});
}
inline Reg PackInOrder(Reg first, Reg second) {
  return _mm_packus_epi16(first, second);
}

#endif

constexpr std::size_t kBytes = sizeof(Reg);

/// How a row's vectors are accessed: whole, or the first n bytes of one.
struct Whole {
  Reg Load(const unsigned char* p) const { return image::Load(p); }
  void Store(unsigned char* p, Reg v) const { image::Store(p, v); }
  /// The bytes that belong to the pixels of a vector.
  Reg LoadPerPixel(const unsigned char* p) const { return BytesToDwords(p); }
};
struct Part {
  std::size_t n;
#if defined(__AVX512BW__)
  // What the mask leaves out is not touched and does not fault.
  __mmask64 Mask() const {
    return ~std::uint64_t{0} >> (64 - n);
  }
  Reg Load(const unsigned char* p) const {
    return _mm512_maskz_loadu_epi8(Mask(), p);
  }
  void Store(unsigned char* p, Reg v) const {
    _mm512_mask_storeu_epi8(p, Mask(), v);
  }
#else
  Reg Load(const unsigned char* p) const {
    unsigned char bytes[kBytes] = {};
    std::memcpy(bytes, p, n);
    return image::Load(bytes);
  }
  void Store(unsigned char* p, Reg v) const {
    unsigned char bytes[kBytes];
    image::Store(bytes, v);
    std::memcpy(p, bytes, n);
  }
#endif
  Reg LoadPerPixel(const unsigned char* p) const {
    unsigned char bytes[kBytes / 4] = {};
    std::memcpy(bytes, p, n / 4);
    return BytesToDwords(bytes);
  }
};

/// Calls body(position, access) for the vectors of a row of n bytes.
template <class Body>
inline void ForEachVector(std::size_t n, Body body) {
  std::size_t i = 0;
  for (; i + kBytes <= n; i += kBytes) body(i, Whole{});
  if (i < n) body(i, Part{n - i});
}

// Arithmetic --------------------------------------------------------------------------------------

/// From pairs of bytes a, b: the words a + (b - a) * weight / 4096.
inline Reg Mix(Reg pairs, Reg weights) {
  const Reg a = pairs & ZEL_OP(set1_epi16)(0x00FF);
#if defined(__SSSE3__)
  const Reg difference = ZEL_OP(maddubs_epi16)(pairs, ZEL_OP(set1_epi16)(0x10F0));
#else
  const Reg difference = _mm_slli_epi16(_mm_sub_epi16(_mm_srli_epi16(pairs, 8), a), 4);
#endif
  return ZEL_OP(add_epi16)(a, ZEL_OP(mulhi_epi16)(difference, weights));
}

/// Words / 255, truncated: exact for all 16 bits.
inline Reg Over255(Reg words) {
  const Reg reciprocal = ZEL_OP(set1_epi16)(static_cast<short>(0x8081));
  return ZEL_OP(srli_epi16)(ZEL_OP(mulhi_epu16)(words, reciprocal), 7);
}

inline Reg PixelWeights(int weight) {
  return Set64(static_cast<std::uint64_t>(weight) * 0x000100010001U);  // Channel 3 stays.
}

// Permutation of a window of source pixels --------------------------------------------------------

#if defined(__AVX512VBMI__)

constexpr ResizeWindow kByteWindow = {64, 64};
constexpr std::size_t kBases = 1;

template <int kWindows>
inline Reg PermuteBytes(const unsigned char* source, const std::int32_t* base,
                        const std::uint8_t* index) {
  const Reg low = Load(source + base[0]);
  if constexpr (kWindows == 1) return _mm512_permutexvar_epi8(Load(index), low);
  return _mm512_permutex2var_epi8(low, Load(index), Load(source + base[0] + 64));
}

#elif defined(__SSSE3__)

constexpr ResizeWindow kByteWindow = {16, 16};
constexpr std::size_t kBases = kBytes / 16;

/// One base per 128-bit lane.
inline Reg LoadLanes(const unsigned char* source, const std::int32_t* base) {
  const auto lane = [&](int i) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(source + base[i]));
  };
#if defined(__AVX512BW__)
  Reg v = _mm512_castsi128_si512(lane(0));
  v = _mm512_inserti32x4(v, lane(1), 1);
  v = _mm512_inserti32x4(v, lane(2), 2);
  return _mm512_inserti32x4(v, lane(3), 3);
#elif defined(__AVX2__)
  return _mm256_inserti128_si256(_mm256_castsi128_si256(lane(0)), lane(1), 1);
#else
  return lane(0);
#endif
}

template <int kWindows>
inline Reg PermuteBytes(const unsigned char* source, const std::int32_t* base,
                        const std::uint8_t* index) {
  const Reg low = LoadLanes(source, base);
  const Reg at = Load(index);
  if constexpr (kWindows == 1) return ZEL_OP(shuffle_epi8)(low, at);
  // The shuffle gives 0 where bit 7 is set: for indices from 16 on, and for those below 16.
  const Reg high = LoadLanes(source + 16, base);
  return ZEL_OP(shuffle_epi8)(low, ZEL_OP(adds_epu8)(at, ZEL_OP(set1_epi8)(0x70))) |
         ZEL_OP(shuffle_epi8)(high, ZEL_OP(sub_epi8)(at, ZEL_OP(set1_epi8)(16)));
}

#else

constexpr ResizeWindow kByteWindow = {0, 0};
constexpr std::size_t kBases = 0;

#endif

#if defined(__AVX512BW__)

constexpr ResizeWindow kPixelWindow = {16, 16};

template <int kWindows>
inline Reg PermutePixels(const unsigned char* source, const std::int32_t* base,
                         const std::uint8_t* index) {
  const unsigned char* p = source + std::size_t{4} * static_cast<unsigned>(base[0]);
  const Reg at = BytesToDwords(index);
  if constexpr (kWindows == 1) return _mm512_permutexvar_epi32(at, Load(p));
  return _mm512_permutex2var_epi32(Load(p), at, Load(p + kBytes));
}

#elif defined(__AVX2__)

constexpr ResizeWindow kPixelWindow = {8, 8};

template <int kWindows>
inline Reg PermutePixels(const unsigned char* source, const std::int32_t* base,
                         const std::uint8_t* index) {
  const unsigned char* p = source + std::size_t{4} * static_cast<unsigned>(base[0]);
  const Reg at = BytesToDwords(index);
  const Reg low = _mm256_permutevar8x32_epi32(Load(p), at);
  if constexpr (kWindows == 1) return low;
  const Reg high = _mm256_permutevar8x32_epi32(Load(p + kBytes), at);
  const Reg beyond = _mm256_cmpgt_epi32(at, _mm256_set1_epi32(7));
  return _mm256_blendv_epi8(low, high, beyond);
}

#else

constexpr ResizeWindow kPixelWindow = {0, 0};

#endif

/// Vector i of the bytes or pixels that a row asks for. 0 windows: of the pairs fetched before.
template <int kWindows>
inline Reg BytesOf(const ResizeColumns& columns, const unsigned char* source, std::size_t i) {
  if constexpr (kWindows == 0) {
    return Load(columns.pairs + i * kBytes);
  } else {
    return PermuteBytes<kWindows>(source, columns.base + i * kBases, columns.index + i * kBytes);
  }
}
template <int kWindows>
inline Reg PixelsOf(const ResizeColumns& columns, const unsigned char* source, std::size_t i) {
  if constexpr (kWindows == 0) {
    return Load(columns.pairs + i * kBytes);
  } else {
    return PermutePixels<kWindows>(source, columns.base + i, columns.index + i * (kBytes / 4));
  }
}

/// From pixels a, b in 64 bits each: pairs of their bytes.
inline Reg PairChannels(Reg pixels) {
#if defined(__AVX512BW__)
  return _mm512_shuffle_epi8(pixels, _mm512_broadcast_i32x4(_mm_set_epi8(
                                         15, 11, 14, 10, 13, 9, 12, 8, 7, 3, 6, 2, 5, 1, 4, 0)));
#elif defined(__AVX2__)
  return _mm256_shuffle_epi8(pixels, _mm256_broadcastsi128_si256(_mm_set_epi8(
                                         15, 11, 14, 10, 13, 9, 12, 8, 7, 3, 6, 2, 5, 1, 4, 0)));
#else
  const Reg split = _mm_shuffle_epi32(pixels, 0xD8);  // a a b b
  return _mm_unpacklo_epi8(split, _mm_srli_si128(split, 8));
#endif
}

// Rows --------------------------------------------------------------------------------------------

template <int kWindows>
inline void Bilinear8Rows(const ResizeColumns& columns, const unsigned char* source,
                          unsigned char* out) {
  constexpr std::size_t words = kBytes / 2;
  for (std::size_t c = 0, i = 0; c < columns.count; c += kBytes, i += 2) {
    const Reg first = Mix(BytesOf<kWindows>(columns, source, i), Load(columns.weight + c));
    const Reg second =
        Mix(BytesOf<kWindows>(columns, source, i + 1), Load(columns.weight + c + words));
    Store(out + c, PackInOrder(first, second));
  }
}

void Bilinear8(const ResizeColumns& columns, const unsigned char* source, unsigned char* out) {
#if defined(__SSSE3__)
  if (columns.windows == 1) return Bilinear8Rows<1>(columns, source, out);
  if (columns.windows == 2) return Bilinear8Rows<2>(columns, source, out);
#endif
  for (std::size_t c = 0; c < columns.count; ++c) {
    std::memcpy(columns.pairs + 2 * c, source + columns.offset[c], 2);
  }
  Bilinear8Rows<0>(columns, source, out);
}

template <int kWindows>
inline void Bilinear32Rows(const ResizeColumns& columns, const unsigned char* source,
                           unsigned char* out) {
  constexpr std::size_t step = kBytes / 4;
  for (std::size_t c = 0, i = 0; c < columns.count; c += step, i += 2) {
    const Reg first =
        Mix(PairChannels(PixelsOf<kWindows>(columns, source, i)), Load(columns.weight4 + c));
    const Reg second = Mix(PairChannels(PixelsOf<kWindows>(columns, source, i + 1)),
                           Load(columns.weight4 + c + step / 2));
    Store(out + 4 * c, PackInOrder(first, second));
  }
}

void Bilinear32(const ResizeColumns& columns, const unsigned char* source, unsigned char* out) {
#if defined(__AVX2__)
  if (columns.windows == 1) return Bilinear32Rows<1>(columns, source, out);
  if (columns.windows == 2) return Bilinear32Rows<2>(columns, source, out);
#endif
  for (std::size_t c = 0; c < columns.count; ++c) {
    std::memcpy(columns.pairs + 8 * c,
                source + std::size_t{4} * static_cast<unsigned>(columns.offset[c]), 8);
  }
  Bilinear32Rows<0>(columns, source, out);
}

template <int kWindows>
inline void Nearest8Rows(const ResizeColumns& columns, const unsigned char* source,
                         unsigned char* out) {
  ForEachVector(columns.count, [&](std::size_t i, auto access) {
    access.Store(out + i, BytesOf<kWindows>(columns, source, i / kBytes));
  });
}

void Nearest8(const ResizeColumns& columns, const unsigned char* source, unsigned char* out) {
#if defined(__SSSE3__)
  if (columns.windows == 1) return Nearest8Rows<1>(columns, source, out);
  if (columns.windows == 2) return Nearest8Rows<2>(columns, source, out);
#endif
  for (std::size_t c = 0; c < columns.count; ++c) out[c] = source[columns.offset[c]];
}

template <int kWindows>
inline void Nearest32Rows(const ResizeColumns& columns, const unsigned char* source,
                          unsigned char* out) {
  ForEachVector(4 * columns.count, [&](std::size_t i, auto access) {
    access.Store(out + i, PixelsOf<kWindows>(columns, source, i / kBytes));
  });
}

void Nearest32(const ResizeColumns& columns, const unsigned char* source, unsigned char* out) {
#if defined(__AVX2__)
  if (columns.windows == 1) return Nearest32Rows<1>(columns, source, out);
  if (columns.windows == 2) return Nearest32Rows<2>(columns, source, out);
#endif
  for (std::size_t c = 0; c < columns.count; ++c) {
    std::memcpy(out + 4 * c, source + std::size_t{4} * static_cast<unsigned>(columns.offset[c]), 4);
  }
}

/// Both halves of each register's lanes, mixed with the weights of the words.
inline Reg BlendVector(Reg top, Reg bottom, Reg weights) {
  return ZEL_OP(packus_epi16)(Mix(ZEL_OP(unpacklo_epi8)(top, bottom), weights),
                              Mix(ZEL_OP(unpackhi_epi8)(top, bottom), weights));
}

inline void BlendRow(const unsigned char* top, const unsigned char* bottom, Reg weights,
                     std::size_t n, unsigned char* out) {
  const auto blend = [&](std::size_t i, auto access) {
    access.Store(out + i, BlendVector(access.Load(top + i), access.Load(bottom + i), weights));
  };
  std::size_t whole = n - n % kBytes;
  ForEachVector(whole, blend);
  if (whole == n) return;
  // Without masks, writing some bytes twice is cheaper than a detour.
  if (kBytes < 64 && n > kBytes) return blend(n - kBytes, Whole{});
  blend(whole, Part{n - whole});
}

void Blend8(const unsigned char* top, const unsigned char* bottom, int weight, std::size_t n,
            unsigned char* out) {
  BlendRow(top, bottom, ZEL_OP(set1_epi16)(static_cast<short>(weight)), n, out);
}

void Blend32(const unsigned char* top, const unsigned char* bottom, int weight, std::size_t n,
             unsigned char* out) {
  BlendRow(top, bottom, PixelWeights(weight), 4 * n, out);
}

/// old * (255 - alpha) + value * alpha, over 255. `value` has the pixels' alpha in its word 3.
inline Reg Composite(Reg value, Reg old, Reg blended) {
  const Reg alpha = ZEL_OP(shufflehi_epi16)(ZEL_OP(shufflelo_epi16)(value, 0xFF), 0xFF);
  // The same formula with 255 for the value gives old * (255 - alpha) / 255 + alpha.
  value |= Set64(0x00FF000000000000U);
  const Reg difference = ZEL_OP(sub_epi16)(value, old) & blended;
  const Reg old255 = ZEL_OP(sub_epi16)(ZEL_OP(slli_epi16)(old, 8), old);
  return Over255(ZEL_OP(add_epi16)(old255, ZEL_OP(mullo_epi16)(difference, alpha)));
}

void Over32(const unsigned char* top, const unsigned char* bottom, int weight, std::size_t n,
            bool keep_alpha, unsigned char* out) {
  const Reg weights = PixelWeights(weight);
  const Reg blended = Set64(keep_alpha ? 0x0000FFFFFFFFFFFFU : ~std::uint64_t{0});
  ForEachVector(4 * n, [&](std::size_t i, auto access) {
    const Reg t = access.Load(top + i);
    const Reg b = access.Load(bottom + i);
    const Reg old = access.Load(out + i);
    const Reg low = Composite(Mix(ZEL_OP(unpacklo_epi8)(t, b), weights),
                              ZEL_OP(unpacklo_epi8)(old, Reg{}), blended);
    const Reg high = Composite(Mix(ZEL_OP(unpackhi_epi8)(t, b), weights),
                               ZEL_OP(unpackhi_epi8)(old, Reg{}), blended);
    access.Store(out + i, ZEL_OP(packus_epi16)(low, high));
  });
}

/// Gives pixels `alpha`, and clears those whose mask is 0. All in 32-bit words.
inline Reg SetAlpha(Reg pixels, Reg alpha, Reg mask) {
  const Reg visible = ZEL_OP(srai_epi32)(ZEL_OP(sub_epi32)(Reg{}, mask), 31);
  const Reg colour = pixels & ZEL_OP(set1_epi32)(0x00FFFFFF);
  return (colour | ZEL_OP(slli_epi32)(alpha, 24)) & visible;
}

void ReplaceAlpha(const unsigned char* mask, std::size_t n, unsigned char* out) {
  ForEachVector(4 * n, [&](std::size_t i, auto access) {
    const Reg m = access.LoadPerPixel(mask + i / 4);
    access.Store(out + i, SetAlpha(access.Load(out + i), m, m));
  });
}

void MultiplyAlpha(const unsigned char* mask, std::size_t n, unsigned char* out) {
  ForEachVector(4 * n, [&](std::size_t i, auto access) {
    const Reg m = access.LoadPerPixel(mask + i / 4);
    const Reg old = access.Load(out + i);
    const Reg alpha = Over255(ZEL_OP(mullo_epi16)(ZEL_OP(srli_epi32)(old, 24), m));
    access.Store(out + i, SetAlpha(old, alpha, m));
  });
}

constexpr ResizeKernels MakeKernels() {
  return {kByteWindow, kPixelWindow, Bilinear8, Bilinear32,   Nearest8,     Nearest32,
          Blend8,      Blend32,      Over32,    ReplaceAlpha, MultiplyAlpha};
}

}  // namespace
}  // namespace zel::image
