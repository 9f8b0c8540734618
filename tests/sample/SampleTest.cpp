#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "tests/support/Allocations.h"
#include "zel/base/Ids.h"
#include "zel/sample/FrameBuffer.h"
#include "zel/sample/Sample.h"

namespace {

constexpr AV_STREAM_TYPE kVideo = AV_STREAM_VIDEO;
constexpr AV_STREAM_TYPE kAudio = AV_STREAM_AUDIO;
constexpr FRAME_DATA_TYPE kEncoded = FRAME_DATA_ENCODED;
constexpr FRAME_DATA_TYPE kDecoded = FRAME_DATA_DECODED;

/// A sample on the stack that is in use: one reference, which does not destroy it.
struct Sample : CZelSample {
  Sample(AV_STREAM_TYPE stream, FRAME_DATA_TYPE data) : CZelSample(stream, data) {}
  MEDIA_FRAME& frame() { return *GetMediaFrame(); }
  MEDIA_FRAME_YUV& yuv() { return frame().video.yuv; }
};

MEDIA_FRAME AudioFrame(unsigned char* data, int size) {
  MEDIA_FRAME f{};
  f.nStreamType = kAudio;
  f.nFrameType = kDecoded;
  f.audio = {44100, 2, 16, data, size, size};
  f.llPTS = 70;
  f.llDTS = 60;
  f.nDuration = -5;
  return f;
}

MEDIA_FRAME VideoFrame(int format, FRAME_DATA_TYPE data = kDecoded) {
  MEDIA_FRAME f{};
  f.nStreamType = kVideo;
  f.nFrameType = data;
  f.video.nImageFormat = format;
  return f;
}

MEDIA_FRAME YuvFrame(unsigned char* data, int w, int h) {
  MEDIA_FRAME f = VideoFrame(IMAGE_FORMAT_YUV);
  const int q = ((w + 1) / 2) * ((h + 1) / 2);
  f.video.yuv = {2, {data, data + w * h, data + w * h + q}, w, h, {w, (w + 1) / 2, (w + 1) / 2}};
  return f;
}

TEST(Sample, IsEmptyWhenNew) {
  long result = 17;
  CZelSample plain, aggregating(nullptr, &result);
  Sample audio(kAudio, kDecoded), encoded(kVideo, kEncoded);
  EXPECT_EQ(result, 17);
  for (CZelSample* sample : {&plain, &aggregating, static_cast<CZelSample*>(&audio)}) {
    EXPECT_EQ(sample->GetStreamID(), -1);
    EXPECT_EQ(sample->GetSampleSize(), 0U);
    EXPECT_EQ(sample->IsKeyFrame(), 0);
    EXPECT_EQ(sample->GetSampleType(), 0);
    EXPECT_EQ(sample->GetCurrentPTS(), -1);
    EXPECT_EQ(sample->GetCurrentDTS(), -1);
    EXPECT_EQ(sample->GetDuration(), 0);
    EXPECT_EQ(sample->GetMediaFrame(), nullptr);
    EXPECT_EQ(sample->GetCompareFrame(), nullptr);
    EXPECT_STREQ(sample->GetSubStreamString(), L"");
    EXPECT_EQ(sample->GetAudioPakcetInfo()[0], 0);
    EXPECT_EQ(sample->RefreshSampleInfo(), E_ZEL_STATE);
  }
  EXPECT_EQ(plain.GetStreamType(), 0);
  EXPECT_EQ(audio.GetStreamType(), kAudio);
  EXPECT_EQ(audio.GetFrameType(), kDecoded);
  EXPECT_EQ(encoded.SetSampleSize(5), S_OK);
  EXPECT_EQ(encoded.frame().video.nImageFormat, IMAGE_FORMAT_BUFFER);
}

TEST(Sample, HandsOutItsFaces) {
  auto* sample = new CZelSample(kAudio, kDecoded);
  EXPECT_EQ(sample->AddRef(), 1U);
  void* face = nullptr;
  ASSERT_EQ(sample->QueryInterface(IID_IZelSample, &face), S_OK);
  EXPECT_EQ(face, static_cast<IZelSample*>(sample));
  void* root = nullptr;
  ASSERT_EQ(static_cast<IZelSample*>(face)->QueryInterface(IID_IUnknown, &root), S_OK);
  EXPECT_EQ(root, static_cast<scombase::INonDelegatingUnknown*>(sample));
  void* other = sample;
  EXPECT_EQ(sample->QueryInterface(IID_IStreamInfo, &other), E_NOINTERFACE);
  EXPECT_EQ(other, nullptr);
  EXPECT_EQ(sample->QueryInterface(IID_IZelSample, nullptr), E_POINTER);
  EXPECT_EQ(sample->Release(), 2U);
  EXPECT_EQ(sample->Release(), 1U);
  EXPECT_EQ(sample->Release(), 0U);
}

TEST(Sample, KeepsItsTimesApartFromTheFramesTimes) {
  Sample sample(kAudio, kDecoded), copy(kAudio, kDecoded);
  sample.SetCurrentPTS(5);
  sample.SetDuration(33);
  EXPECT_EQ(sample.GetCurrentPTS(), -1);
  sample.SetSampleSize(4);
  sample.SetDuration(33);
  sample.frame().llPTS = 7;
  sample.frame().llDTS = 6;
  EXPECT_EQ(sample.RefreshSampleInfo(), S_OK);
  EXPECT_EQ(sample.GetCurrentPTS(), 7);
  EXPECT_EQ(sample.GetCurrentDTS(), 6);
  EXPECT_EQ(sample.IsKeyFrame(), 1);
  EXPECT_EQ(sample.GetDuration(), 33);
  sample.frame().nStreamType = 0;
  EXPECT_EQ(sample.GetCurrentPTS(), -1);
  EXPECT_EQ(sample.GetCurrentDTS(), -1);
  sample.frame().nStreamType = kAudio;

  copy.SetSampleSize(4);
  copy.SetDuration(44);
  sample.SetSampleType(static_cast<SAMPLE_TYPE>(12));
  EXPECT_EQ(copy.FrameCopy(sample), S_OK);
  EXPECT_EQ(copy.GetDuration(), 44) << "the sample form keeps the duration";
  EXPECT_EQ(copy.GetSampleType(), 12);
  EXPECT_EQ(copy.IsKeyFrame(), 1);
  unsigned char bytes[2] = {1, 2};
  const MEDIA_FRAME bare = AudioFrame(bytes, 2);
  EXPECT_EQ(copy.FrameCopy(&bare), S_OK);
  EXPECT_EQ(copy.GetDuration(), -5) << "the bare form follows the frame, with its sign";
  EXPECT_EQ(copy.GetCurrentPTS(), 70);

  copy.FreeMediaFrame();
  EXPECT_EQ(copy.GetDuration(), 0);
  EXPECT_EQ(copy.GetSampleSize(), 0U);
  EXPECT_EQ(copy.IsKeyFrame(), 0);
}

TEST(Sample, AllocatesByStreamAndImageFormat) {
  struct Case {
    AV_STREAM_TYPE stream;
    int format;
    HRESULT result;
  };
  for (const Case& c : {Case{kAudio, 1, S_OK}, Case{kVideo, 0, S_OK}, Case{kVideo, 1, S_OK},
                        Case{kVideo, 2, S_OK}, Case{kVideo, 3, E_ZEL_STATE}}) {
    SCOPED_TRACE(testing::Message() << "stream " << c.stream << " format " << c.format);
    Sample sample(c.stream, kDecoded);
    sample.SetVideoImageFormat(static_cast<IMAGE_FORMAT>(c.format));
    ASSERT_EQ(sample.SetSampleSize(100), c.result);
    EXPECT_EQ(sample.GetSampleSize(), 100U) << "also after a failure, which leaves an empty frame";
    MEDIA_FRAME* const frame = sample.GetMediaFrame();
    ASSERT_NE(frame, nullptr);
    EXPECT_EQ(frame->nStreamType, c.stream);
    EXPECT_EQ(frame->nFrameType, kDecoded);
    EXPECT_EQ(sample.SetSampleSize(50), S_OK) << "memory never shrinks";
    EXPECT_EQ(sample.GetMediaFrame(), frame);
    EXPECT_EQ(sample.GetSampleSize(), 100U);
    if (c.stream == kAudio) {
      EXPECT_EQ(frame->audio.nBufferSize, 100);
      EXPECT_EQ(frame->audio.nDataSize, 0);
    } else if (c.result == S_OK) {
      EXPECT_EQ(frame->video.nImageFormat, c.format);
      if (c.format == 1) {
        EXPECT_EQ(frame->video.yuv.nYuvFormat, 2);
        EXPECT_EQ(frame->video.yuv.pPlane[1], nullptr);
        EXPECT_EQ(frame->video.yuv.nStride[0], 0);
      }
    }
  }
}

TEST(Sample, AllocatesPlanesByTheAllocationFormula) {
  Sample sample(kVideo, kDecoded);
  ASSERT_EQ(sample.RemallocYUVFrame(4, 2, YUV_IMAGE_420P), S_OK);
  const MEDIA_FRAME_YUV& yuv = sample.yuv();
  EXPECT_EQ(sample.GetSampleSize(), 19U);
  EXPECT_EQ(yuv.pPlane[1] - yuv.pPlane[0], 8);
  EXPECT_EQ(yuv.pPlane[2] - yuv.pPlane[0], 11);
  EXPECT_EQ(yuv.pPlane[3], nullptr);
  EXPECT_EQ(std::vector<int>(yuv.nStride, yuv.nStride + 4), (std::vector<int>{4, 2, 2, 0}));
  EXPECT_EQ(sample.GetCurrentPTS(), -1);
  EXPECT_EQ(sample.GetCurrentDTS(), -1);
  MEDIA_FRAME* const frame = sample.GetMediaFrame();
  EXPECT_EQ(sample.RemallocYUVFrame(4, 2, static_cast<YUV_IMAGE_FORMAT>(1)), E_ZEL_STATE);
  EXPECT_EQ(sample.GetMediaFrame(), frame);
  for (auto [stream, data] : {std::pair(kAudio, kDecoded), std::pair(kVideo, kEncoded)}) {
    Sample other(stream, data);
    EXPECT_EQ(other.RemallocYUVFrame(4, 2, YUV_IMAGE_420P), E_ZEL_STATE);
    EXPECT_EQ(other.GetMediaFrame(), nullptr);
  }
}

TEST(Sample, CopiesPlanesPacked) {
  unsigned char bytes[17];
  for (int i = 0; i < 17; ++i) bytes[i] = static_cast<unsigned char>(i);
  const MEDIA_FRAME source = YuvFrame(bytes, 3, 3);
  Sample sample(kVideo, kDecoded);
  sample.SetSampleSize(5);
  ASSERT_EQ(sample.FrameCopy(&source), S_OK);
  EXPECT_EQ(sample.GetSampleSize(), 17U);
  EXPECT_EQ(sample.yuv().pPlane[1] - sample.yuv().pPlane[0], 9);
  EXPECT_EQ(sample.yuv().pPlane[2] - sample.yuv().pPlane[0], 13);
  EXPECT_EQ(std::memcmp(sample.yuv().pPlane[0], bytes, 17), 0);

  Sample small(kVideo, kDecoded);
  small.SetSampleSize(5);
  small.yuv().nWidth = small.yuv().nHeight = 3;
  small.frame().bKeyFrame = 8;
  EXPECT_EQ(small.RefreshSampleInfo(), S_OK);
  EXPECT_EQ(small.GetSampleSize(), 17U);
  EXPECT_EQ(small.IsKeyFrame(), 1);
}

TEST(Sample, CopiesEveryField) {
  unsigned char bytes[40] = {4, 5, 6};
  Sample audio(kAudio, kDecoded), buffer(kVideo, kEncoded), picture(kVideo, kDecoded);
  ASSERT_EQ(audio.SetSampleSize(8), S_OK);
  MEDIA_FRAME source = AudioFrame(bytes, 3);
  source.audio.nSampleRate = 48000;
  ASSERT_EQ(audio.FrameCopy(&source), S_OK);
  const MEDIA_FRAME_AUDIO& sound = audio.frame().audio;
  EXPECT_EQ((std::vector{sound.nSampleRate, sound.nChannels, sound.nBitsPerSample, sound.nDataSize,
                         sound.nBufferSize}),
            (std::vector{48000, 2, 16, 3, 8}));
  EXPECT_EQ(audio.frame().llDTS, 60);
  EXPECT_EQ(audio.IsKeyFrame(), 0) << "sound has none";

  ASSERT_EQ(buffer.SetSampleSize(8), S_OK);
  EXPECT_EQ(buffer.frame().video.buffer.nBufferSize, 8);
  MEDIA_FRAME* const frame = buffer.GetMediaFrame();
  EXPECT_EQ(buffer.SetSampleSize(8), S_OK);
  EXPECT_EQ(buffer.GetMediaFrame(), frame);
  source = VideoFrame(IMAGE_FORMAT_BUFFER, kEncoded);
  source.video.buffer = {bytes, 33, 40};
  source.bKeyFrame = 2;
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(buffer.FrameCopy(&source), S_OK);
    EXPECT_EQ(buffer.IsKeyFrame(), 2);
    EXPECT_EQ(buffer.frame().bKeyFrame, 2);
    EXPECT_EQ(buffer.frame().video.buffer.nDataSize, 33);
    EXPECT_EQ(buffer.frame().video.buffer.nBufferSize, 33);
    EXPECT_EQ(buffer.GetSampleSize(), 33U);
  }
  EXPECT_EQ(buffer.RefreshSampleInfo(), S_OK);
  EXPECT_EQ(buffer.IsKeyFrame(), 1);

