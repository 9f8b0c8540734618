// The pull path: frames of the input with the second source's sound.
#include <cstring>
#include <functional>
#include <new>
#include <stdexcept>

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
  if (!m_bReposition && m_buffer.size() > wanted()) {
    m_buffer.Take(frame.audio.pData, wanted());
    return;
  }
  if (m_pSource == nullptr) return;

  do {
    // The wish is taken back before the delay is read: a delay set in between makes a wish of its
    // own.
    if (m_bReposition.exchange(false)) {
      m_pSource->Seek(frameTime - m_dDelay, 1);
      m_buffer.Clear();
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
  } while (m_buffer.size() < wanted());
  m_buffer.Take(frame.audio.pData, wanted());
}

// Converts a block of the source into the buffer. An empty one is no end of the source.
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

  CAudioConverter& converter = ConverterFor(audio.nChannels, audio.nSampleRate);
  converter.Put(reinterpret_cast<const short*>(audio.pData), audio.nDataSize / width);
  const int ready = converter.GetValidSize();
  auto* room =
      reinterpret_cast<short*>(m_buffer.Reserve(static_cast<std::size_t>(ready) * kSampleBytes));
  const int got = converter.Get(room, ready);
  m_buffer.Commit(static_cast<std::size_t>(got) * kSampleBytes);
  return true;
}

// The converter from a source's format to the output's; kept while the source's format stays.
CAudioConverter& CAudioCompositor::ConverterFor(int channels, int sampleRate) {
  if (m_pConverter == nullptr || m_pConverter->GetInputChannels() != channels ||
      m_pConverter->GetInputSampleRate() != sampleRate) {
    const AudioInfo& out = m_pOutInfo->audioInfo;
    m_pConverter.reset();
    m_pConverter = std::make_unique<CAudioConverter>(channels, out.channels, sampleRate,
                                                     out.sampleRate, kConverterCapacity);
  }
  return *m_pConverter;
}
