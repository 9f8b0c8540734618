// Reads one audio stream of a file frame by frame, places each sample in time, and finds any sample
// again.
//
// Times are in seconds from the stream's first sample. That is the first one that the decoder
// outputs; priming samples do not count.
//
// 1. Samples are counted. A frame follows the frame before it as long as the container's time stamp
//    agrees to within its own precision. Otherwise the container has a gap, and the stamp is taken.
// 2. Seek finds the same sample that reading from the start would have found at that time. If a
//    container's index or time stamps are not good enough for that, the file is read from its
//    start.
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
  /// @return null when there is no such stream, no decoder for it, or nothing that can be decoded
  /// @throws std::bad_alloc
  static std::unique_ptr<AudioReader> Open(std::unique_ptr<media::MediaFile> file, int index);

  const media::MediaFile& file() const { return *file_; }
  const AVStream* stream() const { return file_->stream(index_); }
  /// The container's time stamp of the first sample, in 100-ns units.
  std::int64_t startPts() const;

  /// Advances to the next frame. A new reader stands before its first.
  /// @return false at the end, or when reading fails; then there is no current frame
  /// @throws std::bad_alloc, with no current frame
  bool Next();
  /// Makes the sample nearest to `seconds` the first current one. Times before the first sample
  /// mean the first sample.
  /// @return false when the stream ends before that
  /// @throws std::bad_alloc
  bool Seek(double seconds);

  /// The current frame, or null. Of its samples, those from firstSample() on are current:
  /// sampleCount() of them.
  const AVFrame* frame() const { return state_ == State::kAtFrame ? frame_.get() : nullptr; }
  int firstSample() const { return first_; }
  int sampleCount() const { return frame_->nb_samples - first_; }
  /// Time of the first current sample.
  long double time() const { return FrameTime() + static_cast<long double>(first_) / clock_.rate; }
  /// The same in 100-ns units, rounded to the nearest.
  std::int64_t timeStamp() const;
  /// Sample rate and channel count of the stream's first frame.
  int firstRate() const { return firstRate_; }
  int firstChannels() const { return firstChannels_; }
  /// The speakers of the first frame and the samples of the file, for SDecodedSound.
  std::uint64_t firstSpeakers() const { return firstSpeakers_; }
  int sourceBits() const { return sourceBits_; }
  bool sourceIsFloat() const { return sourceIsFloat_; }

  /// What went wrong since the reader was opened, as one line; empty while all is well.
  const std::string& failure() const { return failure_; }

 private:
  enum class State {
    kBeforeFirst,  ///< frame_ is decoded and not yet current.
    kAtFrame,
    kEnded,
  };

  /// The time of the next sample to be decoded: `samples` samples after `offset`.
  struct Clock {
    bool known = false;
    int rate = 0;            ///< Samples per second since `offset`.
    long double offset = 0;  ///< Seconds.
    std::int64_t samples = 0;

    long double time() const { return offset + static_cast<long double>(samples) / rate; }
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
  void BeginStream(bool isStamped, std::int64_t stamp);
  void NoteFormat();
  void RestartClock(std::int64_t stamp);
  void FollowStamp(std::int64_t stamp);
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
  bool madeUpStamps_ = false;  ///< Only the first time stamp counts.
  bool shortReads_ = false;    ///< FFmpeg marks packets as damaged that are only short.
  bool inputEnded_ = false;
  int first_ = 0;
  int firstRate_ = 0;
  int firstChannels_ = 0;
  std::uint64_t firstSpeakers_ = 0;
  int sourceBits_ = 0;
  bool sourceIsFloat_ = false;
  std::int64_t startStamp_ = 0;  ///< In the stream's time base.
  Clock clock_;
  std::int64_t position_ = 0;  ///< First sample of frame_, counted as Clock::samples.
  // Frames of equal size start on a grid. It gives the exact sample where a container's time stamps
  // are coarser than a sample.
  bool fromStart_ = false;  ///< Every frame since the start has been read.
  std::int64_t framesRead_ = 0;
  std::int64_t gridPhase_ = 0;  ///< Samples in the first frame.
  std::int64_t gridStep_ = 0;   ///< Samples in the second frame.
  int lostPackets_ = 0;         ///< Since the last good frame.
  long double holes_ = 0;       ///< Seconds in all, since the start or the last seek.
  bool holesAreTooLong_ = false;
  std::string failure_;
};

}  // namespace zel::kernaldec
