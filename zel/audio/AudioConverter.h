// CAudioConverter: 16-bit PCM from one channel count and sample rate to another, through a queue.
#pragma once

#include <cstdint>

#include "zel/platform/Types.h"

/// Converts interleaved 16-bit signed PCM in two stages, channel count first (fixed mixing rules
/// from 1 to 8 channels to 1, 2 or 6), then sample rate (linear interpolation between neighbouring
/// frames), and keeps the result in a first-in, first-out queue. All sizes count 16-bit samples,
/// not bytes and not frames.
///
/// Blocks may have any size; a converter carries the last frame and a fractional sample count from
/// one block to the next. Equal formats pass through unchanged. A pair of channel counts that the
/// rules lack gives silence of the input's length.
///
/// Threads: used by one thread at a time.
class ZEL_API CAudioConverter {
 public:
  /// @param nBufferSize capacity of the queue in samples; 0 for 1,048,576. It grows when it has to.
  /// @throws std::invalid_argument for a rate or channel count below 1, or a negative capacity.
  /// @throws std::bad_alloc
  CAudioConverter(int nInChannels, int nOutChannels, int nInSampleRate, int nOutSampleRate,
                  int nBufferSize);
  CAudioConverter(const CAudioConverter&) = delete;
  CAudioConverter& operator=(const CAudioConverter&) = delete;
  ~CAudioConverter();

  /// Converts `nSamples` samples at `pData` (whole frames, or the rest of the last one is dropped)
  /// to the end of the queue. A negative count is taken as 0.
  /// @return samples held now.
  /// @throws std::bad_alloc when the queue cannot grow; converter and queue are then as they were.
  int Put(const short* pData, int nSamples);
  /// What Put does for differing formats, less the counting: writes behind the samples held, which
  /// do not change, and returns how many it wrote. Grows the queue if they do not fit.
  int ConvertData(const short* pData, int nSamples);
  /// Takes up to `nSamples` samples from the head of the queue to `pOut`.
  /// @return samples taken.
  int Get(short* pOut, int nSamples);
  /// Capacity less samples held.
  int GetFreeSize() const;
  /// Samples held.
  int GetValidSize() const;
  /// Empties the queue. Conversion goes on from the last input: what is carried between blocks
  /// stays.
  void Reset();
  int GetInputChannels();
  int GetInputSampleRate();

 private:
  struct [[gnu::visibility("hidden")]] Work;

  short* m_pOutBuffer;         // Head of the queue; moves up as samples are taken.
  Work* m_pWorkBuffer;         // Work area, and what else the conversion keeps.
  std::int32_t m_nBufferSize;  // Capacity.
  std::int32_t m_nValidSize;   // Samples held.
  std::int32_t m_nInChannels;
  std::int32_t m_nOutChannels;
  std::int32_t m_nInSampleRate;
  std::int32_t m_nOutSampleRate;
  double m_dRemainder;  // Input samples carried over; fractional, may be negative.
};
#if defined(__i386__)
static_assert(sizeof(CAudioConverter) == 40);
#endif
