// What of a sound a picture can show, in memory that does not grow with its length.
#pragma once

#include <cstdint>
#include <vector>

namespace zel::tool {

/// Lowest and highest sample and the mean power of every stretch of a sound. At first a stretch is
/// one frame; whenever there are too many of them, neighbours are merged.
class Envelope {
 public:
  /// Stretches kept at the most: several for each column of the widest picture.
  static constexpr std::int64_t kStretches = 1 << 16;

  struct Span {
    double low = 0;   ///< -1 to 1, as all of these.
    double high = 0;  ///< Below `low` where there is no sound.
    double rms = 0;
  };

  explicit Envelope(int channels) : channels_(channels) {}

  /// Appends interleaved samples.
  void Add(const short* samples, std::int64_t frames);

  int channels() const { return channels_; }
  /// Frames so far.
  std::int64_t frames() const { return frames_; }
  /// The stretches that begin in [from, to), in frames, and the one that contains `from`. Of one
  /// channel, or of all with -1.
  Span Over(int channel, double from, double to) const;

 private:
  struct Stretch {
    short low;
    short high;
    double squares;  ///< Sum over its samples.
  };

  void Halve();

  int channels_;
  std::int64_t frames_ = 0;
  std::int64_t length_ = 1;         ///< Frames per stretch.
  std::vector<Stretch> stretches_;  ///< By stretch, then by channel.
};

}  // namespace zel::tool
