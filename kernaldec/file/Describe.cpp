#include "kernaldec/file/Describe.h"

extern "C" {
#include <libavutil/avstring.h>
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <cwchar>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kernaldec/StreamExtras.h"
#include "media/StreamLength.h"
#include "media/Ticks.h"
#include "media/Utf8.h"
#include "zel/sample/MediaFrame.h"

namespace zel::kernaldec {
namespace {

std::uint32_t CodeOfName(std::string_view name) {
  std::uint32_t code = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    const int c = i < name.size() ? std::toupper(static_cast<unsigned char>(name[i])) : ' ';
    code |= static_cast<std::uint32_t>(c) << (8 * i);
  }
  return code;
}

template <std::size_t N>
void CopyText(wchar_t (&field)[N], const char* text) {
  if (text == nullptr) return;
  const std::wstring wide = media::ToWide(text);
  const std::size_t size = std::min(wide.size(), N - 1);
  std::wmemcpy(field, wide.data(), size);
  field[size] = L'\0';
}

const char* Tag(const AVDictionary* tags, const char* key) {
  const AVDictionaryEntry* entry = av_dict_get(tags, key, nullptr, 0);
  return entry != nullptr ? entry->value : nullptr;
}

std::uint32_t ToBitRate(std::int64_t rate) {
  return static_cast<std::uint32_t>(
      std::clamp<std::int64_t>(rate, 0, std::numeric_limits<std::uint32_t>::max()));
}

std::uint32_t BitRate(const AVStream& stream) {
  std::int64_t rate = stream.codecpar->bit_rate;
  if (rate <= 0) {
    rate = media::Rounded(
        static_cast<long double>(av_get_exact_bits_per_sample(stream.codecpar->codec_id)) *
        stream.codecpar->sample_rate * stream.codecpar->ch_layout.nb_channels);
  }
  // Matroska files often have it as a tag.
  if (const auto* tag = media::StatisticTag(stream, "BPS"); rate <= 0 && tag != nullptr) {
    rate = std::strtoll(tag->value, nullptr, 10);
  }
  return ToBitRate(rate);
}

/// Bits per sample in the file; for codecs that have no such number 16, as decoded here.
int BitsPerSample(const AVCodecParameters& codec) {
  if (codec.bits_per_raw_sample > 0) return codec.bits_per_raw_sample;
  const int exact = av_get_exact_bits_per_sample(codec.codec_id);
  return exact > 0 ? exact : 16;
}

VideoFormat SourceFormat(const AVFormatContext* format, const AVStream& stream) {
  const AVCodecParameters& codec = *stream.codecpar;
  VideoFormat video{};
  video.layout = VideoFormat::kLayout;
  video.width = codec.width;
  video.height = codec.height;
  video.isCover = media::IsCover(stream) ? 1 : 0;
  // A cover is a single picture and has no rate.
  if (video.isCover == 0) {
    AVRational rate = stream.avg_frame_rate;
    if (rate.num <= 0 || rate.den <= 0) rate = stream.r_frame_rate;
    if (rate.num > 0 && rate.den > 0) {
      video.frameRateNumerator = rate.num;
      video.frameRateDenominator = rate.den;
    }
  }
  const AVRational aspect = av_guess_sample_aspect_ratio(const_cast<AVFormatContext*>(format),
                                                         const_cast<AVStream*>(&stream), nullptr);
  if (aspect.num > 0 && aspect.den > 0) {
    video.aspectNumerator = aspect.num;
    video.aspectDenominator = aspect.den;
  }
  const AVPixFmtDescriptor* pixel = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(codec.format));
  if (pixel != nullptr && pixel->nb_components > 0) video.bitDepth = pixel->comp[0].depth;
  return video;
}

/// Holds the arrays that a program's record points to.
struct ProgramStreams {
  std::vector<StreamInfo> video;
  std::vector<StreamInfo> audio;
  std::vector<StreamInfo> subPic;

  /// The list for streams of `type`; null for kinds that are not described.
  std::vector<StreamInfo>* ListFor(AVMediaType type) {
    switch (type) {
      case AVMEDIA_TYPE_VIDEO:
        return &video;
      case AVMEDIA_TYPE_AUDIO:
        return &audio;
      case AVMEDIA_TYPE_SUBTITLE:
        return &subPic;
      default:
        return nullptr;
    }
  }
};

/// The id of the stream that carries a program's clock. Without one it is the first video stream,
/// else the first audio stream; 0 without those.
std::uint32_t ReferenceStreamId(const AVFormatContext* format, const Program& program) {
  int reference = program.referenceStream;
  for (const AVMediaType type : {AVMEDIA_TYPE_VIDEO, AVMEDIA_TYPE_AUDIO}) {
    if (reference < 0) reference = program.FindStream(format, type);
  }
  return reference >= 0 ? program.StreamId(reference) : 0;
}

AV_STREAM_TYPE TypeOf(AVMediaType type) {
  switch (type) {
    case AVMEDIA_TYPE_VIDEO:
      return AV_STREAM_VIDEO;
    case AVMEDIA_TYPE_AUDIO:
      return AV_STREAM_AUDIO;
    default:
      return AV_STREAM_NONE;
  }
}

void DescribeCodec(const AVCodecParameters& codec, StreamInfo* info) {
  info->fourCC = FourCC(codec);
  const AVCodecDescriptor* descriptor = avcodec_descriptor_get(codec.codec_id);
  CopyText(info->description, descriptor != nullptr && descriptor->long_name != nullptr
                                  ? descriptor->long_name
                                  : avcodec_get_name(codec.codec_id));
  if (codec.extradata != nullptr && codec.extradata_size > 0) {
    info->extraDataLength = static_cast<std::uint32_t>(codec.extradata_size);
    info->extraData = codec.extradata;
  }
  info->profileValue = codec.profile == FF_PROFILE_UNKNOWN ? 0 : codec.profile;
  info->levelValue = codec.level == FF_LEVEL_UNKNOWN ? 0 : codec.level;
  // The exact count would take decoding. The reorder depth is a lower bound.
  info->maxBFrames = codec.video_delay;
}

/// The format of the sound or of the pictures, as stored and as decoded.
void DescribeFormat(const AVFormatContext* format, const AVStream& stream, StreamInfo* info) {
  const AVCodecParameters& codec = *stream.codecpar;
  if (codec.codec_type == AVMEDIA_TYPE_AUDIO) {
    info->audioInfo.sampleRate = codec.sample_rate;
    info->audioInfo.channels = codec.ch_layout.nb_channels;
    info->audioInfo.bitsPerSample = BitsPerSample(codec);
  } else if (codec.codec_type == AVMEDIA_TYPE_VIDEO) {
    VideoFormat video = SourceFormat(format, stream);
    info->videoSrcInfo = Pack(video);
    video.bitDepth = 8;
    info->videoInfo = Pack(video);
  }
}

ProgramInfo DescribeProgram(const AVFormatContext* format, const Program& program,
                            ProgramStreams* streams) {
  ProgramInfo info{};
  info.number = program.number;
  info.id = program.id;
  std::uint64_t rate = 0;
  double first = std::numeric_limits<double>::infinity();
  double end = 0;
  for (const int index : program.streams) {
    std::vector<StreamInfo>* list = streams->ListFor(format->streams[index]->codecpar->codec_type);
    if (list == nullptr) continue;
    const StreamInfo& stream = list->emplace_back(DescribeStream(format, program, index));
    rate += stream.bitRate;
    if (stream.length <= 0) continue;
    const double start = static_cast<double>(stream.startPTS) / kTicksPerSecond;
    first = std::min(first, start);
    end = std::max(end, start + stream.length);
  }
  info.mediaLength = media::ToMicroseconds(end - first);
  info.bitrate = ToBitRate(static_cast<std::int64_t>(rate));
  info.videoStreamCount = static_cast<std::int32_t>(streams->video.size());
  info.videoStreams = streams->video.data();
  info.audioStreamCount = static_cast<std::int32_t>(streams->audio.size());
  info.audioStreams = streams->audio.data();
  info.subPicStreamCount = static_cast<std::int32_t>(streams->subPic.size());
  info.subPicStreams = streams->subPic.data();
  info.timeStampReferenceStreamID = ReferenceStreamId(format, program);
  return info;
}

bool HasConstantFrameRate(const AVFormatContext* format) {
  for (unsigned i = 0; i < format->nb_streams; ++i) {
    const AVStream& stream = *format->streams[i];
    if (stream.codecpar->codec_type != AVMEDIA_TYPE_VIDEO || stream.avg_frame_rate.num == 0 ||
        stream.r_frame_rate.num == 0) {
      continue;
    }
    if (av_cmp_q(stream.avg_frame_rate, stream.r_frame_rate) != 0) return false;
  }
  return true;
}

}  // namespace

