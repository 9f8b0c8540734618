// A media file opened for reading: FFmpeg's demultiplexer on a file descriptor of our own. The
// decoder module and the tool both read through it, so that what one refuses the other does, too.
//
// Only plain files are opened, whatever their names look like, and a file never leads to another
// one: a playlist, or a movie whose samples are elsewhere, is refused. Opening never waits (a fifo
// is refused, too).
#pragma once

extern "C" {
#include <libavformat/avformat.h>
}

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

namespace zel::media {

/// True for a picture that accompanies sound, such as an album's cover, and has no place in time.
inline bool IsCover(const AVStream& stream) {
  return (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
}

/// One thread at a time. Not movable: FFmpeg's input callback holds its address.
class MediaFile {
 public:
  /// Opens a file and finds its streams.
  /// @param path the file's name, any bytes but 0.
  /// @param flags AVFMT_FLAG_...
  /// @return null when it is not a plain file, cannot be read, or no demultiplexer knows it.
  /// @throws std::bad_alloc
  static std::unique_ptr<MediaFile> Open(const std::string& path, int flags = 0);

  /// The same in steps, for those who want to know which one fails. Each needs the one before, and
  /// is for once.
  explicit MediaFile(std::string path) : path_(std::move(path)) {}
  /// @return 0, or the system's error number; EISDIR for a folder, ENXIO for another thing that is
  ///   no plain file.
  int OpenFile();
  /// Finds the container's format and reads its head.
  /// @param flags AVFMT_FLAG_...
  /// @return 0, or FFmpeg's error, after which there is no format().
  /// @throws std::bad_alloc
  int OpenFormat(int flags);
  /// Reads and decodes as much as it takes to tell the streams' formats.
  /// @return 0, or FFmpeg's error.
  int FindStreams();
  /// Reads the next packet of whatever stream; the caller unrefs it.
  /// @return 0, or FFmpeg's error, AVERROR_EOF at the end.
  int ReadPacket(AVPacket* packet);

  ~MediaFile();
  MediaFile(const MediaFile&) = delete;
  MediaFile& operator=(const MediaFile&) = delete;

  AVFormatContext* format() const { return format_; }
  AVStream* stream(int index) const { return format_->streams[index]; }
  const std::string& path() const { return path_; }
  /// Bytes in the file when it was opened.
  std::int64_t size() const { return size_; }
  /// Copies bytes of the file from `offset` on, without moving the demultiplexer; what the file
  /// does not have is left as it is.
  void ReadAt(std::uint64_t offset, void* buffer, std::size_t size) const;
  /// The error number of the first read that failed, or 0.
  int readError() const { return readError_; }
  /// True when the file's beginning, not only its name, speaks for the container's format.
  /// OpenFormat, even if it fails, finds out.
  bool isRecognised() const { return recognised_; }
  /// True when the file names further ones, which were not opened.
  bool leadsElsewhere() const { return leadsElsewhere_; }
  /// True when FFmpeg's name for the container is `name`, or has it in its list.
  bool IsFormat(const char* name) const;

 private:
  static int Read(void* self, std::uint8_t* buffer, int size);
  static std::int64_t Seek(void* self, std::int64_t offset, int whence);
  static int RefuseFurtherFile(AVFormatContext* format, AVIOContext** io, const char* url,
                               int flags, AVDictionary** options);

  std::string path_;
  std::int64_t size_ = 0;
  int descriptor_ = -1;
  int readError_ = 0;
  bool recognised_ = false;
  bool leadsElsewhere_ = false;
  AVIOContext* io_ = nullptr;
  AVFormatContext* format_ = nullptr;
};

}  // namespace zel::media
