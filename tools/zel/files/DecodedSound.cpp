#include "tools/zel/files/DecodedSound.h"

#include <algorithm>
#include <set>
#include <utility>
#include <vector>

#include "media/Ffmpeg.h"
#include "media/Utf8.h"
#include "tools/zel/files/MediaPrograms.h"
#include "tools/zel/files/PacketSource.h"
#include "tools/zel/text/Failure.h"
#include "tools/zel/text/List.h"

namespace zel::tool {
namespace {

/// A sound, where it stands among its program's, and the first of those.
struct SoundPlace {
  Ref<IProgramInfo> program;
  Ref<IStreamInfo> sound;
  Ref<IStreamInfo> first;
  int index;
};

DecoderSelection SelectionOf(IProgramInfo* program, IStreamInfo* stream) {
  return {sizeof(DecoderSelection), 0, program->GetID(), stream->GetID(), {}};
}

std::vector<SoundPlace> SoundsIn(const std::vector<Ref<IProgramInfo>>& programs) {
  std::vector<SoundPlace> places;
  for (const Ref<IProgramInfo>& program : programs) {
    const auto sounds = StreamsOf(program.get(), StreamKind::kAudio);
    for (std::size_t i = 0; i < sounds.size(); ++i) {
      places.push_back({program, sounds[i], sounds[0], static_cast<int>(i)});
    }
  }
  return places;
}

/// The sound that a decoder yields for `selection`, or null.
Ref<IMediaStream> StreamOf(IMediaDecoderMgr* manager, const std::string& path,
                           DecoderSelection selection) {
  Ref<IMediaDecoder> decoder;
  Ref<IMediaStream> stream;
  CheckMemory(path, manager->CreateDecoder(media::ToWide(path).c_str(), 0, &selection, 11,
                                           decoder.Receive()));
  if (decoder) CheckMemory(path, decoder->GetAudioStream(stream.Receive()));
  return stream;
}

/// Opens a program's first sound and changes to the wanted one. Opens the wanted one itself where
/// the first cannot be decoded. Null when neither works.
Ref<IMediaStream> StreamAt(IMediaDecoderMgr* manager, const std::string& path,
                           const SoundPlace& place) {
  IProgramInfo* program = place.program.get();
  Ref<IMediaStream> stream = StreamOf(manager, path, SelectionOf(program, place.first.get()));
  if (!stream) return StreamOf(manager, path, SelectionOf(program, place.sound.get()));
  if (place.index > 0 && stream->ChangeStream(place.index) != S_OK) return nullptr;
  return stream;
}

DecodedSound Controlled(const std::string& path, Ref<IMediaStream> stream) {
  DecodedSound sound{path, std::move(stream), {}, {}, {}};
  sound.stream->QueryInterface(IID_IDecodedAudio, sound.controls.ReceiveVoid());
  if (!sound.controls) throw Failure(path, "its decoder cannot be controlled");
  sound.Refresh();
  CheckSize(path);
  return sound;
}

std::string WhyNoProgram(const std::vector<Ref<IProgramInfo>>& programs, std::uint32_t wanted) {
  std::string ids;
  for (const auto& program : programs) AddToList(&ids, std::to_string(program->GetID()));
  return "no program " + std::to_string(wanted) + "; there are: " + ids;
}

/// @param stream the id that none of `sounds` has; unset when there are none of them at all
std::string WhyNoStream(const std::vector<SoundPlace>& sounds, std::optional<std::uint32_t> program,
                        std::optional<std::uint32_t> stream) {
  const std::string where = program ? " in program " + std::to_string(*program) : "";
  if (program && sounds.empty()) return "no audio stream" + where;
  std::string ids;
  for (const SoundPlace& place : sounds) AddToList(&ids, IdText(place.sound->GetID()));
  return "no audio stream " + IdText(*stream) + where +
         "; there are: " + (ids.empty() ? "none" : ids);
}

}  // namespace

std::uint64_t UsualSpeakers(int channels) {
  AVChannelLayout layout{};
  av_channel_layout_default(&layout, channels);
  return layout.order == AV_CHANNEL_ORDER_NATIVE ? layout.u.mask : 0;
}

std::string SpeakersText(SoundFormat from, SoundFormat to) {
  if (from.channels != to.channels || from.speakers == 0 || to.speakers == 0 ||
      from.speakers == to.speakers) {
    return {};
  }
  const auto name = [](const SoundFormat& format) {
    const AVChannelLayout layout{
        AV_CHANNEL_ORDER_NATIVE, format.channels, {format.speakers}, nullptr};
    char text[128] = {};
    av_channel_layout_describe(&layout, text, sizeof(text));
    return std::string(text);
  };
  return "speakers " + name(from) + " taken as " + name(to);
}

void DecodedSound::Refresh() {
  stream->GetStreamInfo(info.Receive());
  if (!info || info->GetAudioInfo() == nullptr || format().channels <= 0 ||
      format().sampleRate <= 0) {
    throw Failure(path, "its sound has no format");
  }
  controls->GetSound(&details);
}

std::string DecodedSound::RoundingText() const {
  if (details.sourceBits <= 16) return {};
  return std::to_string(details.sourceBits) +
         (details.sourceIsFloat != 0 ? "-bit floating-point" : "-bit") +
         " sound rounded to 16 bits";
}

void DecodedSound::CheckStatus() const {
  wchar_t* text = nullptr;
  if (controls->GetStatus(&text) != S_OK) throw Failure(path, TakeText(text));
}

DecodedSound OpenSound(IMediaDecoderMgr* manager, const std::string& path,
                       DecoderSelection selection) {
  const Ref<IMediaStream> stream = StreamOf(manager, path, selection);
  if (!stream) throw Failure(path, WhyNoSound(path));
  return Controlled(path, stream);
}

DecodedSound OpenNumberedSound(IMediaDecoderMgr* manager, const std::string& path, int number) {
  if (number == 0) return OpenSound(manager, path);
  std::set<unsigned long> seen;  // Programs may share streams.
  const Ref<IMediaInfo> media = OpenMedia(manager, path);
  for (const SoundPlace& place : SoundsIn(ProgramsOf(media.get()))) {
    if (!seen.insert(place.sound->GetStreamIndex()).second) continue;
    if (seen.size() <= static_cast<std::size_t>(number)) continue;
    const Ref<IMediaStream> stream = StreamAt(manager, path, place);
    if (stream) return Controlled(path, stream);
    throw Failure(path, "its audio stream " + std::to_string(number) + " cannot be decoded");
  }
  if (seen.empty()) throw Failure(path, WhyNoSound(path));
  throw Failure(path, "has no audio stream " + std::to_string(number) + ": it has " +
                          std::to_string(seen.size()) + ", counted from 0");
}

DecoderSelection SelectSound(IMediaDecoderMgr* manager, const std::string& path,
                             std::optional<std::uint32_t> program,
                             std::optional<std::uint32_t> stream) {
  if (!program && !stream) return {};
  const Ref<IMediaInfo> media = OpenMedia(manager, path);
  std::vector<Ref<IProgramInfo>> programs = ProgramsOf(media.get());
  if (program) {
    const auto isOther = [&](const auto& candidate) { return candidate->GetID() != *program; };
    if (std::all_of(programs.begin(), programs.end(), isOther)) {
      throw Failure(path, WhyNoProgram(programs, *program));
    }
    std::erase_if(programs, isOther);
  }
  const std::vector<SoundPlace> sounds = SoundsIn(programs);
  for (const SoundPlace& place : sounds) {
    if (!stream || *stream == place.sound->GetID()) {
      return SelectionOf(place.program.get(), place.sound.get());
    }
  }
  throw Failure(path, WhyNoStream(sounds, program, stream));
}

}  // namespace zel::tool
