// IntermixAudio over sound that comes in blocks.
#pragma once

#include <vector>

namespace zel::tool {

/// An overflow of the mix, and how far the gain has risen after it.
struct Overflow {
  int scaled = 0;  ///< Magnitude of the scaled sum that did not fit; 0: none.
  int steps = 0;   ///< Samples since, as long as the gain was below 1.
};

/// An overflow that one call of IntermixAudio can begin with, and after whose steps the gain
/// stands where `inputs` samples of -32,768 add up to the scaled sum `scaled`.
/// @param inputs 4 to 64; fewer have no such sums.
/// @param scaled above `inputs` * 32,768, up to what the highest gain, a step above 1, makes of
///   that.
Overflow OverflowBefore(int inputs, int scaled);

/// Mixes blocks into what one call of IntermixAudio for all of them would give, byte for byte.
///
/// IntermixAudio starts every call at full gain. Where a block ends with a gain that has not
/// recovered yet, the next would be louder at once: a click. The gain depends on nothing but the
/// magnitude of the last scaled sum that overflowed and the samples since. So the next call begins
/// with inputs that add up to that, and as many silent samples; what they become is cut off.
///
/// The gain recovers to up to a step above 1, so a scaled sum may be larger than what the inputs
/// can add up to. Then the call begins with two overflows: one that brings the gain to where the
/// largest sum the inputs have becomes that scaled sum, and this one. For up to 64 inputs there is
/// such a pair for every scaled sum (the unit test tries them all).
class BlockMixer {
 public:
  /// Up to here there is a lead to every gain.
  static constexpr int kMostInputs = 64;

  /// @param inputs 1 to kMostInputs
  /// @param room most samples of a block
  BlockMixer(int inputs, int room);

  /// Where the next block of input `index` goes. What a call of Mix leaves there is undefined.
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