  ASSERT_EQ(picture.RemallocYUVFrame(8, 8, YUV_IMAGE_420P), S_OK);
  EXPECT_EQ(picture.yuv().nYuvFormat, 2);
  source = YuvFrame(bytes, 5, 4);
  source.video.yuv.nYuvFormat = 7;
  source.video.yuv.nStride[0] = 6;
  ASSERT_EQ(picture.FrameCopy(&source), S_OK);
  const MEDIA_FRAME_YUV& yuv = picture.yuv();
  EXPECT_EQ((std::vector{yuv.nYuvFormat, yuv.nWidth, yuv.nHeight, yuv.nStride[0], yuv.nStride[1],
                         yuv.nStride[2]}),
            (std::vector{7, 5, 4, 6, 3, 3}));
  picture.frame().bKeyFrame = 0;
  EXPECT_EQ(picture.RefreshSampleInfo(), S_OK);
  EXPECT_EQ(picture.IsKeyFrame(), 0);
  source = YuvFrame(bytes, 3, 0);
  EXPECT_EQ(picture.FrameCopy(&source), S_OK);
  // Where there is nothing to copy from, the record alone follows.
  source = YuvFrame(bytes, 4, 4);
  source.video.yuv.pPlane[1] = nullptr;
  ASSERT_EQ(picture.FrameCopy(&source), S_OK);
  EXPECT_EQ(yuv.nWidth, 4);
  source = AudioFrame(nullptr, 2);
  source.audio.nChannels = 1;
  ASSERT_EQ(audio.FrameCopy(&source), S_OK);
  EXPECT_EQ(sound.nChannels, 2);
  EXPECT_EQ(sound.nDataSize, 3);
  for (const int size : {5, 0}) {
    audio.frame().audio.nBufferSize = size;
    EXPECT_EQ(audio.RefreshSampleInfo(), S_OK);
    EXPECT_EQ(audio.GetSampleSize(), static_cast<unsigned>(size));
  }
}

