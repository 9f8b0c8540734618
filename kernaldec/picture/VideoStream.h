// The decoded video stream as the outside sees it.
#pragma once

extern "C" {
#include <libswscale/swscale.h>
}

#include <cstdint>
#include <deque>
#include <memory>

#include "kernaldec/Guard.h"
#include "kernaldec/file/Programs.h"
#include "kernaldec/picture/PictureClock.h"
#include "kernaldec/picture/StudioColours.h"
#include "media/MediaFile.h"
#include "zel/base/Component.h"
#include "zel/compositor/MediaStream.h"
#include "zel/sample/Sample.h"

namespace zel::kernaldec {

/// Yields planar 4:2:0 pictures of 8 bits without gaps between rows, of the file's own size and as
/// it stores them (not turned, pixels not made square). Colours are BT.601 with studio range, as
/// the image routines take them; other formats, matrices and ranges are converted. A new stream is
/// before its first picture. Time 0 is the first picture's. One thread at a time; the sample is
/// reused.
class VideoStream final : public Component<IMediaStream> {
 public:
  /// @return null when stream `index` of `file` cannot be decoded.
  /// @throws std::bad_alloc
  static Ref<VideoStream> Open(std::unique_ptr<media::MediaFile> file, int index,
                               const Program& program);
  VideoStream(std::unique_ptr<media::MediaFile> file, int index, const Program& program);

  HRESULT GetStreamInfo(IStreamInfo** ppInfo) override;
  /// @return S_OK for 0, the stream that it is; else E_INVALIDARG.
  HRESULT ChangeStream(int index) override;
  CZelSample* GetSampleEx() override;
  /// @return 0; -1 at the end.
  int Forward() override;
  /// @return -1: not possible.
  int Backward() override;
  /// Makes the picture that is shown at `seconds` the current one; it can be read without a
  /// Forward. Times before the first picture mean the first.
  /// @param mode of no effect.
  /// @return the picture's time; -1, with no current picture, past the end.
  double Seek(double seconds, int mode) override;
  /// @return S_FALSE: it listens to none.
  HRESULT NotifyStreamMessage(unsigned long msg, long long param, void* p1, void* p2) override;
  CZelSample* GetOriginSampleEx() override;

 private:
  enum class State { kBeforeFirst, kAtFrame, kEnded };

  bool Start();
  /// Replaces input and decoder by new ones, or leaves them as they are and returns false.
  bool Reopen();
  /// The first picture's time, counted back from the first one that is stored.
  std::int64_t FindFirstTime();
  /// These two leave next_ before its turn. Times here are in 100-ns units from the first picture.
  bool ReadFromBeginning();
  bool ReadFrom(std::int64_t place);
  /// Reads packets until the clock knows which times to believe.
  bool LookAhead();
  /// @return as media::MediaFile::ReadPacket, but of this stream only
  int ReadPacket(AVPacket* packet);
  /// @param untimedToo whether a picture of unknown time will do
  bool DecodeFrame(AVFrame* frame, bool untimedToo = false);
  bool Next();
  /// Reaches the last picture once more, from an earlier place, and finds what may follow it.
  void ConfirmEnd();
  /// Goes on to the picture that is shown at `target`.
  bool DropUntil(std::int64_t target);
  bool SeekTo(std::int64_t target);
  bool FillSample();
  bool Scale(const AVFrame& source, const ColourCoding& coding);
  AVRational TimeBase() const;
  std::int64_t TimeOf(const AVFrame& frame) const;
  std::int64_t EndOf(const AVFrame& frame) const;

  const std::unique_ptr<media::MediaFile> file_;  ///< For the description.
  const int index_;
  const Program program_;
  const bool isBlocks_;  ///< As PictureClock says.
  PictureClock clock_;
  std::int64_t firstTime_ = 0;  ///< Of the first picture, if it has none of its own.
  /// The clock needs times as they are stored, the description what FFmpeg makes of them.
  int flags_ = AVFMT_FLAG_NOFILLIN;
  std::unique_ptr<media::MediaFile> input_;  ///< For the packets.
  std::deque<media::Packet> ahead_;          ///< Read, but not yet decoded.
  media::CodecContext codec_;
  media::Packet packet_;
  media::Frame frame_;
  media::Frame next_;  ///< Decoded ahead: a picture is shown until the next one's time.
  bool hasNext_ = false;
  media::Scaler scaler_;
  /// What the scaler writes. Its vector code needs aligned rows, with room behind them; the sample
  /// has neither.
  media::Frame scaled_;
  Ref<CZelSample> sample_;
  State state_ = State::kEnded;
  bool inputEnded_ = false;
  bool awaitsKey_ = false;  ///< What follows a seek cannot be decoded before the next key picture.
  bool doubtsEnd_ = false;  ///< The end has to be reached from an earlier place, too.
  std::int64_t readFrom_ = 0;  ///< The first picture after the last seek, in the time base.
  bool filled_ = false;
  bool sought_ = false;          ///< A seek has found a picture that nobody has read yet.
  std::int64_t startTicks_ = 0;  ///< In the stream's time base.
};

}  // namespace zel::kernaldec
