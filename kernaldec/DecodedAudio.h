// What the decoder module's audio streams can do beyond IMediaStream: mix to another number of
// channels, move the origin of time, and tell a clean end from a failure.
//
//   zel::Ref<IDecodedAudio> control;
//   if (stream->QueryInterface(IID_IDecodedAudio, control.ReceiveVoid()) == S_OK) {
//     control->SetOutputChannels(2);
//   }
//   while (stream->Forward() == 0) Play(stream->GetSampleEx());
//   wchar_t* reason = nullptr;
//   if (control && control->GetStatus(&reason) != S_OK) Report(reason);
//   SysFreeString(reason);
//
// Streams of another decoder do not have this interface.
//
// Time of a decoded audio stream: `llPTS` counts 100-ns units and Seek takes seconds, both from the
// container's time stamp `origin`. By default that is the stream's own start,
// IStreamInfo::GetStartPTS(). The first sample that the stream delivers (after the codec's priming
// samples, which nobody hears) then has time 0, wherever the container's time stamps begin. Keep
// the default for a track whose first sound must be heard at a given delay. For an input whose
// other streams keep the container's time stamps, call SetTimeOrigin(0).
#pragma once

#include <cstddef>

#include "zel/base/Component.h"

/// 8A5ED067-A06E-4522-BFFC-475718C23979
inline constexpr _GUID IID_IDecodedAudio = {
    0x8A5ED067, 0xA06E, 0x4522, {0xBF, 0xFC, 0x47, 0x57, 0x18, 0xC2, 0x39, 0x79}};

/// A jump of the time stamps by more than this (100-ns units, 10 minutes) is one of the recording's
/// clock. A smaller one is a hole in the sound, which hosts may fill with silence.
inline constexpr long long kLongestHole = 6'000'000'000;

/// What the description of a stream does not say of its sound.
struct SDecodedSound {
  /// The speakers of the channels, in the order of their bits as in WAVEFORMATEXTENSIBLE's
  /// dwChannelMask (1 front left, 2 front right, 4 centre, 8 low frequencies, ...); 0 where the
  /// file does not name them or stores them in another order.
  unsigned long long speakers;
  /// Bits of one sample as the file stores it; 0 where the codec stores no samples (AAC, MP3 ...).
  int sourceBits;
  int sourceIsFloat;  ///< 1: those are floating point.
};
static_assert(sizeof(SDecodedSound) == 16 && offsetof(SDecodedSound, sourceBits) == 8 &&
              offsetof(SDecodedSound, sourceIsFloat) == 12);

/// Controls one decoded audio stream. Threads: one thread at a time, the one that calls the stream.
class ZEL_API IDecodedAudio : public IUnknown {
 public:
  /// Sets the number of interleaved channels that the stream delivers: 1 to 8, or 0 for the file's
  /// own number, which is the default. Other numbers than the file's are mixed with the usual
  /// weights of its speaker layout. Applies from the next GetSampleEx on; GetStreamInfo describes
  /// the new number at once.
  /// @return S_OK; E_INVALIDARG, with nothing changed, for another number
  virtual HRESULT SetOutputChannels(int channels) = 0;
  /// Makes the container's time stamp `origin` (100-ns units) time 0 of the stream. Applies from
  /// the next GetSampleEx and Seek on; the stream's position in the file stays.
  /// @return S_OK
  virtual HRESULT SetTimeOrigin(long long origin) = 0;
  /// Tells whether reading has gone well so far. Call it when GetSampleEx has returned null, to
  /// tell a clean end from a failure. A failure is remembered: a later Seek does not clear it.
  /// @param text receives one line with the reason, without the file's name ("the file ends after
  ///   12.3 s of 20.0 s"), to be freed with SysFreeString; null with S_OK, or when memory is short.
  ///   May be null.
  /// @return S_OK; E_FAIL when reading or decoding failed, when the file is shorter than it claims,
  ///   or when its holes add up to more than 24 hours, or to more than its length and kLongestHole
  virtual HRESULT GetStatus(wchar_t** text) = 0;
  /// Describes the sound that the stream delivers, as of its first frame. Wider samples than 16
  /// bits are rounded to the nearest value when they are delivered.
  /// @return S_OK; E_POINTER
  virtual HRESULT GetSound(SDecodedSound* sound) = 0;

 protected:
  ~IDecodedAudio() = default;
};

/// Lets a zel::Component expose the interface.
template <>
struct zel::InterfaceId<IDecodedAudio> {
  static bool Equals(const _GUID& id) { return ZelIsEqualGUID(id, IID_IDecodedAudio); }
};
