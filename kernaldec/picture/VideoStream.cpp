#include "kernaldec/picture/VideoStream.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <utility>

#include "kernaldec/Guard.h"
#include "kernaldec/file/Describe.h"
#include "zel/mediainfo/StreamInfo.h"

namespace zel::kernaldec {
namespace {

// Pixels. No camera makes larger pictures, and their byte counts would not fit the frame record.
constexpr int kMaxSide = 16384;
// Seconds. Beyond any video; what is sought later is past the end, too.
constexpr double kLatest = 1e9;

}  // namespace

VideoStream::VideoStream(std::unique_ptr<PictureReader> reader, Program program)
    : reader_(std::move(reader)),
      program_(std::move(program)),
      sample_(MakeComponent<CZelSample>(AV_STREAM_VIDEO, FRAME_DATA_DECODED)) {}

HRESULT VideoStream::GetStreamInfo(IStreamInfo** ppInfo) {
  if (ppInfo == nullptr) return E_POINTER;
  *ppInfo = nullptr;
  return Guarded([&] {
    StreamInfo record =
        DescribeStream(reader_->file().format(), program_, reader_->stream()->index);
    record.startPTS = reader_->startPts();
    Ref<CStreamInfo> info = MakeComponent<CStreamInfo>();
    info->SetStreamInfo(&record);
    *ppInfo = info.Detach();
    return S_OK;
  });
}

HRESULT VideoStream::ChangeStream(int index) {
  return index == 0 ? S_OK : E_INVALIDARG;
}

CZelSample* VideoStream::GetSampleEx() {
  sought_ = false;
  if (reader_->frame() == nullptr) return nullptr;
  if (!filled_) filled_ = Guarded([&] { return FillSample(); }, false, false);
  return filled_ ? sample_.get() : nullptr;
}

bool VideoStream::FillSample() {
  const AVFrame& picture = *reader_->frame();
  if (!MakeRoom(picture.width, picture.height)) return false;
  MEDIA_FRAME& frame = *sample_->GetMediaFrame();
  MEDIA_FRAME_YUV& yuv = frame.video.yuv;
  if (!converter_.Convert(picture, yuv.pPlane, yuv.nStride)) return false;
  frame.bKeyFrame = picture.key_frame;
  frame.llPTS = reader_->time();
  frame.llDTS = frame.llPTS;
  frame.nDuration = static_cast<std::int32_t>(
      std::clamp<std::int64_t>(reader_->duration(), 0, std::numeric_limits<std::int32_t>::max()));
  sample_->RefreshSampleInfo();
  sample_->SetDuration(frame.nDuration);
  return true;
}

/// Gives the sample planes for a picture of `width` x `height` pixels.
bool VideoStream::MakeRoom(int width, int height) {
  if (width <= 0 || height <= 0 || width > kMaxSide || height > kMaxSide) return false;
  const MEDIA_FRAME* held = sample_->GetMediaFrame();
  if (held == nullptr || held->video.yuv.nWidth != width || held->video.yuv.nHeight != height) {
    const HRESULT made = sample_->RemallocYUVFrame(
        static_cast<unsigned long>(width), static_cast<unsigned long>(height), YUV_IMAGE_420P);
    if (made != S_OK) return false;
  }
  const std::size_t luma = static_cast<std::size_t>(width) * height;
  const std::size_t chroma = static_cast<std::size_t>((width + 1) / 2) * ((height + 1) / 2);
  if (sample_->GetSampleSize() < luma + 2 * chroma) return false;
  // The sample rounds chroma sizes down to place the last plane. Here they are rounded up.
  MEDIA_FRAME_YUV& yuv = sample_->GetMediaFrame()->video.yuv;
  yuv.pPlane[2] = yuv.pPlane[1] + chroma;
  return true;
}

int VideoStream::Forward() {
  // Right after a seek, the picture found is still to be read.
  if (std::exchange(sought_, false)) return 0;
  filled_ = false;
  return Guarded([&] { return reader_->Next() ? 0 : -1; }, -1, -1);
}

double VideoStream::Seek(double seconds, int /*mode*/) {
  if (std::isnan(seconds)) return -1;
  filled_ = false;
  const std::int64_t time = std::llround(std::clamp(seconds, 0.0, kLatest) * kTicksPerSecond);
  sought_ = Guarded([&] { return reader_->Seek(time); }, false, false);
  return sought_ ? static_cast<double>(reader_->time()) / kTicksPerSecond : -1;
}

}  // namespace zel::kernaldec
