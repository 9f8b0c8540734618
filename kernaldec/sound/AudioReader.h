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

  const media::MediaFile& file() const { return *m_file; }
  const AVStream* stream() const { return m_file->stream(m_index); }
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
  const AVFrame* frame() const { return m_state == State::kAtFrame ? m_frame.get() : nullptr; }
  int firstSample() const { return m_first; }
  int sampleCount() const { return m_frame->nb_samples - m_first; }
  /// Time of the first current sample.
  long double time() const {
    return FrameTime() + static_cast<long double>(m_first) / m_clock.rate;
  }
  /// The same in 100-ns units, rounded to the nearest.
  std::int64_t timeStamp() const;
  /// Rate and channels of the stream's first frame.
  int firstRate() const { return m_firstRate; }
  int firstChannels() const { return m_firstChannels; }

  /// What went wrong since the reader was opened, as one line; empty while all is well.
  const std::string& failure() const { return m_failure; }

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

  std::unique_ptr<media::MediaFile> m_file;
  int m_index = 0;
  media::CodecContext m_codec;
  media::Packet m_packet;
  media::Frame m_frame;
  State m_state = State::kEnded;
  bool m_madeUpStamps = false;  ///< Stamps after the first do not count.
  bool m_shortReads = false;    ///< Packets that are marked as damaged may be only short.
  bool m_inputEnded = false;
  int m_first = 0;
  int m_firstRate = 0;
  int m_firstChannels = 0;
  std::int64_t m_startTicks = 0;  ///< In the stream's time base.
  Clock m_clock;
  std::int64_t m_position = 0;  ///< First sample of the frame, in the clock's terms.
  // The grid of equal frames, for containers whose stamps are coarser than a sample.
  bool m_fromStart = false;  ///< All frames since the start have been read.
  std::int64_t m_framesRead = 0;
  std::int64_t m_gridPhase = 0;
  std::int64_t m_gridStep = 0;
  int m_lostPackets = 0;  ///< Since the last good frame.
  std::string m_failure;
};

}  // namespace zel::kernaldec
