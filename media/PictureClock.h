// Finds the times of decoded pictures from what the container stores.
//
//   clock.Check(packet, *codec);   // every packet, before the decoder gets it
//   avcodec_send_packet(codec, packet);
//   ...
//   clock.Stamp(picture, *codec);  // every picture that the decoder outputs
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "media/Ffmpeg.h"
#include "media/Ticks.h"

namespace zel::media {

/// Many containers do not store a time for each picture. Bare streams store none, program streams
/// one per block of several pictures, AVI only the order of decoding. FFmpeg's demultiplexers fill
/// the gaps with guesses that do not hold after a seek, and that look like stored times. This class
/// takes packets as they are stored (AVFMT_FLAG_NOFILLIN) and counts on from the last stored time
/// by the length of a picture.
///
/// Times are in the stream's time base. One thread at a time.
class PictureClock {
 public:
  /// @param isBlocks true for containers that store blocks of pictures: program and transport
  ///   streams
  PictureClock(const AVFormatContext* format, const AVStream& stream, bool isBlocks);

  /// Reading starts at a picture that gets `time` unless it has a stored time.
  void StartAt(std::int64_t time);
  /// Reading continues at another place. The time is unknown until a stored one comes.
  void Lose();
  /// Call it after Lose for containers that store blocks of pictures. Finds two stored times that
  /// agree; Check compares later ones with these.
  /// @param times decoding times of the packets to come; AV_NOPTS_VALUE where none is stored
  /// @param isAll no packets follow these
  /// @return false if it takes more packets to decide
  bool Settle(const std::vector<std::int64_t>& times, bool isAll, const AVCodecContext& codec);
  /// Reads the stored times of a packet. Call it for every packet of the stream, before the decoder
  /// gets it. Removes times that seem to belong to another packet.
  void Check(AVPacket* packet, const AVCodecContext& codec);
  /// Sets the decoded picture's `pts`, AV_NOPTS_VALUE if unknown, and its `pkt_duration`, the time
  /// for which it is shown, above 0.
  void Stamp(AVFrame* picture, const AVCodecContext& codec);

  /// True if any packet so far had a stored time.
  bool StoresTimes() const { return storesShowTimes_ || storesDecodeTimes_; }
  /// Total duration of the pictures since Lose whose time is unknown.
  std::int64_t untimedLength() const { return Rounded(untimedLength_); }

 private:
  long double Length(const AVCodecContext& codec, int repeatedFields) const;
  long double DecodingLength(const AVCodecContext& codec) const;

  const bool isBlocks_;
  const AVRational base_;
  const AVRational rate_;      ///< Pictures per second, on average.
  const AVRational tickRate_;  ///< The lowest rate that expresses all times of the container.
  // What the packets have shown about the file.
  bool storesShowTimes_ = false;
  bool storesDecodeTimes_ = false;
  bool showsOutOfOrder_ = false;  ///< A packet's presentation and decoding times differ.
  bool hasGaps_ = false;          ///< Some packets have stored times, others none.
  // The position of reading. Lengths are added before they are rounded.
  std::optional<long double> end_;  ///< End of the last picture.
  long double untimedLength_ = 0;
  std::optional<long double> decodeTime_;  ///< The last stored time that was accepted.
  int packetsSince_ = 0;  ///< Packets since then; their length is known after the first picture.
  int doubts_ = 0;        ///< Consecutive stored times rejected.
};

}  // namespace zel::media
