#include "tools/zel/PacketSource.h"

#include <sys/stat.h>

#include <algorithm>
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

/// FFmpeg's looking for streams ends with these where not one of them could be made out.
std::string WhyNotDescribed(int result) {
  if (result != AVERROR_EOF && result != -1) return AvText(result);
  return "the file is cut off, or in no known media format";
}

/// Tells whether the file's head has told all there is to know of its streams: it is one of sound
/// in a known format. Others are read and decoded in part, to find out.
bool HeadIsEnough(const AVFormatContext& context) {
  if ((context.ctx_flags & AVFMTCTX_NOHEADER) != 0 || context.nb_streams != 1) return false;
  const AVCodecParameters& codec = *context.streams[0]->codecpar;
  return codec.codec_type == AVMEDIA_TYPE_AUDIO && codec.codec_id != AV_CODEC_ID_NONE &&
         codec.sample_rate > 0 && codec.ch_layout.nb_channels > 0;
}

}  // namespace

PacketSource::PacketSource(const std::string& path) : path_(path) {
  struct stat there = {};
  if (stat(path.c_str(), &there) != 0) throw Failure(path, std::strerror(errno));
  if (S_ISDIR(there.st_mode)) throw Failure(path, std::strerror(EISDIR));
  // A pipe would have to be read twice at once.
  if (!S_ISREG(there.st_mode) && !S_ISBLK(there.st_mode)) throw Failure(path, "not a regular file");

  if (S_ISREG(there.st_mode) && there.st_size == 0) throw Failure(path, "the file is empty");

  AVFormatContext* context = NotNull(avformat_alloc_context());
  // Some containers store no presentation times; most that can be written need them.
  context->flags |= AVFMT_FLAG_GENPTS;
  context->io_open = OpenNothingElse;
  if (const int result = avformat_open_input(&context, ("file:" + path).c_str(), nullptr, nullptr);
      result < 0) {
    throw Failure(path, WhyNotOpened(path, result));
  }
  demuxer_.reset(context);
  const int result = HeadIsEnough(*context) ? 0 : avformat_find_stream_info(context, nullptr);
  if (result < 0) throw Failure(path, WhyNotDescribed(result));
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

std::string WhyNotOpened(const std::string& path) {
  try {
    const PacketSource source(path);
    return source.streamCount() == 0 ? "holds no streams" : "cannot be decoded";
  } catch (const Failure& failure) {
    return failure.reason();
  }
}

std::int64_t PacketSource::BeginningWith(std::int64_t first) const {
  for (int i = 0; i < streamCount(); ++i) {
    const AVStream& picture = stream(i);
    if (picture.codecpar->codec_type != AVMEDIA_TYPE_VIDEO || IsCover(picture) ||
        picture.start_time == AV_NOPTS_VALUE) {
      continue;
    }
    first = std::min<std::int64_t>(
        first, av_rescale_q(picture.start_time, picture.time_base, kZelTimeBase));
  }
  return first;
}

std::string PacketSource::WhyNone(AVMediaType type) const {
  const std::string what = type == AVMEDIA_TYPE_AUDIO ? "sound" : "video";
  for (int i = 0; i < streamCount(); ++i) {
    const AVCodecParameters& codec = *stream(i).codecpar;
    if (codec.codec_type == type && !IsCover(stream(i))) {
      return "its " + what + " cannot be decoded (" + avcodec_get_name(codec.codec_id) + ")";
    }
  }
  return "has no " + what;
}

bool IsCover(const AVStream& stream) {
  return (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
}

std::string WhyNoSound(const std::string& path) {
  return PacketSource(path).WhyNone(AVMEDIA_TYPE_AUDIO);
}

}  // namespace zel::tool
