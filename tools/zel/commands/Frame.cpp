// `zel frame`: takes a picture of a video.

extern "C" {
#include <libavutil/display.h>
}

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "media/Utf8.h"
#include "tools/zel/commands/CommandLine.h"
#include "tools/zel/commands/Commands.h"
#include "tools/zel/commands/Options.h"
#include "tools/zel/files/Host.h"
#include "tools/zel/files/PacketSource.h"
#include "tools/zel/picture/PictureFile.h"
#include "tools/zel/text/Delay.h"
#include "tools/zel/text/Failure.h"
#include "tools/zel/text/Text.h"
#include "zel/Common/Image/ImageConvert.h"
#include "zel/sample/Sample.h"

namespace zel::tool {
namespace {

constexpr double kTicks = 1e7;  // Time stamps count 100-ns units.

struct Pair {
  int x = 0;
  int y = 0;
};

struct Options {
  std::string video;
  OutputOptions output;
  std::optional<double> at;  ///< Seconds.
  std::optional<PictureSize> size;
  std::string logo;
  Pair logoAt;
  bool near = false;
  bool flip = false;
};

/// Where the pixels of a stored picture go: pixel (x, y) to (xx * x + xy * y, yx * x + yy * y),
/// moved to begin at 0. Each is -1, 0 or 1.
struct Orientation {
  int xx = 1;
  int xy = 0;
  int yx = 0;
  int yy = 1;

  bool IsUpright() const { return xx == 1 && yy == 1; }
  bool SwapsSides() const { return xx == 0; }
};

/// How a stream's pictures are to be turned. Turns by other angles than right ones count for none;
/// some files round the right ones.
Orientation OrientationOf(const AVStream& stream) {
  std::size_t size = 0;
  const auto* matrix = reinterpret_cast<const std::int32_t*>(
      av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, &size));
  if (matrix == nullptr || size < 9 * sizeof(*matrix)) return {};
  Orientation turn;
  const std::pair<int*, std::int32_t> entries[] = {
      {&turn.xx, matrix[0]}, {&turn.xy, matrix[3]}, {&turn.yx, matrix[1]}, {&turn.yy, matrix[4]}};
  for (const auto& [direction, value] : entries) {
    constexpr std::int32_t one = 1 << 16;
    constexpr std::int32_t slack = one / 16;
    const bool whole = value > one - slack || value < -(one - slack);
    if (!whole && (value >= slack || value <= -slack)) return {};
    *direction = !whole ? 0 : value > 0 ? 1 : -1;
  }
  const bool straight = turn.xx != 0 && turn.yy != 0 && turn.xy == 0 && turn.yx == 0;
  const bool turned = turn.xx == 0 && turn.yy == 0 && turn.xy != 0 && turn.yx != 0;
  return straight || turned ? turn : Orientation{};
}

int Even(int size) {
  return size + (size & 1);
}

/// A planar 4:2:0 picture. Its buffers have even sizes: the conversion leaves the last pixel of
/// pictures that are odd both ways.
class Planes {
 public:
  Planes(int width, int height)
      : width_(width),
        height_(height),
        pitch_(Even(width)),
        luma_(std::size_t{1} * pitch_ * Even(height)) {
    for (auto& plane : chroma_) plane.resize(luma_.size() / 4);
  }

  int width() const { return width_; }
  int height() const { return height_; }

  void Copy(const MEDIA_FRAME_YUV& from) {
    for (int plane = 0; plane < 3; ++plane) {
      const int rows = plane == 0 ? height_ : Even(height_) / 2;
      const int count = plane == 0 ? width_ : pitch_ / 2;
      for (int row = 0; row < rows; ++row) {
        std::memcpy(Row(plane, row), from.pPlane[plane] + std::ptrdiff_t{row} * from.nStride[plane],
                    static_cast<std::size_t>(count));
      }
    }
    Pad();
  }

