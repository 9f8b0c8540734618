// `zel mix`: the sounds of several files in one.

#include <algorithm>

#include "tools/zel/commands/CommandLine.h"
#include "tools/zel/commands/Commands.h"
#include "tools/zel/commands/SoundFile.h"
#include "tools/zel/files/Modules.h"
#include "tools/zel/files/PacketSource.h"
#include "tools/zel/sound/BlockMixer.h"
#include "tools/zel/sound/ConvertedSound.h"
#include "tools/zel/text/Failure.h"
#include "tools/zel/text/List.h"
#include "tools/zel/text/Text.h"

namespace zel::tool {
namespace {

/// The mixer's lead in front of each block is up to 5 s long and takes some 30 microseconds.
constexpr int kBlockFrames = 16'384;
/// The mixer's limit. Every file stays open; a process may have some 1,000 open files.
constexpr int kMostFiles = BlockMixer::kMostInputs;

/// The sounds to mix, each in the format of the first.
struct Inputs {
  std::vector<ConvertedSound> converted;
  SoundFormat format;
  int firstIndex = 0;  ///< The stream of the first file.
  std::string names;   ///< For people, with what is rounded.
  double length = 0;   ///< Seconds of the longest; 0: unknown.
};

Inputs OpenInputs(const std::vector<std::string>& paths) {
  const Ref<IMediaDecoderMgr> manager = MakeDecoderManager();
  Inputs inputs;
  bool lengthKnown = true;
  for (const std::string& path : paths) {
    DecodedSound sound = OpenSound(manager.get(), path);
    if (inputs.converted.empty()) {
      inputs.format = sound.format();
      inputs.firstIndex = static_cast<int>(sound.info->GetStreamIndex());
    }
    inputs.length = std::max(inputs.length, sound.info->GetLength());
    lengthKnown = lengthKnown && sound.info->GetLength() > 0;
    std::string notes = sound.RoundingText();
    const std::string speakers = SpeakersText(sound.format(), inputs.format);
    if (!speakers.empty()) AddToList(&notes, speakers);
    AddToList(&inputs.names, Printable(path) + (notes.empty() ? "" : " (" + notes + ")"));
    inputs.converted.emplace_back(std::move(sound), inputs.format);
  }
  if (!lengthKnown) inputs.length = 0;
  return inputs;
}

}  // namespace

int RunMix(int argc, char** argv) {
  std::vector<std::string> inputs;
  OutputOptions output;
  CommandLine line(
      "mix",
      "Mix the sounds of two or more files into OUTPUT, at the rate and in the channels of the\n"
      "first. OUTPUT lasts as long as the longest. Where the sum is too loud, the gain falls to\n"
      "what fits, and creeps back.");
  line.AddFiles("INPUT", &inputs, 2, kMostFiles,
                "Audio or video files, 2 to " + std::to_string(kMostFiles));
  output.AddTo(&line);
  if (!line.Parse(argc, argv)) return kDone;
  output.Check(inputs);
  const Container& container = ContainerOf(output.path);

  const PacketSource first(inputs[0]);
  Inputs sounds = OpenInputs(inputs);
  const SoundFormat& format = sounds.format;

  MediaWriter writer(output.path, container);
  AddSoundLike(&writer, format, first.stream(sounds.firstIndex), false);
  const int room = kBlockFrames * format.channels;
  BlockMixer mixer(static_cast<int>(inputs.size()), room);
  const SoundFile file{output, format, inputs[0], "mix of " + sounds.names, sounds.length};
  file.Write(&writer, [&](int* frames) {
    int longest = 0;
    for (std::size_t i = 0; i < sounds.converted.size(); ++i) {
      short* block = mixer.Input(static_cast<int>(i));
      const int count = sounds.converted[i].Read(block, room);
      std::fill(block + count, block + room, short{0});
      longest = std::max(longest, count);
    }
    *frames = longest / format.channels;
    return mixer.Mix(longest);
  });
  return kDone;
}

}  // namespace zel::tool
