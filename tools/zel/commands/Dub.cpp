// `zel dub`: replaces the sound of a file with another track.

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "tools/zel/commands/CommandLine.h"
#include "tools/zel/commands/Commands.h"
#include "tools/zel/commands/Progress.h"
#include "tools/zel/commands/SoundFile.h"
#include "tools/zel/files/DecodedSound.h"
#include "tools/zel/files/MediaWriter.h"
#include "tools/zel/files/Modules.h"
#include "tools/zel/files/PacketSource.h"
#include "tools/zel/files/StreamCopies.h"
#include "tools/zel/sound/ConvertedSound.h"
#include "tools/zel/sound/PullTally.h"
#include "tools/zel/sound/SteadyStream.h"
#include "tools/zel/text/Delay.h"
#include "tools/zel/text/Failure.h"
#include "tools/zel/text/List.h"
#include "tools/zel/text/Output.h"
#include "tools/zel/text/Text.h"
#include "zel/platform/Types.h"
#include "zel/sample/Sample.h"

namespace zel::tool {
namespace {

struct Options {
  std::string input;
  std::string track;
  OutputOptions output;
  double delay = 0;
  int audioStream = 0;
  SelectionOptions trackSelection;
  bool dryRun = false;
  bool verbose = false;
};

constexpr std::string_view kAllOfIt = "all of it";
// In seconds. Shorter ones come from time stamps that are not exact.
constexpr double kShortestHole = 0.01;
// In seconds. Lengths of compressed sound are not exact.
constexpr double kShortestRest = 0.05;

std::string LengthText(double seconds) {
  return seconds > 0 ? ClockText(seconds) : "unknown length";
}

/// One run of the command, from opening to the last line.
class Dub {
 public:
  explicit Dub(const Options& options)
      : options_(options),
        container_(ContainerOf(Checked(options).output.path)),
        source_(options.input) {}

  void Run() {
    OpenInput();
    OpenTrack();
    Plan();
    if (options_.dryRun) {
      PrintOut(Description() + "Nothing was written.\n");
      return;
    }
    if (options_.verbose) PrintOut(Description());
    Pull();
    if (tally_) PrintOut("frames:  " + tally_->Text() + "\n");
  }

 private:
  /// Makes the cheap checks before anything is opened.
  static const Options& Checked(const Options& options) {
    options.output.Check({options.input, options.track});
    return options;
  }

  void OpenInput() {
    manager_ = MakeDecoderManager();
    input_ = OpenNumberedSound(manager_.get(), options_.input, options_.audioStream);
    soundIndex_ = static_cast<int>(input_.info->GetStreamIndex());

    // Time 0 is where the input begins, with sound or with a picture.
    origin_ = source_.BeginningWith(input_.info->GetStartPTS());
    input_.controls->SetTimeOrigin(origin_);
    // The clock of a broadcast may start anywhere. In other containers, time stamps are on purpose.
    const bool anyClock = (source_.context().iformat->flags & AVFMT_TS_DISCONT) != 0;
    shift_ = anyClock ? -origin_ : 0;
  }

  void OpenTrack() {
    track_ = options_.trackSelection.Open(manager_.get(), options_.track);
    fileFormat_ = track_.format();
    PrepareConversion(&track_, input_.format());
  }

  /// Decides what the output holds.
  void Plan() {
    writer_ = std::make_unique<MediaWriter>(options_.output.path, container_);
    copies_ =
        std::make_unique<StreamCopies>(&source_, writer_.get(), container_, options_.output.path);
    for (int i = 0; i < source_.streamCount(); ++i) {
      if (i == soundIndex_) {
        AddSoundLike(writer_.get(), input_.format(), source_.stream(i), true);
      } else {
        copies_->Add(i);
      }
    }
    writer_->AddDescription(source_.context(), shift_);
  }

  std::string Description() const {
    const double length = input_.info->GetLength();
    const double trackLength = track_.info->GetLength();
    const double start =
        static_cast<double>(input_.info->GetStartPTS() - origin_) / kTicksPerSecond;
    std::string text = "input:   " + Printable(options_.input) + ", stream #" +
                       std::to_string(soundIndex_) + ": " + FormatText(input_.format()) + ", " +
                       LengthText(length) + "\n";
    text += "track:   " + Printable(options_.track) + ": " + FormatText(fileFormat_);
    if (fileFormat_.channels != track_.format().channels) {
      text += " (decoded to " + std::to_string(track_.format().channels) + ")";
    }
    text += ", " + LengthText(trackLength) + ", from " + ClockText(options_.delay);
    for (const std::string& note :
         {track_.RoundingText(), SpeakersText(fileFormat_, input_.format())}) {
      if (!note.empty()) text += "; " + note;
    }
    text += "\n";

    text += "output:  " + Printable(options_.output.path) + ": " + container_.title +
            ", sound as " + container_.encoder;
    const std::string storage = StorageText(writer_->sound(), input_.format());
    if (!storage.empty()) text += " (" + storage + ")";
    if (!copies_->copied().empty()) text += "; copied: " + copies_->copied();
    text += Omissions() + "\nsilence: " + SilenceText(start, length, trackLength) + "\n";
    const std::string rest = UnheardText(start, length, trackLength);
    if (!rest.empty()) text += "unheard: " + rest + "\n";
    return text;
  }

