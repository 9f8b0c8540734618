// The decoded audio stream as the outside sees it: IMediaStream and IDecodedAudio over an
// AudioReader.
#pragma once

#include <cstdint>
#include <memory>

#include "kernaldec/DecodedAudio.h"
#include "kernaldec/Guard.h"
#include "kernaldec/file/Programs.h"
#include "kernaldec/sound/AudioReader.h"
#include "kernaldec/sound/PcmConverter.h"
#include "zel/base/Component.h"
#include "zel/compositor/MediaStream.h"
#include "zel/sample/Sample.h"

namespace zel::kernaldec {

/// Delivers interleaved 16-bit PCM at the file's own rate and channel count, one decoded frame per
/// sample. Rate and count may change from frame to frame. A new stream stands before its first
/// sample. One thread at a time; every call reuses the same sample.
class AudioStream final : public Component<IMediaStream, IDecodedAudio> {
 public:
  /// @param program the program of the reader's stream
  AudioStream(std::unique_ptr<AudioReader> reader, Program program);

  HRESULT GetStreamInfo(IStreamInfo** ppInfo) override;
  /// Selects the audio stream of that number within its program and stands before its first sample.
  /// Channel count and time origin that were set by IDecodedAudio stay; without an origin, time 0
  /// is the new stream's own start.
  /// @return S_OK; E_INVALIDARG, with nothing changed, when there is no such stream or it cannot be
  ///   decoded
  HRESULT ChangeStream(int index) override;
  CZelSample* GetSampleEx() override;
  /// @return 0; -1 at the end
  int Forward() override;
  /// Makes the audio sample nearest to `seconds` the first one of the current frame; it can be read
  /// without a Forward. Times before the stream's first sample mean the first sample.
  /// @param mode ignored
  /// @return the time of that sample; -1, with no current frame, past the end
  double Seek(double seconds, int mode) override;
  /// As GetSampleEx. The first Forward after a seek still skips nothing.
  CZelSample* GetOriginSampleEx() override;

  HRESULT SetOutputChannels(int channels) override;
  HRESULT SetTimeOrigin(long long origin) override;
  HRESULT GetStatus(wchar_t** text) override;
  HRESULT GetSound(SDecodedSound* sound) override;

 private:
  CZelSample* CurrentSample();
  bool FillSample();
  /// Add it to a time since the stream's first sample to get a time from the origin, in 100-ns
  /// units.
  std::int64_t AxisOffset() const;

  std::unique_ptr<AudioReader> reader_;
  Program program_;
  PcmConverter converter_;
  Ref<CZelSample> sample_;
  bool filled_ = false;  ///< sample_ holds the reader's current samples.
  bool sought_ = false;  ///< A seek found a sample that nobody has read yet.
  int channels_ = 0;     ///< As SetOutputChannels set it; 0: the file's.
  bool originSet_ = false;
  std::int64_t origin_ = 0;
  const char* failure_ = nullptr;  ///< The last failure outside the reader, or null.
};

}  // namespace zel::kernaldec
