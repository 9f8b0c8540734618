#include "platform/kernaldec/MediaFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>

namespace zel::kernaldec {
namespace {

constexpr int kInputBuffer = 64 * 1024;

// What a demultiplexer calls to open the further files that its file names.
int RefuseFurtherFiles(AVFormatContext* /*format*/, AVIOContext** io, const char* /*url*/,
                       int /*flags*/, AVDictionary** /*options*/) {
  *io = nullptr;
  return AVERROR(EACCES);
}

}  // namespace

std::unique_ptr<MediaFile> MediaFile::Open(const std::string& path) {
  std::unique_ptr<MediaFile> file(new MediaFile);
  file->m_path = path;
  if (!file->OpenDescriptor() || !file->OpenFormat()) return nullptr;
  return file;
}

MediaFile::~MediaFile() {
  avformat_close_input(&m_format);
  if (m_io != nullptr) av_freep(&m_io->buffer);
  avio_context_free(&m_io);
  if (m_descriptor >= 0) close(m_descriptor);
}

bool MediaFile::OpenDescriptor() {
  // A fifo without a writer would stop an open that may wait.
  m_descriptor = open(m_path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (m_descriptor < 0) return false;
  struct stat info {};
  if (fstat(m_descriptor, &info) != 0 || !S_ISREG(info.st_mode)) return false;
  m_size = info.st_size;
  return true;
}

bool MediaFile::OpenFormat() {
  auto* buffer = static_cast<unsigned char*>(av_malloc(kInputBuffer));
  if (buffer == nullptr) throw std::bad_alloc();
  m_io = avio_alloc_context(buffer, kInputBuffer, 0, this, &MediaFile::Read, nullptr,
                            &MediaFile::Seek);
  if (m_io == nullptr) {
    av_free(buffer);
    throw std::bad_alloc();
  }
  m_format = avformat_alloc_context();
  if (m_format == nullptr) throw std::bad_alloc();
  m_format->pb = m_io;
  m_format->io_open = &RefuseFurtherFiles;
  // An empty list would allow everything; no protocol has this name.
  m_format->protocol_whitelist = av_strdup("none");
  // The last part of the name helps to recognise formats that have no signature.
  std::string name = m_path.substr(m_path.rfind('/') + 1);
  // A number pattern would stand for a series of pictures.
  std::replace(name.begin(), name.end(), '%', '_');
  if (avformat_open_input(&m_format, name.c_str(), nullptr, nullptr) < 0) return false;
  return avformat_find_stream_info(m_format, nullptr) >= 0;
}

bool MediaFile::IsFormat(const char* name) const {
  return av_match_name(name, m_format->iformat->name) != 0;
}

void MediaFile::ReadAt(std::uint64_t offset, void* buffer, std::size_t size) const {
  auto* bytes = static_cast<char*>(buffer);
  while (size > 0 && offset < static_cast<std::uint64_t>(m_size)) {
    const ssize_t got = pread(m_descriptor, bytes, size, static_cast<off_t>(offset));
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
    got = read(file->m_descriptor, buffer, static_cast<std::size_t>(size));
  } while (got < 0 && errno == EINTR);
  if (got > 0) return static_cast<int>(got);
  if (got == 0) return AVERROR_EOF;
  if (file->m_readError == 0) file->m_readError = errno;
  return AVERROR(errno);
}

std::int64_t MediaFile::Seek(void* self, std::int64_t offset, int whence) {
  const auto* file = static_cast<MediaFile*>(self);
  if (whence == AVSEEK_SIZE) return file->m_size;
  const off_t reached = lseek(file->m_descriptor, offset, whence & ~AVSEEK_FORCE);
  return reached < 0 ? AVERROR(errno) : reached;
}

}  // namespace zel::kernaldec
