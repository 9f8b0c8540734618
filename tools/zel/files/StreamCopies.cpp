#include "tools/zel/files/StreamCopies.h"

#include "media/Ticks.h"
#include "tools/zel/text/Failure.h"
#include "tools/zel/text/List.h"

namespace zel::tool {
namespace {

/// Tells whether enough is known of a stream to store it.
bool IsDescribed(const AVCodecParameters& codec) {
  switch (codec.codec_type) {
    case AVMEDIA_TYPE_AUDIO:
      return codec.sample_rate > 0 && codec.ch_layout.nb_channels > 0;
    case AVMEDIA_TYPE_VIDEO:
      return codec.width > 0 && codec.height > 0;
    default:
      return true;
  }
}

/// "#2 audio (aac)".
std::string StreamText(int index, const AVCodecParameters& codec) {
  const char* kind = av_get_media_type_string(codec.codec_type);
  return "#" + std::to_string(index) + " " + (kind != nullptr ? kind : "unknown") + " (" +
         avcodec_get_name(codec.codec_id) + ")";
}

void Move(AVPacket* packet, std::int64_t distance) {
  if (packet->pts != AV_NOPTS_VALUE) packet->pts += distance;
  if (packet->dts != AV_NOPTS_VALUE) packet->dts += distance;
}

}  // namespace

StreamCopies::StreamCopies(PacketSource* source, MediaWriter* writer, const Container& container,
                           const std::string& output)
    : source_(source), writer_(writer), container_(container), output_(output) {}

void StreamCopies::Add(int index) {
  const AVStream& stream = source_->stream(index);
  const AVCodecParameters& codec = *stream.codecpar;
  const std::string what = StreamText(index, codec);
  const bool isPicture = codec.codec_type == AVMEDIA_TYPE_VIDEO && !media::IsCover(stream);
  if (container_.soundOnly || media::IsCover(stream) || !writer_->Holds(stream)) {
    if (isPicture && !container_.soundOnly) {
      throw Failure(output_, std::string(container_.title) + " holds no video of codec " +
                                 avcodec_get_name(codec.codec_id));
    }
    return AddToList(&leftOut_, what);
  }
  // No container takes a stream whose format was cut off with the end of the file.
  if (!IsDescribed(codec)) {
    if (isPicture) throw Failure(source_->path(), "nothing is known of its stream " + what);
    return AddToList(&leftOut_, what + " of unknown format");
  }
  indices_[index] = writer_->AddCopy(stream);
  AddToList(&copied_, what);
  // An attachment has no packets.
  if (codec.codec_type != AVMEDIA_TYPE_ATTACHMENT) source_->Want(index, true);
}

void StreamCopies::CopyUntil(std::int64_t until, std::int64_t shift) {
  while (Load()) {
    const AVRational base = source_->stream(packet_->stream_index).time_base;
    const std::int64_t stamp = packet_->dts != AV_NOPTS_VALUE ? packet_->dts : packet_->pts;
    if (stamp != AV_NOPTS_VALUE && av_rescale_q(stamp, base, media::kTickBase) > until) return;
    Move(packet_.get(), av_rescale_q(shift, media::kTickBase, base));
    writer_->WriteCopy(packet_.get(), indices_.at(packet_->stream_index), base);
  }
}

/// Reads the next packet of a copied stream, unless one is waiting.
/// @return false when there is none
bool StreamCopies::Load() {
  if (indices_.empty() || ended_) return false;
  while (packet_->buf == nullptr) {
    ended_ = !source_->Read(packet_.get());
    if (ended_) return false;
    // A stream that appears on the way has no place in the output.
    if (!indices_.contains(packet_->stream_index)) av_packet_unref(packet_.get());
  }
  return true;
}

}  // namespace zel::tool
