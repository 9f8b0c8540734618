#include "tools/zel/files/DisplayOrder.h"

#include <algorithm>
#include <limits>
#include <new>
#include <utility>

#include "media/Ticks.h"

namespace zel::tool {
namespace {

// H.264 and HEVC let at most 16 frames precede one in decoding that follow it in showing.
constexpr std::size_t kMostFramesAhead = 16;

bool IsField(const AVCodecParserContext& parser) {
  return parser.picture_structure == AV_PICTURE_STRUCTURE_TOP_FIELD ||
         parser.picture_structure == AV_PICTURE_STRUCTURE_BOTTOM_FIELD;
}

}  // namespace

DisplayOrder::Rule DisplayOrder::RuleOf(AVCodecID codec) {
  switch (codec) {
    case AV_CODEC_ID_H264:
    case AV_CODEC_ID_HEVC:
      return Rule::kByNumber;
    case AV_CODEC_ID_MPEG1VIDEO:
    case AV_CODEC_ID_MPEG2VIDEO:
    case AV_CODEC_ID_MPEG4:
    case AV_CODEC_ID_VC1:
      return Rule::kByType;
    default:
      return Rule::kAsDecoded;
  }
}

DisplayOrder::DisplayOrder(const AVFormatContext* format, const AVStream& stream, bool isBlocks)
    : rule_(RuleOf(stream.codecpar->codec_id)),
      clock_(format, stream, isBlocks),
      codec_(media::NotNull(avcodec_alloc_context3(nullptr))),
      unpacked_(media::NotNull(av_packet_alloc())),
      frame_(media::NotNull(av_frame_alloc())),
      window_(kMostFramesAhead) {
  const AVCodecID id = stream.codecpar->codec_id;
  AVBSFContext* unpacker = nullptr;
  const AVBitStreamFilter* filter =
      id == AV_CODEC_ID_MPEG4 ? av_bsf_get_by_name("mpeg4_unpack_bframes") : nullptr;
  const int result =
      filter != nullptr ? av_bsf_alloc(filter, &unpacker) : av_bsf_get_null_filter(&unpacker);
  unpacker_.reset(unpacker);
  if (result < 0 || avcodec_parameters_copy(unpacker->par_in, stream.codecpar) < 0) {
    throw std::bad_alloc();
  }
  unpacker->time_base_in = stream.time_base;
  if (av_bsf_init(unpacker) < 0 ||
      avcodec_parameters_to_context(codec_.get(), stream.codecpar) < 0) {
    throw std::bad_alloc();
  }
  if (rule_ != Rule::kAsDecoded) parser_.reset(av_parser_init(id));
  if (parser_ == nullptr) {
    rule_ = Rule::kAsDecoded;
  } else {
    parser_->flags |= PARSER_FLAG_COMPLETE_FRAMES;
    depth_ = std::clamp<std::int64_t>(stream.codecpar->video_delay, 0, kMostFramesAhead);
  }
}

const AVCodecParameters& DisplayOrder::parameters() const {
  return *unpacker_->par_out;
}

void DisplayOrder::Add(AVPacket* packet) {
  // To the filter, an empty packet is the end.
  if (packet->size == 0 || av_bsf_send_packet(unpacker_.get(), packet) < 0) {
    return AddPicture(packet);
  }
  TakeUnpacked();
}

void DisplayOrder::End() {
  av_bsf_send_packet(unpacker_.get(), nullptr);
  TakeUnpacked();
  if (shown_ == 0) GuessDepth();
  while (!waiting_.empty()) ShowFirst();
  std::int64_t time = 0;
  for (Picture* picture : std::exchange(untimed_, {})) {
    Finish(picture, time);
    time += picture->packet->duration;
  }
}

void DisplayOrder::TakeUnpacked() {
  while (av_bsf_receive_packet(unpacker_.get(), unpacked_.get()) >= 0) AddPicture(unpacked_.get());
}

void DisplayOrder::AddPicture(AVPacket* packet) {
  auto owner = std::make_unique<Picture>();
  Picture* picture = owner.get();
  picture->packet.reset(media::NotNull(av_packet_alloc()));
  av_packet_move_ref(picture->packet.get(), packet);
  picture->place = added_++;
  const AVPictureType type = Parse(picture);
  codec_->has_b_frames = static_cast<int>(depth_);
  clock_.Check(picture->packet.get(), *codec_);
  decodeTimes_.push_back(picture->packet->dts);
  pictures_.push_back(std::move(owner));
  switch (rule_) {
    case Rule::kAsDecoded:
      return Show(picture);
    case Rule::kByType:
      if (type == AV_PICTURE_TYPE_B || type == AV_PICTURE_TYPE_BI) return Show(picture);
      if (!waiting_.empty()) ShowFirst();
      waiting_.push_back(picture);
      return;
    case Rule::kByNumber:
      const auto isLater = [](const Picture* a, const Picture* b) {
        return std::pair(a->group, a->number) < std::pair(b->group, b->number);
      };
      waiting_.insert(std::upper_bound(waiting_.begin(), waiting_.end(), picture, isLater),
                      picture);
      if (waiting_.size() <= window_) return;
      if (shown_ == 0) GuessDepth();
      ShowFirst();
  }
}

AVPictureType DisplayOrder::Parse(Picture* picture) {
  if (parser_ == nullptr) return AV_PICTURE_TYPE_NONE;
  std::uint8_t* data = nullptr;
  int size = 0;
  const AVPacket& packet = *picture->packet;
  const AVRational rate = std::exchange(codec_->framerate, {0, 1});
  av_parser_parse2(parser_.get(), codec_.get(), &data, &size, packet.data, packet.size, packet.pts,
                   packet.dts, packet.pos);
  if (codec_->framerate.num <= 0) {
    codec_->framerate = rate;
  } else if (codec_->codec_id == AV_CODEC_ID_H264) {
    codec_->framerate = av_mul_q(codec_->framerate, {1, 2});  // The parser counts fields.
  }
  picture->isField = IsField(*parser_);
  if (picture->isField) window_ = 2 * kMostFramesAhead;
  // A parser counts the fields of a whole frame as 1, or does not count fields.
  picture->repeatedFields = std::max(parser_->repeat_pict - 1, 0);
  picture->number = parser_->output_picture_number;
  // Numbers start anew. Without a key picture, one that is too low shows it.
  const bool isKey = parser_->key_frame == 1;
  const bool isTooLow = shown_ > 0 && shownGroup_ == group_ && picture->number < shownNumber_;
  if (picture->place > 0 && ((isKey && picture->number <= highest_) || isTooLow)) {
    ++group_;
    highest_ = picture->number;
  }
  highest_ = std::max(highest_, picture->number);
  picture->group = group_;
  return static_cast<AVPictureType>(parser_->pict_type);
}

/// Finds the depth that the first pictures need.
void DisplayOrder::GuessDepth() {
  for (std::size_t i = 0; i < waiting_.size(); ++i) {
    depth_ = std::max(depth_, waiting_[i]->place - static_cast<std::int64_t>(i));
  }
}

void DisplayOrder::ShowFirst() {
  Picture* picture = waiting_.front();
  waiting_.erase(waiting_.begin());
  Show(picture);
}

/// Finds the time of the picture that is shown next.
void DisplayOrder::Show(Picture* picture) {
  depth_ = std::max(depth_, picture->place - shown_);
  AVPacket* packet = picture->packet.get();
  const bool isSecondField = picture->isField && awaitsField_;
  awaitsField_ = picture->isField && !awaitsField_;
  shownGroup_ = picture->group;
  shownNumber_ = picture->number;
  ++shown_;
  const auto depth = static_cast<std::size_t>(depth_);
  frame_->pts = packet->pts;
  frame_->pkt_dts = depth < decodeTimes_.size() ? decodeTimes_[depth] : AV_NOPTS_VALUE;
  decodeTimes_.pop_front();
  frame_->pkt_duration = packet->duration;
  frame_->repeat_pict = picture->repeatedFields;
  if (isSecondField && untimed_.empty()) {
    return Finish(picture, lastTime_ + lastDuration_ / 2);
  }
  codec_->has_b_frames = static_cast<int>(depth_);
  clock_.Stamp(frame_.get(), *codec_);
  packet->duration = lastDuration_ = frame_->pkt_duration;
  if (frame_->pts == AV_NOPTS_VALUE) {
    untimed_.push_back(picture);
    return;
  }
  std::int64_t time = media::Bounded(frame_->pts - clock_.untimedLength());
  if (!untimed_.empty()) {
    for (Picture* earlier : std::exchange(untimed_, {})) {
      Finish(earlier, time);
      time += earlier->packet->duration;
    }
  }
  Finish(picture, frame_->pts);
}

void DisplayOrder::Finish(Picture* picture, std::int64_t time) {
  lastTime_ = time;
  picture->packet->pts = time;
  picture->isTimed = true;
  showTimes_.push_back(time);
}

bool DisplayOrder::Take(AVPacket* packet) {
  if (pictures_.empty() || !pictures_.front()->isTimed) return false;
  const std::unique_ptr<Picture> picture = std::move(pictures_.front());
  pictures_.pop_front();
  av_packet_move_ref(packet, picture->packet.get());
  // The times of showing, in their order, rise as decoding times must.
  const std::int64_t place = taken_++ - depth_;
  for (; dropped_ < place && showTimes_.size() > 1; ++dropped_) showTimes_.pop_front();
  const std::int64_t ahead = std::max<std::int64_t>(-place, 0) * packet->duration;
  packet->dts = std::min(packet->pts, showTimes_.front() - ahead);
  return true;
}

}  // namespace zel::tool
