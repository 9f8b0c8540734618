// Times for the pictures of files that do not store when each one is shown.
//
//   order.Add(packet);                          // each packet of the stream, as it is stored
//   while (order.Take(packet)) { ... }          // in the same order, with both times
//   ...
//   order.End();
//   while (order.Take(packet)) { ... }
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

extern "C" {
#include <libavcodec/bsf.h>
}

#include "media/Ffmpeg.h"
#include "media/PictureClock.h"

namespace zel::tool {

/// Packets come in the order of decoding. AVI stores the times of that order only, program streams
/// one time for several pictures. This class holds packets back until it knows their places in the
/// order of showing, from what FFmpeg's parsers read in the pictures' heads, and then asks
/// PictureClock, so that a copy shows each picture when `zel frame` finds it.
///
/// A packet that holds two pictures of MPEG-4 (a packed one) becomes two. One thread at a time.
class DisplayOrder {
 public:
  /// @param format the file, read with the times that FFmpeg derives; it must outlive this object
  /// @param isBlocks as for PictureClock
  /// @throws std::bad_alloc
  DisplayOrder(const AVFormatContext* format, const AVStream& stream, bool isBlocks);

  /// The stream's format, as it is without packed pictures.
  const AVCodecParameters& parameters() const;

  /// Takes the contents of the next packet.
  void Add(AVPacket* packet);
  /// No packets follow.
  void End();
  /// Moves the next packet whose times are known to `packet`, which must be empty. Its times are in
  /// the stream's time base.
  /// @return false when there is none
  bool Take(AVPacket* packet);

 private:
  /// How the order of showing follows from the packets.
  enum class Rule {
    kAsDecoded,  ///< It is the order of decoding.
    kByType,     ///< Other pictures are shown after the B pictures that follow them.
    kByNumber,   ///< Key pictures begin groups; within a group, the parser numbers the pictures.
  };
  struct Picture {
    media::Packet packet;
    std::int64_t place = 0;   ///< In the order of decoding.
    std::int64_t group = 0;   ///< kByNumber: those of one group are shown before the next one's.
    std::int64_t number = 0;  ///< kByNumber: the order within the group.
    int repeatedFields = 0;   ///< As AVFrame::repeat_pict.
    bool isField = false;
    bool isTimed = false;
  };
  struct FreeFilter {
    void operator()(AVBSFContext* filter) const { av_bsf_free(&filter); }
  };
  struct CloseParser {
    void operator()(AVCodecParserContext* parser) const { av_parser_close(parser); }
  };

  static Rule RuleOf(AVCodecID codec);
  void TakeUnpacked();
  void AddPicture(AVPacket* packet);
  AVPictureType Parse(Picture* picture);
  void GuessDepth();
  void ShowFirst();
  void Show(Picture* picture);
  void Finish(Picture* picture, std::int64_t time);

  Rule rule_;
  media::PictureClock clock_;
  media::CodecContext codec_;  ///< What the parser tells. It decodes nothing.
  std::unique_ptr<AVCodecParserContext, CloseParser> parser_;
  std::unique_ptr<AVBSFContext, FreeFilter> unpacker_;
  media::Packet unpacked_;
  media::Frame frame_;

  std::deque<std::unique_ptr<Picture>> pictures_;  ///< In the order of decoding.
  std::vector<Picture*> waiting_;                  ///< Not yet shown, in the order of showing.
  std::vector<Picture*> untimed_;                  ///< Shown before the first known time.
  std::deque<std::int64_t> decodeTimes_;  ///< As stored, of packet number shown_ and later ones.
  std::deque<std::int64_t> showTimes_;  ///< In the order of showing; the first is number dropped_.
  std::int64_t added_ = 0;
  std::int64_t shown_ = 0;
  std::int64_t taken_ = 0;
  std::int64_t dropped_ = 0;
  std::int64_t depth_ = 0;  ///< By how many pictures showing lags behind decoding.
  std::int64_t group_ = 0;
  std::int64_t highest_ = 0;       ///< Number in the current group.
  std::int64_t shownGroup_ = 0;    ///< Of the last picture shown.
  std::int64_t shownNumber_ = 0;   ///< Of the last picture shown.
  std::size_t window_;             ///< Pictures that may precede one and be shown after it.
  bool awaitsField_ = false;       ///< The last picture shown was the first field of a frame.
  std::int64_t lastTime_ = 0;      ///< Of the last picture shown.
  std::int64_t lastDuration_ = 0;  ///< Of the last picture shown.
};

}  // namespace zel::tool
