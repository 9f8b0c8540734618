// The input file as packets, for the streams that are copied.
#pragma once

#include <string>

#include "media/Ffmpeg.h"
#include "media/MediaFile.h"

namespace zel::tool {

/// An opened media file. Names are plain file names, whatever they look like.
class PacketSource {
 public:
  /// @throws Failure
  explicit PacketSource(const std::string& path);

  const AVFormatContext& context() const { return *file_.format(); }
  const AVStream& stream(int index) const { return *file_.stream(index); }
  int streamCount() const { return static_cast<int>(context().nb_streams); }

  /// The time stamp, in 100-ns units, of where the file begins: with `first`, the first sound, or
  /// with a picture that comes before it.
  std::int64_t BeginningWith(std::int64_t first) const;
  /// Why there is no stream of `type` to be had, for a file whose decoder gave none. Reads on to
  /// find out: what Want chose, and the place in the file, are lost.
  std::string WhyNone(AVMediaType type);

  /// Chooses whether Read yields packets of a stream; at first none does.
  void Want(int index, bool wanted);
  /// Reads the next packet of a wanted stream.
  /// @return false at the file's end. @throws Failure
  bool Read(AVPacket* packet);

 private:
  /// May read up to the end.
  bool HasPackets(int index);

  media::MediaFile file_;
};

/// Why `path` cannot be opened, for a file that a decoder refused.
std::string WhyNotOpened(const std::string& path);

/// Why `path` cannot be used as a source of sound, for a file that a decoder refused.
std::string WhyNoSound(const std::string& path);

}  // namespace zel::tool
