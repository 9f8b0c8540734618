// The pictures of a video file, found by time.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tools/zel/files/PacketSource.h"
#include "tools/zel/picture/Orientation.h"
#include "zel/base/Ref.h"
#include "zel/compositor/MediaStream.h"
#include "zel/mediainfo/MediaInfo.h"
#include "zel/platform/DecoderManager.h"
#include "zel/sample/Sample.h"

namespace zel::tool {

/// Opens a file's first video that is not a cover, and finds pictures in it. Times are seconds from
/// the beginning of the file: its first picture or its first sound, whichever is earlier.
class VideoSource {
 public:
  /// @throws Failure
  explicit VideoSource(const std::string& path);

  /// Finds the picture that is shown at `seconds`, or the first one. Before the first picture, that
  /// is shown.
  /// @throws Failure; at a time after the last picture, it says when that ends
  void Find(std::optional<double> seconds);

  /// The picture that was found, as it is stored: 4:2:0 with 8 bits.
  const MEDIA_FRAME_YUV& Picture() { return picture_.GetMediaFrame()->video.yuv; }
  /// When it begins.
  double Time();
  /// How the pictures are to be turned.
  Orientation HowToTurn() const { return OrientationOf(Stream()); }

 private:
  const AVStream& Stream() const;
  std::int64_t Beginning() const;
  std::string WhyUnusable() const;
  [[noreturn]] void ThrowPastTheEnd(double seconds);
  void Keep(CZelSample& sample);

  std::string path_;
  PacketSource packets_;
  Ref<IMediaDecoderMgr> manager_;
  Ref<IMediaDecoder> decoder_;
  Ref<IMediaStream> stream_;
  Ref<IStreamInfo> info_;
  /// A copy, because the decoder goes on with its own sample.
  CZelSample picture_{AV_STREAM_VIDEO, FRAME_DATA_DECODED};
  double start_ = 0;  ///< When the first picture begins.
};

}  // namespace zel::tool
