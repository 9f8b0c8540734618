// What the decoder module's audio streams can do beyond IMediaStream.
//
// A host obtains this interface from a decoded audio stream with QueryInterface(IID_IDecodedAudio);
// a stream of another decoder does not have it.
//
// Time of a decoded audio stream. One axis serves `llPTS` and Seek: 100-ns units there, seconds
// here. Its time 0 is the container's time stamp `origin`. Without a call of SetTimeOrigin the
// origin is the stream's own start, IStreamInfo::GetStartPTS(): the first sample that the stream
// yields (after the priming samples of its codec, which are never heard) has time 0, wherever the
// container's stamps begin. That is what a track wants whose first sound is to be heard at a given
// delay. An input whose other streams keep their time stamps wants the container's axis:
// SetTimeOrigin(0).
#pragma once

#include "zel/base/Component.h"

/// 8A5ED067-A06E-4522-BFFC-475718C23979
inline constexpr _GUID IID_IDecodedAudio = {
    0x8A5ED067, 0xA06E, 0x4522, {0xBF, 0xFC, 0x47, 0x57, 0x18, 0xC2, 0x39, 0x79}};

/// Controls one decoded audio stream. Calls come from the thread that pulls the stream.
class ZEL_API IDecodedAudio : public IUnknown {
 public:
  /// Asks for frames of `channels` interleaved channels (1 to 8; 0: the file's own count, as at the
  /// start), remixed by the usual weights of the file's speaker layout. From the next GetSampleEx
  /// on; GetStreamInfo describes the new count at once.
  /// @return S_OK; E_INVALIDARG, with nothing changed, for another count.
  virtual HRESULT SetOutputChannels(int channels) = 0;
  /// Makes the container's time stamp `origin` (100-ns units) time 0 of the stream. From the next
  /// GetSampleEx and Seek on; the stream's position in the file stays.
  /// @return S_OK.
  virtual HRESULT SetTimeOrigin(long long origin) = 0;
  /// Tells, once GetSampleEx is null, a clean end from a failure. Everything since the stream was
  /// opened counts: a stream that lost sound once does not turn sound again by a Seek.
  /// @param text receives null with S_OK, and with E_FAIL one line that says what is wrong, without
  ///   the file's name ("the file ends after 12.3 s of 20.0 s"), to be freed with SysFreeString.
  ///   May be null.
  /// @return S_OK: all is well so far, or the end is clean. E_FAIL: reading or decoding failed, or
  ///   the file is shorter than it says.
  virtual HRESULT GetStatus(wchar_t** text) = 0;

 protected:
  ~IDecodedAudio() = default;
};

/// Lets a zel::Component expose the interface.
template <>
struct zel::InterfaceId<IDecodedAudio> {
  static bool Equals(const _GUID& id) { return ZelIsEqualGUID(id, IID_IDecodedAudio); }
};
