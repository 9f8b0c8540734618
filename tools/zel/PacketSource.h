// The input file as packets, for the streams that are copied.
#pragma once

#include <string>

#include "tools/zel/Ffmpeg.h"

namespace zel::tool {

/// An opened media file. Names are plain file names, whatever they look like.
class PacketSource {
 public:
  /// @throws Failure
  explicit PacketSource(const std::string& path);

  const AVFormatContext& context() const { return *demuxer_; }
  const AVStream& stream(int index) const { return *demuxer_->streams[index]; }
  int streamCount() const { return static_cast<int>(demuxer_->nb_streams); }

  /// The time stamp, in 100-ns units, of where the file begins: with `first`, the first sound, or
  /// with a picture that comes before it.
  std::int64_t BeginningWith(std::int64_t first) const;
  /// Why there is no stream of `type` to be had, for a file whose decoder gave none.
  std::string WhyNone(AVMediaType type) const;

  /// Chooses whether Read yields packets of a stream; at first none does.
  void Want(int index, bool wanted);
  /// Reads the next packet of a wanted stream.
  /// @return false at the file's end. @throws Failure
  bool Read(AVPacket* packet);

 private:
  std::string path_;
  Demuxer demuxer_;
};

/// Why `path` cannot be opened, for a file that a decoder refused.
std::string WhyNotOpened(const std::string& path);

/// Tells whether a stream of pictures is a cover, which has no place in time.
bool IsCover(const AVStream& stream);

/// Why `path` cannot be used as a source of sound, for a file that a decoder refused.
std::string WhyNoSound(const std::string& path);

}  // namespace zel::tool
