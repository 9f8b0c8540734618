// The output file: one stream of encoded sound, and streams that are copied.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "media/Ffmpeg.h"
#include "tools/zel/files/Container.h"
#include "tools/zel/files/PendingFile.h"
#include "tools/zel/files/SoundEncoder.h"

namespace zel::tool {

/// Writes a media file that appears under its name with Finish.
///
/// Call AddCopy and AddSound in the order of the file's streams; Start; WriteCopy and WriteSound,
/// in order within each stream; Finish. All of them throw Failure.
class MediaWriter {
 public:
  /// Makes no file yet.
  MediaWriter(const std::string& path, const Container& container);

  /// Tells whether the container can hold a copy of `stream`.
  /// @param codec its format
  /// @throws std::bad_alloc
  bool Holds(const AVStream& stream, const AVCodecParameters& codec) const;
  /// Tells whether the container stores edit lists and rotations: MP4 and QuickTime.
  bool HasEdits() const;
  /// Adds a copy of `stream`.
  /// @param codec its format
  /// @return its index in this file.
  int AddCopy(const AVStream& stream, const AVCodecParameters& codec);
  /// Adds the sound.
  /// @param like the stream whose texts and disposition are copied, or null
  void AddSound(SoundFormat format, const AVChannelLayout& layout, const AVStream* like);
  /// Copies what describes `source` as a whole: its texts, and its chapters, moved by `shift`
  /// (100-ns units).
  void AddDescription(const AVFormatContext& source, std::int64_t shift);
  const SoundEncoder& sound() const { return *sound_; }
  /// What the file cannot say of its streams, such as "language de-CH of #1"; numbers are those of
  /// the streams that they were made of. Empty when that is nothing.
  const std::string& lost() const { return lost_; }

  /// Makes the file and writes its head.
  /// @param soundStart time of the first sample of sound, in 100-ns units.
  void Start(bool overwrite, std::int64_t soundStart);
  /// Writes `packet`, whose time stamps are in units of `timeBase`, and leaves it empty.
  void WriteCopy(AVPacket* packet, int index, AVRational timeBase);
  /// @param pcm `frames` interleaved frames.
  void WriteSound(const std::uint8_t* pcm, int frames);
  /// Ends the file and gives it its name.
  void Finish();

 private:
  struct FreeIo {
    void operator()(AVIOContext* io) const {
      av_freep(&io->buffer);
      avio_context_free(&io);
    }
  };

  void StoreLanguage(AVStream* stream, int source);
  AVDictionary* MuxerOptions() const;
  void NotePriming(const AVPacket& packet);
  void Send(AVPacket* packet);
  void Check(int result);

  std::string path_;
  const Container& container_;
  std::unique_ptr<PendingFile> file_;
  std::unique_ptr<AVIOContext, FreeIo> io_;
  media::Muxer muxer_;
  std::unique_ptr<SoundEncoder> sound_;
  SoundEncoder::Sink soundSink_;
  AVStream* soundStream_ = nullptr;
  std::vector<std::int64_t> lastDts_;
  std::vector<int> priming_;  ///< Of each stream, in samples.
  std::string lost_;
};

}  // namespace zel::tool