  /// Both pictures must be at least 2 x 2.
  void Scale(const MEDIA_FRAME_YUV& from, IMAGE_INTERPOLATION method) {
    // The resizer leaves the last chroma sample.
    for (int plane = 1; plane < 3; ++plane) {
      const int row = (from.nHeight - 1) / 2;
      *(Row(plane, (height_ - 1) / 2) + (width_ - 1) / 2) =
          from.pPlane[plane][std::ptrdiff_t{row} * from.nStride[plane] + (from.nWidth - 1) / 2];
    }
    const IMG_PARAM source{nullptr, from.nWidth, from.nHeight, 0,           8,
                           0,       0,           from.nWidth,  from.nHeight};
    const IMG_PARAM target{nullptr, width_, height_, 0, 8, 0, 0, width_, height_};
    ImageResizeYV12(source, from.pPlane[0], from.pPlane[1], from.pPlane[2], from.nStride[0],
                    from.nStride[1], from.nStride[2], target, Row(0, 0), Row(1, 0), Row(2, 0),
                    pitch_, pitch_ / 2, pitch_ / 2, method);
    Pad();
  }

  /// The picture as a bottom-up bitmap of even sizes; its fourth bytes stay.
  void ToBitmap(unsigned char* pixels) {
    tagBITMAPINFOHEADER header{};
    header.biSize = sizeof(header);
    header.biWidth = pitch_;
    header.biHeight = Even(height_);
    header.biPlanes = 1;
    header.biBitCount = 32;
    Yuv420_2_rgb32(&header, pixels, Row(0, 0), Row(1, 0), Row(2, 0), pitch_, pitch_ / 2,
                   pitch_ / 2);
  }

 private:
  unsigned char* Row(int plane, int row) {
    return plane == 0 ? luma_.data() + std::ptrdiff_t{row} * pitch_
                      : chroma_[plane - 1].data() + std::ptrdiff_t{row} * (pitch_ / 2);
  }

  void Pad() {
    if (width_ < pitch_) {
      for (int row = 0; row < height_; ++row) Row(0, row)[width_] = Row(0, row)[width_ - 1];
    }
    if (height_ % 2 != 0) std::memcpy(Row(0, height_), Row(0, height_ - 1), pitch_);
  }

  int width_;
  int height_;
  int pitch_;
  std::vector<unsigned char> luma_;
  std::vector<unsigned char> chroma_[2];
};

/// A bottom-up bitmap of 32 bits per pixel. Its buffer has even sizes: nothing can be laid over one
/// that is 1 pixel wide.
class Bitmap {
 public:
  Bitmap(int width, int height)
      : width_(width), height_(height), pixels_(std::size_t{4} * Even(width) * Even(height)) {}

  unsigned char* Pixel(int x, int y) {
    return pixels_.data() + (std::ptrdiff_t{Even(height_)} - 1 - y) * Pitch() +
           4 * std::ptrdiff_t{x};
  }
  unsigned char* data() { return pixels_.data(); }
  PixelView View() { return {Pixel(0, 0), -Pitch(), width_, height_}; }

  Bitmap Turned(const Orientation& turn) {
    Bitmap to = turn.SwapsSides() ? Bitmap(height_, width_) : Bitmap(width_, height_);
    const int left = std::min(turn.xx * (width_ - 1) + turn.xy * (height_ - 1), 0);
    const int top = std::min(turn.yx * (width_ - 1) + turn.yy * (height_ - 1), 0);
    for (int y = 0; y < height_; ++y) {
      for (int x = 0; x < width_; ++x) {
        std::memcpy(to.Pixel(turn.xx * x + turn.xy * y - left, turn.yx * x + turn.yy * y - top),
                    Pixel(x, y), 4);
      }
    }
    return to;
  }