TEST(Sample, AllocatesBitmapsAtTwiceTheirSize) {
  unsigned char bits[10] = {9, 8, 7, 6, 5, 4, 3, 2, 1, 0};
  MEDIA_FRAME source = VideoFrame(IMAGE_FORMAT_RGB);
  source.video.rgb = {{40, 1, 2, 1, 24, 0, 10, 0, 0, 0, 0}, bits};
  Sample sample(kVideo, kDecoded);
  sample.SetVideoImageFormat(IMAGE_FORMAT_RGB);
  sample.SetSampleSize(9);
  ASSERT_EQ(sample.FrameCopy(&source), S_OK);
  EXPECT_EQ(sample.GetSampleSize(), 20U);
  EXPECT_EQ(std::memcmp(&sample.frame().video.rgb.bmiHeader, &source.video.rgb.bmiHeader, 40), 0);
  EXPECT_EQ(std::memcmp(sample.frame().video.rgb.pBits, bits, 10), 0);

  // After a failed allocation the frame is an empty bitmap: it gets its memory with the pixels.
  Sample failed(kVideo, kDecoded);
  failed.SetVideoImageFormat(static_cast<IMAGE_FORMAT>(5));
  EXPECT_EQ(failed.SetSampleSize(64), E_ZEL_STATE);
  ASSERT_EQ(failed.FrameCopy(&source), S_OK);
  EXPECT_EQ(failed.GetSampleSize(), 64U);
  EXPECT_EQ(std::memcmp(failed.frame().video.rgb.pBits, bits, 10), 0);
}

