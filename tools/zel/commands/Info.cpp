// `zel info`: describes media files, their programs and streams.

#include <sys/stat.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "kernaldec/StreamExtras.h"
#include "media/Utf8.h"
#include "tools/zel/commands/CommandLine.h"
#include "tools/zel/commands/Commands.h"
#include "tools/zel/files/Confinement.h"
#include "tools/zel/files/MediaPrograms.h"
#include "tools/zel/files/Modules.h"
#include "tools/zel/text/Delay.h"
#include "tools/zel/text/Failure.h"
#include "tools/zel/text/Output.h"
#include "tools/zel/text/Text.h"

namespace zel::tool {
namespace {

using Json = nlohmann::ordered_json;
using kernaldec::VideoFormat;

/// A code's four characters without padding; its number where they are none.
std::string CodeText(std::uint32_t code) {
  std::string text;
  for (int i = 0; i < 4; ++i) {
    const auto c = static_cast<char>(code >> (8 * i) & 0xFF);
    if (c < 0x20 || c > 0x7E) return IdText(code);
    text.push_back(c);
  }
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

/// What a getter of the form HRESULT(wchar_t**) hands out; empty after a failure.
template <class Object>
std::string TextOf(Object* object, HRESULT (Object::*getter)(wchar_t**)) {
  wchar_t* text = nullptr;
  return (object->*getter)(&text) == S_OK ? TakeText(text) : std::string();
}

std::string ProgramName(IProgramInfo* program) {
  for (const StreamKind kind : kStreamKinds) {
    for (const Ref<IStreamInfo>& stream : StreamsOf(program, kind)) {
      for (unsigned long i = 0; i < stream->GetExtraDataCount(); ++i) {
        const SStreamExtraData* block = stream->GetExtraData(i);
        if (block == nullptr || block->type != kernaldec::kProgramNameBlock) continue;
        return {block->data, block->data + block->size};
      }
    }
  }
  return {};
}

/// The format of a stream's pictures; all 0 when another decoder manager describes the file.
VideoFormat VideoOf(IStreamInfo* stream) {
  return kernaldec::Unpack(stream->GetVideoSrcInfo()).value_or(VideoFormat{});
}

/// The language that the file states, or nothing. Some containers have a code for "none".
std::string LanguageOf(IStreamInfo* stream) {
  const std::string language = TextOf(stream, &IStreamInfo::GetLanguageDesc);
  return language == "und" ? std::string() : language;
}

const char* KindText(StreamKind kind) {
  switch (kind) {
    case StreamKind::kVideo:
      return "video";
    case StreamKind::kAudio:
      return "audio";
    default:
      return "subtitle";
  }
}

double FrameRate(const VideoFormat& video) {
  return video.frameRateDenominator > 0
             ? static_cast<double>(video.frameRateNumerator) / video.frameRateDenominator
             : 0;
}

double StartSeconds(IStreamInfo* stream) {
  return static_cast<double>(stream->GetStartPTS()) / kTicksPerSecond;
}

// ---- For programs -------------------------------------------------------------------------------

Json Known(const std::string& text) {
  return text.empty() ? Json() : Json(text);
}

template <class Number>
Json Known(Number number) {
  return number > 0 ? Json(number) : Json();
}

Json Ratio(std::int32_t numerator, std::int32_t denominator) {
  return denominator > 0 ? Json::array({numerator, denominator}) : Json();
}

Json StreamJson(IStreamInfo* stream, StreamKind kind) {
  Json json = {
      {"kind", KindText(kind)},
      {"id", stream->GetID()},
      {"index", stream->GetStreamIndex()},
      {"pid", Known(stream->GetStreamPID())},
      {"fourcc", CodeText(stream->GetFourCC())},
      {"codec", Known(TextOf(stream, &IStreamInfo::GetDescription))},
      {"language", Known(LanguageOf(stream))},
      {"title", Known(TextOf(stream, &IStreamInfo::GetName))},
      {"start", StartSeconds(stream)},
      {"length", Known(stream->GetLength())},
      {"bit_rate", Known(stream->GetBitRate())},
  };
  if (kind == StreamKind::kAudio) {
    const AudioInfo* found = stream->GetAudioInfo();
    const AudioInfo audio = found != nullptr ? *found : AudioInfo{};
    json["sample_rate"] = Known(audio.sampleRate);
    json["channels"] = Known(audio.channels);
    json["bits_per_sample"] = Known(audio.bitsPerSample);
  } else if (kind == StreamKind::kVideo) {
    const VideoFormat video = VideoOf(stream);
    json["width"] = Known(video.width);
    json["height"] = Known(video.height);
    json["frame_rate"] = Known(FrameRate(video));
    json["frame_rate_ratio"] = Ratio(video.frameRateNumerator, video.frameRateDenominator);
    json["pixel_aspect_ratio"] = Ratio(video.aspectNumerator, video.aspectDenominator);
    json["bits_per_component"] = Known(video.bitDepth);
    json["cover"] = video.layout == VideoFormat::kLayout ? Json(video.isCover != 0) : Json();
  }
  return json;
}

Json FileJson(const std::string& path, std::int64_t size, IMediaInfo* media) {
  Json programs = Json::array();
  for (const Ref<IProgramInfo>& program : ProgramsOf(media)) {
    Json streams = Json::array();
    for (const StreamKind kind : kStreamKinds) {
      for (const Ref<IStreamInfo>& stream : StreamsOf(program.get(), kind)) {
        streams.push_back(StreamJson(stream.get(), kind));
      }
    }
    programs.push_back({
        {"id", program->GetID()},
        {"number", program->GetNumber()},
        {"name", Known(ProgramName(program.get()))},
        {"length", Known(program->GetMediaLength())},
        {"bit_rate", Known(program->GetBitrate())},
        {"streams", std::move(streams)},
    });
  }
  return {
      {"file", path},
      {"container", Known(TextOf(media, &IMediaInfo::GetDescription))},
      {"fourcc", CodeText(media->GetFourCC())},
      {"length", Known(media->GetMediaLength())},
      {"size", size},
      {"bit_rate", Known(media->GetBitrate())},
      {"constant_frame_rate", media->IsFrameRateConstant() != 0},
      {"programs", std::move(programs)},
  };
}

// ---- For people ---------------------------------------------------------------------------------
//
// There are no columns, and texts from the file stand at the ends of lines, because scripts differ
// in width and direction.

/// Joins what is known of a thing.
class Items {
 public:
  Items& Add(const std::string& item) {
    if (!item.empty()) text_ += (text_.empty() ? "" : ", ") + item;
    return *this;
  }
  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

std::string Number(double value, int decimals) {
  char text[64];
  std::snprintf(text, sizeof(text), "%.*f", decimals, value);
  std::string number = text;
  if (decimals > 0) {
    number.erase(number.find_last_not_of('0') + 1);
    if (number.back() == '.') number.pop_back();
  }
  return number;
}

std::string LengthText(double seconds) {
  return seconds > 0 ? ClockText(seconds) : std::string();
}

std::string RateText(std::uint32_t rate) {
  if (rate == 0) return {};
  return rate < 10'000 ? std::to_string(rate) + " bit/s" : Number(rate / 1e3, 0) + " kbit/s";
}

std::string SizeText(std::int64_t bytes) {
  const std::string exact = std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
  constexpr const char* kUnits[] = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  double value = static_cast<double>(bytes);
  const char* unit = nullptr;
  for (const char* next : kUnits) {
    if (value < 1024) break;
    value /= 1024;
    unit = next;
  }
  return unit == nullptr ? exact : Number(value, 1) + " " + unit + " (" + exact + ")";
}

std::string Quoted(const std::string& text) {
  return text.empty() ? text : "\"" + Printable(text) + "\"";
}

std::string VideoText(const VideoFormat& video) {
  Items items;
  if (video.width > 0 && video.height > 0) {
    std::string size = std::to_string(video.width) + "x" + std::to_string(video.height);
    if (video.aspectDenominator > 0 && video.aspectNumerator != video.aspectDenominator) {
      size += " (pixels " + std::to_string(video.aspectNumerator) + ":" +
              std::to_string(video.aspectDenominator) + ")";
    }
    items.Add(size);
  }
  if (video.bitDepth > 0) items.Add(std::to_string(video.bitDepth) + " bits");
  if (const double rate = FrameRate(video); rate > 0) items.Add(Number(rate, 3) + " fps");
  return items.text();
}

std::string AudioText(const AudioInfo& audio) {
  Items items;
  if (audio.sampleRate > 0) items.Add(std::to_string(audio.sampleRate) + " Hz");
  if (audio.channels > 0) {
    items.Add(std::to_string(audio.channels) + (audio.channels == 1 ? " channel" : " channels"));
  }
  if (audio.bitsPerSample > 0) items.Add(std::to_string(audio.bitsPerSample) + " bits");
  return items.text();
}

std::string StreamText(IStreamInfo* stream, StreamKind kind) {
  Items items;
  std::string what = KindText(kind);
  const std::string codec = TextOf(stream, &IStreamInfo::GetDescription);
  items.Add(CodeText(stream->GetFourCC()) + (codec.empty() ? "" : " (" + Printable(codec) + ")"));
  if (kind == StreamKind::kAudio) {
    if (const AudioInfo* audio = stream->GetAudioInfo()) items.Add(AudioText(*audio));
  } else if (kind == StreamKind::kVideo) {
    const VideoFormat video = VideoOf(stream);
    items.Add(VideoText(video));
    if (video.isCover != 0) what = "cover";
  }
  items.Add(LengthText(stream->GetLength())).Add(RateText(stream->GetBitRate()));
  // Half a millisecond is shown as 0.
  if (const double start = StartSeconds(stream); std::fabs(start) >= 0.0005) {
    items.Add("from " + ClockText(start));
  }
  items.Add(Printable(LanguageOf(stream))).Add(Quoted(TextOf(stream, &IStreamInfo::GetName)));
  return "    " + IdText(stream->GetID()) + " " + what + ": " + items.text() + "\n";
}

std::string FileText(const std::string& path, std::int64_t size, IMediaInfo* media) {
  const std::string container = TextOf(media, &IMediaInfo::GetDescription);
  Items file;
  file.Add(container.empty() ? CodeText(media->GetFourCC()) : Printable(container))
      .Add(LengthText(media->GetMediaLength()))
      .Add(SizeText(size))
      .Add(RateText(media->GetBitrate()));
  std::string text = Printable(path) + "\n  " + file.text() + "\n";
  for (const Ref<IProgramInfo>& program : ProgramsOf(media)) {
    text += "  program " + std::to_string(program->GetID());
    const std::int32_t number = program->GetNumber();
    if (static_cast<std::uint32_t>(number) != program->GetID()) {
      text += " (number " + std::to_string(number) + ")";
    }
    if (const std::string name = ProgramName(program.get()); !name.empty()) {
      text += " " + Quoted(name);
    }
    text += "\n";
    for (const StreamKind kind : kStreamKinds) {
      for (const Ref<IStreamInfo>& stream : StreamsOf(program.get(), kind)) {
        text += StreamText(stream.get(), kind);
      }
    }
  }
  return text;
}

std::int64_t SizeOf(const std::string& path) {
  struct stat there = {};
  return stat(path.c_str(), &there) == 0 ? there.st_size : 0;
}

}  // namespace

int RunInfo(int argc, char** argv) {
  std::vector<std::string> files;
  bool json = false;
  CommandLine line("info", "Describe media files, their programs and streams.");
  line.AddFiles("FILE", &files, "Media files");
  line.AddFlag("--json", &json, "Write JSON, with the keys that the manual lists");
  if (!line.Parse(argc, argv)) return kDone;

  Confine(files, "");
  const Ref<IMediaDecoderMgr> manager = MakeDecoderManager();
  Json all = Json::array();
  bool failed = false;
  bool first = true;
  for (const std::string& path : files) {
    std::string text;
    try {
      const Ref<IMediaInfo> media = OpenMedia(manager.get(), path);
      if (json) {
        all.push_back(FileJson(path, SizeOf(path), media.get()));
      } else {
        text = (first ? "" : "\n") + FileText(path, SizeOf(path), media.get());
      }
      first = false;
    } catch (const Failure& failure) {
      failed = true;
      Report(failure);
      if (json) all.push_back({{"file", path}, {"error", failure.reason()}});
    }
    // Not inside the try block: when output fails, the command ends.
    if (!json) PrintOut(text);
  }
  if (json) {
    // Bytes of names that are not UTF-8 become U+FFFD.
    const Json document = {{"files", std::move(all)}};
    PrintOut(PrintableJson(document.dump(2, ' ', false, Json::error_handler_t::replace)) + "\n");
  }
  return failed ? kFailed : kDone;
}

}  // namespace zel::tool
