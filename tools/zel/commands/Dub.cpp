// `zel dub`: replaces the sound of a file with another track.

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <map>
#include <memory>
#include <vector>

#include "media/Ticks.h"
#include "tools/zel/commands/CommandLine.h"
#include "tools/zel/commands/Commands.h"
#include "tools/zel/commands/Progress.h"
#include "tools/zel/commands/SoundFile.h"
#include "tools/zel/files/Host.h"
#include "tools/zel/files/MediaWriter.h"
#include "tools/zel/files/PacketSource.h"
#include "tools/zel/sound/ConvertedSound.h"
#include "tools/zel/sound/SteadyStream.h"
#include "tools/zel/text/Delay.h"
#include "tools/zel/text/Failure.h"
#include "tools/zel/text/Text.h"
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
};

std::string LengthText(double seconds) {
  return seconds > 0 ? ClockText(seconds) : "unknown length";
}

/// Tells whether enough is known of a stream to store it.
bool IsDescribed(const AVCodecParameters& codec) {
  switch (codec.codec_type) {
    case AVMEDIA_TYPE_AUDIO:
      return codec.sample_rate > 0 && codec.ch_layout.nb_channels > 0;
    case AVMEDIA_TYPE_VIDEO:
      return codec.width > 0 && codec.height > 0;
    default:
      return true;
  }
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
      PrintOut(Description());
      return;
    }
    Pull();
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

    // Time 0 is where the input begins, be it with sound or with a picture.
    origin_ = source_.BeginningWith(input_.info->GetStartPTS());
    input_.controls->SetTimeOrigin(origin_);
    // The clocks of broadcasts start anywhere; other containers' time stamps are meant.
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
    for (int i = 0; i < source_.streamCount(); ++i) {
      const AVStream& stream = source_.stream(i);
      if (i == soundIndex_) {
        AddSoundLike(writer_.get(), input_.format(), stream, true);
        continue;
      }
      const AVCodecParameters& codec = *stream.codecpar;
      const char* kind = av_get_media_type_string(codec.codec_type);
      const std::string what = "#" + std::to_string(i) + " " +
                               (kind != nullptr ? kind : "unknown") + " (" +
                               avcodec_get_name(codec.codec_id) + ")";
      const bool picture = codec.codec_type == AVMEDIA_TYPE_VIDEO && !media::IsCover(stream);
      if (container_.soundOnly || media::IsCover(stream) || !writer_->Holds(stream)) {
        if (picture && !container_.soundOnly) {
          throw Failure(options_.output.path, std::string(container_.title) +
                                                  " holds no video of codec " +
                                                  avcodec_get_name(codec.codec_id));
        }
        leftOut_ += (leftOut_.empty() ? "" : ", ") + what;
        continue;
      }
      // No container takes what a file that is cut off leaves unknown.
      if (!IsDescribed(codec)) {
        if (picture) throw Failure(options_.input, "nothing is known of its stream " + what);
        leftOut_ += (leftOut_.empty() ? "" : ", ") + what + " of unknown format";
        continue;
      }
      copies_[i] = writer_->AddCopy(stream);
      copied_ += (copied_.empty() ? "" : ", ") + what;
      // An attachment has no packets.
      if (codec.codec_type != AVMEDIA_TYPE_ATTACHMENT) source_.Want(i, true);
    }
    writer_->AddDescription(source_.context(), shift_);
  }

  std::string Description() const {
    const double length = input_.info->GetLength();
    const double trackLength = track_.info->GetLength();
    const double start = static_cast<double>(input_.info->GetStartPTS() - origin_) / 1e7;
    std::string text = "input:   " + Printable(options_.input) + ", stream #" +
                       std::to_string(soundIndex_) + ": " + FormatText(input_.format()) + ", " +
                       LengthText(length) + "\n";
    text += "track:   " + Printable(options_.track) + ": " + FormatText(fileFormat_);
    if (fileFormat_.channels != track_.format().channels) {
      text += " (decoded to " + std::to_string(track_.format().channels) + ")";
    }
    text += ", " + LengthText(trackLength) + ", from " + ClockText(options_.delay) + "\n";

    text += "output:  " + Printable(options_.output.path) + ": " + container_.title +
            ", sound as " + container_.encoder;
    if (writer_->sound().OutRate() != input_.format().sampleRate) {
      text += " at " + std::to_string(writer_->sound().OutRate()) + " Hz";
    }
    if (!copied_.empty()) text += "; copied: " + copied_;
    if (!leftOut_.empty()) text += "; left out: " + leftOut_;
    text += "\nsilence: " + SilenceText(start, length, trackLength) + "\n";
    return text + "Nothing was written.\n";
  }

  std::string SilenceText(double start, double length, double trackLength) const {
    const double end = length > 0 ? start + length : std::numeric_limits<double>::infinity();
    const double trackEnd = trackLength > 0 ? std::max(options_.delay + trackLength, start)
                                            : std::numeric_limits<double>::infinity();
    if (options_.delay >= end || trackEnd <= start) return "all of it: the track is never heard";
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

  /// The delay, moved by at most half a sample to where a sample of the input is: between two of
  /// them the track would lose its first sample.
  double DelayOnAnInputSample() const {
    constexpr std::int64_t kTicks = 10'000'000;  // Time stamps count 100-ns units.
    const std::int64_t start = input_.info->GetStartPTS() - origin_;
    const std::int64_t rate = input_.format().sampleRate;
    const double ahead = options_.delay - static_cast<double>(start) / kTicks;
    constexpr double kLongest = 1e9;  // Beyond any file, and within reach of the integers below.
    if (ahead < 0 || ahead > kLongest) return options_.delay;
    const std::int64_t sample = std::llround(ahead * static_cast<double>(rate));
    const std::int64_t time =
        start + sample / rate * kTicks + (sample % rate * kTicks + rate / 2) / rate;
    return static_cast<double>(time) / kTicks;
  }

  void Pull() {
    const ComPtr<IAudioCompositor> compositor = MakeCompositor();
    const ComPtr<SteadyStream> input(new SteadyStream(input_.stream));
    const ComPtr<SteadyStream> track(new SteadyStream(track_.stream));
    const double delay = DelayOnAnInputSample();
    input->SplitAt(delay);
    track->RegroupFor(input_.format().sampleRate);
    track->PadFor(input.get());
    ComPtr<IMediaStream> output;
    if (compositor->SetInputAudioStream(input.get()) != S_OK) {
      throw Failure(options_.input, "the compositor does not take its sound");
    }
    if (compositor->AddByMediaStream(track.get()) != S_OK) {
      throw Failure(options_.track, "the compositor does not take its sound");
    }
    compositor->SetDelayTime(delay);
    compositor->GetOutPutAudioStream(output.Receive());

    const double length = input_.info->GetLength();
    Progress progress(length, options_.output.quiet);
    const int bytesPerSample = 2 * input_.format().channels;
    long long frames = 0;
    long long samples = 0;
    for (;;) {
      output->Forward();
      CZelSample* sample = output->GetSampleEx();
      if (sample == nullptr) break;
      const MEDIA_FRAME& frame = *sample->GetMediaFrame();
      if (frame.audio.nChannels * 2 != bytesPerSample ||
          frame.audio.nSampleRate != input_.format().sampleRate) {
        throw Failure(options_.input, "the format of its sound changes on the way");
      }
      if (frames++ == 0) {
        writer_->Start(options_.output.overwrite, frame.llPTS + origin_ + shift_);
      }
      CopyUntil(frame.llPTS);
      const int count = frame.audio.nDataSize / bytesPerSample;
      writer_->WriteSound(frame.audio.pData, count);
      samples += count;
      progress.Update(static_cast<double>(samples) / frame.audio.nSampleRate);
    }
    input_.CheckStatus();
    track_.CheckStatus();
    if (frames == 0) throw Failure(options_.input, "its sound is empty");
    CopyUntil(std::numeric_limits<std::int64_t>::max());
    writer_->Finish();
    progress.Clear();
    if (options_.output.quiet) return;

    const double seconds = static_cast<double>(samples) / input_.format().sampleRate;
    PrintOut(Printable(options_.output.path) + ": sound of " + Printable(options_.input) +
             " replaced by " + Printable(options_.track) + " from " + ClockText(options_.delay) +
             ": " + std::to_string(frames) + " frames, " + progress.Summary(seconds) +
             (leftOut_.empty() ? "" : "; left out: " + leftOut_) + "\n");
  }

  /// Copies the packets that come before time `until` (100-ns units).
  void CopyUntil(std::int64_t until) {
    while (!copies_.empty() && !copyEnded_) {
      if (packet_->buf == nullptr) {
        if (!source_.Read(packet_.get())) {
          copyEnded_ = true;
          return;
        }
        // A stream that appears on the way has no place in the output.
        if (!copies_.contains(packet_->stream_index)) {
          av_packet_unref(packet_.get());
          continue;
        }
      }
      const AVRational base = source_.stream(packet_->stream_index).time_base;
      const std::int64_t stamp = packet_->dts != AV_NOPTS_VALUE ? packet_->dts : packet_->pts;
      if (stamp != AV_NOPTS_VALUE &&
          av_rescale_q(stamp, base, media::kTickBase) - origin_ > until) {
        return;
      }
      const std::int64_t shift = av_rescale_q(shift_, media::kTickBase, base);
      if (packet_->pts != AV_NOPTS_VALUE) packet_->pts += shift;
      if (packet_->dts != AV_NOPTS_VALUE) packet_->dts += shift;
      writer_->WriteCopy(packet_.get(), copies_.at(packet_->stream_index), base);
    }
  }

  const Options& options_;
  const Container& container_;
  PacketSource source_;
  ComPtr<IMediaDecoderMgr> manager_;
  DecodedSound input_;
  DecodedSound track_;
  SoundFormat fileFormat_ = {};  ///< The track's own format.
  int soundIndex_ = 0;
  std::int64_t origin_ = 0;  ///< The container's time stamp of time 0.
  std::int64_t shift_ = 0;   ///< From the input's time stamps to the output's.

  std::unique_ptr<MediaWriter> writer_;
  std::map<int, int> copies_;  ///< Copied streams: index in the input, index in the output.
  std::string copied_;
  std::string leftOut_;
  media::Packet packet_{media::NotNull(av_packet_alloc())};  ///< The next one to copy.
  bool copyEnded_ = false;
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
  if (!line.Parse(argc, argv)) return kDone;

  if (delay) options.delay = ParseDelay("--delay", *delay);
  Dub(options).Run();
  return kDone;
}

}  // namespace zel::tool