// What the copies refuse, each with nothing changed.
TEST(Sample, RefusesFramesThatCannotBe) {
  unsigned char bytes[64] = {};
  Sample audio(kAudio, kDecoded), video(kVideo, kDecoded), encoded(kVideo, kEncoded);
  for (Sample* sample : {&audio, &video, &encoded}) ASSERT_EQ(sample->SetSampleSize(8), S_OK);
  std::vector<std::pair<Sample*, MEDIA_FRAME>> cases = {
      {&audio, AudioFrame(bytes, -1)},
      {&audio, AudioFrame(bytes, INT_MIN)},
      {&video, AudioFrame(bytes, 4)},
      {&video, YuvFrame(bytes, 3, 3)},
      {&video, YuvFrame(bytes, 3, 3)},
      {&video, YuvFrame(bytes, 3, 3)},
      {&video, VideoFrame(IMAGE_FORMAT_BUFFER)},
      {&video, VideoFrame(IMAGE_FORMAT_RGB)},
      {&video, VideoFrame(IMAGE_FORMAT_RGB)},
      {&encoded, VideoFrame(IMAGE_FORMAT_BUFFER, kDecoded)},
  };
  cases[3].second.video.yuv.nWidth = -1;
  cases[4].second.video.yuv.nHeight = INT_MIN;
  cases[5].second.video.yuv.nWidth = cases[5].second.video.yuv.nHeight = 65536;
  cases[6].second.video.buffer = {bytes, -4, 64};
  cases[7].second.video.rgb.bmiHeader.biSizeImage = 16;
  cases[8].second.video.rgb = {{40, 1, 1, 1, 24, 0, 0x80000000, 0, 0, 0, 0}, bytes};
  int index = 0;
  for (auto& [sample, source] : cases) {
    SCOPED_TRACE(index++);
    source.llPTS = 99;
    const MEDIA_FRAME before = sample->frame();
    EXPECT_EQ(sample->FrameCopy(&source), E_ZEL_STATE);
    // As another sample's frame.
    Sample holder(sample->GetStreamType(), sample->GetFrameType());
    holder.FrameAttach(&source);
    const bool otherStream = source.nStreamType != sample->GetStreamType();
    const bool sameFrameType = source.nFrameType == sample->GetFrameType();
    if (!otherStream && sameFrameType) {
      EXPECT_EQ(sample->FrameCopy(holder), E_ZEL_STATE);
    }
    holder.FrameAttach(nullptr);
    EXPECT_EQ(std::memcmp(&sample->frame(), &before, sizeof(before)), 0);
    EXPECT_EQ(sample->GetSampleSize(), 8U);
  }
  EXPECT_EQ(audio.FrameCopy(nullptr), E_ZEL_STATE);
  EXPECT_EQ(audio.FrameCopy(audio.GetMediaFrame()), E_ZEL_STATE);
  EXPECT_EQ(audio.FrameCopy(audio), E_ZEL_STATE);
  EXPECT_EQ(audio.FrameCopy(video), E_ZEL_STATE);
  EXPECT_EQ(video.FrameCopy(encoded), E_ZEL_STATE);
  EXPECT_EQ(audio.FrameCopy(*std::make_unique<Sample>(kAudio, kDecoded)), E_ZEL_STATE)
      << "a source without a frame";
}

