#include "tools/zel/files/MediaWriter.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <limits>
#include <string_view>

extern "C" {
#include <libavutil/dict.h>
#include <libavutil/intreadwrite.h>
#include <libavutil/mem.h>
}

#include "media/Ticks.h"
#include "tools/zel/files/EditList.h"
#include "tools/zel/text/Failure.h"
#include "tools/zel/text/Language.h"
#include "tools/zel/text/List.h"
#include "tools/zel/text/Text.h"

namespace zel::tool {
namespace {

constexpr int kIoBufferSize = 1 << 18;
constexpr std::int64_t kNoDts = std::numeric_limits<std::int64_t>::min();

int WriteFile(void* file, std::uint8_t* data, int size) {
  const int result = static_cast<PendingFile*>(file)->Write(data, size);
  return result < 0 ? result : size;
}

std::int64_t SeekFile(void* file, std::int64_t offset, int whence) {
  auto* pending = static_cast<PendingFile*>(file);
  return whence == AVSEEK_SIZE ? pending->Size() : pending->Seek(offset, whence & ~AVSEEK_FORCE);
}

/// Copies texts, except those that describe the file itself and not what is in it.
void CopyTexts(AVDictionary** to, const AVDictionary* from) {
  static constexpr const char* kOfTheFile[] = {
      "encoder",  "major_brand",     "minor_version",    "compatible_brands", "BPS",
      "DURATION", "NUMBER_OF_BYTES", "NUMBER_OF_FRAMES", "_STATISTICS"};
  const AVDictionaryEntry* entry = nullptr;
  while ((entry = av_dict_get(from, "", entry, AV_DICT_IGNORE_SUFFIX)) != nullptr) {
    const bool skip = std::any_of(
        std::begin(kOfTheFile), std::end(kOfTheFile),
        [&](const char* key) { return std::strncmp(entry->key, key, std::strlen(key)) == 0; });
    if (!skip && av_dict_set(to, entry->key, entry->value, 0) < 0) throw std::bad_alloc();
  }
}

/// Converts a time that is AV_NOPTS_VALUE or within media::kFarthest, and limits it to that.
std::int64_t Rescaled(std::int64_t time, AVRational from, AVRational to) {
  if (time == AV_NOPTS_VALUE) return time;
  const std::int64_t result = av_rescale_q(media::Bounded(time), from, to);
  // What does not fit 64 bits.
  if (result == INT64_MIN) return time < 0 ? -media::kFarthest : media::kFarthest;
  return media::Bounded(result);
}

/// The codec's own tag if `out` can store it, else 0: the muxer then chooses one.
unsigned UsableTag(const AVOutputFormat& out, const AVCodecParameters& codec) {
  unsigned other = 0;
  const bool same = out.codec_tag == nullptr ||
                    av_codec_get_id(out.codec_tag, codec.codec_tag) == codec.codec_id ||
                    av_codec_get_tag2(out.codec_tag, codec.codec_id, &other) == 0;
  return same ? codec.codec_tag : 0;
}

}  // namespace

MediaWriter::MediaWriter(const std::string& path, const Container& container)
    : path_(path), container_(container) {
  AVFormatContext* muxer = nullptr;
  Check(avformat_alloc_output_context2(&muxer, nullptr, container.muxer, nullptr));
  muxer_.reset(muxer);
  // No random ids and no times of writing: the same input gives the same bytes.
  muxer->flags |= AVFMT_FLAG_BITEXACT;
  // Allows copies of what other programs write, too, such as FLAC in MP4.
  muxer->strict_std_compliance = FF_COMPLIANCE_EXPERIMENTAL;
}

bool MediaWriter::Holds(const AVStream& stream, const AVCodecParameters& codec) const {
  if (codec.codec_type == AVMEDIA_TYPE_DATA) return false;
  if (codec.codec_type == AVMEDIA_TYPE_ATTACHMENT) {
    return std::strcmp(container_.muxer, "matroska") == 0;
  }
  // FFmpeg's lists of codecs are neither complete nor true. Writing the head of a file tells.
  MediaWriter trial(path_, container_);
  trial.AddCopy(stream, codec);
  AVIOContext* memory = nullptr;
  if (avio_open_dyn_buf(&memory) < 0) throw std::bad_alloc();
  trial.muxer_->pb = memory;
  const int result = avformat_write_header(trial.muxer_.get(), nullptr);
  trial.muxer_->pb = nullptr;
  std::uint8_t* head = nullptr;
  avio_close_dyn_buf(memory, &head);
  av_free(head);
  if (result == AVERROR(ENOMEM)) throw std::bad_alloc();
  return result >= 0;
}

bool MediaWriter::HasEdits() const {
  constexpr std::string_view kMuxers[] = {"mp4", "mov", "ipod"};
  return std::find(std::begin(kMuxers), std::end(kMuxers), container_.muxer) != std::end(kMuxers);
}

int MediaWriter::AddCopy(const AVStream& stream, const AVCodecParameters& codec) {
  AVStream* copy = media::NotNull(avformat_new_stream(muxer_.get(), nullptr));
  Check(avcodec_parameters_copy(copy->codecpar, &codec));
  copy->codecpar->codec_tag = UsableTag(*muxer_->oformat, codec);
  if (stream.sample_aspect_ratio.num != 0) {
    copy->codecpar->sample_aspect_ratio = stream.sample_aspect_ratio;
  }
  copy->time_base = stream.time_base;
  copy->avg_frame_rate = stream.avg_frame_rate;
  copy->r_frame_rate = stream.r_frame_rate;
  copy->sample_aspect_ratio = copy->codecpar->sample_aspect_ratio;
  copy->disposition = stream.disposition;
  CopyTexts(&copy->metadata, stream.metadata);
  StoreLanguage(copy, stream.index);
  for (int i = 0; i < stream.nb_side_data; ++i) {
    const AVPacketSideData& data = stream.side_data[i];
    std::memcpy(media::NotNull(av_stream_new_side_data(copy, data.type, data.size)), data.data,
                data.size);
  }
  return copy->index;
}

void MediaWriter::AddSound(SoundFormat format, const AVChannelLayout& layout,
                           const AVStream* like) {
  const bool globalHeader = (muxer_->oformat->flags & AVFMT_GLOBALHEADER) != 0;
  sound_ = std::make_unique<SoundEncoder>(path_, container_, format, layout, globalHeader);
  soundStream_ = media::NotNull(avformat_new_stream(muxer_.get(), nullptr));
  soundStream_->time_base = sound_->timeBase();
  sound_->Describe(soundStream_->codecpar);
  if (like != nullptr) {
    CopyTexts(&soundStream_->metadata, like->metadata);
    StoreLanguage(soundStream_, like->index);
    soundStream_->disposition = like->disposition;
  }
  soundSink_ = [this](AVPacket* packet) {
    packet->stream_index = soundStream_->index;
    av_packet_rescale_ts(packet, sound_->timeBase(), soundStream_->time_base);
    Send(packet);
  };
}

/// Names the stream's language as the muxer knows it.
/// @param source the stream's number in the file that it comes from
void MediaWriter::StoreLanguage(AVStream* stream, int source) {
  constexpr const char* kKey = "language";
  const AVDictionaryEntry* language = av_dict_get(stream->metadata, kKey, nullptr, 0);
  const bool isQuickTime = std::strcmp(container_.muxer, "mov") == 0;
  if (!HasEdits()) return;
  if (language == nullptr || std::strcmp(language->value, "und") == 0) return;
  const std::string code = language->value;
  const std::string stored = StorableLanguage(code, isQuickTime);
  if (stored.empty()) {
    AddToList(&lost_, "language " + Printable(code) + " of #" + std::to_string(source));
  }
  if (av_dict_set(&stream->metadata, kKey, stored.empty() ? nullptr : stored.c_str(), 0) < 0) {
    throw std::bad_alloc();
  }
}

void MediaWriter::AddDescription(const AVFormatContext& source, std::int64_t shift) {
  CopyTexts(&muxer_->metadata, source.metadata);
  if (source.nb_chapters == 0) return;
  // NOLINTNEXTLINE(bugprone-sizeof-expression): the array holds pointers.
  void* const chapters = av_calloc(source.nb_chapters, sizeof(AVChapter*));
  muxer_->chapters = static_cast<AVChapter**>(media::NotNull(chapters));
  for (unsigned i = 0; i < source.nb_chapters; ++i) {
    const AVChapter& from = *source.chapters[i];
    auto* chapter = static_cast<AVChapter*>(media::NotNull(av_mallocz(sizeof(AVChapter))));
    const std::int64_t offset = Rescaled(shift, media::kTickBase, from.time_base);
    chapter->id = from.id;
    chapter->time_base = from.time_base;
    chapter->start = media::Bounded(from.start) + offset;
    // AV_NOPTS_VALUE when it is not known.
    chapter->end = from.end == AV_NOPTS_VALUE ? from.end : media::Bounded(from.end) + offset;
    CopyTexts(&chapter->metadata, from.metadata);
    muxer_->chapters[muxer_->nb_chapters++] = chapter;
  }
}

void MediaWriter::Start(bool overwrite, std::int64_t soundStart) {
  file_ = std::make_unique<PendingFile>(path_, overwrite);
  auto* buffer = static_cast<std::uint8_t*>(media::NotNull(av_malloc(kIoBufferSize)));
  io_.reset(
      avio_alloc_context(buffer, kIoBufferSize, 1, file_.get(), nullptr, WriteFile, SeekFile));
  if (!io_) {
    av_free(buffer);
    throw std::bad_alloc();
  }
  muxer_->pb = io_.get();
  muxer_->flags |= AVFMT_FLAG_CUSTOM_IO;
  // By default, every packet is a write of its own.
  muxer_->flush_packets = 0;

  AVDictionary* options = MuxerOptions();
  const int result = avformat_write_header(muxer_.get(), &options);
  av_dict_free(&options);
  Check(result);
  lastDts_.assign(muxer_->nb_streams, kNoDts);
  priming_.assign(muxer_->nb_streams, 0);
  sound_->Start(soundStart);
}

/// @return owned by the caller
AVDictionary* MediaWriter::MuxerOptions() const {
  AVDictionary* options = nullptr;
  // The sizes in a WAV file of more than 4 GiB do not fit, and an input may be longer than it says.
  // So every file gets a chunk to skip, which becomes the 64-bit sizes if they are needed.
  const bool isWave = std::strcmp(container_.muxer, "wav") == 0;
  int result = isWave ? av_dict_set(&options, "rf64", "auto", 0) : 0;
  // An edit list, which cuts the encoder's delay off, then counts samples instead of milliseconds.
  // Muxers without edit lists ignore the option.
  if (result >= 0) result = av_dict_set_int(&options, "movie_timescale", sound_->outRate(), 0);
  if (result < 0) {
    av_dict_free(&options);
    throw std::bad_alloc();
  }
  return options;
}

void MediaWriter::WriteCopy(AVPacket* packet, int index, AVRational timeBase) {
  const AVRational outBase = muxer_->streams[index]->time_base;
  packet->stream_index = index;
  packet->pos = -1;
  packet->pts = Rescaled(packet->pts, timeBase, outBase);
  packet->dts = Rescaled(packet->dts, timeBase, outBase);
  packet->duration = Rescaled(packet->duration, timeBase, outBase);
  NotePriming(*packet);
  // Decoding times must rise, but two may have become equal when they were rounded.
  std::int64_t& last = lastDts_[static_cast<std::size_t>(index)];
  if (packet->dts != AV_NOPTS_VALUE) {
    const bool equalAllowed = (muxer_->oformat->flags & AVFMT_TS_NONSTRICT) != 0;
    if (last != kNoDts && packet->dts < last + (equalAllowed ? 0 : 1)) {
      const std::int64_t dts = last + (equalAllowed ? 0 : 1);
      if (packet->pts != AV_NOPTS_VALUE) packet->pts = std::max(packet->pts, dts);
      packet->dts = dts;
    }
    last = packet->dts;
  }
  Send(packet);
}

/// Keeps how many samples of a copied stream are not to be heard.
void MediaWriter::NotePriming(const AVPacket& packet) {
  const auto index = static_cast<std::size_t>(packet.stream_index);
  const bool isFirst = lastDts_[index] == kNoDts;
  std::size_t size = 0;
  const std::uint8_t* skip = av_packet_get_side_data(&packet, AV_PKT_DATA_SKIP_SAMPLES, &size);
  if (isFirst && skip != nullptr && size >= 4) priming_[index] = static_cast<int>(AV_RL32(skip));
}

void MediaWriter::WriteSound(const std::uint8_t* pcm, int frames) {
  sound_->Write(pcm, frames, soundSink_);
}

void MediaWriter::Finish() {
  sound_->Finish(soundSink_);
  Check(av_write_trailer(muxer_.get()));
  avio_flush(io_.get());
  Check(io_->error);
  if (file_->error() != 0) Check(AVERROR(file_->error()));
  if (HasEdits()) {
    std::vector<int> rates;
    for (unsigned i = 0; i < muxer_->nb_streams; ++i) {
      rates.push_back(muxer_->streams[i]->codecpar->sample_rate);
    }
    priming_[static_cast<std::size_t>(soundStream_->index)] =
        soundStream_->codecpar->initial_padding;
    Check(CutPriming(file_.get(), priming_, sound_->outRate(), rates));
  }
  file_->Commit();
}

void MediaWriter::Send(AVPacket* packet) {
  // A file of one stream needs no queue, which would copy the bytes.
  Check(muxer_->nb_streams == 1 ? av_write_frame(muxer_.get(), packet)
                                : av_interleaved_write_frame(muxer_.get(), packet));
  av_packet_unref(packet);
}

void MediaWriter::Check(int result) {
  if (result >= 0) return;
  // The system's own error says more than the code that FFmpeg made of it.
  if (file_ && file_->error() != 0) throw Failure(path_, std::strerror(file_->error()));
  throw Failure(path_, media::ErrorText(result));
}

}  // namespace zel::tool
