// The inner loops of the audio room: one table of functions per level of the processor.
#pragma once

#include <cstdint>

namespace zel {
enum class Level;
}

namespace zel::audio {

/// Turns `frames` interleaved frames of one channel count into as many of another. Reads and
/// writes whole frames only; the buffers must not overlap.
using ChannelKernel = void (*)(const short* in, int frames, short* out);

/// What a mix reads: sample i is the sum of inputs[0..count-1][i].
struct MixInputs {
  const short* const* inputs;
  int count;
};

/// Full scale of mixed and interpolated samples, in both directions.
inline constexpr int kFullScale = 32767;

/// All functions give the scalar table's bytes exactly. Sample pointers are aligned to 2 bytes.
struct Kernels {
  /// By channel counts: [in - 1][0, 1, 2 for 1, 2, 6 out]. Null if the counts are equal.
  ChannelKernel channels[8][3];

  /// Computes where output frames first ... first + count - 1 lie, in a call that turns `n` samples
  /// into `t`: behind input frame k[i] (-1 is the history frame) by the fraction f[i] of a frame.
  void (*positions)(int first, int count, int n, int t, std::int32_t* k, double* f);

  /// Interpolates output frame i between input frames k[i] and k[i] + 1, at f[i]. `in` is input
  /// frame 0. k ascends. The kernel may read (and ignore) up to kReadSlack samples behind the last
  /// frame that k names.
  void (*interpolate)(const short* in, const std::int32_t* k, const double* f, int count,
                      int channels, short* out);
  /// The same for one channel, each sample written twice.
  void (*interpolateMonoToStereo)(const short* in, const std::int32_t* k, const double* f,
                                  int count, short* out);

  /// Mixes from sample `i` on while every sum fits within full scale; returns the first sample
  /// that does not, or `end`.
  int (*mixUnity)(const MixInputs& in, int i, int end, short* out);
  /// Mixes from sample `i` on while every product, truncated, fits within full scale; returns the
  /// first sample that does not, or `end`. The first sample's gain is `gain`, each next one's is
  /// `step` higher. All these gains must be exact doubles.
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
