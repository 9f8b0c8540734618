#include "tools/zel/files/PacketSource.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "media/Completeness.h"
#include "media/Ticks.h"
#include "tools/zel/text/Failure.h"

namespace zel::tool {
namespace {

/// Says what FFmpeg's `result` means for a file that the system opened. FFmpeg's demultiplexers
/// report damage by all kinds of codes, also by those of failing disks and short memory.
std::string WhyNotRead(const media::MediaFile& file, int result) {
  if (file.readError() != 0) return std::strerror(file.readError());
  if (file.leadsElsewhere()) return "leads to other files, which are not opened";
  switch (result) {
    case AVERROR_EOF:
      return "the file is cut off";
    case AVERROR(ENOMEM):
      return "the file is damaged, or takes more memory than there is";
    case AVERROR_PATCHWELCOME:
    case AVERROR_DEMUXER_NOT_FOUND:
    case AVERROR_EXTERNAL:
      return media::ErrorText(result);
    default:
      return "the file is cut off or damaged";
  }
}

std::string WhyNoStreams(const media::MediaFile& file, int result) {
  if (file.isRecognised() || file.readError() != 0 || file.leadsElsewhere()) {
    return WhyNotRead(file, result);
  }
  return "the file is cut off, or in no known media format";
}

std::string WhyNoFormat(const media::MediaFile& file, int result) {
  if (result == AVERROR_INVALIDDATA && file.readError() == 0 && !file.leadsElsewhere()) {
    // The index of an MP4 file may be at its end.
    char head[8] = {};
    file.ReadAt(0, head, sizeof(head));
    if (std::memcmp(head + 4, "ftyp", 4) == 0) return "the file is cut off, or has no index";
    if (!file.isRecognised()) return "no known media format";
  }
  return WhyNoStreams(file, result);
}

/// Tells whether the file's head is enough to know its streams: it has one, of sound in a known
/// format. Other files must be read and decoded in part.
bool HeadIsEnough(const AVFormatContext& context) {
  if ((context.ctx_flags & AVFMTCTX_NOHEADER) != 0 || context.nb_streams != 1) return false;
  const AVCodecParameters& codec = *context.streams[0]->codecpar;
  return codec.codec_type == AVMEDIA_TYPE_AUDIO && codec.codec_id != AV_CODEC_ID_NONE &&
         codec.sample_rate > 0 && codec.ch_layout.nb_channels > 0;
}

}  // namespace

PacketSource::PacketSource(const std::string& path) : file_(path) {
  if (const int error = file_.OpenFile(); error != 0) {
    throw Failure(path, error == ENXIO ? "not a regular file" : std::strerror(error));
  }
  if (file_.size() == 0) throw Failure(path, "the file is empty");
  // Some containers store no presentation times, but most outputs need them.
  int result = file_.OpenFormat(AVFMT_FLAG_GENPTS);
  if (result < 0) throw Failure(path, WhyNoFormat(file_, result));
  result = HeadIsEnough(context()) ? 0 : file_.FindStreams();
  if (result < 0) throw Failure(path, WhyNoStreams(file_, result));
  for (int i = 0; i < streamCount(); ++i) Want(i, false);
}

void PacketSource::CheckSize() const {
  if (media::IsCutOff(file_)) throw Failure(path(), "the file is cut off");
}

void PacketSource::Want(int index, bool wanted) {
  read_->stream(index)->discard = wanted ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
}

void PacketSource::ReadAsStored() {
  // What was read to find the streams has been filled already.
  auto stored = media::MediaFile::Open(path(), AVFMT_FLAG_NOFILLIN);
  if (stored == nullptr) throw Failure(path(), "cannot be opened once more");
  if (stored->format()->nb_streams != context().nb_streams) {
    throw Failure(
        path(),
        "the file is damaged, or has changed: its streams differ when it is read once more");
  }
  stored_ = std::move(stored);
  read_ = stored_.get();
  for (int i = 0; i < streamCount(); ++i) Want(i, stream(i).discard != AVDISCARD_ALL);
}

bool PacketSource::Read(AVPacket* packet) {
  for (;;) {
    const int result = read_->ReadPacket(packet);
    if (result == AVERROR_EOF && read_->readError() == 0) return false;
    if (result < 0) throw Failure(path(), WhyNotRead(*read_, result));
    // Not every demultiplexer skips unwanted streams, and some find new streams on the way.
    const int index = packet->stream_index;
    if (read_->stream(index)->discard != AVDISCARD_ALL) return true;
    av_packet_unref(packet);
  }
}

void CheckSize(const std::string& path) {
  media::MediaFile file(path);
  if (file.OpenFile() == 0 && file.OpenFormat(0) >= 0 && media::IsCutOff(file)) {
    throw Failure(path, "the file is cut off");
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
    if (picture.codecpar->codec_type != AVMEDIA_TYPE_VIDEO || media::IsCover(picture) ||
        picture.start_time == AV_NOPTS_VALUE) {
      continue;
    }
    first = std::min<std::int64_t>(first, media::ToTicks(picture.start_time, picture.time_base));
  }
  return first;
}

std::string PacketSource::WhyNone(AVMediaType type) {
  const std::string what = type == AVMEDIA_TYPE_AUDIO ? "sound" : "video";
  int covers = 0;
  for (int i = 0; i < streamCount(); ++i) {
    const AVCodecParameters& codec = *stream(i).codecpar;
    if (codec.codec_type != type) continue;
    if (media::IsCover(stream(i))) {
      ++covers;
    } else if (!HasPackets(i)) {
      return "its " + what + " is empty";
    } else {
      return "its " + what + " cannot be decoded (" + avcodec_get_name(codec.codec_id) + ")" +
             (avcodec_find_decoder(codec.codec_id) == nullptr
                  ? ""
                  : ": it is cut off, damaged or of an unknown kind");
    }
  }
  return "has no " + what +
         (covers == 0   ? ""
          : covers == 1 ? ": its only picture is a cover"
                        : ": its only pictures are covers");
}

/// Reads on to the stream's first packet that is not empty, or to the end of the file.
bool PacketSource::HasPackets(int index) {
  for (int i = 0; i < streamCount(); ++i) Want(i, i == index);
  const media::Packet packet(media::NotNull(av_packet_alloc()));
  try {
    while (Read(packet.get())) {
      const bool found = packet->stream_index == index && packet->size > 0;
      av_packet_unref(packet.get());
      if (found) return true;
    }
  } catch (const Failure&) {
    // Unreadable is not empty.
    return true;
  }
  return false;
}

std::string WhyNoSound(const std::string& path) {
  return PacketSource(path).WhyNone(AVMEDIA_TYPE_AUDIO);
}

}  // namespace zel::tool
