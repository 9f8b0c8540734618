// What of a sound a picture can show, in memory that does not grow with its length.
#pragma once

#include <cstdint>
#include <vector>

namespace zel::tool {

/// The lowest sample, the highest sample and the mean power of every stretch of a sound. At first a
/// stretch is one frame. Whenever there are too many stretches, neighbours are merged.
class Envelope {
 public:
  /// The most stretches that are kept: several for each column of the widest picture.
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
  /// Joins the stretch that contains `from` and the ones that begin in [from, to), in frames.
  /// @param channel counted from 0; -1 for all together
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