TEST(Sample, SettlesSizesThatOverflow) {
  Sample audio(kAudio, kDecoded), video(kVideo, kDecoded);
  EXPECT_EQ(audio.SetSampleSize(0x80000000UL), E_ZEL_STATE);
  EXPECT_EQ(audio.SetSampleSize(ULONG_MAX), E_ZEL_STATE);
  EXPECT_EQ(audio.GetMediaFrame(), nullptr);
  for (auto [w, h] : {std::pair(65536UL, 65536UL), std::pair(ULONG_MAX, 1UL),
                      std::pair(0xFFFFFFFFUL, 0xFFFFFFFFUL), std::pair(0x7FFFFFFFUL, 2UL)}) {
    EXPECT_EQ(video.RemallocYUVFrame(w, h, YUV_IMAGE_420P), E_ZEL_STATE) << w << " x " << h;
  }
  EXPECT_EQ(video.GetMediaFrame(), nullptr);

  audio.SetSampleSize(8);
  audio.frame().audio.nDataSize = -1;
  EXPECT_EQ(audio.RefreshSampleInfo(), E_ZEL_STATE);
  video.RemallocYUVFrame(2, 2, YUV_IMAGE_420P);
  video.yuv().nWidth = -7;
  EXPECT_EQ(video.RefreshSampleInfo(), E_ZEL_STATE);
  video.frame().video.nImageFormat = 7;
  EXPECT_EQ(video.RefreshSampleInfo(), E_ZEL_STATE);
  video.frame().video.nImageFormat = IMAGE_FORMAT_YUV;
  EXPECT_EQ(video.GetSampleSize(), 10U);

  const int negative[] = {-1}, huge[] = {INT_MAX};
  EXPECT_EQ(audio.SetAudioPacketInfo(negative), E_ZEL_STATE);
  EXPECT_EQ(audio.SetAudioPacketInfo(huge), E_ZEL_STATE);
}