std::uint32_t FourCC(const AVCodecParameters& codec) {
  const std::uint32_t tag = codec.codec_tag;
  bool printable = true;
  for (int i = 0; i < 4; ++i) {
    const std::uint32_t c = tag >> (8 * i) & 0xFF;
    printable = printable && c >= 0x20 && c < 0x7F;
  }
  if (printable) return tag;
  std::string_view name = avcodec_get_name(codec.codec_id);
  if (name.substr(0, 4) == "pcm_") name.remove_prefix(4);
  return CodeOfName(name);
}

StreamInfo DescribeStream(const AVFormatContext* format, const Program& program, int index) {
  const AVStream& stream = *format->streams[index];
  const AVCodecParameters& codec = *stream.codecpar;
  StreamInfo info{};
  info.type = TypeOf(codec.codec_type);
  info.id = program.StreamId(index);
  info.streamIndex = static_cast<std::uint32_t>(index);
  info.state = -1;
  CopyText(info.name, Tag(stream.metadata, "title"));
  CopyText(info.languageDesc, Tag(stream.metadata, "language"));
  info.length = media::StreamLength(format, index);
  info.bitRate = BitRate(stream);
  if (stream.start_time != AV_NOPTS_VALUE) {
    info.startPTS = media::ToTicks(stream.start_time, stream.time_base);
  }
  info.reserved0 = 2;
  info.sourceScanType = 2;
  info.streamPID = static_cast<std::uint32_t>(stream.id);
  info.channelIndex = -1;
  DescribeCodec(codec, &info);
  DescribeFormat(format, stream, &info);
  return info;
}

