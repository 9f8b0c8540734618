// The pull path: frames of the input with the second source's sound.
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <utility>

#include "zel/compositor/detail/CompositorImpl.h"

namespace {

constexpr double kUnitsPerSecond = 10'000'000.0;
constexpr std::size_t kSampleBytes = 2;

// Room for about 20 s of 6-channel sound at 8 kHz, or 5 s of stereo at 96 kHz; grows when blocks
// are longer.
constexpr int kConverterCapacity = 0x100000;

bool HasSound(const MEDIA_FRAME& frame) {
  return frame.nStreamType != AV_STREAM_VIDEO && frame.audio.nDataSize > 0 &&
         frame.audio.pData != nullptr;
}

void Silence(MEDIA_FRAME& frame) {
  std::memset(frame.audio.pData, 0, static_cast<std::size_t>(frame.audio.nDataSize));
}

// True when a source hands out (parts of) the very bytes that are about to be replaced.
bool Overlaps(const MEDIA_FRAME& a, const MEDIA_FRAME& b) {
  const std::less<const unsigned char*> before;
  return before(a.audio.pData, b.audio.pData + b.audio.nDataSize) &&
         before(b.audio.pData, a.audio.pData + a.audio.nDataSize);
}

}  // namespace

CZelSample* CAudioCompositor::GetSampleEx() {
  try {
    if (m_pOutSample == nullptr) {
      m_pOutSample = new CZelSample(AV_STREAM_AUDIO, FRAME_DATA_DECODED);
    }
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
  MEDIA_FRAME* frame = GetSample();
  if (frame == nullptr) return nullptr;
  frame->nFrameType = FRAME_DATA_DECODED;
  m_pOutSample->FrameAttach(frame);
  return m_pOutSample;
}

MEDIA_FRAME* CAudioCompositor::GetSample() {
  const CSingleLock lock(&m_mutex);
  if (m_pInput == nullptr || m_pOutInfo == nullptr) return nullptr;
  CZelSample* sample = m_pInput->GetSampleEx();
  if (sample == nullptr) return nullptr;
  MEDIA_FRAME* frame = sample->GetMediaFrame();
  if (frame == nullptr || !HasSound(*frame)) return nullptr;

  const double frameTime = static_cast<double>(frame->llPTS) / kUnitsPerSecond;
  try {
    ReplaceSound(*frame, frameTime);
  } catch (const std::bad_alloc&) {
    // No exception leaves an interface; a frame without its sound is better than none.
    Silence(*frame);
  }
  m_llPosition = frame->llPTS;
  return frame;
}

// Fills the frame: with silence, from the buffer, or, after as many blocks of the source as it
// takes, from the buffer. Without a source it stays as it is.
void CAudioCompositor::ReplaceSound(MEDIA_FRAME& frame, double frameTime) {
  const auto wanted = [&] { return static_cast<std::size_t>(frame.audio.nDataSize); };
  if (frameTime - m_dDelay < 0) {
    Silence(frame);
    return;
  }
  if (!m_bReposition && Buffered() > wanted()) {
    Take(frame.audio.pData, wanted());
    return;
  }
  if (m_pSource == nullptr) return;

  do {
    // The wish is taken back before the delay is read: a delay set in between makes a wish of its
    // own.
    if (m_bReposition.exchange(false)) {
      m_pSource->Seek(frameTime - m_dDelay, 1);
      ClearBuffered();
    } else {
      m_pSource->Forward();
    }
    CZelSample* sample = m_pSource->GetSampleEx();
    const MEDIA_FRAME* sourceFrame = sample != nullptr ? sample->GetMediaFrame() : nullptr;
    if (sourceFrame == nullptr) {
      Silence(frame);
      return;
    }
    if (HasSound(*sourceFrame) && Overlaps(*sourceFrame, frame)) Silence(frame);
    if (!Refill(*sourceFrame)) {
      Silence(frame);
      return;
    }
  } while (Buffered() < wanted());
  Take(frame.audio.pData, wanted());
}

// Converts a block of the source. An empty one is no end of the source.
// @return false for a block that cannot be converted: no 16-bit PCM, or no rate or channels to go
// by.
bool CAudioCompositor::Refill(const MEDIA_FRAME& sourceFrame) {
  const MEDIA_FRAME_AUDIO& audio = sourceFrame.audio;
  const bool knownFormat = sourceFrame.nStreamType != AV_STREAM_VIDEO && audio.nChannels > 0 &&
                           audio.nSampleRate > 0 && m_pOutInfo->audioInfo.channels > 0 &&
                           m_pOutInfo->audioInfo.sampleRate > 0;
  const bool empty = audio.nDataSize == 0;
  if (!knownFormat) return empty;
  // A width of less than a byte stands for "not given".
  const int width = audio.nBitsPerSample / 8 == 0 ? 2 : audio.nBitsPerSample / 8;
  if (!empty && (width != 2 || !HasSound(sourceFrame))) return false;
  ConverterFor(audio.nChannels, audio.nSampleRate)
      .Put(reinterpret_cast<const short*>(audio.pData), audio.nDataSize / width);
  return true;
}

// The converter from a source's format to the output's; kept while the source's format stays.
CAudioConverter& CAudioCompositor::ConverterFor(int channels, int sampleRate) {
  if (m_pConverter == nullptr || m_pConverter->GetInputChannels() != channels ||
      m_pConverter->GetInputSampleRate() != sampleRate) {
    const AudioInfo& out = m_pOutInfo->audioInfo;
    auto converter = std::make_unique<CAudioConverter>(channels, out.channels, sampleRate,
                                                       out.sampleRate, kConverterCapacity);
    Drain();  // What the one before has converted is still to be delivered.
    m_pConverter = std::move(converter);
  }
  return *m_pConverter;
}

// Bytes that wait for delivery: those set aside, then the converter's queue.
std::size_t CAudioCompositor::Buffered() const {
  std::size_t bytes = m_setAside.size();
  if (m_pConverter != nullptr) {
    bytes += static_cast<std::size_t>(m_pConverter->GetValidSize()) * kSampleBytes;
  }
  return bytes;
}

// Forgets what waits; the converter goes on from the source's last samples.
void CAudioCompositor::ClearBuffered() {
  m_setAside.Clear();
  if (m_pConverter != nullptr) m_pConverter->Reset();
}

// Delivers the oldest `count` bytes. REQUIRES: count <= Buffered().
void CAudioCompositor::Take(unsigned char* out, std::size_t count) {
  const bool wholeSamples =
      count % kSampleBytes == 0 && reinterpret_cast<std::uintptr_t>(out) % alignof(short) == 0;
  if (m_setAside.size() == 0 && wholeSamples) {
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
  const std::size_t bytes = static_cast<std::size_t>(ready) * kSampleBytes;
  m_pConverter->Get(reinterpret_cast<short*>(m_setAside.Reserve(bytes)), ready);
  m_setAside.Commit(bytes);
}