  /// Lays `logo` over the picture, its top-left corner at `at`. What falls outside is cut off.
  void Over(const AlphaPicture& logo, Pair at) {
    const int left = std::max(at.x, 0);
    const int top = std::max(at.y, 0);
    const int right = std::min(at.x + logo.width, width_);
    const int bottom = std::min(at.y + logo.height, height_);
    if (left >= right || top >= bottom) return;
    // A rectangle has 2 x 2 pixels at the least; what the logo lacks of it stays transparent.
    const int fromX = std::min(left, Even(width_) - 2);
    const int fromY = std::min(top, Even(height_) - 2);
    Bitmap layer(std::max(right - fromX, 2), std::max(bottom - fromY, 2));
    for (int y = top; y < bottom; ++y) {
      const std::size_t offset = std::size_t{1} * (y - at.y) * logo.width + (left - at.x);
      std::memcpy(layer.Pixel(left - fromX, y - fromY), logo.pixels.data() + 4 * offset,
                  4 * static_cast<std::size_t>(right - left));
    }
    IMG_PARAM target = Rectangle(fromX, fromY, layer.width_, layer.height_);
    DIB_AlphaResizeBiLiner(layer.Rectangle(0, 0, layer.width_, layer.height_), target);
  }

 private:
  std::ptrdiff_t Pitch() const { return std::ptrdiff_t{4} * Even(width_); }
  IMG_PARAM Rectangle(int left, int top, int width, int height) {
    return {pixels_.data(), Even(width_), Even(height_), static_cast<int>(Pitch()), 32, left, top,
            width,          height};
  }

  int width_;
  int height_;
  std::vector<unsigned char> pixels_;
};

/// One run of the command.
class FrameGrab {
 public:
  explicit FrameGrab(const Options& options) : options_(Checked(options)), source_(options.video) {}

  void Run() {
    if (!options_.logo.empty()) logo_ = ReadPng(options_.logo);
    Open();
    Find();
    const MEDIA_FRAME& frame = *picture_.GetMediaFrame();
    Bitmap bitmap = Draw(frame.video.yuv);
    if (!options_.logo.empty()) bitmap.Over(logo_, options_.logoAt);
    const PixelView view = bitmap.View();
    WritePicture(options_.output.path, options_.output.overwrite, view);
    if (options_.output.quiet) return;
    const double time = static_cast<double>(frame.llPTS) / kTicks + start_;
    PrintOut(Printable(options_.output.path) + ": picture of " + Printable(options_.video) +
             " at " + ExactClockText(time) + ", " + SizeText({view.width, view.height}) + "\n");
  }

 private:
  /// Makes the cheap checks before anything is opened.
  static const Options& Checked(const Options& options) {
    PictureFormatOf(options.output.path);
    options.output.Check({options.video, options.logo});
    return options;
  }

  void Open() {
    manager_ = MakeDecoderManager();
    manager_->CreateDecoder(media::ToWide(options_.video).c_str(), 0, nullptr, 11,
                            decoder_.Receive());
    if (decoder_) decoder_->GetVideoStream(stream_.Receive());
    if (!stream_) throw Failure(options_.video, source_.WhyNone(AVMEDIA_TYPE_VIDEO));
    stream_->GetStreamInfo(info_.Receive());
    if (!info_) throw Failure(options_.video, "its video has no format");
  }

  /// Makes picture_ the picture that is shown at the wanted time.
  void Find() {
    start_ = static_cast<double>(info_->GetStartPTS() - Beginning()) / kTicks;
    if (options_.at) {
      if (stream_->Seek(*options_.at - start_, 0) < 0) ThrowPastTheEnd();
    } else {
      stream_->Forward();
    }
    CZelSample* sample = stream_->GetSampleEx();
    if (sample == nullptr) throw Failure(options_.video, WhyUnusable());
    // A copy of our own: the decoder goes on with its sample.
    const MEDIA_FRAME_YUV& yuv = sample->GetMediaFrame()->video.yuv;
    if (picture_.RemallocYUVFrame(static_cast<unsigned long>(yuv.nWidth),
                                  static_cast<unsigned long>(yuv.nHeight),
                                  YUV_IMAGE_420P) != S_OK ||
        picture_.FrameCopy(*sample) != S_OK) {
      throw Failure(options_.video, "its pictures cannot be copied");
    }
  }

  std::string WhyUnusable() const {
    const AVCodecParameters& codec =
        *source_.stream(static_cast<int>(info_->GetStreamIndex())).codecpar;
    if (codec.width <= kMaxPictureSide && codec.height <= kMaxPictureSide) {
      return "its pictures cannot be used";
    }
    return "pictures of " + SizeText({codec.width, codec.height}) + " are larger than " +
           SizeText({kMaxPictureSide, kMaxPictureSide});
  }