  std::string SilenceText(double start, double length, double trackLength) const {
    const double end = length > 0 ? start + length : std::numeric_limits<double>::infinity();
    const double trackEnd = trackLength > 0 ? std::max(options_.delay + trackLength, start)
                                            : std::numeric_limits<double>::infinity();
    if (options_.delay >= end || trackEnd <= start)
      return std::string(kAllOfIt) + ": the track is never heard";
    std::string text;
    if (options_.delay > start) {
      text = ClockText(start) + " to " + ClockText(options_.delay) + " (before the track)";
    }
    if (trackEnd < end) {
      text += (text.empty() ? "" : ", ") + ClockText(trackEnd) + " to " +
              (length > 0 ? ClockText(end) : "the end") + " (after the track)";
    }
    return text.empty() ? "none" : text;
  }

  /// What of the track's end lies behind the input's.
  std::string UnheardText(double start, double length, double trackLength) const {
    const double rest = options_.delay + trackLength - start - length;
    const bool isHeard = options_.delay < start + length;
    if (length <= 0 || trackLength <= 0 || rest < kShortestRest || !isHeard) return {};
    return "the last " + ClockText(rest) + " of the track";
  }

  /// The delay, moved by at most half a sample to the nearest sample of the input. Between two
  /// samples, the track would lose its first one.
  double DelayOnAnInputSample() const {
    const std::int64_t start = input_.info->GetStartPTS() - origin_;
    const std::int64_t rate = input_.format().sampleRate;
    const double ahead = options_.delay - static_cast<double>(start) / kTicksPerSecond;
    constexpr double kLongest = 1e9;  // Beyond any file, and within reach of the integers below.
    if (ahead < 0 || ahead > kLongest) return options_.delay;
    const std::int64_t sample = std::llround(ahead * static_cast<double>(rate));
    const std::int64_t time = start + sample / rate * kTicksPerSecond +
                              (sample % rate * kTicksPerSecond + rate / 2) / rate;
    return static_cast<double>(time) / kTicksPerSecond;
  }

  std::int64_t SamplesToTicks(std::int64_t samples) const {
    return av_rescale(samples, kTicksPerSecond, input_.format().sampleRate);
  }

  /// Makes a stream of the input's sound, replaced.
  Ref<IMediaStream> Compose() {
    const Ref<IAudioCompositor> compositor = MakeCompositor();
    const auto input = MakeComponent<SteadyStream>(input_.stream);
    const auto track = MakeComponent<SteadyStream>(track_.stream);
    steadyTrack_ = track;
    const double delay = DelayOnAnInputSample();
    input->SplitAt(delay);
    track->RegroupFor(input_.format().sampleRate);
    track->PadFor(input.get());
    Ref<IMediaStream> output;
    if (compositor->SetInputAudioStream(input.get()) != S_OK) {
      throw Failure(options_.input, "the compositor does not take its sound");
    }
    if (compositor->AddByMediaStream(track.get()) != S_OK) {
      throw Failure(options_.track, "the compositor does not take its sound");
    }
    compositor->SetDelayTime(delay);
    compositor->GetOutPutAudioStream(output.Receive());
    if (options_.verbose) tally_ = std::make_unique<PullTally>(compositor.get());
    return output;
  }

  void Pull() {
    const Ref<IMediaStream> output = Compose();
    Progress progress(input_.info->GetLength(), options_.output.quiet);
    long long frames = 0;
    long long samples = 0;
    for (;; ++frames) {
      output->Forward();
      CZelSample* sample = output->GetSampleEx();
      if (sample == nullptr) break;
      if (tally_) tally_->Note();
      const MEDIA_FRAME& frame = *sample->GetMediaFrame();
      if (frames == 0) {
        writer_->Start(options_.output.overwrite, frame.llPTS + origin_ + shift_);
      }
      samples += Write(frame);
      progress.Update(static_cast<double>(samples) / frame.audio.nSampleRate);
    }
    input_.CheckStatus();
    track_.CheckStatus();
    if (frames == 0) throw Failure(options_.input, "its sound is empty");
    copies_->CopyUntil(std::numeric_limits<std::int64_t>::max(), shift_);
    copies_->CheckEnds(input_.info->GetStartPTS() + SamplesToTicks(samples));
    writer_->Finish();
    progress.Clear();
    if (!options_.output.quiet) PrintOut(ClosingLine(frames, samples, progress));
  }

