// IntermixAudio over sound that comes in blocks.
#pragma once

#include <vector>

namespace zel::tool {

/// An overflow of the mix, and how far the gain has risen after it.
struct Overflow {
  int scaled = 0;  ///< Magnitude of the scaled sum that did not fit; 0: none.
  int steps = 0;   ///< Samples since, as long as the gain was below 1.
};

/// Finds an overflow with which a call of IntermixAudio can begin, such that after its steps
/// `inputs` samples of -32,768 give the scaled sum `scaled`.
/// @param inputs 4 to 64; fewer have no such sums.
/// @param scaled above `inputs` * 32,768, up to what the highest gain, a step above 1, makes of
///   that.
Overflow OverflowBefore(int inputs, int scaled);

/// Mixes sound block by block. All blocks together are what one call of IntermixAudio would give,
/// byte for byte.
///
/// IntermixAudio starts every call at full gain. If the gain has not recovered at the end of a
/// block, the next block would suddenly be louder: a click. The gain depends only on the magnitude
/// of the last scaled sum that overflowed, and on the number of samples since. So the next call
/// begins with a lead, which is cut off afterwards: inputs that add up to that sum, and as many
/// silent samples.
///
/// The gain may recover to a step above 1. A scaled sum may then be larger than anything that the
/// inputs can add up to, and the lead begins with two overflows: the first brings the gain to where
/// the largest sum of the inputs scales to the second. Every scaled sum has such a lead for up to
/// 64 inputs (the unit test tries them all).
class BlockMixer {
 public:
  /// With more inputs, some gains have no lead.
  static constexpr int kMostInputs = 64;

  /// @param inputs 1 to kMostInputs
  /// @param room most samples of a block
  BlockMixer(int inputs, int room);

  /// Where to write the next block of input `index`. Undefined after a call of Mix.
  short* Input(int index);
  /// Mixes the inputs' blocks of `samples` samples.
  /// @return the mix; valid until the next call.
  const short* Mix(int samples);

 private:
  void SetLead(int at, int sum);
  void Follow(const short* mix, int samples);

  const int full_;                           ///< Largest sum's magnitude: all inputs at -32,768.
  const double step_;                        ///< By how much the gain rises per sample.
  const int longestLead_;                    ///< Samples from two overflows to full gain.
  std::vector<std::vector<short>> buffers_;  ///< Silence for a lead, and the block.
  std::vector<short*> starts_;
  std::vector<short> mix_;
  double gain_ = 1;
  Overflow last_;
  Overflow before_;  ///< What a call must begin with where `last_` is beyond `full_`.
};

}  // namespace zel::tool
