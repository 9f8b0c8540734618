// Reads one audio stream of a file frame by frame, knows where on the time axis each sample lies,
// and finds any sample again.
//
// Time here is in seconds since the stream's first sample (the first that a decoder yields, priming
// samples excluded).
//
// 1. Samples are counted. A frame continues the count of the frames before it as long as its
//    container's stamp agrees within what that stamp can express; otherwise the stamp counts: the
//    container has a gap.
// 2. Seek lands on the sample that reading from the start would have found at that time. Where a
//    container's index or stamps are not good enough for that, the file is read from its start.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "media/Ffmpeg.h"
#include "media/MediaFile.h"

namespace zel::kernaldec {

/// One thread at a time.
class AudioReader {
 public:
  /// Opens stream `index` of `file` and decodes its first frame.
  /// @return null when there is no decoder for it or nothing can be decoded.
  /// @throws std::bad_alloc
  static std::unique_ptr<AudioReader> Open(std::unique_ptr<media::MediaFile> file, int index);

  const media::MediaFile& file() const { return *file_; }
  const AVStream* stream() const { return file_->stream(index_); }
  /// The container's stamp of the stream's first sample, in 100-ns units.
  std::int64_t startPts() const;

  /// Advances to the next frame. A new reader is before its first.
  /// @return false at the end, or when reading fails; then there is no current frame.
  bool Next();
  /// Makes the sample nearest to `seconds` the first current one; times before the first sample
  /// mean the first sample.
  /// @return false when the stream ends before.
  bool Seek(double seconds);

  /// The current frame, or null. Only samples firstSample() to firstSample() + sampleCount() - 1 of
  /// it are current.
  const AVFrame* frame() const { return state_ == State::kAtFrame ? frame_.get() : nullptr; }
  int firstSample() const { return first_; }
  int sampleCount() const { return frame_->nb_samples - first_; }
  /// Time of the first current sample.
  long double time() const { return FrameTime() + static_cast<long double>(first_) / clock_.rate; }
  /// The same in 100-ns units, rounded to the nearest.
  std::int64_t timeStamp() const;
  /// Rate and channels of the stream's first frame.
  int firstRate() const { return firstRate_; }
  int firstChannels() const { return firstChannels_; }

  /// What went wrong since the reader was opened, as one line; empty while all is well.
  const std::string& failure() const { return failure_; }

 private:
  enum class State {
    kBeforeFirst,  ///< The first frame is decoded and not yet current.
    kAtFrame,
    kEnded,
  };

  /// Where the next sample lies: `samples` after `offset`.
  struct Clock {
    bool known = false;
    int rate = 0;
    long double offset = 0;
    std::int64_t samples = 0;
  };

  AudioReader() = default;
  bool Start(std::unique_ptr<media::MediaFile> file);
  bool Reopen();
  bool SeekByIndex(double seconds);
  bool DropUntil(double seconds);
  bool DecodeFrame();
  bool ReceiveFrame();
  bool FeedDecoder();
  bool Place();
  std::int64_t Landing(long double time) const;
  bool SeeksExactly() const;
  long double ContainerTime(std::int64_t pts) const;
  long double FrameTime() const;
  void NotePacketLost();
  void NoteGap(long double missing);
  void CheckEnd();
  void Fail(const std::string& reason);

  std::unique_ptr<media::MediaFile> file_;
  int index_ = 0;
  media::CodecContext codec_;
  media::Packet packet_;
  media::Frame frame_;
  State state_ = State::kEnded;
  bool madeUpStamps_ = false;  ///< Stamps after the first do not count.
  bool shortReads_ = false;    ///< Packets that are marked as damaged may be only short.
  bool inputEnded_ = false;
  int first_ = 0;
  int firstRate_ = 0;
  int firstChannels_ = 0;
  std::int64_t startTicks_ = 0;  ///< In the stream's time base.
  Clock clock_;
  std::int64_t position_ = 0;  ///< First sample of the frame, in the clock's terms.
  // The grid of equal frames, for containers whose stamps are coarser than a sample.
  bool fromStart_ = false;  ///< All frames since the start have been read.
  std::int64_t framesRead_ = 0;
  std::int64_t gridPhase_ = 0;
  std::int64_t gridStep_ = 0;
  int lostPackets_ = 0;  ///< Since the last good frame.
  std::string failure_;
};

}  // namespace zel::kernaldec
