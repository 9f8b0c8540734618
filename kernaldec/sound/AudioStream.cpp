#include "kernaldec/sound/AudioStream.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "kernaldec/file/Describe.h"
#include "media/Ticks.h"
#include "media/Utf8.h"
#include "zel/mediainfo/StreamInfo.h"

namespace zel::kernaldec {
namespace {

constexpr const char* kOutOfMemory = "memory is short";
constexpr const char* kNotConverted = "a frame cannot be converted to 16-bit PCM";

}  // namespace

AudioStream::AudioStream(std::unique_ptr<AudioReader> reader, Program program)
    : reader_(std::move(reader)),
      program_(std::move(program)),
      sample_(MakeComponent<CZelSample>(AV_STREAM_AUDIO, FRAME_DATA_DECODED)) {}

HRESULT AudioStream::GetStreamInfo(IStreamInfo** ppInfo) {
  if (ppInfo == nullptr) return E_POINTER;
  *ppInfo = nullptr;
  return Guarded([&] {
    StreamInfo record =
        DescribeStream(reader_->file().format(), program_, reader_->stream()->index);
    // The container may be wrong about what the decoder outputs.
    record.audioInfo.sampleRate = reader_->firstRate();
    record.audioInfo.channels = channels_ != 0 ? channels_ : reader_->firstChannels();
    record.audioInfo.bitsPerSample = 16;
    record.startPTS = reader_->startPts();
    Ref<CStreamInfo> info = MakeComponent<CStreamInfo>();
    info->SetStreamInfo(&record);
    *ppInfo = info.Detach();
    return S_OK;
  });
}

HRESULT AudioStream::ChangeStream(int index) {
  if (index < 0) return E_INVALIDARG;
  return Guarded([&] {
    const int stream = program_.FindStream(reader_->file().format(), AVMEDIA_TYPE_AUDIO, index);
    if (stream < 0) return E_INVALIDARG;
    std::unique_ptr<media::MediaFile> file = media::MediaFile::Open(reader_->file().path());
    if (file == nullptr) return E_INVALIDARG;
    std::unique_ptr<AudioReader> reader = AudioReader::Open(std::move(file), stream);
    if (reader == nullptr) return E_INVALIDARG;
    reader_ = std::move(reader);
    filled_ = false;
    sought_ = false;
    failure_ = nullptr;
    return S_OK;
  });
}

CZelSample* AudioStream::GetSampleEx() {
  sought_ = false;
  return CurrentSample();
}

CZelSample* AudioStream::GetOriginSampleEx() {
  return CurrentSample();
}

CZelSample* AudioStream::CurrentSample() {
  if (reader_->frame() == nullptr) return nullptr;
  if (!filled_) {
    filled_ = Guarded([&] { return FillSample(); }, false, false);
    if (!filled_ && failure_ == nullptr) failure_ = kNotConverted;
  }
  return filled_ ? sample_.get() : nullptr;
}

bool AudioStream::FillSample() {
  const AVFrame& source = *reader_->frame();
  const int count = reader_->sampleCount();
  const int channels = converter_.ChannelsFor(source);
  const std::int64_t size = std::int64_t{2} * count * channels;
  if (channels <= 0 || size <= 0 || size > std::numeric_limits<std::int32_t>::max() / 2) {
    return false;
  }
  if (sample_->GetSampleSize() < size) {
    // Frames of a stream differ a little in size: make room for the next ones.
    sample_->SetSampleSize(static_cast<unsigned long>(size + size / 2));
  }
  MEDIA_FRAME& frame = *sample_->GetMediaFrame();
  if (!converter_.Convert(source, reader_->firstSample(), count, frame.audio.pData)) return false;
  frame.nStreamType = AV_STREAM_AUDIO;
  frame.nFrameType = FRAME_DATA_DECODED;
  frame.audio.nSampleRate = source.sample_rate;
  frame.audio.nChannels = channels;
  frame.audio.nBitsPerSample = 16;
  frame.audio.nDataSize = static_cast<std::int32_t>(size);
  frame.bKeyFrame = 1;
  frame.llPTS = reader_->timeStamp() + AxisOffset();
  frame.llDTS = frame.llPTS;
  frame.nDuration = static_cast<std::int32_t>(
      std::min<std::int64_t>(av_rescale(count, kTicksPerSecond, source.sample_rate),
                             std::numeric_limits<std::int32_t>::max()));
  sample_->RefreshSampleInfo();
  sample_->SetDuration(frame.nDuration);
  return true;
}

std::int64_t AudioStream::AxisOffset() const {
  return originSet_ ? reader_->startPts() - origin_ : 0;
}

int AudioStream::Forward() {
  // Right after a seek, the sample found is still to be read.
  if (std::exchange(sought_, false)) return 0;
  filled_ = false;
  constexpr int kNoMemory = -2;
  const int result = Guarded([&] { return reader_->Next() ? 0 : -1; }, kNoMemory, kNoMemory);
  if (result == kNoMemory) failure_ = kOutOfMemory;
  return result == 0 ? 0 : -1;
}

double AudioStream::Seek(double seconds, int /*mode*/) {
  if (std::isnan(seconds)) return -1;
  filled_ = false;
  const double offset = static_cast<double>(AxisOffset()) / kTicksPerSecond;
  enum { kFound, kPastEnd, kShortOfMemory };
  const int result = Guarded([&] { return reader_->Seek(seconds - offset) ? kFound : kPastEnd; },
                             kShortOfMemory, kShortOfMemory);
  if (result == kShortOfMemory) failure_ = kOutOfMemory;
  sought_ = result == kFound;
  return sought_ ? static_cast<double>(reader_->time()) + offset : -1;
}

HRESULT AudioStream::SetOutputChannels(int channels) {
  constexpr int kMost = 8;
  if (channels < 0 || channels > kMost) return E_INVALIDARG;
  channels_ = channels;
  converter_.SetChannels(channels);
  filled_ = false;
  return S_OK;
}

HRESULT AudioStream::SetTimeOrigin(long long origin) {
  originSet_ = true;
  origin_ = media::Bounded(origin);
  filled_ = false;
  return S_OK;
}

HRESULT AudioStream::GetSound(SDecodedSound* sound) {
  if (sound == nullptr) return E_POINTER;
  *sound = {reader_->firstSpeakers(), reader_->sourceBits(), reader_->sourceIsFloat() ? 1 : 0};
  if (channels_ != 0 && channels_ != reader_->firstChannels()) {
    AVChannelLayout mixed{};
    av_channel_layout_default(&mixed, channels_);
    sound->speakers = mixed.u.mask;
  }
  return S_OK;
}

HRESULT AudioStream::GetStatus(wchar_t** text) {
  if (text != nullptr) *text = nullptr;
  const std::string& reading = reader_->failure();
  if (reading.empty() && failure_ == nullptr) return S_OK;
  Guarded([&] {
    const std::string_view failure = reading.empty() ? std::string_view(failure_) : reading;
    if (text != nullptr) *text = SysAllocString(media::ToWide(failure).c_str());
    return S_OK;
  });
  return E_FAIL;
}

}  // namespace zel::kernaldec
