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

/// Yields interleaved 16-bit PCM at the file's own rate and channel count, one decoded frame per
/// sample; a frame whose format differs from the one before brings its own. A new stream is before
/// its first sample. One thread at a time; the sample is reused.
class AudioStream final : public Component<IMediaStream, IDecodedAudio> {
 public:
  /// @param program the program of the reader's stream.
  AudioStream(std::unique_ptr<AudioReader> reader, Program program);

  HRESULT GetStreamInfo(IStreamInfo** ppInfo) override;
  /// Selects the audio stream of that number within its program, before its first sample. What
  /// IDecodedAudio has set stays, but a time origin of the stream's own start moves with it.
  /// @return S_OK; E_INVALIDARG, with nothing changed, when there is no such stream or it cannot be
  ///   decoded.
  HRESULT ChangeStream(int index) override;
  CZelSample* GetSampleEx() override;
  /// @return 0; -1 at the end.
  int Forward() override;
  /// @return -1: decoded audio is read forward, or sought.
  int Backward() override;
  /// Makes the sample nearest to `seconds` the first one of the current sample: it can be read
  /// without a Forward. Times before the stream's first sample mean the first sample.
  /// @param mode of no effect.
  /// @return the time of that sample; -1, with no current sample, past the end.
  double Seek(double seconds, int mode) override;
  /// @return S_FALSE: it listens to none.
  HRESULT NotifyStreamMessage(unsigned long msg, long long param, void* p1, void* p2) override;
  /// As GetSampleEx: nothing is changed on the way.
  CZelSample* GetOriginSampleEx() override;

  HRESULT SetOutputChannels(int channels) override;
  HRESULT SetTimeOrigin(long long origin) override;
  HRESULT GetStatus(wchar_t** text) override;

 private:
  CZelSample* CurrentSample();
  bool FillSample();
  /// What turns a time since the stream's first sample into one on the outside's axis, 100 ns.
  std::int64_t AxisOffset() const;

  std::unique_ptr<AudioReader> reader_;
  Program program_;
  PcmConverter converter_;
  Ref<CZelSample> sample_;
  bool filled_ = false;  ///< sample_ holds the reader's current samples.
  bool sought_ = false;  // A seek has found a sample that nobody has read yet.
  int channels_ = 0;     ///< Wanted; 0: the file's.
  bool originSet_ = false;
  std::int64_t origin_ = 0;
  const char* failure_ = nullptr;  ///< What went wrong outside the reader.
};

}  // namespace zel::kernaldec
