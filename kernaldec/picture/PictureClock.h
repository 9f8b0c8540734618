// The times of decoded pictures, made from what the container stores.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "media/Ffmpeg.h"
#include "media/Ticks.h"

namespace zel::kernaldec {

/// Many containers do not store a time for each picture: bare streams have none, program streams
/// one for each block of several pictures, AVI only the places of pictures in the order of
/// decoding. FFmpeg's demultiplexers fill the gaps with guesses that do not hold after a seek, and
/// that cannot be told from stored times any more. So this takes packets that are as stored
/// (AVFMT_FLAG_NOFILLIN), and counts on from the last stored time by the length of a picture.
/// All times are in the stream's time base. One thread at a time.
class PictureClock {
 public:
  /// @param isBlocks whether the container holds blocks of pictures: a program or transport stream
  PictureClock(const AVFormatContext* format, const AVStream& stream, bool isBlocks);

  /// Reading starts anew with a picture that comes at `time`, if it has no time of its own.
  void StartAt(std::int64_t time);
  /// Reading goes on elsewhere: the time is unknown until one is stored.
  void Lose();
  /// After Lose, for containers that hold blocks of pictures: finds packets whose times agree, by
  /// which to know those that are not theirs.
  /// @param times the decoding times of the packets to come, AV_NOPTS_VALUE where there is none
  /// @param isAll no more come after these
  /// @return false if it takes more packets to tell
  bool Settle(const std::vector<std::int64_t>& times, bool isAll, const AVCodecContext& codec);
  /// Takes notice of every packet of the stream, before the decoder does. Takes away times that the
  /// packet does not seem to own.
  void Check(AVPacket* packet, const AVCodecContext& codec);
  /// Sets the decoded picture's `pts`, AV_NOPTS_VALUE if unknown, and the length of time for which
  /// it is meant to be shown, `pkt_duration`, above 0.
  void Stamp(AVFrame* picture, const AVCodecContext& codec);

  /// True if any packet so far had a time.
  bool StoresTimes() const { return storesShowTimes_ || storesDecodeTimes_; }
  /// For how long the pictures are shown that have come without a time since Lose.
  std::int64_t UntimedLength() const { return media::Rounded(untimedLength_); }

 private:
  long double Length(const AVCodecContext& codec, int repeatedFields) const;
  long double DecodingLength(const AVCodecContext& codec) const;

  const bool isBlocks_;
  const AVRational base_;
  const AVRational rate_;      ///< Of pictures, on the average.
  const AVRational mostRate_;  ///< By which all times of the container can be told.
  // What the file is like.
  bool storesShowTimes_ = false;
  bool storesDecodeTimes_ = false;
  bool showsOutOfOrder_ = false;  ///< Some packet's two times differ.
  bool hasGaps_ = false;          ///< Some pictures have times, others none.
  // Where reading is. Lengths are not rounded before they are added.
  std::optional<long double> end_;  ///< Of the picture before, if known.
  long double untimedLength_ = 0;
  std::optional<long double> decodeTime_;  ///< The last one that was stored and believed.
  int packetsSince_ = 0;  ///< Not their length: the rate becomes known with the first picture.
  int doubts_ = 0;        ///< As many of the last stored times were taken away.
};

}  // namespace zel::kernaldec
