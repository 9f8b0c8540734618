// A media file opened for reading: FFmpeg's demultiplexer on a file descriptor of our own.
//
// Only plain files are opened, whatever their names look like, and a file never leads to another
// one: a playlist, or a movie whose samples are elsewhere, is refused. Opening never waits (a fifo
// is refused, too).
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/kernaldec/Ffmpeg.h"

namespace zel::kernaldec {

/// One thread at a time. Not movable: FFmpeg's input callback holds its address.
class MediaFile {
 public:
  /// @param path the file's name, any bytes but 0.
  /// @return null when it is not a plain file, cannot be read, or no demultiplexer knows it.
  /// @throws std::bad_alloc
  static std::unique_ptr<MediaFile> Open(const std::string& path);
  ~MediaFile();
  MediaFile(const MediaFile&) = delete;
  MediaFile& operator=(const MediaFile&) = delete;

  AVFormatContext* format() const { return m_format; }
  AVStream* stream(int index) const { return m_format->streams[index]; }
  const std::string& path() const { return m_path; }
  /// Bytes in the file when it was opened.
  std::int64_t size() const { return m_size; }
  /// Copies bytes of the file from `offset` on, without moving the demultiplexer; what the file
  /// does not have is left as it is.
  void ReadAt(std::uint64_t offset, void* buffer, std::size_t size) const;
  /// The error number of the first read that failed, or 0.
  int readError() const { return m_readError; }
  /// True when FFmpeg's name for the container is `name`, or has it in its list.
  bool IsFormat(const char* name) const;

 private:
  MediaFile() = default;
  bool OpenDescriptor();
  bool OpenFormat();
  static int Read(void* self, std::uint8_t* buffer, int size);
  static std::int64_t Seek(void* self, std::int64_t offset, int whence);

  std::string m_path;
  std::int64_t m_size = 0;
  int m_descriptor = -1;
  int m_readError = 0;
  AVIOContext* m_io = nullptr;
  AVFormatContext* m_format = nullptr;
};

}  // namespace zel::kernaldec
