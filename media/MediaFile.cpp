#include "media/MediaFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

extern "C" {
#include <libavutil/avstring.h>
}

#include <algorithm>
#include <cerrno>
#include <new>

namespace zel::media {
namespace {

constexpr int kInputBuffer = 64 * 1024;

// Demultiplexers that do not ask the callback for what their files name.
constexpr const char* kLists[] = {"concat", "sdp", "vobsub"};

// A demultiplexer may ask to be called again; one that only ever asks is given up.
constexpr int kMaxReadRetries = 1000;

// Takes any text whose name ends in .txt, .nfo and the like for a film of a terminal.
constexpr const char* kTextAsFilm = "tty";

bool Is(const AVInputFormat& format, const char* name) {
  return av_match_name(name, format.name) != 0;
}

}  // namespace

std::unique_ptr<MediaFile> MediaFile::Open(const std::string& path, int flags) {
  auto file = std::make_unique<MediaFile>(path);
  if (file->OpenFile() != 0 || file->OpenFormat(flags) < 0 || file->FindStreams() < 0) {
    return nullptr;
  }
  return file;
}

MediaFile::~MediaFile() {
  avformat_close_input(&format_);
  if (io_ != nullptr) av_freep(&io_->buffer);
  avio_context_free(&io_);
  if (descriptor_ >= 0) close(descriptor_);
}

int MediaFile::OpenFile() {
  // A fifo without a writer would stop an open that may wait.
  descriptor_ = open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  struct stat info {};
  if (descriptor_ < 0 || fstat(descriptor_, &info) != 0) return errno;
  if (S_ISDIR(info.st_mode)) return EISDIR;
  if (!S_ISREG(info.st_mode)) return ENXIO;
  size_ = info.st_size;
  return 0;
}

int MediaFile::OpenFormat(int flags) {
  auto* buffer = static_cast<unsigned char*>(av_malloc(kInputBuffer));
  if (buffer == nullptr) throw std::bad_alloc();
  io_ = avio_alloc_context(buffer, kInputBuffer, 0, this, &MediaFile::Read, nullptr,
                           &MediaFile::Seek);
  if (io_ == nullptr) {
    av_free(buffer);
    throw std::bad_alloc();
  }
  // The last part of the name helps to recognise formats that have no signature.
  std::string name = path_.substr(path_.rfind('/') + 1);
  // A number pattern would stand for a series of pictures.
  std::replace(name.begin(), name.end(), '%', '_');
  const AVInputFormat* input = nullptr;
  const int score = av_probe_input_buffer2(io_, &input, name.c_str(), nullptr, 0, 0);
  if (score < 0) return score;
  if (Is(*input, kTextAsFilm)) return AVERROR_INVALIDDATA;
  recognised_ = score > AVPROBE_SCORE_EXTENSION;

  format_ = avformat_alloc_context();
  if (format_ == nullptr) throw std::bad_alloc();
  format_->flags |= flags;
  format_->opaque = this;
  format_->io_open = &MediaFile::RefuseFurtherFile;
  // For demultiplexers that open a further file by themselves: they hand this on. An empty list
  // would allow everything; no protocol has this name.
  format_->protocol_whitelist = av_strdup("none");
  if (format_->protocol_whitelist == nullptr) throw std::bad_alloc();
  for (const char* list : kLists) leadsElsewhere_ = leadsElsewhere_ || Is(*input, list);
  // Only from here on does FFmpeg know that the input is not its own to close.
  format_->pb = io_;
  const int result = avformat_open_input(&format_, name.c_str(), input, nullptr);
  return std::min(result, 0);
}

int MediaFile::FindStreams() {
  return std::min(avformat_find_stream_info(format_, nullptr), 0);
}

int MediaFile::ReadPacket(AVPacket* packet) {
  int result = AVERROR(EAGAIN);
  for (int i = 0; i < kMaxReadRetries && result == AVERROR(EAGAIN); ++i) {
    result = av_read_frame(format_, packet);
  }
  return result;
}

// What a demultiplexer calls to open the further files that its file names.
int MediaFile::RefuseFurtherFile(AVFormatContext* format, AVIOContext** io, const char* /*url*/,
                                 int /*flags*/, AVDictionary** /*options*/) {
  // A demultiplexer may hand the callback on to a context that it makes for another file.
  if (format->opaque != nullptr) static_cast<MediaFile*>(format->opaque)->leadsElsewhere_ = true;
  *io = nullptr;
  return AVERROR(EACCES);
}

bool MediaFile::IsFormat(const char* name) const {
  return Is(*format_->iformat, name);
}

void MediaFile::ReadAt(std::uint64_t offset, void* buffer, std::size_t size) const {
  auto* bytes = static_cast<char*>(buffer);
  while (size > 0 && offset < static_cast<std::uint64_t>(size_)) {
    const ssize_t got = pread(descriptor_, bytes, size, static_cast<off_t>(offset));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return;
    bytes += got;
    offset += static_cast<std::uint64_t>(got);
    size -= static_cast<std::size_t>(got);
  }
}

int MediaFile::Read(void* self, std::uint8_t* buffer, int size) {
  auto* file = static_cast<MediaFile*>(self);
  ssize_t got = 0;
  do {
    got = read(file->descriptor_, buffer, static_cast<std::size_t>(size));
  } while (got < 0 && errno == EINTR);
  if (got > 0) return static_cast<int>(got);
  if (got == 0) return AVERROR_EOF;
  if (file->readError_ == 0) file->readError_ = errno;
  return AVERROR(errno);
}

std::int64_t MediaFile::Seek(void* self, std::int64_t offset, int whence) {
  const auto* file = static_cast<MediaFile*>(self);
  if (whence == AVSEEK_SIZE) return file->size_;
  const off_t reached = lseek(file->descriptor_, offset, whence & ~AVSEEK_FORCE);
  return reached < 0 ? AVERROR(errno) : reached;
}

}  // namespace zel::media
