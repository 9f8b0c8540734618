// A media file opened for reading: FFmpeg's demultiplexer on a file descriptor of our own. The
// decoder module and the command both read through it, so that both accept the same files.
//
//   const auto file = media::MediaFile::Open("film.mkv");
//   if (file == nullptr || !file->SelectStream(0)) return;
//   while (file->ReadPacketOf(0, packet) == 0) { ... av_packet_unref(packet); }
//
// It opens regular files only, whatever their names look like, and never follows a file to another
// one: it refuses a playlist, or a movie whose samples are elsewhere. Opening never waits: a fifo
// is refused, too.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "media/Ffmpeg.h"

namespace zel::media {

/// True for a picture that accompanies sound, such as an album's cover, and has no place in time.
inline bool IsCover(const AVStream& stream) {
  return (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
}

/// One thread at a time. Not movable: FFmpeg's input callback holds its address.
class MediaFile {
 public:
  /// Opens a file and finds its streams.
  /// @param path the file's name: any bytes but 0
  /// @param flags AVFMT_FLAG_...
  /// @return null when it is not a regular file, cannot be read, or no demultiplexer knows it
  /// @throws std::bad_alloc
  static std::unique_ptr<MediaFile> Open(const std::string& path, int flags = 0);

  /// Open in steps, for callers that want to know which one fails. Call each step once, and only
  /// after the one before has succeeded.
  explicit MediaFile(std::string path) : path_(std::move(path)) {}
  /// @return 0, or the system's error number: EISDIR for a folder, ENXIO for anything else that is
  ///   not a regular file
  int OpenFile();
  /// Finds the container's format and reads its header.
  /// @param flags AVFMT_FLAG_...
  /// @return 0, or FFmpeg's error; after an error there is no format()
  /// @throws std::bad_alloc
  int OpenFormat(int flags);
  /// Reads and decodes as much as it takes to find the streams' formats. Skips probing of pictures
  /// that together would exceed kMostPixels.
  /// @return 0, or FFmpeg's error
  /// @throws std::bad_alloc
  int FindStreams();

  /// Makes the demultiplexer skip the packets of all streams but `index`, where it can.
  /// @return false when there is no such stream
  bool SelectStream(int index);
  /// Reads the next packet of any stream; the caller unrefs it.
  /// @return 0, or FFmpeg's error: AVERROR_EOF at the end
  int ReadPacket(AVPacket* packet);
  /// Reads the next packet of stream `index`; the caller unrefs it.
  /// @return as ReadPacket
  /// @throws std::bad_alloc
  int ReadPacketOf(int index, AVPacket* packet);

  ~MediaFile();
  MediaFile(const MediaFile&) = delete;
  MediaFile& operator=(const MediaFile&) = delete;

  AVFormatContext* format() const { return format_; }
  AVStream* stream(int index) const { return format_->streams[index]; }
  const std::string& path() const { return path_; }
  /// Size of the file in bytes when it was opened.
  std::int64_t size() const { return size_; }
  /// True when the file has another size now.
  bool HasChanged() const;
  /// Copies the file's bytes from `offset` on without moving the demultiplexer. Past the end of the
  /// file, `buffer` stays as it is.
  void ReadAt(std::uint64_t offset, void* buffer, std::size_t size) const;
  /// The error number of the first read that failed, or 0.
  int readError() const { return readError_; }
  /// True when the format was recognised by the file's content, not only by its name. Set by
  /// OpenFormat, even when that fails.
  bool isRecognised() const { return isRecognised_; }
  /// True when the file names other files. They were not opened.
  bool leadsElsewhere() const { return leadsElsewhere_; }
  /// True when `name` is one of FFmpeg's names for the container.
  bool IsFormat(const char* name) const;

 private:
  static int Read(void* self, std::uint8_t* buffer, int size);
  static std::int64_t Seek(void* self, std::int64_t offset, int whence);
  static int RefuseFurtherFile(AVFormatContext* format, AVIOContext** io, const char* url,
                               int flags, AVDictionary** options);
  void MakeInput();
  const AVInputFormat* Recognise(const std::string& name, int* error);

  std::string path_;
  std::int64_t size_ = 0;
  int descriptor_ = -1;
  int readError_ = 0;
  bool isRecognised_ = false;
  bool leadsElsewhere_ = false;
  AVIOContext* io_ = nullptr;
  AVFormatContext* format_ = nullptr;
};

}  // namespace zel::media
