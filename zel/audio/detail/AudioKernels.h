// The inner loops of the audio room, one table of functions per processor level.
#pragma once

#include <cstdint>

namespace zel {
enum class Level;
}

namespace zel::audio {

/// Turns `frames` interleaved frames of one channel count into as many of another. Reads and
/// writes whole frames only; the buffers must not overlap.
using ChannelKernel = void (*)(const short* in, int frames, short* out);

/// What a gain run of `Kernels::mixGain` and `mixUnity` needs to read: sample i of the mix is the
/// sum of inputs[0..count-1][i].
struct MixInputs {
  const short* const* inputs;
  int count;
};

/// Full scale of mixed and interpolated samples, in both directions.
inline constexpr int kFullScale = 32767;

/// All functions give the scalar table's bytes exactly. Sample pointers are aligned to 2 bytes.
struct Kernels {
  /// Rules by channel counts: [in - 1][0, 1, 2 for 1, 2, 6 out]. Null where there is nothing to do
  /// (equal counts).
  ChannelKernel channels[8][3];

  /// Positions of the output frames first ... first + count - 1 of a call that turns `n` samples
  /// into `t`: the input frame k[i] before each (-1 is the history frame) and the fraction f[i]
  /// from there to the next.
  void (*positions)(int first, int count, int n, int t, std::int32_t* k, double* f);

  /// Output frames between the input frames k[i] and k[i] + 1, at f[i]. `in` is input frame 0.
  /// The positions ascend. Up to kReadSlack samples behind the last frame that k names may be
  /// read (and ignored), so they must be there.
  void (*interpolate)(const short* in, const std::int32_t* k, const double* f, int count,
                      int channels, short* out);
  /// The same for one channel, each sample written twice.
  void (*interpolateMonoToStereo)(const short* in, const std::int32_t* k, const double* f,
                                  int count, short* out);

  /// Mixes from sample `i` on while every sum fits within full scale; returns the first sample
  /// that does not, or `end`.
  int (*mixUnity)(const MixInputs& in, int i, int end, short* out);
  /// Mixes from sample `i` on, the gain of the first sample being `gain` and that of each next one
  /// `step` higher, while every product, truncated, fits within full scale; returns the first
  /// sample that does not, or `end`. All the gains must be exact doubles.
  int (*mixGain)(const MixInputs& in, int i, int end, double gain, double step, short* out);
};

inline constexpr int kReadSlack = 64;

/// The kernels of `level`, which the processor must have.
const Kernels& KernelsFor(Level level);

/// The kernels in use.
const Kernels& ActiveKernels();

/// Index of an output channel count in `Kernels::channels`, -1 if there are no rules for it.
constexpr int ChannelColumn(int outChannels) {
  return outChannels == 1 ? 0 : outChannels == 2 ? 1 : outChannels == 6 ? 2 : -1;
}

}  // namespace zel::audio
