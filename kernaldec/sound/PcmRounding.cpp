#include "kernaldec/sound/PcmRounding.h"

#include <bit>
#include <limits>

namespace zel::kernaldec {
namespace {

// Loops over these are for the compiler to vectorize: no calls, no branches.

std::int16_t Rounded(std::uint8_t sample) {
  return static_cast<std::int16_t>((sample - 128) * 256);
}

std::int16_t Rounded(std::int16_t sample) {
  return sample;
}

template <class Integer>
std::int16_t RoundedInteger(Integer sample) {
  constexpr int kExtra = 8 * sizeof(Integer) - 16;
  const auto value = static_cast<std::int16_t>(sample >> kExtra);
  // The highest bit that is cut off says whether to round up.
  const auto up = static_cast<std::int16_t>(sample >> (kExtra - 1) & (value != INT16_MAX ? 1 : 0));
  return static_cast<std::int16_t>(value + up);
}

std::int16_t Rounded(std::int32_t sample) {
  return RoundedInteger(sample);
}

std::int16_t Rounded(std::int64_t sample) {
  return RoundedInteger(sample);
}

/// Clamps by the bits of the sample: comparing floating point keeps compilers from vectorizing.
/// @param unitsLast a constant so large that adding a smaller number rounds the sum to whole units
template <class Bits, class Real>
std::int16_t RoundedReal(Real sample, Real unitsLast) {
  constexpr Bits kFull = std::bit_cast<Bits>(Real{1});
  constexpr Bits kInfinite = std::bit_cast<Bits>(std::numeric_limits<Real>::infinity());
  constexpr Bits kSign = std::numeric_limits<Bits>::min();
  const Bits bits = std::bit_cast<Bits>(sample);
  Bits size = bits & ~kSign;
  size = size > kInfinite ? 0 : size;  // NaN.
  size = size > kFull ? kFull : size;
  const Real scaled = std::bit_cast<Real>(static_cast<Bits>(size | (bits & kSign))) * 32768;
  const Bits value = std::bit_cast<Bits>(scaled + unitsLast) - std::bit_cast<Bits>(unitsLast);
  return static_cast<std::int16_t>(value - (value > INT16_MAX ? 1 : 0));
}

std::int16_t Rounded(float sample) {
  return RoundedReal<std::int32_t>(sample, 0x1.8p23F);
}

std::int16_t Rounded(double sample) {
  return RoundedReal<std::int64_t>(sample, 0x1.8p52);
}

template <class Sample>
bool Round(const SamplePlanes& from, int count, std::int16_t* __restrict pcm) {
  const auto plane = [&](int i) { return reinterpret_cast<const Sample*>(from.data[i]); };
  const std::ptrdiff_t channels = from.channels;
  if (av_sample_fmt_is_planar(from.format) == 0) {
    const Sample* in = plane(0);
    for (std::ptrdiff_t i = 0; i < count * channels; ++i) pcm[i] = Rounded(in[i]);
  } else if (channels == 2) {
    const Sample* left = plane(0);
    const Sample* right = plane(1);
    for (std::ptrdiff_t i = 0; i < count; ++i) {
      pcm[2 * i] = Rounded(left[i]);
      pcm[2 * i + 1] = Rounded(right[i]);
    }
  } else {
    for (int channel = 0; channel < channels; ++channel) {
      const Sample* in = plane(channel);
      for (std::ptrdiff_t i = 0; i < count; ++i) pcm[i * channels + channel] = Rounded(in[i]);
    }
  }
  return true;
}

}  // namespace

bool RoundToPcm(const SamplePlanes& from, int count, std::int16_t* pcm) {
  switch (av_get_packed_sample_fmt(from.format)) {
    case AV_SAMPLE_FMT_U8:
      return Round<std::uint8_t>(from, count, pcm);
    case AV_SAMPLE_FMT_S16:
      return Round<std::int16_t>(from, count, pcm);
    case AV_SAMPLE_FMT_S32:
      return Round<std::int32_t>(from, count, pcm);
    case AV_SAMPLE_FMT_S64:
      return Round<std::int64_t>(from, count, pcm);
    case AV_SAMPLE_FMT_FLT:
      return Round<float>(from, count, pcm);
    case AV_SAMPLE_FMT_DBL:
      return Round<double>(from, count, pcm);
    default:
      return false;
  }
}

}  // namespace zel::kernaldec
