// IntermixAudio over sound that comes in blocks.
#pragma once

#include <vector>

namespace zel::tool {

/// Mixes blocks into what one call of IntermixAudio for all of them would give, byte for byte.
///
/// IntermixAudio starts every call at full gain. Where a block ends with a gain that has not
/// recovered yet, the next would be louder at once: a click. The gain depends on nothing but the
/// last sum that overflowed and the samples since. So the next call gets that sum again, and as
/// many silent samples, before its block; what they become is cut off.
class BlockMixer {
 public:
  /// @param inputs 1 to 500
  /// @param room most samples of a block
  BlockMixer(int inputs, int room);

  /// Where the next block of input `index` goes. What a call of Mix leaves there is undefined.
  short* Input(int index);
  /// Mixes the inputs' blocks of `samples` samples.
  /// @return the mix; valid until the next call.
  const short* Mix(int samples);

 private:
  void Follow(const short* mix, int samples);

  const double step_;                        ///< By how much the gain rises per sample.
  const int longestLead_;                    ///< Samples from an overflow to full gain.
  std::vector<std::vector<short>> buffers_;  ///< Silence for a lead, and the block.
  std::vector<short*> starts_;
  std::vector<short> mix_;
  double gain_ = 1;
  int overflow_ = 0;  ///< The last scaled sum that did not fit; 0: none yet.
  int since_ = 0;     ///< By how many steps the gain has risen after it.
};

}  // namespace zel::tool
