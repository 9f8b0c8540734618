// CZelSample::FrameCopy into a sample that has its memory already, beside memcpy of the same bytes.
#include <memory>
#include <string>
#include <vector>

#include "bench/Compare.h"
#include "zel/sample/Sample.h"

namespace {

using zel::bench::Comparison;
using zel::bench::Goal;
using zel::bench::Keep;

constexpr int kWidth = 1920, kHeight = 1080;
const Goal kGoal = {0.9, 1.0, "memcpy"};

// A frame with memory of its own for its data, and the sample that it is copied into.
struct Copy {
  Copy(AV_STREAM_TYPE type, std::size_t bytes)
      : memory(bytes, 1), sample(type, FRAME_DATA_DECODED) {
    frame.nStreamType = type;
    frame.nFrameType = FRAME_DATA_DECODED;
  }
  std::vector<unsigned char> memory;
  MEDIA_FRAME frame = {};
  CZelSample sample;
};

void Add(Comparison& comparison, const char* name, const std::shared_ptr<Copy>& copy,
         std::size_t bytes, const Goal& goal = kGoal) {
  comparison.Add({.name = name,
                  .item = "KiB",
                  .items = static_cast<double>(bytes) / 1024,
                  .bytes = bytes,
                  .ours =
                      [copy] {
                        copy->sample.FrameCopy(&copy->frame);
                        Keep(copy->sample.GetMediaFrame());
                      },
                  .goal = goal});
}

// A copy takes planes as blocks without gaps, whatever the strides say: with wider strides it still
// copies as many bytes.
void AddYuv(Comparison& comparison, const char* name, int stride) {
  const int chromaStride = stride / 2, chromaHeight = kHeight / 2;
  const auto luma = static_cast<std::size_t>(stride) * kHeight;
  const auto chroma = static_cast<std::size_t>(chromaStride) * chromaHeight;
  const auto copy = std::make_shared<Copy>(AV_STREAM_VIDEO, luma + 2 * chroma);
  copy->sample.RemallocYUVFrame(kWidth, kHeight, YUV_IMAGE_420P);
  copy->frame.video.nImageFormat = IMAGE_FORMAT_YUV;
  MEDIA_FRAME_YUV& yuv = copy->frame.video.yuv;
  yuv.nYuvFormat = YUV_IMAGE_420P;
  yuv.nWidth = kWidth;
  yuv.nHeight = kHeight;
  yuv.nStride[0] = stride;
  yuv.nStride[1] = yuv.nStride[2] = chromaStride;
  yuv.pPlane[0] = copy->memory.data();
  yuv.pPlane[1] = yuv.pPlane[0] + luma;
  yuv.pPlane[2] = yuv.pPlane[1] + chroma;
  Add(comparison, name, copy, std::size_t{kWidth} * kHeight * 3 / 2);
}

void AddRgb(Comparison& comparison, const char* name, int pixelBytes) {
  const auto bytes = static_cast<std::size_t>(kWidth) * kHeight * static_cast<unsigned>(pixelBytes);
  const auto copy = std::make_shared<Copy>(AV_STREAM_VIDEO, bytes);
  copy->sample.SetVideoImageFormat(IMAGE_FORMAT_RGB);
  copy->sample.SetSampleSize(bytes);
  copy->frame.video.nImageFormat = IMAGE_FORMAT_RGB;
  tagBITMAPINFOHEADER& header = copy->frame.video.rgb.bmiHeader;
  header.biWidth = kWidth;
  header.biHeight = kHeight;
  header.biBitCount = static_cast<std::uint16_t>(8 * pixelBytes);
  header.biSizeImage = static_cast<std::uint32_t>(bytes);
  copy->frame.video.rgb.pBits = copy->memory.data();
  Add(comparison, name, copy, bytes);
}

void AddAudio(Comparison& comparison, const char* name, int frames, int channels) {
  const auto bytes = static_cast<std::size_t>(frames * channels) * sizeof(short);
  const auto copy = std::make_shared<Copy>(AV_STREAM_AUDIO, bytes);
  copy->sample.SetSampleSize(bytes);
  copy->frame.audio = {
      48000, channels, 16, copy->memory.data(), static_cast<int>(bytes), static_cast<int>(bytes)};
  // A block of a few KiB shows what the record itself costs: no goal.
  Add(comparison, name, copy, bytes, bytes < 65536 ? Goal{} : kGoal);
}

}  // namespace

int main(int argc, char** argv) {
  Comparison comparison("FrameCopy", argc, argv);
  AddYuv(comparison, "1080p 4:2:0", kWidth);
  AddYuv(comparison, "1080p 4:2:0 with wider strides", 2048);
  AddRgb(comparison, "1080p bitmap of 24 bits", 3);
  AddRgb(comparison, "1080p bitmap of 32 bits", 4);
  AddAudio(comparison, "audio, 1,024 frames of 2 channels", 1024, 2);
  AddAudio(comparison, "audio, 48,000 frames of 6 channels", 48000, 6);
  return comparison.Run();
}
