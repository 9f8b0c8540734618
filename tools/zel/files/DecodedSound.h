// Decoded sound of media files, and which of a file's sounds to take.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "kernaldec/DecodedAudio.h"
#include "tools/zel/files/SoundFormat.h"
#include "zel/base/Ref.h"
#include "zel/compositor/MediaStream.h"
#include "zel/mediainfo/StreamInfo.h"
#include "zel/platform/DecoderManager.h"

namespace zel::tool {

/// "speakers 5.1(side) taken as 5.1" where the channels of `from` become as many channels of `to`
/// that are other speakers; empty where they are the same, or unknown.
std::string SpeakersText(SoundFormat from, SoundFormat to);

/// The speakers of sound that was mixed to `channels` channels.
std::uint64_t UsualSpeakers(int channels);

/// An opened sound of a file.
struct DecodedSound {
  std::string path;
  Ref<IMediaStream> stream;
  Ref<IDecodedAudio> controls;
  Ref<IStreamInfo> info;  ///< Says what the stream yields.
  SDecodedSound details = {};

  SoundFormat format() const {
    return {info->GetAudioInfo()->sampleRate, info->GetAudioInfo()->channels, details.speakers};
  }
  /// "24-bit sound rounded to 16 bits" where the file stores more than the stream yields, or empty.
  std::string RoundingText() const;
  /// Reads `info` and `details` again, after a change of what the stream yields.
  /// @throws Failure when its sound has no format
  void Refresh();
  /// Checks that the sound read so far is what the file should hold.
  /// @throws Failure
  void CheckStatus() const;
};

/// Opens the sound that `selection` names, or the file's first one. Checks that the file is as long
/// as its parts claim.
/// @throws Failure
DecodedSound OpenSound(IMediaDecoderMgr* manager, const std::string& path,
                       DecoderSelection selection = {});

/// Opens audio stream `number`, counted from 0 over all programs in the order of `zel info`. A
/// stream that several programs share counts once.
/// @throws Failure
DecodedSound OpenNumberedSound(IMediaDecoderMgr* manager, const std::string& path, int number);

/// Finds the sound of `path` with the id `stream`, the first one of `program`, or, with both, the
/// stream of that id in that program. With neither, selects nothing.
/// @throws Failure, which lists the ids of the file, when it has no such sound
DecoderSelection SelectSound(IMediaDecoderMgr* manager, const std::string& path,
                             std::optional<std::uint32_t> program,
                             std::optional<std::uint32_t> stream);

}  // namespace zel::tool
