// The pull path: frames of the input with the second source's sound.
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <span>
#include <utility>

#include "zel/compositor/detail/CompositorImpl.h"

namespace {

constexpr std::size_t kSampleBytes = 2;

// Room for about 20 s of 6-channel sound at 8 kHz, or 5 s of stereo at 96 kHz. The queue grows when
// blocks are longer.
constexpr int kConverterCapacity = 0x100000;

// The sample bytes of an audio frame. Empty when it has no data or a negative size.
std::span<unsigned char> BytesOf(MEDIA_FRAME& frame) {
  if (frame.audio.pData == nullptr || frame.audio.nDataSize <= 0) return {};
  return {frame.audio.pData, static_cast<std::size_t>(frame.audio.nDataSize)};
}

bool HasSound(const MEDIA_FRAME& frame) {
  return frame.nStreamType != AV_STREAM_VIDEO && frame.audio.nDataSize > 0 &&
         frame.audio.pData != nullptr;
}

void Silence(MEDIA_FRAME& frame) {
  const std::span<unsigned char> bytes = BytesOf(frame);
  if (!bytes.empty()) std::memset(bytes.data(), 0, bytes.size());
}

// Other components write the smallest number for "unknown", too.
bool HasTime(const MEDIA_FRAME& frame) {
  return frame.llPTS != -1 && frame.llPTS != std::numeric_limits<std::int64_t>::min();
}

MEDIA_FRAME* CurrentFrame(IMediaStream& stream) {
  CZelSample* sample = stream.GetSampleEx();
  return sample != nullptr ? sample->GetMediaFrame() : nullptr;
}

// Tells whether a block that is not empty has bytes that can be converted.
PULL_RESULT CheckData(const MEDIA_FRAME& block) {
  if (block.nStreamType == AV_STREAM_VIDEO) return PULL_SILENT_NOT_AUDIO;
  if (!HasSound(block)) return PULL_SILENT_BAD_DATA;
  const int width = block.audio.nBitsPerSample / 8;
  return width == 2 || width == 0 ? PULL_SOUND : PULL_SILENT_NOT_PCM16;  // 0: it does not say.
}

PULL_RESULT CheckFormat(const MEDIA_FRAME& block, const AudioInfo& output) {
  if (block.nStreamType == AV_STREAM_VIDEO) return PULL_SILENT_NOT_AUDIO;
  if (block.audio.nChannels <= 0 || block.audio.nSampleRate <= 0) return PULL_SILENT_NO_FORMAT;
  return output.channels > 0 && output.sampleRate > 0 ? PULL_SOUND : PULL_SILENT_NO_OUTPUT_FORMAT;
}

// What a converter makes: silence for pairs of channel counts that it has no rule for.
PULL_RESULT CheckChannels(int in, int out) {
  const bool hasRule = in <= 8 && (out == 1 || out == 2 || out == 6);
  return in == out || hasRule ? PULL_SOUND : PULL_SILENT_CHANNELS;
}

}  // namespace

CZelSample* CAudioCompositor::GetSampleEx() {
  // Called back, from a stream or from a report: nothing is pulled, so nothing is reported.
  if (HoldsLock() || m_diagnosis.IsReportingPull()) return nullptr;
  try {
    if (m_pOutSample == nullptr) {
      m_pOutSample = std::make_unique<CZelSample>(AV_STREAM_AUDIO, FRAME_DATA_DECODED);
    }
  } catch (const std::bad_alloc&) {
    m_diagnosis.NotePull(PULL_ENDED_NO_MEMORY);
  }
  MEDIA_FRAME* frame = m_pOutSample != nullptr ? GetSample() : nullptr;
  if (frame != nullptr) {
    frame->nFrameType = FRAME_DATA_DECODED;
    m_pOutSample->FrameAttach(frame);
  }
  // Last: the callback may do what changes the input's frame.
  if (m_diagnosis.HasNewPull()) m_diagnosis.ReportPull();
  return frame != nullptr ? m_pOutSample.get() : nullptr;
}

MEDIA_FRAME* CAudioCompositor::GetSample() {
  const CallLock lock(*this);
  if (!lock || m_diagnosis.IsReportingPull()) return nullptr;
  MEDIA_FRAME* frame = nullptr;
  m_diagnosis.NotePull(PullFrame(frame));
  return frame;
}

// Gives the input's current frame with its sound replaced, or null at the end.
PULL_RESULT CAudioCompositor::PullFrame(MEDIA_FRAME*& frame) {
  if (!m_pInput) return PULL_ENDED_NO_INPUT;
  if (m_pOutInfo == nullptr) return PULL_ENDED_NO_DESCRIPTION;
  MEDIA_FRAME* current = CurrentFrame(*m_pInput);
  if (current == nullptr) return PULL_ENDED_INPUT;
  if (!HasSound(*current)) return PULL_ENDED_FRAME;
  frame = current;
  PULL_RESULT result = PULL_SILENT_NO_MEMORY;
  try {
    result = ReplaceSound(*frame);
  } catch (const std::bad_alloc&) {
    // No exception leaves an interface. A silent frame is better than none.
    Silence(*frame);
  }
  m_llPosition = frame->llPTS;
  return result;
}

