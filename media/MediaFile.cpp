#include "media/MediaFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

extern "C" {
#include <libavutil/avstring.h>
#include <libavutil/dict.h>
#include <libavutil/mem.h>
}

#include <algorithm>
#include <cerrno>
#include <new>
#include <vector>

namespace zel::media {
namespace {

constexpr int kInputBuffer = 64 * 1024;

// Demultiplexers that open the files their playlist names, without asking the callback.
constexpr const char* kLists[] = {"concat", "sdp", "vobsub"};

// A demultiplexer may ask to be called again. One that keeps asking is given up.
constexpr int kMaxReadRetries = 1000;

// FFmpeg's `tty` format accepts any text file as a terminal recording.
constexpr const char* kTextAsFilm = "tty";

// Pixels of a picture that is decoded to find its format, in any file: 1920 x 1088, rounded up.
constexpr std::int64_t kLeastProbed = std::int64_t{1} << 21;

/// Options for the decoder of each stream.
struct DecoderOptions {
  explicit DecoderOptions(unsigned streams) : all(streams + 1) {}
  ~DecoderOptions() {
    for (AVDictionary*& each : all) av_dict_free(&each);
  }
  DecoderOptions(const DecoderOptions&) = delete;
  DecoderOptions& operator=(const DecoderOptions&) = delete;

  std::vector<AVDictionary*> all;
};

bool Is(const AVInputFormat& format, const char* name) {
  return av_match_name(name, format.name) != 0;
}

/// The last part of a path, which helps to recognise formats that have no signature.
std::string NameForProbing(const std::string& path) {
  std::string name = path.substr(path.rfind('/') + 1);
  // FFmpeg would take a number pattern for a series of pictures.
  std::replace(name.begin(), name.end(), '%', '_');
  return name;
}

}  // namespace

std::unique_ptr<MediaFile> MediaFile::Open(const std::string& path, int flags) {
  auto file = std::make_unique<MediaFile>(path);
  if (file->OpenFile() != 0) return nullptr;
  int result = file->OpenFormat(flags);
  if (result >= 0) result = file->FindStreams();
  if (result == AVERROR(ENOMEM)) throw std::bad_alloc();
  return result >= 0 ? std::move(file) : nullptr;
}

MediaFile::~MediaFile() {
  avformat_close_input(&format_);
  if (io_ != nullptr) av_freep(&io_->buffer);
  avio_context_free(&io_);
  if (descriptor_ >= 0) close(descriptor_);
}

int MediaFile::OpenFile() {
  // Without O_NONBLOCK, a fifo that nobody writes to would block here.
  descriptor_ = open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  struct stat info {};
  if (descriptor_ < 0 || fstat(descriptor_, &info) != 0) return errno;
  if (S_ISDIR(info.st_mode)) return EISDIR;
  if (!S_ISREG(info.st_mode)) return ENXIO;
  size_ = info.st_size;
  return 0;
}

int MediaFile::OpenFormat(int flags) {
  MakeInput();
  const std::string name = NameForProbing(path_);
  int error = 0;
  const AVInputFormat* input = Recognise(name, &error);
  if (input == nullptr) return error;

  format_ = NotNull(avformat_alloc_context());
  format_->flags |= flags;
  format_->opaque = this;
  format_->io_open = &MediaFile::RefuseFurtherFile;
  // Some demultiplexers open further files by themselves and pass this list on. No protocol has
  // this name; an empty list would allow them all.
  format_->protocol_whitelist = NotNull(av_strdup("none"));
  for (const char* list : kLists) leadsElsewhere_ = leadsElsewhere_ || Is(*input, list);
  // FFmpeg does not close an input that it is given here.
  format_->pb = io_;
  const int result = avformat_open_input(&format_, name.c_str(), input, nullptr);
  return std::min(result, 0);
}

/// Makes FFmpeg's input on our descriptor.
void MediaFile::MakeInput() {
  auto* buffer = static_cast<unsigned char*>(NotNull(av_malloc(kInputBuffer)));
  io_ = avio_alloc_context(buffer, kInputBuffer, 0, this, &MediaFile::Read, nullptr,
                           &MediaFile::Seek);
  if (io_ == nullptr) {
    av_free(buffer);
    throw std::bad_alloc();
  }
}

/// Finds the demultiplexer for the file.
/// @return null, with the reason in `error`, when there is none
const AVInputFormat* MediaFile::Recognise(const std::string& name, int* error) {
  const AVInputFormat* input = nullptr;
  const int score = av_probe_input_buffer2(io_, &input, name.c_str(), nullptr, 0, 0);
  if (score < 0 || Is(*input, kTextAsFilm)) {
    *error = score < 0 ? score : AVERROR_INVALIDDATA;
    return nullptr;
  }
  isRecognised_ = score > AVPROBE_SCORE_EXTENSION;
  return input;
}

int MediaFile::FindStreams() {
  // FFmpeg keeps the pictures that it decodes to find a stream's format. Formats of larger pictures
  // are found later, when the decoder is opened.
  int pictures = 0;
  for (unsigned i = 0; i < format_->nb_streams; ++i) {
    if (stream(static_cast<int>(i))->codecpar->codec_type == AVMEDIA_TYPE_VIDEO) ++pictures;
  }
  const std::int64_t most = std::max(kMostPixels / std::max(pictures, 1), kLeastProbed);
  DecoderOptions options(format_->nb_streams);
  for (AVDictionary*& each : options.all) {
    if (av_dict_set_int(&each, "max_pixels", most, 0) < 0) throw std::bad_alloc();
  }
  return std::min(avformat_find_stream_info(format_, options.all.data()), 0);
}

bool MediaFile::SelectStream(int index) {
  const auto count = static_cast<int>(format_->nb_streams);
  if (index >= count) return false;
  for (int i = 0; i < count; ++i) {
    stream(i)->discard = i == index ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
  }
  return true;
}

int MediaFile::ReadPacket(AVPacket* packet) {
  int result = AVERROR(EAGAIN);
  for (int i = 0; i < kMaxReadRetries && result == AVERROR(EAGAIN); ++i) {
    result = av_read_frame(format_, packet);
  }
  return result;
}

int MediaFile::ReadPacketOf(int index, AVPacket* packet) {
  for (;;) {
    const int result = ReadPacket(packet);
    if (result == AVERROR(ENOMEM)) throw std::bad_alloc();
    if (result < 0 || packet->stream_index == index) return result;
    av_packet_unref(packet);
  }
}

/// Demultiplexers call this to open files that their own file names.
int MediaFile::RefuseFurtherFile(AVFormatContext* format, AVIOContext** io, const char* /*url*/,
                                 int /*flags*/, AVDictionary** /*options*/) {
  // The context that a demultiplexer makes for another file has the callback, but not `opaque`.
  if (format->opaque != nullptr) static_cast<MediaFile*>(format->opaque)->leadsElsewhere_ = true;
  *io = nullptr;
  return AVERROR(EACCES);
}

bool MediaFile::IsFormat(const char* name) const {
  return Is(*format_->iformat, name);
}

bool MediaFile::HasChanged() const {
  struct stat info {};
  return fstat(descriptor_, &info) != 0 || info.st_size != size_;
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