// A frame that was made elsewhere tells its own size; the sample's may be that of another frame.
TEST(Sample, NeverOutgrowsAnAttachedFrame) {
  unsigned char bytes[60];
  std::memset(bytes, 3, sizeof(bytes));
  Sample audio(kAudio, kDecoded), video(kVideo, kDecoded);
  audio.SetSampleSize(100);
  audio.FreeMediaFrame();
  audio.SetSampleSize(100);
  std::unique_ptr<MEDIA_FRAME> old(audio.GetMediaFrame());
  std::unique_ptr<unsigned char[]> oldData(old->audio.pData);
  EXPECT_EQ(audio.FrameAttach(new MEDIA_FRAME(AudioFrame(new unsigned char[10], 10))), S_OK);
  EXPECT_EQ(audio.GetSampleSize(), 100U);
  MEDIA_FRAME source = AudioFrame(bytes, 60);
  EXPECT_EQ(audio.FrameCopy(&source), S_OK);
  EXPECT_EQ(audio.frame().audio.nBufferSize, 100);

  video.RemallocYUVFrame(8, 8, YUV_IMAGE_420P);
  std::unique_ptr<MEDIA_FRAME> oldPicture(video.GetMediaFrame());
  std::unique_ptr<unsigned char[]> oldPlanes(oldPicture->video.yuv.pPlane[0]);
  video.FrameAttach(new MEDIA_FRAME(YuvFrame(new unsigned char[6], 2, 2)));
  source = YuvFrame(bytes, 6, 6);
  EXPECT_EQ(video.FrameCopy(&source), S_OK);
  EXPECT_EQ(std::memcmp(video.yuv().pPlane[0], bytes, 54), 0);

  // Planes that an earlier, larger picture placed: the chroma of this one would not fit there.
  unsigned char large[96] = {};
  source = YuvFrame(large, 8, 8);
  Sample stale(kVideo, kDecoded);
  stale.SetSampleSize(1);
  EXPECT_EQ(stale.FrameCopy(&source), S_OK);
  source = YuvFrame(large, 1, 40);
  source.video.yuv.pPlane[0] = nullptr;
  EXPECT_EQ(stale.FrameCopy(&source), S_OK);
}

TEST(Sample, CopiesFromItsOwnMemory) {
  Sample audio(kAudio, kDecoded), other(kAudio, kDecoded), video(kVideo, kDecoded);
  audio.SetSampleSize(8);
  std::memcpy(audio.frame().audio.pData, "abcdefgh", 8);
  audio.frame().audio.nDataSize = 8;
  MEDIA_FRAME shallow = audio.frame();
  shallow.audio.pData += 2;
  shallow.audio.nDataSize = 6;
  EXPECT_EQ(audio.FrameCopy(&shallow), S_OK);
  EXPECT_EQ(std::memcmp(audio.frame().audio.pData, "cdefghgh", 8), 0);

  // Both samples hold the one frame, as a stream's output does with its input.
  other.FrameAttach(audio.GetMediaFrame());
  EXPECT_EQ(other.FrameCopy(audio), S_OK);
  EXPECT_EQ(std::memcmp(audio.frame().audio.pData, "cdefgh", 6), 0);
  // The same data, through another record, in a sample whose size is not its frame's: it grows.
  shallow = audio.frame();
  audio.FrameAttach(nullptr);
  EXPECT_EQ(other.FrameCopy(&shallow), S_OK);
  EXPECT_EQ(std::memcmp(other.frame().audio.pData, "cdefgh", 6), 0);

  // Planes allocated by the one formula move to where the other one packs them.
  video.RemallocYUVFrame(4, 2, YUV_IMAGE_420P);
  std::memcpy(video.yuv().pPlane[0], "YYYYYYYYUU.VV", 13);
  MEDIA_FRAME planes = video.frame();
  EXPECT_EQ(video.FrameCopy(&planes), S_OK);
  EXPECT_EQ(std::memcmp(video.yuv().pPlane[0], "YYYYYYYYUUVV", 12), 0);
  // Planes in another order overlap each other's places.
  planes = video.frame();
  std::swap(planes.video.yuv.pPlane[1], planes.video.yuv.pPlane[2]);
  planes.video.yuv.pPlane[0] += 4;
  EXPECT_EQ(video.FrameCopy(&planes), S_OK);
  EXPECT_EQ(std::memcmp(video.yuv().pPlane[0], "YYYYUUVVVVUU", 12), 0);
}

TEST(Sample, ReusesMemoryWhenTheImageFormatChanges) {
  unsigned char bytes[17];
  std::memset(bytes, 5, sizeof(bytes));
  Sample video(kVideo, kDecoded);
  video.SetSampleSize(40);
  unsigned char* const block = video.yuv().pPlane[0];
  MEDIA_FRAME source = VideoFrame(IMAGE_FORMAT_BUFFER);
  source.video.buffer = {bytes, 17, 17};
  EXPECT_EQ(video.FrameCopy(&source), S_OK);
  EXPECT_EQ(video.frame().video.buffer.pData, block);
  EXPECT_EQ(video.frame().video.buffer.nBufferSize, 40);
  source = YuvFrame(bytes, 3, 3);
  EXPECT_EQ(video.FrameCopy(&source), S_OK);
  EXPECT_EQ(video.yuv().pPlane[0], block);
  EXPECT_EQ(video.yuv().pPlane[3], nullptr);

  // A format that is not known: nothing is copied, and nothing leaks.
  Sample unknown(kVideo, kDecoded);
  unknown.FrameAttach(new MEDIA_FRAME(VideoFrame(9)));
  EXPECT_EQ(video.FrameCopy(unknown), S_OK);
  EXPECT_EQ(video.frame().video.nImageFormat, 9);
  EXPECT_EQ(video.yuv().nWidth, 0);
  EXPECT_EQ(video.FrameCopy(&source), S_OK);
  EXPECT_EQ(std::memcmp(video.yuv().pPlane[0], bytes, 17), 0);
}

