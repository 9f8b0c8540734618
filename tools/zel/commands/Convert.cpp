// `zel convert`: a file's sound in another format.

#include "tools/zel/commands/CommandLine.h"
#include "tools/zel/commands/Commands.h"
#include "tools/zel/commands/SoundFile.h"
#include "tools/zel/files/Modules.h"
#include "tools/zel/files/PacketSource.h"
#include "tools/zel/sound/ConvertedSound.h"
#include "tools/zel/text/Failure.h"
#include "tools/zel/text/Text.h"

namespace zel::tool {
namespace {

constexpr int kBlockFrames = 4096;

}  // namespace

int RunConvert(int argc, char** argv) {
  std::string input;
  OutputOptions output;
  SelectionOptions selection;
  int audioStream = 0;
  SoundFormat wanted;
  CommandLine line("convert",
                   "Write the sound of INPUT to OUTPUT, at another rate or in other channels.\n"
                   "Rates change by linear interpolation, without a filter.");
  line.AddFile("INPUT", &input, "Audio or video file");
  output.AddTo(&line);
  line.AddNumber("-r,--rate", "R", &wanted.sampleRate, 1000, 768'000,
                 "Samples per second, 1000 to 768000; INPUT's if not given");
  line.AddNumber("-c,--channels", "C", &wanted.channels, 1, 8,
                 "Channels, 1 to 8; INPUT's if not given");
  line.AddNumber("--audio-stream", "N", &audioStream, 0, 0xFFFF,
                 "Which audio stream of INPUT to use, counted from 0");
  selection.AddTo(&line, "INPUT");
  line.MakeExclude("--audio-stream", "--stream");
  line.MakeExclude("--audio-stream", "--program");
  if (!line.Parse(argc, argv)) return kDone;
  output.Check({input});
  const Container& container = ContainerOf(output.path);

  const PacketSource source(input);
  const Ref<IMediaDecoderMgr> manager = MakeDecoderManager();
  DecodedSound sound = audioStream > 0 ? OpenNumberedSound(manager.get(), input, audioStream)
                                       : selection.Open(manager.get(), input);
  const Ref<IStreamInfo> info = sound.info;
  if (wanted.sampleRate == 0) wanted.sampleRate = sound.format().sampleRate;
  const SoundFormat own = sound.format();
  if (wanted.channels == 0) wanted.channels = own.channels;
  wanted.speakers = wanted.channels == own.channels ? own.speakers : UsualSpeakers(wanted.channels);
  std::string story = "sound of " + Printable(input);
  if (const std::string rounding = sound.RoundingText(); !rounding.empty()) {
    story += " (" + rounding + ")";
  }
  ConvertedSound converted(std::move(sound), wanted);

  MediaWriter writer(output.path, container);
  AddSoundLike(&writer, wanted, source.stream(static_cast<int>(info->GetStreamIndex())), true);
  writer.AddDescription(source.context(), -info->GetStartPTS());
  std::vector<short> block(static_cast<std::size_t>(kBlockFrames * wanted.channels));
  const SoundFile file{output, wanted, input, story, info->GetLength()};
  file.Write(&writer, [&](int* frames) {
    *frames = converted.Read(block.data(), static_cast<int>(block.size())) / wanted.channels;
    return block.data();
  });
  return kDone;
}

}  // namespace zel::tool
