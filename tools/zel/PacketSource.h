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

  /// Chooses whether Read yields packets of a stream; at first none does.
  void Want(int index, bool wanted);
  /// Reads the next packet of a wanted stream.
  /// @return false at the file's end. @throws Failure
  bool Read(AVPacket* packet);

 private:
  std::string path_;
  Demuxer demuxer_;
};

/// Why `path` cannot be used as a source of sound, for a file that a decoder refused.
std::string WhyNoSound(const std::string& path);

}  // namespace zel::tool
