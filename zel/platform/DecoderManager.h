// The decoder manager: a component of the platform that describes media files and opens decoded
// streams of them. The library calls it and does not implement it.
//
//   zel::Ref<IMediaDecoder> decoder;
//   manager->CreateDecoder(L"track.flac", 0, nullptr, 11, decoder.Receive());
//   zel::Ref<IMediaStream> stream;
//   if (decoder) decoder->GetAudioStream(stream.Receive());
#pragma once

#include "zel/platform/COMSupport.h"

class IMediaInfo;
class IMediaStream;

/// The stream that a decoder is to open.
struct DecoderSelection {
  std::uint32_t size;  ///< sizeof(DecoderSelection) when a stream is chosen; 0: no choice made.
  std::uint32_t reserved0;  ///< 0.
  std::uint32_t programId;  ///< `IProgramInfo::GetID()` of the chosen program.
  std::uint32_t streamId;   ///< `IStreamInfo::GetID()` of the chosen stream.
  std::uint32_t reserved1[9];
};
static_assert(sizeof(DecoderSelection) == 52);
static_assert(offsetof(DecoderSelection, programId) == 8 &&
              offsetof(DecoderSelection, streamId) == 12);
static_assert(offsetof(DecoderSelection, reserved1) == 16);

/// An opened file, which hands out its decoded streams. Threads: one at a time.
class ZEL_API IMediaDecoder : public IUnknown {
 public:
  /// Stores the video stream in `*ppStream`, with one reference.
  /// @return S_OK; E_POINTER; E_FAIL, with `*ppStream` null, when there is none.
  virtual HRESULT GetVideoStream(IMediaStream** ppStream) = 0;
  /// Stores the audio stream in `*ppStream`, with one reference: interleaved 16-bit PCM at the
  /// file's own rate and channel count.
  /// @return as GetVideoStream.
  virtual HRESULT GetAudioStream(IMediaStream** ppStream) = 0;

 protected:
  ~IMediaDecoder() = default;
};

/// Describes files and opens decoders for them. Threads: any number at once.
class ZEL_API IMediaDecoderMgr : public IUnknown {
 public:
  /// Opens `fileName` (wide, UTF-32) for decoding.
  /// @param reserved 0.
  /// @param selection the streams wanted; null, or a size of 0: the file's first audio stream.
  /// @param kind the caller's kind of use; the library passes 11.
  /// @param ppDecoder receives the decoder with one reference; null after a failure.
  /// @return S_OK; another code after a failure. The library goes by `*ppDecoder` and only reports
  ///   the code.
  virtual HRESULT CreateDecoder(const wchar_t* fileName, int reserved, DecoderSelection* selection,
                                int kind, IMediaDecoder** ppDecoder) = 0;
  /// Describes `fileName`.
  /// @param ppInfo receives the description with one reference; null after a failure.
  /// @return as CreateDecoder.
  virtual HRESULT OpenMediaInfo(const wchar_t* fileName, int kind, IMediaInfo** ppInfo) = 0;

 protected:
  ~IMediaDecoderMgr() = default;
};
