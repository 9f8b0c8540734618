// The input file as packets, for the streams that are copied.
#pragma once

#include <memory>
#include <string>

#include "media/Ffmpeg.h"
#include "media/MediaFile.h"

namespace zel::tool {

/// An opened media file. Names are plain file names, whatever they look like.
class PacketSource {
 public:
  /// @throws Failure
  explicit PacketSource(const std::string& path);

  const std::string& path() const { return file_.path(); }
  const AVFormatContext& context() const { return *file_.format(); }
  const AVStream& stream(int index) const { return *file_.stream(index); }
  int streamCount() const { return static_cast<int>(context().nb_streams); }

  /// The time stamp, in 100-ns units, at which the file begins: `first`, that of its first sound,
  /// or the time stamp of an earlier picture.
  std::int64_t BeginningWith(std::int64_t first) const;
  /// Says why a file's decoder gave no stream of `type`. Reads the file to find out, which changes
  /// the wanted streams and the position.
  std::string WhyNone(AVMediaType type);

  const media::MediaFile& file() const { return file_; }
  /// Checks, before the file is read, that it is as long as its parts claim.
  /// @throws Failure
  void CheckSize() const;

  /// True when the container does not store when each picture is shown: AVI and ASF store times of
  /// decoding, program and transport streams those of whole blocks.
  bool LacksShowTimes() const {
    return IsBlocks() || file_.IsFormat("avi") || file_.IsFormat("asf");
  }
  /// True for containers that store blocks of pictures: program and transport streams.
  bool IsBlocks() const { return file_.IsFormat("mpeg") || file_.IsFormat("mpegts"); }
  /// Makes Read yield the stored times only, without the guesses by which FFmpeg fills gaps. Call
  /// it before the first Read.
  /// @throws Failure
  void ReadAsStored();
  /// Chooses whether Read yields packets of a stream. At first it yields none.
  void Want(int index, bool wanted);
  /// Reads the next packet of a wanted stream.
  /// @return false at the file's end. @throws Failure
  bool Read(AVPacket* packet);

 private:
  bool HasPackets(int index);

  media::MediaFile file_;
  std::unique_ptr<media::MediaFile> stored_;  ///< The file once more, for ReadAsStored.
  media::MediaFile* read_ = &file_;           ///< Where Read reads.
};

/// Checks a file as PacketSource::CheckSize does. What cannot be opened is left to the decoder.
/// @throws Failure
void CheckSize(const std::string& path);

/// Says why a decoder refused to open `path`.
std::string WhyNotOpened(const std::string& path);

/// Says why a decoder found no sound in `path`.
std::string WhyNoSound(const std::string& path);

}  // namespace zel::tool
