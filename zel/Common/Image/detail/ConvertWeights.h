// The factors of RGB to YUV, as the vector kernels use them. Functions are always inlined, as in
// ConvertKernels.h.
#pragma once

namespace zel::image {

/// One of the three weighted sums. Each colour's factor is 2^lowShift * high + low, the offset is
/// 2^lowShift * offset, and the sum is shifted by lowShift + highShift.
struct Weights {
  int highB, highG, highR;
  int lowB, lowG, lowR;
  int lowShift, highShift;
  int offset;

  /// The offset's whole units, which can be added after the shift, and the rest, which cannot.
  [[gnu::always_inline]] constexpr int whole() const { return offset >> highShift; }
  [[gnu::always_inline]] constexpr int rounding() const { return offset - (whole() << highShift); }
};

/// The factors and the rounding of a sum whose whole units begin at bit kUnit.
template <const Weights& kW, int kUnit>
struct Scaled {
  static constexpr int kLow = 1 << (kUnit - kW.lowShift - kW.highShift);
  static constexpr int kHigh = kLow << kW.lowShift;
  static constexpr int kB = kW.highB * kHigh + kW.lowB * kLow;
  static constexpr int kG = kW.highG * kHigh + kW.lowG * kLow;
  static constexpr int kR = kW.highR * kHigh + kW.lowR * kLow;
  static constexpr int kRounding = kW.rounding() * kHigh;
  /// Green's factor if the others apply to blue less green and red less green.
  static constexpr int kRest = kB + kG + kR;
};

struct ToYuvExact {
  static constexpr Weights kY{13, 64, 33, -58, 66, -13, 7, 7, 16 << 7};
  static constexpr Weights kU{112, -75, -38, 25, 32, 7, 6, 8, 128 << 8};
  static constexpr Weights kV{-19, -94, 112, 53, -13, 25, 6, 8, 128 << 8};
};
struct ToYuvSimple {
  static constexpr Weights kY{12, 64, 32, 4, 4, 7, 3, 7, 2112};
  static constexpr Weights kU{56, -37, -19, 2, -2, 0, 3, 7, 16448};
  static constexpr Weights kV{-9, -47, 56, -1, -1, 2, 3, 7, 16448};
};

}  // namespace zel::image
