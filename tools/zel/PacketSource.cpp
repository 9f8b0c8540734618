#include "tools/zel/PacketSource.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <string>

#include "tools/zel/Failure.h"

namespace zel::tool {
namespace {

/// Opens the file itself and nothing else: a playlist must not lead to other files or hosts.
int OpenNothingElse(AVFormatContext* context, AVIOContext** io, const char* url, int flags,
                    AVDictionary** options) {
  if (context->pb != nullptr) return AVERROR(EPERM);
  return avio_open2(io, url, flags, nullptr, options);
}

std::string WhyNotOpened(const std::string& path, int result) {
  if (result == AVERROR_EOF) return "the file is cut off";
  if (result != AVERROR_INVALIDDATA) return AvText(result);
  // The index of such a file stands at its end, or nothing can be read of it.
  char head[8] = {};
  std::ifstream(path, std::ios::binary).read(head, sizeof(head));
  if (std::memcmp(head + 4, "ftyp", 4) == 0) return "the file is cut off, or has no index";
  return "no known media format";
}

}  // namespace

PacketSource::PacketSource(const std::string& path) : path_(path) {
  struct stat there = {};
  if (stat(path.c_str(), &there) != 0) throw Failure(path, std::strerror(errno));
  if (S_ISDIR(there.st_mode)) throw Failure(path, std::strerror(EISDIR));
  // A pipe would have to be read twice at once.
  if (!S_ISREG(there.st_mode) && !S_ISBLK(there.st_mode)) throw Failure(path, "not a regular file");

  AVFormatContext* context = NotNull(avformat_alloc_context());
  // Some containers store no presentation times; most that can be written need them.
  context->flags |= AVFMT_FLAG_GENPTS;
  context->io_open = OpenNothingElse;
  if (const int result = avformat_open_input(&context, ("file:" + path).c_str(), nullptr, nullptr);
      result < 0) {
    throw Failure(path, WhyNotOpened(path, result));
  }
  demuxer_.reset(context);
  if (const int result = avformat_find_stream_info(context, nullptr); result < 0) {
    throw Failure(path, AvText(result));
  }
  for (int i = 0; i < streamCount(); ++i) Want(i, false);
}

void PacketSource::Want(int index, bool wanted) {
  demuxer_->streams[index]->discard = wanted ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
}

bool PacketSource::Read(AVPacket* packet) {
  for (;;) {
    const int result = av_read_frame(demuxer_.get(), packet);
    if (result == AVERROR_EOF) return false;
    if (result == AVERROR(EAGAIN)) continue;
    if (result < 0) throw Failure(path_, AvText(result));
    // Not every demuxer skips what nobody wants, and some find new streams on the way.
    const int index = packet->stream_index;
    if (demuxer_->streams[index]->discard != AVDISCARD_ALL) return true;
    av_packet_unref(packet);
  }
}

std::string WhyNoSound(const std::string& path) {
  const PacketSource source(path);
  for (int i = 0; i < source.streamCount(); ++i) {
    const AVCodecParameters& codec = *source.stream(i).codecpar;
    if (codec.codec_type == AVMEDIA_TYPE_AUDIO) {
      return std::string("its sound cannot be decoded (") + avcodec_get_name(codec.codec_id) + ")";
    }
  }
  return "has no sound";
}

}  // namespace zel::tool
