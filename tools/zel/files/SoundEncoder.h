// From 16-bit PCM to packets of an encoder.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "media/Ffmpeg.h"
#include "tools/zel/files/Container.h"
#include "tools/zel/files/SoundFormat.h"

namespace zel::tool {

/// Encodes one stream of sound without gaps. PCM stays as it is.
class SoundEncoder {
 public:
  /// Receives each packet, with its time stamps in units of timeBase().
  using Sink = std::function<void(AVPacket*)>;

  /// @param file names the output in failures
  /// @param layout the speakers of the channels; those of the sides may be renamed
  /// @param globalHeader whether the container holds the encoder's header
  /// @throws Failure when the encoder does not take the format, or cannot say the layout
  SoundEncoder(const std::string& file, const Container& container, SoundFormat format,
               const AVChannelLayout& layout, bool globalHeader);

  /// Describes the packets to a muxer. @throws Failure
  void Describe(AVCodecParameters* parameters) const;
  AVRational timeBase() const { return {1, outRate_}; }
  /// Samples per second as stored: the sound's own unless the encoder does not take that rate.
  int outRate() const { return outRate_; }
  /// How the layout that is stored differs, such as "speakers 5.1(side) stored as 5.1", or empty.
  const std::string& layoutNote() const { return layoutNote_; }

  /// Sets the time of the first sample, in 100-ns units.
  void Start(std::int64_t time);
  /// @param pcm `frames` interleaved frames.
  /// @throws Failure
  void Write(const std::uint8_t* pcm, int frames, const Sink& sink);
  /// Ends the stream. @throws Failure
  void Finish(const Sink& sink);

 private:
  void OpenEncoder(const AVCodec* codec, const Container& container, const AVChannelLayout& layout,
                   bool globalHeader);
  AVChannelLayout LayoutToStore(AVCodecID codec, const AVChannelLayout& layout,
                                const std::string& what);
  void OpenResampler();
  void Convert(const std::uint8_t* pcm, int frames);
  void Encode(bool all, const Sink& sink);
  void Drain(const Sink& sink);
  void Check(int result) const;

  std::string file_;
  SoundFormat format_;
  int outRate_;
  media::CodecContext encoder_;  ///< Null: PCM.
  AVChannelLayout layout_;
  std::string layoutNote_;
  media::Resampler resampler_;  ///< Null: the encoder takes interleaved 16-bit at this rate.
  media::Frame converted_;
  int convertedRoom_ = 0;
  media::Fifo fifo_;
  media::Frame frame_;
  media::Packet packet_;
  std::int64_t next_ = 0;  ///< Time of the next frame, in units of timeBase().
};

}  // namespace zel::tool