  /// Writes a frame of sound, after the packets that come before it.
  /// @return the number of its samples
  int Write(const MEDIA_FRAME& frame) {
    const SoundFormat format = input_.format();
    if (frame.audio.nChannels != format.channels || frame.audio.nSampleRate != format.sampleRate) {
      throw Failure(options_.input, "the format of its sound changes on the way");
    }
    copies_->CopyUntil(frame.llPTS + origin_, shift_);
    const int count = frame.audio.nDataSize / (2 * format.channels);
    writer_->WriteSound(frame.audio.pData, count);
    return count;
  }

  std::string ClosingLine(long long frames, long long samples, const Progress& progress) const {
    const double seconds = static_cast<double>(samples) / input_.format().sampleRate;
    std::string notes = track_.RoundingText();
    const std::string storage = StorageText(writer_->sound(), input_.format());
    if (!storage.empty()) AddToList(&notes, storage);
    if (steadyTrack_->holes() >= kShortestHole) {
      AddToList(&notes, "the track has holes of " + ClockText(steadyTrack_->holes()) + ", silent");
    }
    const double start =
        static_cast<double>(input_.info->GetStartPTS() - origin_) / kTicksPerSecond;
    const std::string silence = SilenceText(start, seconds, track_.info->GetLength());
    const std::string speakers = SpeakersText(fileFormat_, input_.format());
    if (!speakers.empty()) AddToList(&notes, speakers);
    const std::string rest = UnheardText(start, seconds, track_.info->GetLength());
    if (!rest.empty()) AddToList(&notes, "unheard: " + rest);
    if (silence.starts_with(kAllOfIt)) AddToList(&notes, "silent: " + silence);
    return Printable(options_.output.path) + ": sound of " + Printable(options_.input) +
           " replaced by " + Printable(options_.track) + " from " + ClockText(options_.delay) +
           ": " + std::to_string(frames) + " frames, " + progress.Summary(seconds) +
           (notes.empty() ? "" : "; " + notes) + Omissions() + "\n";
  }

  /// What the output lacks of the input.
  std::string Omissions() const {
    std::string lost = copies_->lost();
    if (!writer_->lost().empty()) AddToList(&lost, writer_->lost());
    return (copies_->leftOut().empty() ? "" : "; left out: " + copies_->leftOut()) +
           (lost.empty() ? "" : "; lost: " + lost);
  }

  const Options& options_;
  const Container& container_;
  PacketSource source_;
  Ref<IMediaDecoderMgr> manager_;
  Ref<SteadyStream> steadyTrack_;  ///< What the compositor reads of the track.
  DecodedSound input_;
  DecodedSound track_;
  SoundFormat fileFormat_ = {};  ///< The track's own format.
  int soundIndex_ = 0;
  std::int64_t origin_ = 0;  ///< The container's time stamp of time 0.
  std::int64_t shift_ = 0;   ///< From the input's time stamps to the output's.

  std::unique_ptr<PullTally> tally_;  ///< What the frames hold; null unless it is asked for.
  std::unique_ptr<MediaWriter> writer_;
  std::unique_ptr<StreamCopies> copies_;
};

}  // namespace

int RunDub(int argc, char** argv) {
  Options options;
  std::optional<std::string> delay;
  CommandLine line(
      "dub",
      "Replace the sound of INPUT with TRACK, which starts D later, and write OUTPUT.\n"
      "OUTPUT has INPUT's length and time stamps; video is copied as it is.");
  line.AddFile("INPUT", &options.input, "Audio or video file");
  line.AddFile("TRACK", &options.track, "File with the new sound");
  options.output.AddTo(&line);
  line.AddText("-d,--delay", "D", &delay,
               "Start of TRACK in INPUT, 0 if not given: 1.273, 1273ms, -0.5s, "
               "00:00:01.273; negative: start inside TRACK");
  line.AddNumber("--audio-stream", "N", &options.audioStream, 0, 0xFFFF,
                 "Which audio stream of INPUT to replace, counted from 0");
  options.trackSelection.AddTo(&line, "TRACK");
  line.AddFlag("-n,--dry-run", &options.dryRun, "Say what would be done, and do nothing");
  line.AddFlag("--verbose", &options.verbose,
               "Say what is done, and how many frames were silent and why");
  line.MakeExclude("--verbose", "--quiet");
  if (!line.Parse(argc, argv)) return kDone;

  if (delay) options.delay = ParseDelay("--delay", *delay);
  Dub(options).Run();
  return kDone;
}

}  // namespace zel::tool
