// The picture of sounds under each other.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tools/zel/picture/Envelope.h"
#include "tools/zel/picture/PictureFile.h"

namespace zel::tool {

/// One sound of a chart.
struct Wave {
  std::string name;    ///< UTF-8.
  std::string detail;  ///< Stands beside the name.
  double start = 0;    ///< Seconds from the chart's beginning to the first sample.
  int rate = 1;        ///< Samples per second.
  Envelope envelope;

  double End() const { return start + static_cast<double>(envelope.frames()) / rate; }
};

/// A drawn chart. Every sound has a heading and a lane for each channel, all on one axis of time.
/// In a lane, the range of the samples is light and their root mean square dark.
class WaveChart {
 public:
  static constexpr int kDefaultWidth = 1200;
  static constexpr int kMinWidth = 200;

  /// The least height for `files` sounds of any number of channels. It may be more than a picture
  /// can have.
  static long MinHeight(std::size_t files);
  /// A height that suits `waves`. It may be more than a picture can have.
  static long DefaultHeight(const std::vector<Wave>& waves);

  /// Draws `waves`. Where lanes would become too low, the channels of a sound share one.
  /// @param width at least kMinWidth, in pixels
  /// @param height at least MinHeight(waves.size())
  /// @throws std::bad_alloc
  WaveChart(const std::vector<Wave>& waves, int width, int height);

  PixelView View() const;

 private:
  int width_;
  int height_;
  std::vector<unsigned char> pixels_;
};

}  // namespace zel::tool
