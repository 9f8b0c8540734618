// The pull path: frames of the input with the second source's sound.
#include <cstdint>
#include <cstring>
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

MEDIA_FRAME* CurrentFrame(IMediaStream& stream) {
  CZelSample* sample = stream.GetSampleEx();
  return sample != nullptr ? sample->GetMediaFrame() : nullptr;
}

bool IsPcm16(const MEDIA_FRAME& block) {
  const int width = block.audio.nBitsPerSample / 8;
  return HasSound(block) && (width == 2 || width == 0);  // 0: the stream does not say.
}

bool IsConvertible(const MEDIA_FRAME& block, const AudioInfo& output) {
  return block.nStreamType != AV_STREAM_VIDEO && block.audio.nChannels > 0 &&
         block.audio.nSampleRate > 0 && output.channels > 0 && output.sampleRate > 0;
}

}  // namespace

CZelSample* CAudioCompositor::GetSampleEx() {
  try {
    if (m_pOutSample == nullptr) {
      m_pOutSample = std::make_unique<CZelSample>(AV_STREAM_AUDIO, FRAME_DATA_DECODED);
    }
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
  MEDIA_FRAME* frame = GetSample();
  if (frame == nullptr) return nullptr;
  frame->nFrameType = FRAME_DATA_DECODED;
  m_pOutSample->FrameAttach(frame);
  return m_pOutSample.get();
}

MEDIA_FRAME* CAudioCompositor::GetSample() {
  const CallLock lock(*this);
  if (!lock || !m_pInput || m_pOutInfo == nullptr) return nullptr;
  MEDIA_FRAME* frame = CurrentFrame(*m_pInput);
  if (frame == nullptr || !HasSound(*frame)) return nullptr;
  try {
    ReplaceSound(*frame);
  } catch (const std::bad_alloc&) {
    // No exception leaves an interface. A silent frame is better than none.
    Silence(*frame);
  }
  m_llPosition = frame->llPTS;
  return frame;
}

// Replaces the frame's bytes: with silence before the delay, else with the second source's sound.
// Without a source the frame stays as it is.
void CAudioCompositor::ReplaceSound(MEDIA_FRAME& frame) {
  const double frameTime = static_cast<double>(frame.llPTS) / zel::kTicksPerSecond;
  if (frameTime - m_dDelay < 0) {
    Silence(frame);
    return;
  }
  const bool isReady = !m_bReposition && Buffered() > BytesOf(frame).size();
  if (!isReady && !ReadSource(frame, frameTime)) return;
  const std::span<unsigned char> bytes = BytesOf(frame);
  Take(bytes.data(), bytes.size());
}

// Reads blocks of the source until a frame's worth waits for delivery.
// @return false when there is no source or no more sound; the frame's bytes are final then.
bool CAudioCompositor::ReadSource(MEDIA_FRAME& frame, double frameTime) {
  if (!m_pSource) return false;
  do {
    AdvanceSource(frameTime);
    // Clear the frame before asking the source: it may write its sound into these very bytes.
    Silence(frame);
    const MEDIA_FRAME* block = CurrentFrame(*m_pSource);
    if (block == nullptr) return false;
    if (!Convert(*block)) {
      Silence(frame);
      return false;
    }
  } while (Buffered() < BytesOf(frame).size());
  return true;
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

// Puts a block of the source into the converter. An empty block adds nothing and is no error.
// @return false when the block cannot be converted: not 16-bit PCM, or without rate or channels.
bool CAudioCompositor::Convert(const MEDIA_FRAME& block) {
  const MEDIA_FRAME_AUDIO& audio = block.audio;
  const bool isEmpty = audio.nDataSize == 0;
  if (!isEmpty && !IsPcm16(block)) return false;
  if (!IsConvertible(block, m_pOutInfo->audioInfo)) return isEmpty;
  ConverterFor(audio.nChannels, audio.nSampleRate)
      .Put(reinterpret_cast<const short*>(audio.pData),
           audio.nDataSize / static_cast<int>(kSampleBytes));
  return true;
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
