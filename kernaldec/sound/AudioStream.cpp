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
    : m_reader(std::move(reader)),
      m_program(std::move(program)),
      m_sample(MakeComponent<CZelSample>(AV_STREAM_AUDIO, FRAME_DATA_DECODED)) {}

HRESULT AudioStream::GetStreamInfo(IStreamInfo** ppInfo) {
  if (ppInfo == nullptr) return E_POINTER;
  *ppInfo = nullptr;
  return Guarded([&] {
    StreamInfo record =
        DescribeStream(m_reader->file().format(), m_program, m_reader->stream()->index);
    // The decoder knows better than the container what it yields.
    record.audioInfo.sampleRate = m_reader->firstRate();
    record.audioInfo.channels = m_channels != 0 ? m_channels : m_reader->firstChannels();
    record.audioInfo.bitsPerSample = 16;
    record.startPTS = m_reader->startPts();
    const auto info = MakeComponent<CStreamInfo>();
    info->SetStreamInfo(&record);
    return scombase::GetInterface(static_cast<IStreamInfo*>(info.get()),
                                  reinterpret_cast<void**>(ppInfo));
  });
}

HRESULT AudioStream::ChangeStream(int index) {
  if (index < 0) return E_INVALIDARG;
  return Guarded([&] {
    const int stream = m_program.FindStream(m_reader->file().format(), AVMEDIA_TYPE_AUDIO, index);
    if (stream < 0) return E_INVALIDARG;
    std::unique_ptr<media::MediaFile> file = media::MediaFile::Open(m_reader->file().path());
    if (file == nullptr) return E_INVALIDARG;
    std::unique_ptr<AudioReader> reader = AudioReader::Open(std::move(file), stream);
    if (reader == nullptr) return E_INVALIDARG;
    // The streams of a program can only be told apart by their numbers: the file must be the same.
    m_reader = std::move(reader);
    m_filled = false;
    m_sought = false;
    m_failure = nullptr;
    return S_OK;
  });
}

CZelSample* AudioStream::GetSampleEx() {
  m_sought = false;
  return CurrentSample();
}

CZelSample* AudioStream::GetOriginSampleEx() {
  return CurrentSample();
}

CZelSample* AudioStream::CurrentSample() {
  if (m_reader->frame() == nullptr) return nullptr;
  if (!m_filled) {
    m_filled = Guarded([&] { return FillSample(); }, false, false);
    if (!m_filled && m_failure == nullptr) m_failure = kNotConverted;
  }
  return m_filled ? m_sample.get() : nullptr;
}

bool AudioStream::FillSample() {
  const AVFrame& source = *m_reader->frame();
  const int count = m_reader->sampleCount();
  const int channels = m_converter.ChannelsFor(source);
  const std::int64_t size = std::int64_t{2} * count * channels;
  if (channels <= 0 || size <= 0 || size > std::numeric_limits<std::int32_t>::max() / 2) {
    return false;
  }
  if (m_sample->GetSampleSize() < size) {
    // Frames of a stream differ a little in size: leave room for the next ones.
    m_sample->SetSampleSize(static_cast<unsigned long>(size + size / 2));
  }
  MEDIA_FRAME& frame = *m_sample->GetMediaFrame();
  if (!m_converter.Convert(source, m_reader->firstSample(), count, frame.audio.pData)) return false;
  frame.nStreamType = AV_STREAM_AUDIO;
  frame.nFrameType = FRAME_DATA_DECODED;
  frame.audio.nSampleRate = source.sample_rate;
  frame.audio.nChannels = channels;
  frame.audio.nBitsPerSample = 16;
  frame.audio.nDataSize = static_cast<std::int32_t>(size);
  frame.bKeyFrame = 1;
  frame.llPTS = m_reader->timeStamp() + AxisOffset();
  frame.llDTS = frame.llPTS;
  frame.nDuration = static_cast<std::int32_t>(
      std::min<std::int64_t>(av_rescale(count, kTicksPerSecond, source.sample_rate),
                             std::numeric_limits<std::int32_t>::max()));
  m_sample->RefreshSampleInfo();
  m_sample->SetDuration(frame.nDuration);
  return true;
}

std::int64_t AudioStream::AxisOffset() const {
  return m_originSet ? m_reader->startPts() - m_origin : 0;
}

int AudioStream::Forward() {
  // Right after a seek the sample that was sought is still to be read.
  if (std::exchange(m_sought, false)) return 0;
  m_filled = false;
  constexpr int shortOfMemory = -2;
  const int result =
      Guarded([&] { return m_reader->Next() ? 0 : -1; }, shortOfMemory, shortOfMemory);
  if (result == shortOfMemory) m_failure = kOutOfMemory;
  return result == 0 ? 0 : -1;
}

int AudioStream::Backward() {
  return -1;
}

double AudioStream::Seek(double seconds, int /*mode*/) {
  if (std::isnan(seconds)) return -1;
  m_filled = false;
  const double offset = static_cast<double>(AxisOffset()) / kTicksPerSecond;
  enum { kFound, kPastEnd, kShortOfMemory };
  const int result = Guarded([&] { return m_reader->Seek(seconds - offset) ? kFound : kPastEnd; },
                             kShortOfMemory, kShortOfMemory);
  if (result == kShortOfMemory) m_failure = kOutOfMemory;
  m_sought = result == kFound;
  return m_sought ? static_cast<double>(m_reader->time()) + offset : -1;
}

HRESULT AudioStream::NotifyStreamMessage(unsigned long /*msg*/, long long /*param*/, void* /*p1*/,
                                         void* /*p2*/) {
  return S_FALSE;
}

HRESULT AudioStream::SetOutputChannels(int channels) {
  constexpr int most = 8;
  if (channels < 0 || channels > most) return E_INVALIDARG;
  m_channels = channels;
  m_converter.SetChannels(channels);
  m_filled = false;
  return S_OK;
}

HRESULT AudioStream::SetTimeOrigin(long long origin) {
  m_originSet = true;
  m_origin = media::Bounded(origin);
  m_filled = false;
  return S_OK;
}

HRESULT AudioStream::GetStatus(wchar_t** text) {
  if (text != nullptr) *text = nullptr;
  const std::string& reading = m_reader->failure();
  if (reading.empty() && m_failure == nullptr) return S_OK;
  Guarded([&] {
    const std::string_view failure = reading.empty() ? std::string_view(m_failure) : reading;
    if (text != nullptr) *text = SysAllocString(media::ToWide(failure).c_str());
    return S_OK;
  });
  return E_FAIL;
}

}  // namespace zel::kernaldec
