// Reads one video stream of a file picture by picture and finds the picture that is shown at a
// given time.
//
// Times are in 100-ns units from the stream's first picture, unless a comment says otherwise.
//
// 1. A picture is shown until the next one, so the reader decodes one picture ahead.
// 2. Seek finds the same picture that reading from the start would have reached at that time. It
//    starts at an earlier key picture and decodes up to the target. If no key picture can be found
//    that way, it reads from the start of the file.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>

#include "media/Ffmpeg.h"
#include "media/MediaFile.h"
#include "media/PictureClock.h"

namespace zel::kernaldec {

/// One thread at a time.
class PictureReader {
 public:
  /// Opens stream `index` of `file` and decodes its first picture.
  /// @return null when there is no such stream or nothing in it can be decoded
  /// @throws std::bad_alloc
  static std::unique_ptr<PictureReader> Open(std::unique_ptr<media::MediaFile> file, int index);

  /// The file as it was opened, with the time stamps that FFmpeg derives: for descriptions.
  const media::MediaFile& file() const { return *file_; }
  const AVStream* stream() const { return file_->stream(index_); }
  /// The container's time stamp of the first picture, in 100-ns units.
  std::int64_t startPts() const;

  /// Advances to the next picture. A new reader stands before its first.
  /// @return false at the end; then there is no current picture
  /// @throws std::bad_alloc, with no current picture
  bool Next();
  /// Makes the picture that is shown at `time` the current one. Times before the first picture mean
  /// the first.
  /// @return false past the end of the last picture; then there is no current picture
  /// @throws std::bad_alloc
  bool Seek(std::int64_t time);

  /// The current picture, or null.
  const AVFrame* frame() const { return state_ == State::kAtPicture ? frame_.get() : nullptr; }
  /// When the current picture is shown.
  std::int64_t time() const { return TimeOf(*frame_); }
  /// For how long the current picture is shown: until the next one, or, at the end, for as long as
  /// the file says.
  std::int64_t duration() const { return (hasNext_ ? TimeOf(*next_) : EndOf(*frame_)) - time(); }

 private:
  enum class State {
    kBeforeFirst,  ///< next_ is decoded and not yet current.
    kAtPicture,
    kEnded,
  };

  PictureReader(std::unique_ptr<media::MediaFile> file, int index);
  bool Start();
  bool Reopen();
  std::int64_t FindFirstTime();
  bool ReadFromBeginning();
  bool ReadFrom(std::int64_t place);
  bool LookAhead();
  int ReadPacket(AVPacket* packet);
  void FeedDecoder();
  bool Decode(AVFrame* picture);
  bool DecodeTimed(AVFrame* picture);
  void Advance();
  void ConfirmEnd();
  bool IsShortlyBefore(std::int64_t time) const;
  bool SeekByTime(std::int64_t time);
  bool DropUntil(std::int64_t time);
  std::int64_t TimeOf(const AVFrame& picture) const;
  std::int64_t EndOf(const AVFrame& picture) const;

  const std::unique_ptr<media::MediaFile> file_;
  const int index_;
  const bool isBlocks_;  ///< See PictureClock.
  media::PictureClock clock_;
  std::int64_t firstTime_ = 0;  ///< Of a first picture without a stored time, in the time base.
  /// How input_ is opened: by default without the time stamps that FFmpeg derives.
  int flags_ = AVFMT_FLAG_NOFILLIN;
  std::unique_ptr<media::MediaFile> input_;  ///< Where packets are read from.
  std::deque<media::Packet> ahead_;          ///< Packets that LookAhead read; decoded first.
  media::CodecContext codec_;
  media::Packet packet_;
  media::Frame frame_;
  media::Frame next_;
  bool hasNext_ = false;
  State state_ = State::kEnded;
  bool inputEnded_ = false;
  bool awaitsKey_ = false;      ///< After a seek, packets before the next key picture are skipped.
  bool doubtsEnd_ = false;      ///< The decoder may have lost the last pictures; see ConfirmEnd.
  std::int64_t readFrom_ = 0;   ///< First picture after the last seek, in the time base.
  std::int64_t startTime_ = 0;  ///< First picture of the stream, in the time base.
};

}  // namespace zel::kernaldec