HRESULT FillMediaInfo(const media::MediaFile& file, CMediaInfo* info) {
  const AVFormatContext* format = file.format();
  const std::vector<Program> programs = ListPrograms(format);
  std::vector<ProgramStreams> streams(programs.size());
  std::vector<ProgramInfo> records(programs.size());
  for (std::size_t i = 0; i < programs.size(); ++i) {
    records[i] = DescribeProgram(format, programs[i], &streams[i]);
  }
  // The file name alone takes two kilobytes: too much for a thread's stack.
  const auto record = std::make_unique<MEDIA_FILE_INFO>();
  const std::string_view names = format->iformat->name;
  record->fourCC = CodeOfName(names.substr(0, names.find(',')));
  CopyText(record->fileName, file.path().c_str());
  CopyText(record->description, format->iformat->long_name);
  if (format->duration != AV_NOPTS_VALUE && format->duration > 0) {
    record->mediaLength = static_cast<double>(format->duration) / AV_TIME_BASE;
  }
  record->bitrate = ToBitRate(format->bit_rate);
  record->programCount = static_cast<std::int32_t>(records.size());
  record->programs = records.data();
  record->frameRateConstant = HasConstantFrameRate(format) ? 1 : 0;
  if (const HRESULT result = info->Fill(record.get()); result != S_OK) return result;
  for (const Program& program : programs) {
    if (program.name.empty()) continue;
    std::vector<unsigned char> name(program.name.begin(), program.name.end());
    for (const int index : program.streams) {
      CStreamInfo* stream = info->GetStreamInfoObject(program.StreamId(index));
      if (stream == nullptr) continue;  // A kind that is not described.
      stream->AddExtraData(kProgramNameBlock, name.size(), name.data());
      break;
    }
  }
  return S_OK;
}

}  // namespace zel::kernaldec