TEST(Sample, KeepsPacketTablesAndTexts) {
  Sample sample(kAudio, kDecoded);
  EXPECT_EQ(sample.GetAudioPakcetInfo()[0], 0) << "no frame to describe";
  sample.SetSampleSize(4096);
  sample.frame().audio.nDataSize = 4096;
  EXPECT_EQ(sample.GetAudioPakcetInfo()[0], 1);
  EXPECT_EQ(sample.GetAudioPakcetInfo()[1], 4096);
  std::vector<int> table{12};
  for (int i = 1; i <= 12; ++i) table.push_back(100 * i);
  EXPECT_EQ(sample.SetAudioPacketInfo(table.data()), S_OK);
  EXPECT_TRUE(std::equal(table.begin(), table.end(), sample.GetAudioPakcetInfo()));
  EXPECT_EQ(sample.SetAudioPacketInfo(sample.GetAudioPakcetInfo()), S_OK);
  EXPECT_TRUE(std::equal(table.begin(), table.end(), sample.GetAudioPakcetInfo()));
  const int none = 0;
  EXPECT_EQ(sample.SetAudioPacketInfo(&none), S_OK);
  // A table inside the own one, longer than that has room for, up to what it holds.
  table = {2, 1, 77};
  sample.SetAudioPacketInfo(table.data());
  EXPECT_EQ(sample.SetAudioPacketInfo(sample.GetAudioPakcetInfo() + 1), S_OK);
  EXPECT_EQ(sample.GetAudioPakcetInfo()[0], 1);
  EXPECT_EQ(sample.GetAudioPakcetInfo()[1], 77);
  EXPECT_EQ(sample.SetAudioPacketInfo(nullptr), S_OK);
  EXPECT_EQ(sample.GetAudioPakcetInfo()[1], 4096);

  for (const std::size_t length : {1023U, 1024U, 2047U, 2048U, 3U}) {
    const std::wstring text(length, L'\x1F600');
    EXPECT_EQ(sample.SetSubStreamString(text.c_str()), S_OK);
    EXPECT_EQ(sample.GetSubStreamString(), text);
  }
  EXPECT_EQ(sample.SetSubStreamString(L"tail"), S_OK);
  EXPECT_EQ(sample.SetSubStreamString(sample.GetSubStreamString() + 1), S_OK);
  EXPECT_STREQ(sample.GetSubStreamString(), L"ail");
  EXPECT_EQ(sample.SetSubStreamString(nullptr), S_OK);
  EXPECT_STREQ(sample.GetSubStreamString(), L"");
}

/// A pool that counts its references and remembers what came back.
struct Pool : CFrameBuffer {
  ULONG count = 1;
  CZelSample* returned = nullptr;
  HRESULT NonDelegatingQueryInterface(const _GUID&, void**) override { return E_NOINTERFACE; }
  ULONG NonDelegatingAddRef() override { return ++count; }
  ULONG NonDelegatingRelease() override { return --count; }
  HRESULT QueryInterface(const _GUID&, void**) override { return E_NOINTERFACE; }
  ULONG AddRef() override { return ++count; }
  ULONG Release() override { return --count; }
  HRESULT Reserved0() override { return E_FAIL; }
  HRESULT Reserved1() override { return E_FAIL; }
  HRESULT Reserved2() override { return E_FAIL; }
  HRESULT Reserved3() override { return E_FAIL; }
  HRESULT Reserved4() override { return E_FAIL; }
  HRESULT Reserved5() override { return E_FAIL; }
  HRESULT Reserved6() override { return E_FAIL; }
  HRESULT ReturnSample(CZelSample* sample) override {
    returned = sample;
    return 23;
  }
};

