// `zel convert`: a file's sound in another format.

#include "tools/zel/Commands.h"
#include "tools/zel/ConvertedSound.h"
#include "tools/zel/Failure.h"
#include "tools/zel/PacketSource.h"
#include "tools/zel/SoundFile.h"
#include "tools/zel/Text.h"

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
  const auto parser =
      MakeParser("convert",
                 "Write the sound of INPUT to OUTPUT, at another rate or in other channels.\n"
                 "Rates change by linear interpolation, without a filter.");
  parser->add_option("INPUT", input, "Audio or video file")->required();
  output.AddTo(parser.get());
  AddNumber(parser.get(), "-r,--rate", &wanted.sampleRate, 1000, 768'000,
            "Samples per second, 1000 to 768000; INPUT's if not given")
      ->type_name("R");
  AddNumber(parser.get(), "-c,--channels", &wanted.channels, 1, 8,
            "Channels, 1 to 8; INPUT's if not given")
      ->type_name("C");
  AddNumber(parser.get(), "--audio-stream", &audioStream, 0, 0xFFFF,
            "Which audio stream of INPUT to use, counted from 0")
      ->type_name("N");
  selection.AddTo(parser.get(), "INPUT");
  parser->get_option("--audio-stream")->excludes("--stream")->excludes("--program");
  if (!Parse(*parser, argc, argv)) return kDone;
  output.Check({input});
  const Container& container = ContainerOf(output.path);

  const PacketSource source(input);
  const ComPtr<IMediaDecoderMgr> manager = MakeDecoderManager();
  DecodedSound sound = audioStream > 0 ? OpenNumberedSound(manager.get(), input, audioStream)
                                       : selection.Open(manager.get(), input);
  const ComPtr<IStreamInfo> info = sound.info;
  if (wanted.sampleRate == 0) wanted.sampleRate = sound.format().sampleRate;
  if (wanted.channels == 0) wanted.channels = sound.format().channels;
  ConvertedSound converted(std::move(sound), wanted);

  MediaWriter writer(output.path, container);
  AddSoundLike(&writer, wanted, source.stream(static_cast<int>(info->GetStreamIndex())), true);
  writer.AddDescription(source.context(), -info->GetStartPTS());
  std::vector<short> block(static_cast<std::size_t>(kBlockFrames * wanted.channels));
  const SoundFile file{output, wanted, input, "sound of " + Printable(input), info->GetLength()};
  file.Write(&writer, [&](int* frames) {
    *frames = converted.Read(block.data(), static_cast<int>(block.size())) / wanted.channels;
    return block.data();
  });
  return kDone;
}

}  // namespace zel::tool
