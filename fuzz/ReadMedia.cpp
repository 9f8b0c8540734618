#include "fuzz/ReadMedia.h"

#include <cmath>
#include <limits>
#include <numeric>

#include "kernaldec/DecodedAudio.h"
#include "tests/support/Host.h"

namespace zel::fuzz {
namespace {

using test::Obtain;
using test::Require;
using test::Text;

/// Reads every byte, so that a sanitizer sees what is not there.
void Touch(const unsigned char* bytes, std::size_t size) {
  static volatile unsigned sink = 0;
  sink = std::accumulate(bytes, bytes + size, sink);
}

void ReadStream(const Ref<IStreamInfo>& stream) {
  Require(Text(stream, &IStreamInfo::GetName).size() < 64, "a name that fits its field");
  Require(Text(stream, &IStreamInfo::GetDescription).size() < 128, "a description that fits");
  Require(Text(stream, &IStreamInfo::GetLanguageDesc).size() < 64, "a language that fits");
  Require(stream->GetLength() >= 0 && std::isfinite(stream->GetLength()), "a length");
  Touch(stream->GetExtraData(), stream->GetExtraDataLength());
  for (unsigned long i = 0; i < stream->GetExtraDataCount(); ++i) {
    Touch(stream->GetExtraData(i)->data, stream->GetExtraData(i)->size);
  }
  const AudioInfo* audio = stream->GetAudioInfo();
  Require(audio == nullptr || (audio->channels >= 0 && audio->sampleRate >= 0), "a format");
}

/// @return how many streams the file has
int ReadDescription(const Ref<IMediaInfo>& media) {
  Require(Text(media, &IMediaInfo::GetFileName).size() < 512, "a file name that fits its field");
  Require(Text(media, &IMediaInfo::GetDescription).size() < 128, "a description that fits");
  Require(media->GetMediaLength() >= 0 && std::isfinite(media->GetMediaLength()), "a length");
  const auto programs = Obtain<IProgramInfos>(media, &IMediaInfo::GetIPrograms);
  Require(programs && programs->GetCount() > 0, "a program");
  int count = 0;
  for (int p = 0; p < programs->GetCount(); ++p) {
    const auto program = Obtain<IProgramInfo>(programs, &IProgramInfos::GetItem, p);
    Require(program->GetID() >= 1 && program->GetID() <= 255, "a program's id");
    for (const auto list : {test::kVideo, test::kAudio, test::kText}) {
      const auto streams = Obtain<IStreamInfos>(program, list);
      for (int s = 0; streams && s < streams->GetCount(); ++s, ++count) {
        const auto stream = Obtain<IStreamInfo>(streams, &IStreamInfos::GetItem, s);
        Require((stream->GetID() >> 16) == program->GetID(), "a stream's id");
        ReadStream(stream);
      }
    }
  }
  return count;
}

void ReadSound(const MEDIA_FRAME_AUDIO& audio) {
  Require(audio.nBitsPerSample == 16 && audio.nChannels > 0 && audio.nSampleRate > 0, "16-bit PCM");
  Require(audio.nDataSize >= 0 && audio.nDataSize % (2 * audio.nChannels) == 0, "whole samples");
  Require(audio.nDataSize <= audio.nBufferSize, "bytes within their buffer");
  Touch(audio.pData, static_cast<std::size_t>(audio.nDataSize));
}

void ReadPicture(const MEDIA_FRAME_YUV& yuv) {
  Require(yuv.nWidth > 0 && yuv.nHeight > 0, "a size");
  for (int plane = 0; plane < 3; ++plane) {
    const int width = plane == 0 ? yuv.nWidth : (yuv.nWidth + 1) / 2;
    const int height = plane == 0 ? yuv.nHeight : (yuv.nHeight + 1) / 2;
    Require(yuv.nStride[plane] >= width, "rows within their stride");
    for (std::ptrdiff_t y = 0; y < height; ++y) {
      Touch(yuv.pPlane[plane] + y * yuv.nStride[plane], static_cast<std::size_t>(width));
    }
  }
}

/// Reads the stream's beginning, and what follows several places.
/// @return how many frames there were
int ReadFrames(const Ref<IMediaStream>& stream, AV_STREAM_TYPE type, unsigned variety) {
  const auto info = Obtain<IStreamInfo>(stream, &IMediaStream::GetStreamInfo);
  Require(static_cast<bool>(info), "a description of an open stream");
  ReadStream(info);
  int frames = 0;
  const auto pull = [&] {
    for (int i = 0; i < 4; ++i) {
      if (CZelSample* sample = stream->GetSampleEx(); sample != nullptr) {
        ++frames;
        const MEDIA_FRAME* frame = sample->GetMediaFrame();
        Require(frame != nullptr && frame->nStreamType == type, "a frame of its stream's kind");
        type == AV_STREAM_AUDIO ? ReadSound(frame->audio) : ReadPicture(frame->video.yuv);
      }
      if (stream->Forward() != 0) return;
    }
  };
  pull();
  const double length = info->GetLength();
  for (const double place :
       {length * (variety % 101) / 100.0, 0.0, length - 0.01, static_cast<double>(variety % 7),
        -1.0, 1e18, std::numeric_limits<double>::quiet_NaN()}) {
    Require(stream->Seek(place, 1) >= -1, "a place that a seek reached");
    pull();
  }
  return frames;
}

}  // namespace

Reading ReadMedia(const std::string& path, unsigned variety) {
  Reading reading;
  if (const auto media = test::Describe(path)) reading.streams = ReadDescription(media);
  const auto decoder = test::OpenFile(path);
  if (!decoder) return reading;
  if (const auto sound = Obtain<IMediaStream>(decoder, &IMediaDecoder::GetAudioStream)) {
    reading.sounds = ReadFrames(sound, AV_STREAM_AUDIO, variety);
    Ref<IDecodedAudio> control;
    sound->QueryInterface(IID_IDecodedAudio, control.ReceiveVoid());
    wchar_t* reason = nullptr;
    const HRESULT status = control->GetStatus(&reason);
    Require((reason != nullptr) == (status != S_OK), "a reason for every failure");
    SysFreeString(reason);
    control->SetOutputChannels(static_cast<int>(variety % 9));
    if (sound->ChangeStream(static_cast<int>(variety % 3)) == S_OK) {
      reading.sounds += ReadFrames(sound, AV_STREAM_AUDIO, variety / 3);
    }
  }
  if (const auto video = Obtain<IMediaStream>(decoder, &IMediaDecoder::GetVideoStream)) {
    reading.pictures = ReadFrames(video, AV_STREAM_VIDEO, variety);
  }
  return reading;
}

}  // namespace zel::fuzz
