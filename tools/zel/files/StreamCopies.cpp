#include "tools/zel/files/StreamCopies.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "media/Completeness.h"
#include "media/StreamLength.h"
#include "media/Ticks.h"
#include "tools/zel/text/Failure.h"
#include "tools/zel/text/List.h"
#include "tools/zel/text/Text.h"

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
  // Data has codes, of which FFmpeg knows few.
  const bool isNamed = codec.codec_type != AVMEDIA_TYPE_DATA || codec.codec_tag == 0;
  char code[AV_FOURCC_MAX_STRING_SIZE];
  return "#" + std::to_string(index) + " " + (kind != nullptr ? kind : "unknown") + " (" +
         (isNamed ? avcodec_get_name(codec.codec_id)
                  : Printable(av_fourcc_make_string(code, codec.codec_tag))) +
         ")";
}

/// Tells whether a stream is the text of an MP4 file's chapters, which `format` does not hold as a
/// stream.
bool IsChapters(const AVFormatContext& format, const AVCodecParameters& codec) {
  return format.nb_chapters > 0 && codec.codec_type == AVMEDIA_TYPE_DATA &&
         codec.codec_id == AV_CODEC_ID_BIN_DATA && codec.codec_tag == MKTAG('t', 'e', 'x', 't');
}

/// Tells whether a stream's pictures are to be turned or mirrored.
bool IsTurned(const AVStream& stream) {
  constexpr std::array<std::int32_t, 9> kUpright = {1 << 16, 0, 0, 0, 1 << 16, 0, 0, 0, 1 << 30};
  const auto* matrix = av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, nullptr);
  return matrix != nullptr && std::memcmp(matrix, kUpright.data(), sizeof(kUpright)) != 0;
}

/// The number of pictures that are stored, but cut off or out by an edit list.
/// @param inside counts only those behind pictures that are shown
int CutPictures(const AVStream& stream, bool inside) {
  // Behind the first picture shown, some may follow that are shown before it.
  constexpr int kMostBehind = 16;
  auto* source = const_cast<AVStream*>(&stream);
  int cut = 0;
  int shown = 0;
  for (int i = 0; i < avformat_index_get_entries_count(source); ++i) {
    const bool isCut = (avformat_index_get_entry(source, i)->flags & AVINDEX_DISCARD_FRAME) != 0;
    shown += isCut ? 0 : 1;
    cut += isCut && (!inside || shown > kMostBehind) ? 1 : 0;
  }
  return cut;
}

void Move(AVPacket* packet, std::int64_t distance) {
  for (std::int64_t* time : {&packet->pts, &packet->dts}) {
    if (*time != AV_NOPTS_VALUE)
      *time = media::Bounded(media::Bounded(*time) + media::Bounded(distance));
  }
}

/// Gives a packet that is not a picture the times that its container does not store for each.
/// @param end of the packet before; becomes that of this one
void FillIn(AVPacket* packet, const AVStream& stream, long double* end) {
  if (packet->pts == AV_NOPTS_VALUE) packet->pts = packet->dts;
  const bool isStored = packet->pts != AV_NOPTS_VALUE;
  const long double time = isStored ? static_cast<long double>(packet->pts) : *end;
  packet->pts = packet->dts = media::Rounded(time);
  AVCodecParameters* codec = stream.codecpar;
  long double duration = packet->duration;
  if (codec->codec_type == AVMEDIA_TYPE_AUDIO && codec->sample_rate > 0) {
    const int frames = av_get_audio_frame_duration2(codec, packet->size);
    if (frames > 0) {
      duration = static_cast<long double>(frames) / codec->sample_rate / av_q2d(stream.time_base);
    }
  }
  *end = time + duration;
  if (packet->duration <= 0) packet->duration = media::Rounded(duration);
}

}  // namespace

StreamCopies::StreamCopies(PacketSource* source, MediaWriter* writer, const Container& container,
                           const std::string& output)
    : source_(source), writer_(writer), container_(container), output_(output) {}

void StreamCopies::Add(int index) {
  const AVStream& stream = source_->stream(index);
  const AVCodecParameters& codec = *stream.codecpar;
  if (IsChapters(source_->context(), codec)) return;
  // The muxer makes a track of time codes again from the text of the video's stream.
  const bool isTimeCode = codec.codec_tag == MKTAG('t', 'm', 'c', 'd');
  if (isTimeCode && writer_->HasEdits() && !container_.soundOnly && HasTimeCode()) return;
  const std::string what = StreamText(index, codec);
  const bool isPicture = codec.codec_type == AVMEDIA_TYPE_VIDEO && !media::IsCover(stream);
  const bool isCover = media::IsCover(stream);
  const bool isTimed = codec.codec_type != AVMEDIA_TYPE_ATTACHMENT && !isCover;
  const bool wasWhole = std::exchange(isWhole_, isWhole_ && !isTimed);
  if (container_.soundOnly || isCover) return AddToList(&leftOut_, what);
  // No container takes a stream whose format was cut off with the end of the file.
  if (!IsDescribed(codec)) {
    if (isPicture) throw Failure(source_->path(), "nothing is known of its stream " + what);
    return AddToList(&leftOut_, what + " of unknown format");
  }
  if (!writer_->Holds(stream, codec)) {
    if (isPicture) {
      throw Failure(output_, std::string(container_.title) + " holds no video of codec " +
                                 avcodec_get_name(codec.codec_id));
    }
    return AddToList(&leftOut_, what);
  }
  isWhole_ = wasWhole;
  Copy& copy = copies_[index];
  if (isPicture && source_->LacksShowTimes()) {
    copy.order = std::make_unique<DisplayOrder>(&source_->context(), stream, source_->IsBlocks());
    if (!isAsStored_) source_->ReadAsStored();
    isAsStored_ = true;
  }
  copy.index = writer_->AddCopy(stream, copy.order ? copy.order->parameters() : codec);
  AddToList(&copied_, what);
  if (isPicture) NoteLosses(stream, what);
  // An attachment has no packets.
  if (codec.codec_type != AVMEDIA_TYPE_ATTACHMENT) source_->Want(index, true);
}

