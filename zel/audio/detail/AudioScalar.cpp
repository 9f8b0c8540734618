// The reference kernels. All others give the same bytes.
#include "zel/audio/detail/AudioScalar.h"

#include <algorithm>

namespace zel::audio::plain {
namespace {

// Sum of `kCount` neighbouring samples, each divided (toward zero) before it is added.
template <int kDivisor, int kCount>
int Sum(const short* in) {
  int sum = 0;
  for (int i = 0; i < kCount; ++i) sum += in[i] / kDivisor;
  return sum;
}

short Clamp(int value) {
  return static_cast<short>(std::clamp(value, -kFullScale, kFullScale));
}

template <int kIn>
void MixToMono(const short* in, short* out) {
  if constexpr (kIn == 6) {
    out[0] = Clamp(Sum<2, 4>(in) + Sum<4, 2>(in + 4));
  } else {
    out[0] = static_cast<short>(Sum<kIn, kIn>(in));
  }
}

template <int kIn>
void MixToStereo(const short* in, short* out) {
  if constexpr (kIn == 1) {
    out[0] = out[1] = in[0];
  } else if constexpr (kIn == 3) {
    out[0] = in[0];
    out[1] = static_cast<short>(Sum<2, 2>(in + 1));
  } else if constexpr (kIn == 4) {
    out[0] = out[1] = static_cast<short>(Sum<4, 4>(in));
  } else if constexpr (kIn == 6) {
    const int both = Sum<2, 2>(in + 2);
    out[0] = Clamp(in[0] + both + in[4] / 4);
    out[1] = Clamp(in[1] + both + in[5] / 4);
  } else {  // 5, 7, 8: the first half left, the others right.
    constexpr int kLeft = kIn / 2;
    constexpr int kRight = kIn - kLeft;
    out[0] = static_cast<short>(Sum<kLeft, kLeft>(in));
    out[1] = static_cast<short>(Sum<kRight, kRight>(in + kLeft));
  }
}

template <int kIn>
void SpreadToSix(const short* in, short* out) {
  for (int c = 0; c < 6; ++c) out[c] = c < kIn ? in[c] : short{0};
  if constexpr (kIn == 1) out[1] = in[0];
}

template <int kIn, int kOut, void (*kFrame)(const short*, short*)>
void EachFrame(const short* in, int frames, short* out) {
  for (; frames > 0; --frames, in += kIn, out += kOut) kFrame(in, out);
}

}  // namespace

void Positions(int first, int count, int n, int t, std::int32_t* k, double* f) {
  for (int i = 0; i < count; ++i) {
    const double x = (static_cast<double>(first + i + 1) * n) / t - 1;
    const int before = std::max(static_cast<int>(x + 1) - 1, -1);
    k[i] = before;
    f[i] = std::clamp<double>(x, before, before + 1.0) - before;
  }
}

void Interpolate(const short* in, const std::int32_t* k, const double* f, int count, int channels,
                 short* out) {
  for (int i = 0; i < count; ++i) {
    const short* a = in + static_cast<std::ptrdiff_t>(k[i]) * channels;
    const short* b = a + channels;
    for (int c = 0; c < channels; ++c) {
      *out++ = Clamp(a[c] + static_cast<int>((b[c] - a[c]) * f[i]));
    }
  }
}

void InterpolateMonoToStereo(const short* in, const std::int32_t* k, const double* f, int count,
                             short* out) {
  for (int i = 0; i < count; ++i, out += 2) {
    Interpolate(in, k + i, f + i, 1, 1, out);
    out[1] = out[0];
  }
}

int MixSum(const MixInputs& in, int i) {
  std::uint32_t sum = 0;  // Wraps around with more than 65,535 inputs.
  for (int n = 0; n < in.count; ++n) sum += static_cast<std::uint32_t>(in.inputs[n][i]);
  return static_cast<std::int32_t>(sum);
}

int MixUnity(const MixInputs& in, int i, int end, short* out) {
  for (; i < end; ++i) {
    const int sum = MixSum(in, i);
    if (sum > kFullScale || sum < -kFullScale) break;
    out[i] = static_cast<short>(sum);
  }
  return i;
}

int MixGain(const MixInputs& in, int i, int end, double gain, double step, short* out) {
  for (; i < end; ++i, gain += step) {
    const double value = MixSum(in, i) * gain;
    if (value >= kFullScale + 1.0 || value <= -kFullScale - 1.0) break;
    out[i] = static_cast<short>(value);
  }
  return i;
}

#define ZEL_CHANNEL_ROW(in, mono, stereo) \
  { mono, stereo, EachFrame<(in), 6, SpreadToSix<(in)>> }
const Kernels kKernels = {
    {ZEL_CHANNEL_ROW(1, nullptr, (EachFrame<1, 2, MixToStereo<1>>)),
     ZEL_CHANNEL_ROW(2, (EachFrame<2, 1, MixToMono<2>>), nullptr),
     ZEL_CHANNEL_ROW(3, (EachFrame<3, 1, MixToMono<3>>), (EachFrame<3, 2, MixToStereo<3>>)),
     ZEL_CHANNEL_ROW(4, (EachFrame<4, 1, MixToMono<4>>), (EachFrame<4, 2, MixToStereo<4>>)),
     ZEL_CHANNEL_ROW(5, (EachFrame<5, 1, MixToMono<5>>), (EachFrame<5, 2, MixToStereo<5>>)),
     {EachFrame<6, 1, MixToMono<6>>, EachFrame<6, 2, MixToStereo<6>>, nullptr},
     ZEL_CHANNEL_ROW(7, (EachFrame<7, 1, MixToMono<7>>), (EachFrame<7, 2, MixToStereo<7>>)),
     ZEL_CHANNEL_ROW(8, (EachFrame<8, 1, MixToMono<8>>), (EachFrame<8, 2, MixToStereo<8>>))},
    Positions,
    Interpolate,
    InterpolateMonoToStereo,
    MixUnity,
    MixGain,
};
#undef ZEL_CHANNEL_ROW

}  // namespace zel::audio::plain
