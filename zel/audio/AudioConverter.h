// CAudioConverter changes the channel count and the sample rate of 16-bit PCM. Put takes
// blocks of any size; the result waits in a queue.
//
//   CAudioConverter converter(6, 2, 48000, 44100, 0);   // 5.1 at 48 kHz to stereo at 44.1 kHz
//   converter.Put(block, 1024 * 6);                     // samples, not frames
//   short out[2 * 1024];
//   int taken = converter.Get(out, converter.GetValidSize() / 2 * 2);
//
// Threads: each operation says which of these holds.
//   [any]    any thread, at any time;
//   [alone]  no other operation of the same object runs at the same time.
#pragma once

#include <cstddef>
#include <cstdint>

#include "zel/platform/Types.h"

/// Converts interleaved 16-bit signed PCM in two stages, channel count first (fixed mixing rules
/// from 1 to 8 channels to 1, 2 or 6), then sample rate (linear interpolation between neighbouring
/// frames), and keeps the result in a first-in, first-out queue. All sizes count 16-bit samples,
/// not bytes and not frames.
///
/// A converter carries the last frame and a fractional sample count from one block to the next.
/// Equal formats pass through unchanged. A pair of channel counts that the rules lack gives silence
/// of the input's length.
class ZEL_API CAudioConverter {
 public:
  /// [any] Makes a converter with an empty queue. The formats do not change afterwards.
  /// @param nBufferSize capacity of the queue in samples; 0 for 1,048,576. It grows when it has to.
  /// @throws std::invalid_argument for a rate or channel count below 1, or a negative capacity.
  /// @throws std::bad_alloc
  CAudioConverter(int nInChannels, int nOutChannels, int nInSampleRate, int nOutSampleRate,
                  int nBufferSize);
  CAudioConverter(const CAudioConverter&) = delete;
  CAudioConverter& operator=(const CAudioConverter&) = delete;
  ~CAudioConverter();  ///< [alone]

  /// [alone] Converts `nSamples` samples at `pData` (whole frames, or the rest of the last one is
  /// dropped) to the end of the queue. A negative count is taken as 0.
  /// @return samples held now.
  /// @throws std::bad_alloc when the queue cannot grow; converter and queue are then as they were.
  int Put(const short* pData, int nSamples);
  /// [alone] Converts as Put does for differing formats, but does not count the result. It is
  /// written behind the samples held, which do not change. The next Put or ConvertData overwrites
  /// it. The queue grows if it has to.
  /// @return samples written.
  /// @throws std::bad_alloc when the queue cannot grow; converter and queue are then as they were.
  int ConvertData(const short* pData, int nSamples);
  /// [alone] Takes up to `nSamples` samples from the head of the queue to `pOut`.
  /// @return samples taken.
  int Get(short* pOut, int nSamples);
  /// [alone] Capacity less samples held.
  int GetFreeSize() const;
  /// [alone] Samples held.
  int GetValidSize() const;
  /// [alone] Empties the queue. Conversion goes on from the last input: what is carried between
  /// blocks stays.
  void Reset();
  int GetInputChannels();    ///< [any]
  int GetInputSampleRate();  ///< [any] In Hz.

 private:
  friend struct zel::Layout<CAudioConverter>;

  struct [[gnu::visibility("hidden")]] Work;

  short* m_pOutBuffer;         // Head of the queue; moves up as samples are taken.
  Work* m_pWorkBuffer;         // Work area, and all else that the conversion keeps.
  std::int32_t m_nBufferSize;  // Capacity.
  std::int32_t m_nValidSize;   // Samples held.
  std::int32_t m_nInChannels;
  std::int32_t m_nOutChannels;
  std::int32_t m_nInSampleRate;
  std::int32_t m_nOutSampleRate;
  double m_dRemainder;  // Input samples carried over; fractional, may be negative.
};

// Components that were built apart share this layout. (To them m_pWorkBuffer is a pointer to 16-bit
// samples. They do not follow it.)
#if defined(__i386__)
template <>
struct zel::Layout<CAudioConverter> {
  using T = CAudioConverter;
  static_assert(sizeof(T) == 40);
  static_assert(offsetof(T, m_pOutBuffer) == 0 && offsetof(T, m_pWorkBuffer) == 4);
  static_assert(offsetof(T, m_nBufferSize) == 8 && offsetof(T, m_nValidSize) == 12);
  static_assert(offsetof(T, m_nInChannels) == 16 && offsetof(T, m_nOutChannels) == 20);
  static_assert(offsetof(T, m_nInSampleRate) == 24 && offsetof(T, m_nOutSampleRate) == 28);
  static_assert(offsetof(T, m_dRemainder) == 32);
};
#endif
