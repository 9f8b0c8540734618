// The factors of RGB to YUV, as the vector kernels use them. As in ConvertKernels.h, functions are
// always inlined.
#pragma once

namespace zel::image {

/// One of the three weighted sums: (2^low_shift * high + low) for each colour, the offset in the
/// same way with a low part of 0, and the shift of the whole, low_shift + high_shift.
struct Weights {
  int high_b, high_g, high_r;
  int low_b, low_g, low_r;
  int low_shift, high_shift;
  int offset;

  /// The offset's whole units, which may be added after the shift, and the rest, which may not.
  [[gnu::always_inline]] constexpr int whole() const { return offset >> high_shift; }
  [[gnu::always_inline]] constexpr int rounding() const { return offset - (whole() << high_shift); }
};

/// The factors of a sum that is scaled so that its whole units begin at bit kUnit, and its
/// rounding.
template <const Weights& kW, int kUnit>
struct Scaled {
  static constexpr int kLow = 1 << (kUnit - kW.low_shift - kW.high_shift);
  static constexpr int kHigh = kLow << kW.low_shift;
  static constexpr int kB = kW.high_b * kHigh + kW.low_b * kLow;
  static constexpr int kG = kW.high_g * kHigh + kW.low_g * kLow;
  static constexpr int kR = kW.high_r * kHigh + kW.low_r * kLow;
  static constexpr int kRounding = kW.rounding() * kHigh;
  /// What is left to green when blue and red are taken less green.
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