  /// The time stamp of time 0.
  std::int64_t Beginning() const {
    std::int64_t first = info_->GetStartPTS();
    ComPtr<IMediaStream> sound;
    ComPtr<IStreamInfo> info;
    decoder_->GetAudioStream(sound.Receive());
    if (sound) sound->GetStreamInfo(info.Receive());
    if (info) first = std::min<std::int64_t>(first, info->GetStartPTS());
    return source_.BeginningWith(first);
  }

  [[noreturn]] void ThrowPastTheEnd() {
    // What the file says of its length may be of its sound, or of what was cut off.
    double end = 0;
    bool isEnd = true;
    const double said = info_->GetLength();
    for (double back = 1; end == 0; back *= 10) {
      const double from = said > back ? said - back : 0;
      for (double next = from; isEnd && stream_->Seek(next, 0) >= 0;) {
        CZelSample* sample = stream_->GetSampleEx();
        if (sample == nullptr) break;
        const std::int64_t begin = sample->GetMediaFrame()->llPTS;
        // The record cannot tell more than 214 s of one picture.
        isEnd = sample->GetDuration() < std::numeric_limits<std::int32_t>::max();
        next = static_cast<double>(isEnd ? begin + sample->GetDuration() : begin) / kTicks;
        if (isEnd && next <= end) break;  // Times that run backwards.
        end = next;
      }
      if (from == 0) break;
    }
    throw Failure(options_.video, "has no picture at " + ExactClockText(*options_.at) +
                                      (isEnd ? ": its last picture ends at "
                                             : ": a last picture of more than 200 s begins at ") +
                                      ExactClockText(end + start_));
  }

  Bitmap Draw(const MEDIA_FRAME_YUV& yuv) {
    Orientation turn = OrientationOf(source_.stream(static_cast<int>(info_->GetStreamIndex())));
    // Scaled as it is stored, then turned.
    Pair size{yuv.nWidth, yuv.nHeight};
    if (options_.size) {
      size = {options_.size->width, options_.size->height};
      if (turn.SwapsSides()) std::swap(size.x, size.y);
    }
    Planes planes(size.x, size.y);
    if (size.x == yuv.nWidth && size.y == yuv.nHeight) {
      planes.Copy(yuv);
    } else {
      planes.Scale(yuv, options_.near ? IMAGE_INTERPOLATION_NEAREST : IMAGE_INTERPOLATION_BILINEAR);
    }
    Bitmap bitmap(size.x, size.y);
    planes.ToBitmap(bitmap.data());
    if (options_.flip) {
      turn.yx = -turn.yx;
      turn.yy = -turn.yy;
    }
    return turn.IsUpright() ? bitmap : bitmap.Turned(turn);
  }

  const Options& options_;
  PacketSource source_;
  AlphaPicture logo_;
  ComPtr<IMediaDecoderMgr> manager_;
  ComPtr<IMediaDecoder> decoder_;
  ComPtr<IMediaStream> stream_;
  ComPtr<IStreamInfo> info_;
  CZelSample picture_{AV_STREAM_VIDEO, FRAME_DATA_DECODED};
  double start_ = 0;  ///< Time of the first picture, in seconds since the beginning.
};

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
  if (logoAt) {
    const auto corner = ParsePair(*logoAt, ',');
    constexpr int limit = 1'000'000;
    if (!corner) throw UsageError("--at-xy: '" + *logoAt + "' is no place such as 20,-5");
    for (const int place : {corner->first, corner->second}) {
      if (place < -limit || place > limit) {
        throw UsageError("--at-xy: " + std::to_string(place) + " is not from " +
                         std::to_string(-limit) + " to " + std::to_string(limit));
      }
    }
    options.logoAt = {corner->first, corner->second};
  }
  if (logo && logo->empty()) throw Failure("", "a file needs a name");
  options.logo = logo.value_or("");
  FrameGrab(options).Run();
  return kDone;
}

}  // namespace zel::tool
