// `zel wave`: draws the wave forms of files under each other.

#include <algorithm>
#include <optional>
#include <vector>

#include "tools/zel/commands/CommandLine.h"
#include "tools/zel/commands/Commands.h"
#include "tools/zel/commands/Options.h"
#include "tools/zel/commands/Progress.h"
#include "tools/zel/commands/SoundFile.h"
#include "tools/zel/files/DecodedSound.h"
#include "tools/zel/files/Modules.h"
#include "tools/zel/files/PacketSource.h"
#include "tools/zel/picture/PictureFile.h"
#include "tools/zel/picture/WaveChart.h"
#include "tools/zel/sound/SteadyStream.h"
#include "tools/zel/text/Delay.h"
#include "tools/zel/text/Failure.h"
#include "tools/zel/text/Output.h"
#include "tools/zel/text/Text.h"
#include "zel/sample/Sample.h"

namespace zel::tool {
namespace {

struct Options {
  std::vector<std::string> files;
  OutputOptions output;
  std::optional<PictureSize> size;
};

/// A file that is going to be read.
struct Source {
  std::string path;
  DecodedSound sound;
  double length;  ///< As the file says.
};

Source Open(IMediaDecoderMgr* manager, const std::string& path) {
  Source source{path, OpenSound(manager, path), 0};
  source.length = std::max(source.sound.info->GetLength(), 0.0);
  // A sound that begins after the picture stands where it is heard.
  const PacketSource packets(path);
  source.sound.controls->SetTimeOrigin(packets.BeginningWith(source.sound.info->GetStartPTS()));
  return source;
}

/// Reads a file's sound from beginning to end.
/// @param before seconds of the files before it
Wave Read(const Source& source, double before, Progress* progress) {
  const SoundFormat format = source.sound.format();
  Wave wave{Printable(source.path), "", 0, format.sampleRate, Envelope(format.channels)};
  const auto stream = MakeComponent<SteadyStream>(source.sound.stream);
  for (;;) {
    stream->Forward();
    CZelSample* sample = stream->GetSampleEx();
    if (sample == nullptr) break;
    const MEDIA_FRAME& frame = *sample->GetMediaFrame();
    if (frame.audio.nChannels != format.channels || frame.audio.nSampleRate != format.sampleRate) {
      throw Failure(source.path, "the format of its sound changes on the way");
    }
    if (wave.envelope.frames() == 0)
      wave.start = static_cast<double>(frame.llPTS) / kTicksPerSecond;
    wave.envelope.Add(reinterpret_cast<const short*>(frame.audio.pData),
                      frame.audio.nDataSize / (2 * format.channels));
    progress->Update(before + static_cast<double>(wave.envelope.frames()) / format.sampleRate);
  }
  source.sound.CheckStatus();
  if (wave.envelope.frames() == 0) throw Failure(source.path, "its sound is empty");
  wave.detail = FormatText(format) + ", " + ClockText(wave.End() - wave.start);
  return wave;
}

void Run(const Options& options) {
  PictureFormatOf(options.output.path);
  options.output.Check(options.files);

  const Ref<IMediaDecoderMgr> manager = MakeDecoderManager();
  std::vector<Source> sources;
  double total = 0;
  for (const std::string& path : options.files) {
    sources.push_back(Open(manager.get(), path));
    total += sources.back().length;
  }
  std::vector<Wave> waves;
  double longest = 0;
  {
    Progress progress(total, options.output.quiet);
    double done = 0;
    for (Source& source : sources) {
      waves.push_back(Read(source, done, &progress));
      done += waves.back().End() - waves.back().start;
      longest = std::max(longest, waves.back().End());
      source.sound = {};
    }
  }
  const long suitable = std::min<long>(WaveChart::DefaultHeight(waves), kMaxPictureSide);
  const PictureSize size =
      options.size.value_or(PictureSize{WaveChart::kDefaultWidth, static_cast<int>(suitable)});
  const WaveChart chart(waves, size.width, size.height);
  WritePicture(options.output.path, options.output.overwrite, chart.View());
  if (options.output.quiet) return;
  PrintOut(Printable(options.output.path) + ": " + std::to_string(waves.size()) +
           (waves.size() == 1 ? " wave form, " : " wave forms, ") + ClockText(longest) + ", " +
           SizeText(size) + "\n");
}

}  // namespace

int RunWave(int argc, char** argv) {
  Options options;
  std::optional<std::string> size;
  CommandLine line(
      "wave",
      "Draw the wave forms of FILEs under each other, on one axis of time, and write OUTPUT.");
  line.AddFiles("FILE", &options.files, "Audio or video files");
  options.output.AddTo(&line, "the format: " + KnownPictureSuffixes());
  line.AddText("--size", "WxH", &size,
               "Size of the picture, such as 800x600; as wide as 1200 and as high as it takes "
               "if not given");
  if (!line.Parse(argc, argv)) return kDone;
  const std::size_t count = options.files.size();
  const long least = WaveChart::MinHeight(count);
  if (least > kMaxPictureSide) {
    throw UsageError(std::to_string(count) + " FILEs are more than a picture can hold");
  }
  if (size) {
    options.size = ParseSize("--size", *size,
                             {WaveChart::kMinWidth, static_cast<int>(WaveChart::MinHeight(1))});
    if (options.size->height < least) {
      throw UsageError("--size: " + *size + " is too low for " + std::to_string(count) +
                       " FILEs, which take a height of " + std::to_string(least));
    }
  }
  Run(options);
  return kDone;
}

}  // namespace zel::tool