// Replaces the frame's bytes: with silence before the delay, else with the second source's sound.
// Without a source the frame stays as it is.
PULL_RESULT CAudioCompositor::ReplaceSound(MEDIA_FRAME& frame) {
  const double frameTime = static_cast<double>(frame.llPTS) / zel::kTicksPerSecond;
  if (frameTime - m_dDelay < 0) {
    Silence(frame);
    return HasTime(frame) ? PULL_SILENT_BEFORE_DELAY : PULL_SILENT_NO_TIME;
  }
  const bool isReady = !m_bReposition && Buffered() > BytesOf(frame).size();
  const PULL_RESULT read = isReady ? PULL_SOUND : ReadSource(frame, frameTime);
  if (read != PULL_SOUND) return read;
  const std::span<unsigned char> bytes = BytesOf(frame);
  Take(bytes.data(), bytes.size());
  return m_eConverted;
}

// Reads blocks of the source until a frame's worth waits for delivery.
// @return PULL_SOUND; anything else when there is no source or no more sound; the frame's bytes are
//   final then.
PULL_RESULT CAudioCompositor::ReadSource(MEDIA_FRAME& frame, double frameTime) {
  if (!m_pSource) return m_diagnosis.WithoutSource();
  do {
    AdvanceSource(frameTime);
    // Clear the frame before asking the source: it may write its sound into these very bytes.
    Silence(frame);
    const MEDIA_FRAME* block = CurrentFrame(*m_pSource);
    if (block == nullptr) return PULL_SILENT_SOURCE_ENDED;
    if (const PULL_RESULT result = Convert(*block); result != PULL_SOUND) {
      Silence(frame);
      return result;
    }
  } while (Buffered() < BytesOf(frame).size());
  return PULL_SOUND;
}

// Moves the source on by one block, or to the frame's time if SetDelayTime was called.
void CAudioCompositor::AdvanceSource(double frameTime) {
  // Clear the request before reading the delay: a concurrent SetDelayTime raises it again.
  if (!m_bReposition.exchange(false)) {
    m_pSource->Forward();
    return;
  }
  m_pSource->Seek(frameTime - m_dDelay, 1);
  ClearBuffered();
}

// Puts a block of the source into the converter. An empty block adds nothing and is not an error.
// @return PULL_SOUND, or why the block cannot be converted.
PULL_RESULT CAudioCompositor::Convert(const MEDIA_FRAME& block) {
  const MEDIA_FRAME_AUDIO& audio = block.audio;
  const bool isEmpty = audio.nDataSize == 0;
  const PULL_RESULT data = isEmpty ? PULL_SOUND : CheckData(block);
  if (data != PULL_SOUND) return data;
  const PULL_RESULT format = CheckFormat(block, m_pOutInfo->audioInfo);
  if (format != PULL_SOUND) return isEmpty ? PULL_SOUND : format;
  ConverterFor(audio.nChannels, audio.nSampleRate)
      .Put(reinterpret_cast<const short*>(audio.pData),
           audio.nDataSize / static_cast<int>(kSampleBytes));
  return PULL_SOUND;
}

// The converter from a source's format to the output's. It is kept while the source's format stays.
CAudioConverter& CAudioCompositor::ConverterFor(int channels, int sampleRate) {
  if (m_pConverter == nullptr || m_pConverter->GetInputChannels() != channels ||
      m_pConverter->GetInputSampleRate() != sampleRate) {
    const AudioInfo& out = m_pOutInfo->audioInfo;
    auto converter = std::make_unique<CAudioConverter>(channels, out.channels, sampleRate,
                                                       out.sampleRate, kConverterCapacity);
    Drain();  // The sound that the old converter holds is delivered first.
    m_pConverter = std::move(converter);
    m_eConverted = CheckChannels(channels, out.channels);
  }
  return *m_pConverter;
}

// Bytes that wait for delivery: first those set aside, then the converter's queue.
std::size_t CAudioCompositor::Buffered() const {
  std::size_t bytes = m_setAside.size();
  if (m_pConverter != nullptr) {
    bytes += static_cast<std::size_t>(m_pConverter->GetValidSize()) * kSampleBytes;
  }
  return bytes;
}

// Drops the sound that waits for delivery. The converter goes on from the source's last samples.
void CAudioCompositor::ClearBuffered() {
  m_setAside.Clear();
  if (m_pConverter != nullptr) m_pConverter->Reset();
}

// Delivers the oldest `count` bytes. REQUIRES: count <= Buffered().
void CAudioCompositor::Take(unsigned char* out, std::size_t count) {
  const bool isWholeSamples =
      count % kSampleBytes == 0 && reinterpret_cast<std::uintptr_t>(out) % alignof(short) == 0;
  if (m_setAside.size() == 0 && isWholeSamples && m_pConverter != nullptr) {
    m_pConverter->Get(reinterpret_cast<short*>(out), static_cast<int>(count / kSampleBytes));
    return;
  }
  Drain();
  m_setAside.Take(out, count);
}

// Sets the converter's queue aside.
void CAudioCompositor::Drain() {
  const int ready = m_pConverter != nullptr ? m_pConverter->GetValidSize() : 0;
  if (ready == 0) return;
  m_pConverter->Get(m_setAside.Reserve(static_cast<std::size_t>(ready)), ready);
  m_setAside.Commit();
}
