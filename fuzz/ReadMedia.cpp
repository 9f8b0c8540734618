#include "fuzz/ReadMedia.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include "kernaldec/DecodedAudio.h"
#include "media/Utf8.h"
#include "zel/zel.h"

namespace zel::fuzz {
namespace {

void Require(bool kept, const char* promise) {
  if (kept) return;
  std::fprintf(stderr, "broken promise: %s\n", promise);
  std::abort();
}

/// Calls `get(T**)`, which hands out an object or fails.
template <class T, class Get>
Ref<T> Obtain(Get&& get) {
  Ref<T> object;
  const HRESULT result = get(object.Receive());
  Require(static_cast<bool>(object) == (result == S_OK), "an object if, and only if, S_OK");
  return object;
}

// Every byte of it, so that a sanitizer sees what is not there.
unsigned Touch(const unsigned char* bytes, std::size_t size) {
  unsigned sum = 0;
  for (std::size_t i = 0; i < size; ++i) sum += bytes[i];
  return sum;
}
volatile unsigned g_sink = 0;

template <class Object>
void ReadText(Object* object, HRESULT (Object::*getter)(wchar_t**), std::size_t room) {
  wchar_t* text = nullptr;
  Require((object->*getter)(&text) == S_OK && text != nullptr, "a text");
  Require(std::wcslen(text) < room, "a text that fits its field");
  g_sink = g_sink + static_cast<unsigned>(media::ToUtf8(text).size());
  SysFreeString(text);
}

void ReadStream(IStreamInfo* stream) {
  ReadText(stream, &IStreamInfo::GetName, 64);
  ReadText(stream, &IStreamInfo::GetDescription, 128);
  ReadText(stream, &IStreamInfo::GetLanguageDesc, 64);
  Require(stream->GetLength() >= 0 && std::isfinite(stream->GetLength()), "a length");
  Require((stream->GetExtraDataLength() == 0) == (stream->GetExtraData() == nullptr),
          "private data with a length");
  g_sink = g_sink + Touch(stream->GetExtraData(), stream->GetExtraDataLength());
  for (unsigned long i = 0; i < stream->GetExtraDataCount(); ++i) {
    const SStreamExtraData* block = stream->GetExtraData(i);
    g_sink = g_sink + Touch(block->data, block->size);
  }
  if (stream->GetType() == AV_STREAM_AUDIO) {
    Require(stream->GetAudioInfo()->channels >= 0, "a count of channels");
    Require(stream->GetAudioInfo()->sampleRate >= 0, "a sample rate");
  }
}

int ReadDescription(IMediaInfo* media) {
  ReadText(media, &IMediaInfo::GetFileName, 512);
  ReadText(media, &IMediaInfo::GetDescription, 128);
  Require(media->GetMediaLength() >= 0 && std::isfinite(media->GetMediaLength()), "a length");
  int count = 0;
  const auto programs = Obtain<IProgramInfos>([&](auto out) { return media->GetIPrograms(out); });
  Require(programs && programs->GetCount() > 0, "a program");
  for (int p = 0; p < programs->GetCount(); ++p) {
    const auto program = Obtain<IProgramInfo>([&](auto out) { return programs->GetItem(p, out); });
    Require(program->GetID() >= 1 && program->GetID() <= 255, "a program's id");
    for (const auto getter :
         {&IProgramInfo::GetVideoStreamInfos, &IProgramInfo::GetAudioStreamInfos,
          &IProgramInfo::GetSubPicStreamInfos}) {
      const auto streams =
          Obtain<IStreamInfos>([&](auto out) { return (program.get()->*getter)(out); });
      for (int s = 0; streams && s < streams->GetCount(); ++s) {
        const auto stream = Obtain<IStreamInfo>([&](auto out) { return streams->GetItem(s, out); });
        Require((stream->GetID() >> 16) == program->GetID(), "a stream's id");
        ReadStream(stream.get());
        ++count;
      }
    }
  }
  return count;
}

/// Checks and reads the frame at which a stream stands.
/// @return false when there is none.
bool ReadFrame(IMediaStream* stream, AV_STREAM_TYPE type) {
  CZelSample* sample = stream->GetSampleEx();
  if (sample == nullptr) return false;
  const MEDIA_FRAME* frame = sample->GetMediaFrame();
  Require(frame != nullptr && frame->nStreamType == type, "a frame of its stream's kind");
  if (type == AV_STREAM_AUDIO) {
    const MEDIA_FRAME_AUDIO& audio = frame->audio;
    Require(audio.nBitsPerSample == 16 && audio.nChannels > 0 && audio.nSampleRate > 0,
            "16-bit PCM");
    Require(audio.nDataSize >= 0 && audio.nDataSize % (2 * audio.nChannels) == 0, "whole samples");
    Require(audio.nDataSize <= audio.nBufferSize, "bytes within their buffer");
    g_sink = g_sink + Touch(audio.pData, static_cast<std::size_t>(audio.nDataSize));
    return true;
  }
  const auto& yuv = frame->video.yuv;
  Require(yuv.nWidth > 0 && yuv.nHeight > 0, "a size");
  for (int plane = 0; plane < 3; ++plane) {
    const int width = plane == 0 ? yuv.nWidth : (yuv.nWidth + 1) / 2;
    const int height = plane == 0 ? yuv.nHeight : (yuv.nHeight + 1) / 2;
    Require(yuv.nStride[plane] >= width, "rows within their stride");
    for (int y = 0; y < height; ++y) {
      g_sink =
          g_sink + Touch(yuv.pPlane[plane] + static_cast<std::ptrdiff_t>(y) * yuv.nStride[plane],
                         static_cast<std::size_t>(width));
    }
  }
  return true;
}

int ReadFrames(IMediaStream* stream, AV_STREAM_TYPE type, unsigned variety) {
  const auto info = Obtain<IStreamInfo>([&](auto out) { return stream->GetStreamInfo(out); });
  Require(static_cast<bool>(info), "a description of an open stream");
  ReadStream(info.get());
  int frames = 0;
  const auto pull = [&](int most) {
    for (int i = 0; i < most && stream->Forward() == 0; ++i) {
      if (ReadFrame(stream, type)) ++frames;
    }
  };
  pull(6);
  const double length = info->GetLength();
  const double places[] = {length * (variety % 101) / 100.0,        0,  length - 0.01,
                           static_cast<double>(variety % 7),        -1, 1e18,
                           std::numeric_limits<double>::quiet_NaN()};
  for (const double place : places) {
    const double reached = stream->Seek(place, 1);
    Require(reached >= -1, "a place that a seek reached");
    if (ReadFrame(stream, type)) ++frames;
    pull(2);
  }
  return frames;
}

}  // namespace

Reading ReadMedia(IMediaDecoderMgr* manager, const std::string& path, unsigned variety) {
  Reading reading;
  const std::wstring name = media::ToWide(path);
  if (const auto media = Obtain<IMediaInfo>(
          [&](auto out) { return manager->OpenMediaInfo(name.c_str(), 11, out); })) {
    reading.streams = ReadDescription(media.get());
  }
  const auto decoder = Obtain<IMediaDecoder>(
      [&](auto out) { return manager->CreateDecoder(name.c_str(), 0, nullptr, 11, out); });
  if (!decoder) return reading;
  if (const auto sound =
          Obtain<IMediaStream>([&](auto out) { return decoder->GetAudioStream(out); })) {
    reading.sounds = ReadFrames(sound.get(), AV_STREAM_AUDIO, variety);
    const auto control = Obtain<IDecodedAudio>([&](auto out) {
      return sound->QueryInterface(IID_IDecodedAudio, reinterpret_cast<void**>(out));
    });
    wchar_t* status = nullptr;
    const HRESULT result = control->GetStatus(&status);
    Require((status != nullptr) == (result != S_OK), "a reason for every failure");
    SysFreeString(status);
    control->SetOutputChannels(static_cast<int>(variety % 9));
    if (sound->ChangeStream(static_cast<int>(variety % 3)) == S_OK) {
      reading.sounds += ReadFrames(sound.get(), AV_STREAM_AUDIO, variety / 3);
    }
  }
  if (const auto video =
          Obtain<IMediaStream>([&](auto out) { return decoder->GetVideoStream(out); })) {
    reading.pictures = ReadFrames(video.get(), AV_STREAM_VIDEO, variety);
  }
  return reading;
}

}  // namespace zel::fuzz
