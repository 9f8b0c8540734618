#include "tools/zel/picture/VideoSource.h"

#include <algorithm>
#include <limits>

#include "media/Utf8.h"
#include "tools/zel/files/MediaPrograms.h"
#include "tools/zel/files/Modules.h"
#include "tools/zel/picture/PictureFile.h"
#include "tools/zel/text/Delay.h"
#include "tools/zel/text/Failure.h"
#include "zel/platform/Types.h"

namespace zel::tool {
namespace {

double Seconds(std::int64_t ticks) {
  return static_cast<double>(ticks) / kTicksPerSecond;
}

/// The end of the last picture that was looked at.
struct LastPicture {
  double end = 0;       ///< When it ends, or, if that is not known, when it begins.
  bool isKnown = true;  ///< The record of a sample cannot tell more than 214 s of one picture.
};

/// Reads on from `from` seconds, picture by picture, and brings `last` up to date.
void ReadToEnd(IMediaStream* stream, double from, LastPicture* last) {
  for (double next = from; last->isKnown && stream->Seek(next, 0) >= 0;) {
    CZelSample* sample = stream->GetSampleEx();
    if (sample == nullptr) return;
    const std::int64_t begin = sample->GetMediaFrame()->llPTS;
    last->isKnown = sample->GetDuration() < std::numeric_limits<std::int32_t>::max();
    next = Seconds(last->isKnown ? begin + sample->GetDuration() : begin);
    // Times that run backwards would be followed for ever.
    if (last->isKnown && next <= last->end) return;
    last->end = next;
  }
}

/// @param length of the stream as the file says, in seconds. That may be the length of the sound,
///   or of what was cut off.
LastPicture FindLast(IMediaStream* stream, double length) {
  LastPicture last;
  for (double back = 1; last.end == 0; back *= 10) {
    const double from = length > back ? length - back : 0;
    ReadToEnd(stream, from, &last);
    if (from == 0) break;
  }
  return last;
}

}  // namespace

VideoSource::VideoSource(const std::string& path)
    : path_(path), packets_(path), manager_(MakeDecoderManager()) {
  CheckMemory(path, manager_->CreateDecoder(media::ToWide(path).c_str(), 0, nullptr, 11,
                                            decoder_.Receive()));
  if (decoder_) CheckMemory(path, decoder_->GetVideoStream(stream_.Receive()));
  if (!stream_ && media::SawLargePicture()) {
    throw Failure(path, "pictures of more than " + std::to_string(media::kMostPixels) +
                            " pixels are not decoded");
  }
  if (!stream_) throw Failure(path, packets_.WhyNone(AVMEDIA_TYPE_VIDEO));
  stream_->GetStreamInfo(info_.Receive());
  if (!info_) throw Failure(path, "its video has no format");
  start_ = Seconds(info_->GetStartPTS() - Beginning());
}

void VideoSource::Find(std::optional<double> seconds) {
  if (!seconds) {
    stream_->Forward();
  } else if (stream_->Seek(*seconds - start_, 0) < 0) {
    ThrowPastTheEnd(*seconds);
  }
  CZelSample* sample = stream_->GetSampleEx();
  if (sample == nullptr) throw Failure(path_, WhyUnusable());
  Keep(*sample);
}

double VideoSource::Time() {
  return Seconds(picture_.GetMediaFrame()->llPTS) + start_;
}

const AVStream& VideoSource::Stream() const {
  return packets_.stream(static_cast<int>(info_->GetStreamIndex()));
}

/// The time stamp of the beginning of the file.
std::int64_t VideoSource::Beginning() const {
  std::int64_t first = info_->GetStartPTS();
  Ref<IMediaStream> sound;
  Ref<IStreamInfo> info;
  decoder_->GetAudioStream(sound.Receive());
  if (sound) sound->GetStreamInfo(info.Receive());
  if (info) first = std::min<std::int64_t>(first, info->GetStartPTS());
  return packets_.BeginningWith(first);
}

std::string VideoSource::WhyUnusable() const {
  const AVCodecParameters& codec = *Stream().codecpar;
  if (codec.width <= kMaxPictureSide && codec.height <= kMaxPictureSide) {
    return "its pictures cannot be used";
  }
  return "pictures of " + SizeText({codec.width, codec.height}) + " are larger than " +
         SizeText({kMaxPictureSide, kMaxPictureSide});
}

void VideoSource::ThrowPastTheEnd(double seconds) {
  const LastPicture last = FindLast(stream_.get(), info_->GetLength());
  throw Failure(path_, "has no picture at " + ExactClockText(seconds) +
                           (last.isKnown ? ": its last picture ends at "
                                         : ": a last picture of more than 200 s begins at ") +
                           ExactClockText(last.end + start_));
}

void VideoSource::Keep(CZelSample& sample) {
  const MEDIA_FRAME_YUV& yuv = sample.GetMediaFrame()->video.yuv;
  if (picture_.RemallocYUVFrame(static_cast<unsigned long>(yuv.nWidth),
                                static_cast<unsigned long>(yuv.nHeight), YUV_IMAGE_420P) != S_OK ||
      picture_.FrameCopy(sample) != S_OK) {
    throw Failure(path_, "its pictures cannot be copied");
  }
}

}  // namespace zel::tool
