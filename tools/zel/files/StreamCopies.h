// The streams that go from a file into another packet for packet.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "tools/zel/files/Container.h"
#include "tools/zel/files/DisplayOrder.h"
#include "tools/zel/files/MediaWriter.h"
#include "tools/zel/files/PacketSource.h"

namespace zel::tool {

/// Chooses which streams of `source` the output holds, and copies them in step with its sound. The
/// objects given to the constructor must outlive this one.
class StreamCopies {
 public:
  /// @param output names the output in failures
  StreamCopies(PacketSource* source, MediaWriter* writer, const Container& container,
               const std::string& output);

  /// Adds a copy of stream `index` to the output, or notes that it is left out.
  /// @throws Failure when the stream is a video that cannot be copied
  void Add(int index);

  /// Copies the packets that come before the time stamp `until` of the source.
  /// @param shift is added to every time stamp; both in 100-ns units
  /// @throws Failure
  void CopyUntil(std::int64_t until, std::int64_t shift);

  /// Checks, when all is copied, that the streams are as long as the source says.
  /// @param soundEnd of the sound that is not copied, on the source's axis, in 100-ns units
  /// @throws Failure
  void CheckEnds(std::int64_t soundEnd) const;

  /// The copied streams in words, such as "#0 video (h264), #2 audio (aac)".
  const std::string& copied() const { return copied_; }
  /// The streams without a place in the output, in words.
  const std::string& leftOut() const { return leftOut_; }
  /// What the output cannot say of the copied streams, in words.
  const std::string& lost() const { return lost_; }

 private:
  /// A stream that is copied.
  struct Copy {
    int index = 0;                        ///< In the output.
    std::unique_ptr<DisplayOrder> order;  ///< Of pictures without times of showing, else null.
    long double end = 0;     ///< Of the last packet of sound, in the stream's time base.
    std::int64_t first = 0;  ///< The earliest time and the latest end that were copied, likewise.
    std::int64_t last = 0;
    bool isStarted = false;
    bool isCut = false;  ///< The last packet was read in part.
  };

  bool HasTimeCode() const;
  void NoteLosses(const AVStream& stream, const std::string& what);
  bool Load();
  void Send(Copy* copy, AVPacket* packet, AVRational base, std::int64_t shift);
  void SendOrdered(Copy* copy, AVRational base, std::int64_t shift);

  PacketSource* source_;
  MediaWriter* writer_;
  const Container& container_;
  std::string output_;
  std::map<int, Copy> copies_;  ///< By index in the source.
  bool isAsStored_ = false;     ///< The source yields no times but stored ones.
  std::string copied_;
  std::string leftOut_;
  std::string lost_;
  media::Packet packet_{media::NotNull(av_packet_alloc())};  ///< The next one to copy, or empty.
  media::Packet ordered_{media::NotNull(av_packet_alloc())};
  bool ended_ = false;
  bool isWhole_ = true;  ///< Every stream that has a length is copied, or is the sound.
};

}  // namespace zel::tool