TEST(Sample, GoesBackToItsPool) {
  Pool first, second;
  {
    Sample sample(kVideo, kDecoded);
    sample.SetSampleSize(10);
    MEDIA_FRAME* const frame = sample.GetMediaFrame();
    sample.SetSampleType(static_cast<SAMPLE_TYPE>(4));
    EXPECT_EQ(sample.ReturnSampleBack2Buffer(), E_ZEL_STATE);
    EXPECT_EQ(sample.GetSampleType(), 0);
    EXPECT_EQ(sample.SetFrameBuffer(&first), S_OK);
    EXPECT_EQ(sample.SetFrameBuffer(&first), S_OK);
    EXPECT_EQ(sample.SetFrameBuffer(nullptr), E_ZEL_STATE);
    EXPECT_EQ(first.count, 2U);
    EXPECT_EQ(sample.SetFrameBuffer(&second), S_OK);
    EXPECT_EQ(first.count, 1U);
    EXPECT_EQ(sample.ReturnSampleBack2Buffer(), 23);
    EXPECT_EQ(second.returned, &sample);
    EXPECT_EQ(sample.GetMediaFrame(), frame);
    sample.SetCompareFrame(&sample);
    EXPECT_EQ(sample.GetCompareFrame(), &sample);
  }
  EXPECT_EQ(second.count, 1U);
}

// Each operation, with each of its allocations failing in turn: the sample is as before, and whole.
TEST(Sample, SurvivesShortMemory) {
  static unsigned char bytes[400] = {};
  static const std::vector<int> table(100, 99);
  static const std::wstring text(5000, L'x');
  const std::function<void(Sample&)> operations[] = {
      [](Sample& s) { s.SetSampleSize(300); },
      [](Sample& s) { s.RemallocYUVFrame(20, 20, YUV_IMAGE_420P); },
      [](Sample& s) {
        const MEDIA_FRAME f = YuvFrame(bytes, 16, 16);
        s.FrameCopy(&f);
      },
      [](Sample& s) {
        MEDIA_FRAME f = s.frame();
        f.video.yuv.pPlane[1] = f.video.yuv.pPlane[0] + 1;
        s.FrameCopy(&f);
      },
      [](Sample& s) {
        MEDIA_FRAME f = VideoFrame(IMAGE_FORMAT_BUFFER);
        f.video.buffer = {bytes, 300, 300};
        s.FrameCopy(&f);
      },
      [](Sample& s) { s.SetAudioPacketInfo(table.data()); },
      [](Sample& s) { s.SetSubStreamString(text.c_str()); },
      [](Sample&) { Sample(kVideo, kDecoded); },
  };
  int index = 0;
  for (const auto& operation : operations) {
    SCOPED_TRACE(index++);
    const long live = LiveAllocations();
    int failures = 0;
    for (bool failed = true; failed;) {
      Sample sample(kVideo, kDecoded);
      const MEDIA_FRAME picture = YuvFrame(bytes, 4, 4);
      sample.RemallocYUVFrame(2, 2, YUV_IMAGE_420P);
      sample.FrameCopy(&picture);
      const MEDIA_FRAME before = sample.frame();
      FailAllocationAfter(failures);
      failed = false;
      try {
        operation(sample);
      } catch (const std::bad_alloc&) {
        failed = true;
        ++failures;
      }
      FailAllocationAfter(-1);
      if (!failed) continue;
      EXPECT_EQ(std::memcmp(&sample.frame(), &before, sizeof(before)), 0);
      EXPECT_EQ(sample.GetSampleSize(), 24U);
      EXPECT_STREQ(sample.GetSubStreamString(), L"");
      EXPECT_EQ(sample.FrameCopy(&picture), S_OK);
    }
    EXPECT_GE(failures, 1);
    EXPECT_EQ(LiveAllocations(), live);
  }
}

TEST(SampleDeathTest, AssertsItsPreconditions) {
  unsigned char bytes[4] = {};
  Sample audio(kAudio, kDecoded), video(kVideo, kDecoded), other(kAudio, kDecoded);
  other.SetSampleSize(4);
  const MEDIA_FRAME frame = AudioFrame(bytes, 4);
  EXPECT_DEATH(audio.FrameCopy(other), "m_pMediaFrame");
  EXPECT_DEATH(audio.FrameCopy(&frame), "m_pMediaFrame");

  CZelSample none;
  EXPECT_DEATH(none.SetSampleSize(1), "`0'");
  MEDIA_FRAME foreign{};
  none.FrameAttach(&foreign);
  EXPECT_DEATH(none.FreeMediaFrame(), "`0'");
  EXPECT_DEATH(none.RefreshSampleInfo(), "`0'");
  const MEDIA_FRAME typeless{};
  EXPECT_DEATH(none.FrameCopy(&typeless), "`0'");
  none.FrameAttach(nullptr);

  video.SetVideoImageFormat(IMAGE_FORMAT_RGB);
  video.SetSampleSize(4);
  EXPECT_DEATH(video.RefreshSampleInfo(), "`0'");
  const MEDIA_FRAME unknown = VideoFrame(3);
  EXPECT_DEATH(video.FrameCopy(&unknown), "`0'");
}

}  // namespace