/// Tells whether a video stream of the source carries the text of a track of time codes.
bool StreamCopies::HasTimeCode() const {
  for (int i = 0; i < source_->streamCount(); ++i) {
    const AVStream& stream = source_->stream(i);
    if (stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO &&
        av_dict_get(stream.metadata, "timecode", nullptr, 0) != nullptr) {
      return true;
    }
  }
  return false;
}

/// Notes what the container cannot say of a video.
void StreamCopies::NoteLosses(const AVStream& stream, const std::string& what) {
  // FFmpeg writes edit lists of one part, and no rotation to Matroska.
  const bool hasEdits = writer_->HasEdits();
  if (!hasEdits && IsTurned(stream)) AddToList(&lost_, "rotation of " + what);
  if (const int cut = CutPictures(stream, hasEdits); cut > 0) {
    AddToList(&lost_, "edit list of " + what + ", so that " + std::to_string(cut) +
                          (cut == 1 ? " more picture is" : " more pictures are") + " shown");
  }
}

void StreamCopies::CopyUntil(std::int64_t until, std::int64_t shift) {
  while (Load()) {
    const int index = packet_->stream_index;
    const AVStream& stream = source_->stream(index);
    const AVRational base = stream.time_base;
    const std::int64_t stamp = packet_->dts != AV_NOPTS_VALUE ? packet_->dts : packet_->pts;
    if (stamp != AV_NOPTS_VALUE && media::ToTicks(stamp, base) > until) return;
    Copy& copy = copies_.at(index);
    if (copy.order) {
      copy.order->Add(packet_.get());
      SendOrdered(&copy, base, shift);
      continue;
    }
    if (isAsStored_) FillIn(packet_.get(), stream, &copy.end);
    Send(&copy, packet_.get(), base, shift);
  }
  for (auto& [index, copy] : copies_) {
    if (!copy.order) continue;
    copy.order->End();
    SendOrdered(&copy, source_->stream(index).time_base, shift);
  }
}

/// Writes the packets whose times are known by now.
void StreamCopies::SendOrdered(Copy* copy, AVRational base, std::int64_t shift) {
  while (copy->order->Take(ordered_.get())) Send(copy, ordered_.get(), base, shift);
}

void StreamCopies::Send(Copy* copy, AVPacket* packet, AVRational base, std::int64_t shift) {
  copy->isCut = (packet->flags & AV_PKT_FLAG_CORRUPT) != 0;
  const std::int64_t time =
      media::Bounded(packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts);
  const std::int64_t end = time + media::Bounded(packet->duration);
  copy->first = copy->isStarted ? std::min(copy->first, time) : time;
  copy->last = copy->isStarted ? std::max(copy->last, end) : end;
  copy->isStarted = true;
  Move(packet, av_rescale_q(shift, media::kTickBase, base));
  writer_->WriteCopy(packet, copy->index, base);
}

void StreamCopies::CheckEnds(std::int64_t soundEnd) const {
  if (copies_.empty()) return;
  const media::MediaFile& file = source_->file();
  const auto check = [&](const std::string& why) {
    if (!why.empty()) throw Failure(source_->path(), why);
  };
  auto end = static_cast<long double>(soundEnd) / kTicksPerSecond;
  for (const auto& [index, copy] : copies_) {
    const AVStream& stream = source_->stream(index);
    const auto unit = static_cast<long double>(av_q2d(stream.time_base));
    end = std::max(end, static_cast<long double>(copy.last) * unit);
    const AVMediaType type = stream.codecpar->codec_type;
    // Subtitles come and go.
    if (type != AVMEDIA_TYPE_VIDEO && type != AVMEDIA_TYPE_AUDIO) continue;
    const std::string what = "stream " + StreamText(index, *stream.codecpar) + ": ";
    const std::int64_t start =
        stream.start_time == AV_NOPTS_VALUE ? copy.first : media::Bounded(stream.start_time);
    const auto length = static_cast<long double>(copy.last - start) * unit;
    const std::string why = media::WhyShort(file, index, copy.isStarted ? length : 0);
    if (!why.empty()) check(what + why);
    if (copy.isCut && !media::MarksShortReads(file)) check(what + "the file is cut off");
  }
  if (isWhole_) check(media::WhyShort(media::FindDeclaredEnd(file), end));
  source_->CheckSize();
}

/// Reads the next packet of a copied stream, unless one is waiting.
/// @return false when there is none
bool StreamCopies::Load() {
  if (copies_.empty() || ended_) return false;
  while (packet_->buf == nullptr) {
    ended_ = !source_->Read(packet_.get());
    if (ended_) return false;
    // A stream that appears on the way has no place in the output.
    if (!copies_.contains(packet_->stream_index)) av_packet_unref(packet_.get());
  }
  return true;
}

}  // namespace zel::tool
