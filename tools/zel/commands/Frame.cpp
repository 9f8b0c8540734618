// `zel frame`: takes a picture of a video.

#include <optional>
#include <string>

#include "tools/zel/commands/CommandLine.h"
#include "tools/zel/commands/Commands.h"
#include "tools/zel/commands/Options.h"
#include "tools/zel/picture/PictureFile.h"
#include "tools/zel/picture/Planes.h"
#include "tools/zel/picture/VideoSource.h"
#include "tools/zel/text/Delay.h"
#include "tools/zel/text/Failure.h"
#include "tools/zel/text/Output.h"
#include "tools/zel/text/Text.h"

namespace zel::tool {
namespace {

struct Options {
  std::string video;
  OutputOptions output;
  std::optional<double> at;  ///< Seconds.
  std::optional<PictureSize> size;
  std::string logo;  ///< Empty for none.
  Point logoAt;
  bool near = false;
  bool flip = false;
};

/// Parses the value of `option`, a point that may lie outside the picture.
/// @throws UsageError
Point ParsePlace(const std::string& option, const std::string& text) {
  const auto pair = ParsePair(text, ',');
  if (!pair) throw UsageError(option + ": '" + text + "' is no place such as 20,-5");
  constexpr int kLimit = 1'000'000;
  for (const int place : {pair->first, pair->second}) {
    if (place < -kLimit || place > kLimit) {
      throw UsageError(option + ": " + std::to_string(place) + " is not from " +
                       std::to_string(-kLimit) + " to " + std::to_string(kLimit));
    }
  }
  return {pair->first, pair->second};
}

/// Scales the picture as it is stored, then turns it.
RgbPicture Draw(const MEDIA_FRAME_YUV& yuv, Orientation turn, const Options& options) {
  PictureSize size = options.size.value_or(PictureSize{yuv.nWidth, yuv.nHeight});
  if (options.size && turn.SwapsSides()) size = {size.height, size.width};
  Planes planes(size.width, size.height);
  if (size.width == yuv.nWidth && size.height == yuv.nHeight) {
    planes.Copy(yuv);
  } else {
    planes.Scale(yuv, options.near ? IMAGE_INTERPOLATION_NEAREST : IMAGE_INTERPOLATION_BILINEAR);
  }
  if (options.flip) turn = turn.Flipped();
  RgbPicture picture = planes.ToRgb();
  return turn.IsUpright() ? picture : picture.Turned(turn);
}

void Run(const Options& options) {
  PictureFormatOf(options.output.path);
  options.output.Check({options.video, options.logo});
  AlphaPicture logo;
  if (!options.logo.empty()) logo = ReadPng(options.logo);

  VideoSource video(options.video);
  video.Find(options.at);
  RgbPicture picture = Draw(video.Picture(), video.HowToTurn(), options);
  if (!options.logo.empty()) picture.Over(logo, options.logoAt);
  const PixelView view = picture.View();
  WritePicture(options.output.path, options.output.overwrite, view);
  if (options.output.quiet) return;
  PrintOut(Printable(options.output.path) + ": picture of " + Printable(options.video) + " at " +
           ExactClockText(video.Time()) + ", " + SizeText({view.width, view.height}) + "\n");
}

}  // namespace

int RunFrame(int argc, char** argv) {
  Options options;
  std::optional<std::string> at;
  std::optional<std::string> size;
  std::optional<std::string> logo;
  std::optional<std::string> logoAt;
  CommandLine line("frame", "Take a picture of VIDEO and write it as OUTPUT.");
  line.AddFile("VIDEO", &options.video, "Video file");
  options.output.AddTo(&line, "the format: " + KnownPictureSuffixes(), "No closing line");
  line.AddText("--at", "S", &at,
               "Time of the picture, from the beginning of VIDEO: 12.5, 800ms, 1:02:03.04; "
               "the first picture if not given");
  line.AddText("--size", "WxH", &size,
               "Size of the picture, such as 640x360; as stored if not given");
  line.AddFlag("--near", &options.near, "Scale by nearest neighbour instead of bilinearly");
  line.MakeNeed("--near", "--size");
  line.AddFlag("--flip", &options.flip, "Turn the picture upside down, as in a mirror below it");
  line.AddText("--over", "LOGO", &logo, "PNG file to lay over the picture, with its alpha");
  line.AddText("--at-xy", "X,Y", &logoAt, "Where LOGO's top-left corner goes; 0,0 if not given");
  line.MakeNeed("--at-xy", "--over");
  if (!line.Parse(argc, argv)) return kDone;

  if (at) options.at = ParseDelay("--at", *at);
  if (size) options.size = ParseSize("--size", *size, {2, 2});
  if (logoAt) options.logoAt = ParsePlace("--at-xy", *logoAt);
  if (logo && logo->empty()) throw Failure("", "a file needs a name");
  options.logo = logo.value_or("");
  Run(options);
  return kDone;
}

}  // namespace zel::tool
