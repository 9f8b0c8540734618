// Pictures of a file: their times, and that a seek finds what reading from the start finds.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "tests/support/Media.h"

namespace zel::test {
namespace {

constexpr int kCount = 60;

/// A source of pictures that show their number, one bit in every 16 columns.
std::string Numbers(const std::string& rate) {
  return "-f lavfi -i \"color=s=128x32:r=" + rate +
         ":d=10,trim=end_frame=" + std::to_string(kCount) +
         ",geq=lum='16+219*mod(floor(N/pow(2,floor(X/16))),2)':cb=128:cr=128\" -pix_fmt yuv420p ";
}

Ref<IMediaStream> OpenVideo(const std::string& path) {
  return Obtain<IMediaStream>(OpenFile(path), &IMediaDecoder::GetVideoStream);
}

/// The number that the stream's picture shows, or -1.
int Number(const Ref<IMediaStream>& stream) {
  CZelSample* sample = stream->GetSampleEx();
  if (sample == nullptr) return -1;
  const MEDIA_FRAME& frame = *sample->GetMediaFrame();
  EXPECT_EQ(frame.llDTS, frame.llPTS);
  EXPECT_EQ(sample->GetDuration(), frame.nDuration);
  int number = 0;
  for (int bit = 0; bit < 8; ++bit) {
    const MEDIA_FRAME_YUV& yuv = frame.video.yuv;
    number |= (yuv.pPlane[0][16 * yuv.nStride[0] + 16 * bit + 8] > 128 ? 1 : 0) << bit;
  }
  return number;
}

/// Holds every seek in `path` to what reading it from the start finds.
/// @return times by the number that the picture shows
std::map<int, double> ExpectSeeksAsRead(const std::string& path) {
  std::map<int, double> times;
  const Ref<IMediaStream> stream = OpenVideo(path);
  double end = 0;
  while (stream->Forward() == 0) {
    const int number = Number(stream);
    const MEDIA_FRAME& frame = *stream->GetSampleEx()->GetMediaFrame();
    times[number] = static_cast<double>(frame.llPTS) / kTicksPerSecond;
    EXPECT_NEAR(times[number], end, 1e-6) << "no gap before picture " << number;
    end = times[number] + static_cast<double>(frame.nDuration) / kTicksPerSecond;
  }
  EXPECT_EQ(stream->GetSampleEx(), nullptr);
  EXPECT_EQ(stream->Seek(end + 0.01, 1), -1);
  EXPECT_EQ(stream->Forward(), -1);
  // Backwards, and then forward by steps of several lengths.
  const int first = times.begin()->first;
  const int last = times.rbegin()->first;
  std::vector<int> order;
  for (int number = last; number >= first; --number) order.push_back(number);
  for (int i = 0; i <= last - first; i += 1 + i % 9) order.push_back(first + i);
  for (const int number : order) {
    const bool isLast = number == last;
    EXPECT_NEAR(stream->Seek((times[number] + (isLast ? end : times[number + 1])) / 2, 1),
                times[number], 1e-6);
    // The first Forward after a seek skips nothing, whether or not the picture was read.
    if (number % 2 != 0) {
      EXPECT_EQ(stream->Forward(), 0);
    }
    EXPECT_EQ(Number(stream), number);
    EXPECT_EQ(stream->Forward(), isLast ? -1 : 0);
    EXPECT_EQ(Number(stream), isLast ? -1 : number + 1);
  }
  return times;
}

TEST(Picture, IsFoundByItsTimeWhateverTheContainerStores) {
  const Folder folder;
  const std::string h264 = "-c:v libx264 -preset veryfast -x264-params ";
  const std::string openGop = h264 + "open-gop=1:keyint=12:bframes=5 ";
  const std::string mpeg2 = "-c:v mpeg2video -b:v 2M ";
  const std::string varying =
      "-vf \"setpts='if(lt(N,20),N,3*N-40)/(25*TB)'\" -fps_mode passthrough " + openGop;
  // With the seconds of one picture.
  const std::tuple<const char*, const char*, double, std::string> rows[] = {
      {"bare.h264", "25", 0.04, openGop},
      {"bare.m2v", "25", 0.04, mpeg2 + "-bf 2 "},
      {"ntsc.hevc", "30000/1001", 1.001 / 30,
       "-c:v libx265 -x265-params log-level=none:keyint=12:bframes=4:open-gop=1 "},
      {"film.vob", "24000/1001", 1.001 / 24, mpeg2 + "-bf 2 "},
      // Blocks of several pictures with one time each, at places the wrong one.
      {"blocks.mpg", "25", 0.04, h264 + "tff=1:keyint=30 "},
      {"reordered.vob", "25", 0.04, mpeg2 + "-bf 2 "},
      {"straight.mpg", "25", 0.04, mpeg2 + "-bf 0 "},
      {"open.mp4", "25", 0.04, openGop},
      {"open.mkv", "25", 0.04, openGop},
      {"open.avi", "25", 0.04, openGop},
      {"late.mxf", "25", 0.04, mpeg2 + "-bf 2 -output_ts_offset 9 "},
      {"part2.avi", "25", 0.04, "-c:v mpeg4 -bf 2 "},
      {"part2.mpg", "30000/1001", 1.001 / 30, "-c:v mpeg4 -bf 2 "},
      {"open.ts", "25", 0.04, openGop + "-output_ts_offset 9 "},
      {"varying.mkv", "25", 0.04, varying},
      {"varying.mp4", "25", 0.04, varying},
  };
  for (const auto& [file, rate, seconds, arguments] : rows) {
    SCOPED_TRACE(file);
    Ffmpeg(folder, Numbers(rate) + arguments + file);
    // FFmpeg sees no varying rate in Matroska.
    const bool isConstant = Describe(folder / file)->IsFrameRateConstant() != 0;
    EXPECT_EQ(isConstant, std::string(file) != "varying.mp4");
    const std::map<int, double> times = ExpectSeeksAsRead(folder / file);
    ASSERT_EQ(times.size(), static_cast<std::size_t>(kCount));
    for (const auto& [number, time] : times) {
      // Some containers store milliseconds.
      const int place = arguments != varying || number < 20 ? number : 3 * number - 40;
      EXPECT_NEAR(time, place * seconds, 0.0011);
    }
  }
}

TEST(Picture, IsCountedFromTheFirstOneOfACutFile) {
  const Folder folder;
  Ffmpeg(folder, Numbers("25") + "-c:v mpeg2video -b:v 1M -bf 2 -output_ts_offset 3600 whole.mpg");
  const std::string whole = ReadFile(folder / "whole.mpg");
  for (std::size_t cut = 1500; cut < whole.size() / 2; cut += 1500) {
    SCOPED_TRACE(cut);
    WriteFile(folder / "rest.mpg", whole.substr(cut));
    const std::map<int, double> times = ExpectSeeksAsRead(folder / "rest.mpg");
    for (const auto& [number, time] : times) {
      EXPECT_NEAR(time, (number - times.begin()->first) / 25.0, 1e-4);
    }
    EXPECT_EQ(times.rbegin()->first, kCount - 1);
  }
}

TEST(Picture, IsPacked) {
  // Odd sizes; 4:2:0 in the file, and converted to it.
  const Folder folder;
  Ffmpeg(folder,
         "-f lavfi -i testsrc=s=63x47:r=25:d=0.4 -c:v mpeg4 a.mp4 -c:v ffv1 -pix_fmt yuv444p b.mkv "
         "&& ffmpeg -v error -i a.mp4 -i b.mkv -map 0 -f rawvideo a.mp4.yuv -map 1 -f rawvideo "
         "-pix_fmt yuv420p -sws_flags bicubic b.mkv.yuv");
  constexpr std::ptrdiff_t luma = 63 * 47;
  constexpr std::ptrdiff_t chroma = 32 * 24;
  for (const std::string name : {"a.mp4", "b.mkv"}) {
    const Ref<IMediaStream> stream = OpenVideo(folder / name);
    EXPECT_EQ(stream->GetSampleEx(), nullptr) << "before the first picture";
    std::string all;
    while (stream->Forward() == 0) {
      const MEDIA_FRAME_YUV& yuv = stream->GetSampleEx()->GetMediaFrame()->video.yuv;
      ASSERT_TRUE(yuv.nWidth == 63 && yuv.nHeight == 47 && yuv.nStride[0] == 63);
      ASSERT_TRUE(yuv.nStride[1] == 32 && yuv.nStride[2] == 32);
      ASSERT_TRUE(yuv.pPlane[1] == yuv.pPlane[0] + luma && yuv.pPlane[2] == yuv.pPlane[1] + chroma);
      all.append(reinterpret_cast<const char*>(yuv.pPlane[0]), luma + 2 * chroma);
    }
    EXPECT_TRUE(all == ReadFile(folder / (name + ".yuv"))) << name;
    EXPECT_EQ(stream->Backward(), -1);
    EXPECT_EQ(stream->ChangeStream(0), S_OK);
    EXPECT_EQ(stream->ChangeStream(1), E_INVALIDARG);
    EXPECT_EQ(stream->Seek(std::nan(""), 1), -1);
  }
}

TEST(Picture, IsReadOnFromWhatIsOpenWhenTheFileIsGone) {
  const Folder folder;
  Ffmpeg(folder, Numbers("25") + "-c:v libx264 -g 12 a.mkv");
  const Ref<IMediaStream> stream = OpenVideo(folder / "a.mkv");
  EXPECT_GE(stream->Seek(1, 1), 0);
  ASSERT_EQ(std::rename((folder / "a.mkv").c_str(), (folder / "b.mkv").c_str()), 0);
  EXPECT_EQ(stream->Seek(0, 1), -1) << "reads from the start of the file";
  EXPECT_EQ(Number(stream), -1);
  EXPECT_EQ(stream->Forward(), -1);
  EXPECT_EQ(stream->Seek(2.02, 1), 2);
  EXPECT_EQ(Number(stream), 50);
}

}  // namespace
}  // namespace zel::test
