#include <climits>
#include <cstring>
#include <functional>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "tests/support/LeakCheck.h"
#include "zel/base/Ids.h"
#include "zel/base/Ref.h"
#include "zel/sample/FrameBuffer.h"
#include "zel/sample/Sample.h"

namespace {

constexpr AV_STREAM_TYPE kVideo = AV_STREAM_VIDEO, kAudio = AV_STREAM_AUDIO;
constexpr FRAME_DATA_TYPE kEncoded = FRAME_DATA_ENCODED, kDecoded = FRAME_DATA_DECODED;
using Facts = std::vector<long long>;

/// A sample on the stack; nobody takes a reference that would destroy it.
struct Sample : CZelSample {
  Sample(AV_STREAM_TYPE stream, FRAME_DATA_TYPE data, unsigned size = 0, int format = -1)
      : CZelSample(stream, data) {
    if (format >= 0) SetVideoImageFormat(static_cast<IMAGE_FORMAT>(format));
    if (size != 0) SetSampleSize(size);
  }
  MEDIA_FRAME& frame() { return *GetMediaFrame(); }
  MEDIA_FRAME_YUV& yuv() { return frame().video.yuv; }
  bool Holds(const void* bytes, std::size_t size) {
    return std::memcmp(frame().nStreamType == kAudio ? frame().audio.pData : yuv().pPlane[0], bytes,
                       size) == 0;
  }
};

/// What a sample says of itself.
Facts Says(CZelSample& s) {
  return {s.GetStreamType(), s.GetFrameType(),  s.GetStreamID(),
          s.GetSampleType(), s.IsKeyFrame(),    s.GetSampleSize(),
          s.GetCurrentPTS(), s.GetCurrentDTS(), s.GetDuration()};
}

/// What a frame's record says of it; planes by their distance from the first.
Facts Says(const MEDIA_FRAME& f) {
  const auto& [rate, channels, bits, data, dataSize, bufferSize] = f.audio;
  if (f.nStreamType == kAudio) return {f.nFrameType, rate, channels, bits, dataSize, bufferSize};
  const auto& [image, yuv] = std::pair(f.video.nImageFormat, f.video.yuv);
  if (image == IMAGE_FORMAT_BUFFER) {
    return {f.nFrameType, image, f.video.buffer.nDataSize, f.video.buffer.nBufferSize};
  }
  if (image == IMAGE_FORMAT_RGB) {
    return {f.nFrameType, image, f.video.rgb.bmiHeader.biSizeImage, f.video.rgb.pBits != nullptr};
  }
  Facts facts = {f.nFrameType, image, yuv.nYuvFormat, yuv.nWidth, yuv.nHeight};
  facts.insert(facts.end(), yuv.nStride, yuv.nStride + 4);
  for (auto* plane : yuv.pPlane) facts.push_back(plane ? plane - yuv.pPlane[0] : -1);
  return facts;
}

MEDIA_FRAME Frame(AV_STREAM_TYPE stream, int format, FRAME_DATA_TYPE data = kDecoded) {
  MEDIA_FRAME f{};
  f.nStreamType = stream;
  f.nFrameType = data;
  if (stream == kVideo) f.video.nImageFormat = format;
  f.bKeyFrame = stream == kVideo && format == IMAGE_FORMAT_BUFFER ? 2 : 0;
  f.llPTS = 70;
  f.llDTS = 60;
  f.nDuration = -5;
  return f;
}
MEDIA_FRAME AudioFrame(unsigned char* data, int size) {
  MEDIA_FRAME f = Frame(kAudio, 0);
  f.audio = {44100, 2, 16, data, size, size};
  return f;
}
MEDIA_FRAME BufferFrame(unsigned char* data, int size, FRAME_DATA_TYPE type = kDecoded) {
  MEDIA_FRAME f = Frame(kVideo, IMAGE_FORMAT_BUFFER, type);
  f.video.buffer = {data, size, size};
  return f;
}
MEDIA_FRAME YuvFrame(unsigned char* data, int w, int h) {
  MEDIA_FRAME f = Frame(kVideo, IMAGE_FORMAT_YUV);
  const int q = ((w + 1) / 2) * ((h + 1) / 2);
  f.video.yuv = {2, {data, data + w * h, data + w * h + q}, w, h, {w, (w + 1) / 2, (w + 1) / 2}};
  return f;
}
MEDIA_FRAME RgbFrame(unsigned char* bits, unsigned size) {
  MEDIA_FRAME f = Frame(kVideo, IMAGE_FORMAT_RGB);
  f.video.rgb = {{40, 1, 2, 1, 24, 0, size, 0, 0, 0, 0}, bits};
  return f;
}

struct SampleTest : LeakCheck {
  SampleTest() { std::iota(bytes, bytes + sizeof(bytes), static_cast<unsigned char>(0)); }
  unsigned char bytes[400];  // 0, 1, 2, ... to copy from.
};

TEST_F(SampleTest, IsEmptyWhenNewAndHandsOutItsFaces) {
  long result = 17;
  CZelSample plain, aggregating(nullptr, &result);
  EXPECT_EQ(result, 17);
  EXPECT_EQ(Says(plain), (Facts{0, 0, -1, 0, 0, 0, -1, -1, 0}));
  EXPECT_EQ(Says(aggregating), Says(plain));
  const auto sample = zel::Ref<CZelSample>::Share(new CZelSample(kAudio, kDecoded));
  EXPECT_EQ(Says(*sample), (Facts{3, 1, -1, 0, 0, 0, -1, -1, 0}));
  EXPECT_EQ(sample->GetMediaFrame(), nullptr);
  EXPECT_EQ(sample->GetCompareFrame(), nullptr);
  EXPECT_STREQ(sample->GetSubStreamString(), L"");
  EXPECT_EQ(sample->GetAudioPakcetInfo()[0], 0) << "no frame to describe";
  EXPECT_EQ(sample->RefreshSampleInfo(), E_ZEL_STATE);

  zel::Ref<IZelSample> face;
  zel::Ref<IUnknown> root;
  ASSERT_EQ(sample->QueryInterface(IID_IZelSample, face.ReceiveVoid()), S_OK);
  EXPECT_EQ(face.get(), static_cast<IZelSample*>(sample.get()));
  ASSERT_EQ(face->QueryInterface(IID_IUnknown, root.ReceiveVoid()), S_OK);
  EXPECT_EQ(static_cast<void*>(root.get()),
            static_cast<scombase::INonDelegatingUnknown*>(sample.get()));
  EXPECT_EQ(sample->AddRef(), 4U);
  EXPECT_EQ(sample->Release(), 3U);
  void* other = &root;
  EXPECT_EQ(sample->QueryInterface(IID_IStreamInfo, &other), E_NOINTERFACE);
  EXPECT_EQ(other, nullptr);
  EXPECT_EQ(sample->QueryInterface(IID_IZelSample, nullptr), E_POINTER);
}

TEST_F(SampleTest, KeepsItsTimesApartFromTheFramesTimes) {
  Sample sample(kAudio, kDecoded), copy(kAudio, kDecoded, 4);
  sample.SetCurrentPTS(5);
  EXPECT_EQ(sample.GetCurrentPTS(), -1);
  sample.SetSampleSize(4);
  sample.SetDuration(33);
  sample.SetSampleType(static_cast<SAMPLE_TYPE>(12));
  sample.frame().llPTS = 7;
  sample.frame().llDTS = 6;
  EXPECT_EQ(sample.RefreshSampleInfo(), S_OK);
  EXPECT_EQ(Says(sample), (Facts{3, 1, -1, 12, 1, 4, 7, 6, 33}));
  copy.SetDuration(44);
  EXPECT_EQ(copy.FrameCopy(sample), S_OK);
  EXPECT_EQ(Says(copy), (Facts{3, 1, -1, 12, 1, 4, 7, 6, 44})) << "all but the duration";
  const MEDIA_FRAME bare = AudioFrame(bytes, 2);
  EXPECT_EQ(copy.FrameCopy(&bare), S_OK);
  EXPECT_EQ(Says(copy), (Facts{3, 1, -1, 12, 1, 4, 70, 60, -5})) << "the duration with its sign";
  copy.frame().nStreamType = 0;
  EXPECT_EQ(Says(copy), (Facts{3, 1, -1, 12, 1, 4, -1, -1, -5}));
  copy.frame().nStreamType = kAudio;
  copy.FreeMediaFrame();
  EXPECT_EQ(Says(copy), (Facts{3, 1, -1, 12, 0, 0, -1, -1, 0}));
}

TEST_F(SampleTest, AllocatesByStreamAndImageFormat) {
  struct Case {
    AV_STREAM_TYPE stream;
    FRAME_DATA_TYPE data;
    int format;
    Facts facts;
  };
  for (const Case& c :
       {Case{kAudio, kDecoded, -1, {1, 0, 0, 0, 0, 100}}, Case{kVideo, kDecoded, 0, {1, 0, 0, 1}},
        Case{kVideo, kDecoded, -1, {1, 1, 2, 0, 0, 0, 0, 0, 0, 0, -1, -1, -1}},
        Case{kVideo, kEncoded, -1, {0, 2, 0, 100}}, Case{kVideo, kDecoded, 3, {1, 0, 0, 0}}}) {
    SCOPED_TRACE(testing::Message() << "stream " << c.stream << " format " << c.format);
    Sample sample(c.stream, c.data, 0, c.format);
    ASSERT_EQ(sample.SetSampleSize(100), c.format == 3 ? E_ZEL_STATE : S_OK);
    EXPECT_EQ(sample.GetSampleSize(), 100U) << "also after a failure, which leaves an empty frame";
    MEDIA_FRAME* const frame = sample.GetMediaFrame();
    EXPECT_EQ(frame->nStreamType, c.stream);
    EXPECT_EQ(Says(*frame), c.facts);
    EXPECT_EQ(sample.SetSampleSize(100), S_OK) << "memory never shrinks";
    EXPECT_EQ(sample.GetMediaFrame(), frame);
  }
  Sample planar(kVideo, kDecoded), sound(kAudio, kDecoded), encoded(kVideo, kEncoded);
  ASSERT_EQ(planar.RemallocYUVFrame(4, 2, YUV_IMAGE_420P), S_OK);
  EXPECT_EQ(Says(planar.frame()), (Facts{1, 1, 2, 4, 2, 4, 2, 2, 0, 0, 8, 11, -1}));
  EXPECT_EQ(Says(planar), (Facts{2, 1, -1, 0, 0, 19, -1, -1, 0}));
  EXPECT_EQ(planar.RemallocYUVFrame(4, 2, static_cast<YUV_IMAGE_FORMAT>(1)), E_ZEL_STATE);
  EXPECT_EQ(sound.RemallocYUVFrame(4, 2, YUV_IMAGE_420P), E_ZEL_STATE);
  EXPECT_EQ(encoded.RemallocYUVFrame(4, 2, YUV_IMAGE_420P), E_ZEL_STATE);
}

TEST_F(SampleTest, CopiesEveryField) {
  Sample audio(kAudio, kDecoded, 8), buffer(kVideo, kEncoded, 8), picture(kVideo, kDecoded, 5);
  MEDIA_FRAME source = AudioFrame(bytes, 3);
  ASSERT_EQ(audio.FrameCopy(&source), S_OK);
  EXPECT_EQ(Says(audio.frame()), (Facts{1, 44100, 2, 16, 3, 8}));
  EXPECT_TRUE(audio.Holds(bytes, 3));
  EXPECT_EQ(audio.IsKeyFrame(), 0) << "sound has none";
  source = AudioFrame(nullptr, 2);
  source.audio.nChannels = 1;
  ASSERT_EQ(audio.FrameCopy(&source), S_OK);
  EXPECT_EQ(Says(audio.frame()), (Facts{1, 44100, 2, 16, 3, 8})) << "nothing to copy from";
  for (const int size : {5, 0}) {
    audio.frame().audio.nBufferSize = size;
    EXPECT_EQ(audio.RefreshSampleInfo(), S_OK);
    EXPECT_EQ(audio.GetSampleSize(), static_cast<unsigned>(size));
  }

  source = BufferFrame(bytes, 33, kEncoded);
  ASSERT_EQ(buffer.FrameCopy(&source), S_OK);
  EXPECT_EQ(Says(buffer.frame()), (Facts{0, 2, 33, 33}));
  EXPECT_EQ(Says(buffer), (Facts{2, 0, -1, 0, 2, 33, 70, 60, -5}));
  EXPECT_EQ(std::memcmp(buffer.frame().video.buffer.pData, bytes, 33), 0);
  EXPECT_EQ(buffer.RefreshSampleInfo(), S_OK);
  EXPECT_EQ(buffer.IsKeyFrame(), 1);

  source = YuvFrame(bytes, 3, 3);
  source.video.yuv.nYuvFormat = 7;
  source.video.yuv.nStride[0] = 6;
  ASSERT_EQ(picture.FrameCopy(&source), S_OK);
  EXPECT_EQ(Says(picture.frame()), (Facts{1, 1, 7, 3, 3, 6, 2, 2, 0, 0, 9, 13, -1}));
  EXPECT_TRUE(picture.Holds(bytes, 17));
  EXPECT_EQ(Says(picture), (Facts{2, 1, -1, 0, 0, 17, 70, 60, -5}));
  source = YuvFrame(bytes, 3, 0);
  EXPECT_EQ(picture.FrameCopy(&source), S_OK);
  source = YuvFrame(bytes, 2, 2);
  source.video.yuv.pPlane[1] = nullptr;
  ASSERT_EQ(picture.FrameCopy(&source), S_OK);
  EXPECT_EQ(picture.yuv().nWidth, 2);
  picture.yuv().nWidth = picture.yuv().nHeight = 5;
  EXPECT_EQ(picture.RefreshSampleInfo(), S_OK);
  EXPECT_EQ(Says(picture), (Facts{2, 1, -1, 0, 0, 43, 70, 60, -5})) << "planes raise the size";

  // Bitmaps get twice their size.
  source = RgbFrame(bytes, 10);
  Sample bitmap(kVideo, kDecoded, 9, IMAGE_FORMAT_RGB), failed(kVideo, kDecoded, 64, 5);
  for (auto [sample, size] : {std::pair(&bitmap, 20U), std::pair(&failed, 64U)}) {
    ASSERT_EQ(sample->FrameCopy(&source), S_OK);
    EXPECT_EQ(sample->GetSampleSize(), size);
    const MEDIA_FRAME_RGB& rgb = sample->frame().video.rgb;
    EXPECT_EQ(std::memcmp(&rgb.bmiHeader, &source.video.rgb.bmiHeader, 40), 0);
    EXPECT_EQ(std::memcmp(rgb.pBits, bytes, 10), 0);
  }
}

// What is refused, each with nothing changed.
TEST_F(SampleTest, RefusesFramesAndSizesThatCannotBe) {
  Sample audio(kAudio, kDecoded, 8), video(kVideo, kDecoded, 8), encoded(kVideo, kEncoded, 8);
  std::vector<std::pair<Sample*, MEDIA_FRAME>> cases = {
      {&audio, AudioFrame(bytes, -1)},       {&audio, AudioFrame(bytes, INT_MIN)},
      {&video, AudioFrame(bytes, 4)},        {&video, YuvFrame(nullptr, -1, 3)},
      {&video, YuvFrame(nullptr, 3, -1)},    {&video, YuvFrame(bytes, 3, 3)},
      {&video, BufferFrame(bytes, -4)},      {&video, RgbFrame(nullptr, 16)},
      {&video, RgbFrame(bytes, 0x80000000)}, {&encoded, BufferFrame(bytes, 4)},
  };
  cases[5].second.video.yuv.nWidth = cases[5].second.video.yuv.nHeight = 65536;
  for (std::size_t i = 0; i < cases.size(); ++i) {
    SCOPED_TRACE(i);
    auto& [sample, source] = cases[i];
    const MEDIA_FRAME before = sample->frame();
    const Facts said = Says(*sample);
    EXPECT_EQ(sample->FrameCopy(&source), E_ZEL_STATE);
    Sample holder(sample->GetStreamType(), sample->GetFrameType());
    holder.FrameAttach(&source);
    if (source.nStreamType == sample->GetStreamType() &&
        source.nFrameType == sample->GetFrameType()) {
      EXPECT_EQ(sample->FrameCopy(holder), E_ZEL_STATE) << "as another sample's frame";
    }
    holder.FrameAttach(nullptr);
    EXPECT_EQ(std::memcmp(&sample->frame(), &before, sizeof(before)), 0);
    EXPECT_EQ(Says(*sample), said);
  }
  Sample empty(kAudio, kDecoded), none(kVideo, kDecoded);
  EXPECT_EQ(audio.FrameCopy(nullptr), E_ZEL_STATE);
  EXPECT_EQ(audio.FrameCopy(audio.GetMediaFrame()), E_ZEL_STATE);
  for (auto [to, from] : {std::pair(&audio, &audio), std::pair(&audio, &video),
                          std::pair(&video, &encoded), std::pair(&audio, &empty)}) {
    EXPECT_EQ(to->FrameCopy(*from), E_ZEL_STATE);
  }

  EXPECT_EQ(empty.SetSampleSize(0x80000000UL), E_ZEL_STATE);
  EXPECT_EQ(empty.SetSampleSize(ULONG_MAX), E_ZEL_STATE);
  for (auto [w, h] : {std::pair(65536UL, 65536UL), std::pair(ULONG_MAX, 1UL),
                      std::pair(0xFFFFFFFFUL, 0xFFFFFFFFUL), std::pair(0x7FFFFFFFUL, 2UL)}) {
    EXPECT_EQ(none.RemallocYUVFrame(w, h, YUV_IMAGE_420P), E_ZEL_STATE) << w << " x " << h;
  }
  EXPECT_EQ(none.GetMediaFrame(), nullptr);
  audio.frame().audio.nDataSize = -1;
  EXPECT_EQ(audio.RefreshSampleInfo(), E_ZEL_STATE);
  video.yuv().nWidth = -7;
  EXPECT_EQ(video.RefreshSampleInfo(), E_ZEL_STATE);
  video.frame().video.nImageFormat = 7;
  EXPECT_EQ(video.RefreshSampleInfo(), E_ZEL_STATE);
  video.frame().video.nImageFormat = IMAGE_FORMAT_YUV;
  EXPECT_EQ(video.GetSampleSize(), 8U);
  const int negative = -1, huge = INT_MAX;
  EXPECT_EQ(audio.SetAudioPacketInfo(&negative), E_ZEL_STATE);
  EXPECT_EQ(audio.SetAudioPacketInfo(&huge), E_ZEL_STATE);
}

// Frames that a producer attached: copies go by the sample's size and by what the frame states.
TEST_F(SampleTest, CopiesIntoAttachedFrames) {
  Sample audio(kAudio, kDecoded, 100), video(kVideo, kDecoded);
  std::unique_ptr<MEDIA_FRAME> old(audio.GetMediaFrame());
  std::unique_ptr<unsigned char[]> oldData(old->audio.pData);
  EXPECT_EQ(audio.FrameAttach(new MEDIA_FRAME(AudioFrame(new unsigned char[10], 10))), S_OK);
  EXPECT_EQ(audio.GetSampleSize(), 100U);
  MEDIA_FRAME source = AudioFrame(bytes, 60);
  EXPECT_EQ(audio.FrameCopy(&source), S_OK);
  EXPECT_EQ(Says(audio.frame()), (Facts{1, 44100, 2, 16, 60, 100})) << "it had room for 10 bytes";

  // The picture shrinks, then grows again: the block, which the producer knows, is large enough.
  auto* block = new unsigned char[96];
  video.FrameAttach(new MEDIA_FRAME(YuvFrame(block, 8, 8)));
  EXPECT_EQ(video.RefreshSampleInfo(), S_OK);
  video.yuv().nWidth = video.yuv().nHeight = 2;
  EXPECT_EQ(video.RefreshSampleInfo(), S_OK);
  source = YuvFrame(bytes, 8, 8);
  EXPECT_EQ(video.FrameCopy(&source), S_OK);
  EXPECT_EQ(video.yuv().pPlane[0], block);
  EXPECT_EQ(video.GetSampleSize(), 96U);
  EXPECT_TRUE(video.Holds(bytes, 96));
  // The planes of that picture stay where they are; the chroma of this one would not fit there.
  source = YuvFrame(bytes, 1, 40);
  source.video.yuv.pPlane[0] = nullptr;
  EXPECT_EQ(video.FrameCopy(&source), S_OK);

  // A buffer with less room than its sample says becomes a picture.
  Sample buffer(kVideo, kDecoded, 100, IMAGE_FORMAT_BUFFER);
  delete[] buffer.frame().video.buffer.pData;
  buffer.frame().video.buffer = {new unsigned char[20], 0, 20};
  for (const int side : {2, 7}) {
    source = YuvFrame(bytes, side, side);
    EXPECT_EQ(buffer.FrameCopy(&source), S_OK);
    EXPECT_EQ(buffer.GetSampleSize(), 100U);
  }
}

TEST_F(SampleTest, CopiesFromItsOwnMemory) {
  Sample audio(kAudio, kDecoded, 8), other(kAudio, kDecoded), video(kVideo, kDecoded);
  std::memcpy(audio.frame().audio.pData, "abcdefgh", 8);
  MEDIA_FRAME shallow = audio.frame();
  shallow.audio.pData += 2;
  shallow.audio.nDataSize = 6;
  EXPECT_EQ(audio.FrameCopy(&shallow), S_OK);
  EXPECT_TRUE(audio.Holds("cdefghgh", 8));
  // Both samples hold the one frame, as a stream's output does with its input.
  other.FrameAttach(audio.GetMediaFrame());
  EXPECT_EQ(other.FrameCopy(audio), S_OK);
  EXPECT_TRUE(audio.Holds("cdefgh", 6));
  // The same data, through another record, in a sample whose size is not its frame's: it grows.
  shallow = audio.frame();
  audio.FrameAttach(nullptr);
  EXPECT_EQ(other.FrameCopy(&shallow), S_OK);
  EXPECT_TRUE(other.Holds("cdefgh", 6));

  // Planes allocated by the one formula move to where the other one packs them.
  video.RemallocYUVFrame(4, 2, YUV_IMAGE_420P);
  std::memcpy(video.yuv().pPlane[0], "YYYYYYYYUU.VV", 13);
  MEDIA_FRAME planes = video.frame();
  EXPECT_EQ(video.FrameCopy(&planes), S_OK);
  EXPECT_TRUE(video.Holds("YYYYYYYYUUVV", 12));
  // Planes in another order overlap each other's places.
  planes = video.frame();
  std::swap(planes.video.yuv.pPlane[1], planes.video.yuv.pPlane[2]);
  planes.video.yuv.pPlane[0] += 4;
  EXPECT_EQ(video.FrameCopy(&planes), S_OK);
  EXPECT_TRUE(video.Holds("YYYYUUVVVVUU", 12));

  // One block serves every known format.
  const MEDIA_FRAME flat = BufferFrame(bytes, 17), picture = YuvFrame(bytes, 3, 3);
  unsigned char* const block = video.yuv().pPlane[0];
  EXPECT_EQ(video.FrameCopy(&flat), S_OK);
  EXPECT_EQ(video.frame().video.buffer.pData, block);
  EXPECT_EQ(Says(video.frame()), (Facts{1, 2, 17, 19}));
  EXPECT_EQ(video.FrameCopy(&picture), S_OK);
  EXPECT_EQ(video.yuv().pPlane[0], block);
  EXPECT_EQ(video.yuv().pPlane[3], nullptr);
  // An unknown format has no data and no memory; nothing leaks.
  Sample unknown(kVideo, kDecoded);
  unknown.FrameAttach(new MEDIA_FRAME(Frame(kVideo, 9)));
  EXPECT_EQ(video.FrameCopy(unknown), S_OK);
  EXPECT_EQ(video.frame().video.nImageFormat, 9);
  EXPECT_EQ(video.yuv().nWidth, 0);
  EXPECT_EQ(video.FrameCopy(&picture), S_OK);
  EXPECT_TRUE(video.Holds(bytes, 17));
}

TEST_F(SampleTest, KeepsPacketTablesAndTexts) {
  Sample sample(kAudio, kDecoded, 4096);
  sample.frame().audio.nDataSize = 4096;
  const auto table = [&](std::size_t size) {
    const int* const entries = sample.GetAudioPakcetInfo();
    return std::vector<int>(entries, entries + size);
  };
  std::vector<int> packets(13, 100);
  packets[0] = 12;
  packets[12] = 7;
  EXPECT_EQ(table(2), (std::vector{1, 4096}));
  EXPECT_EQ(sample.SetAudioPacketInfo(packets.data()), S_OK);
  EXPECT_EQ(sample.SetAudioPacketInfo(sample.GetAudioPakcetInfo()), S_OK);
  EXPECT_EQ(table(13), packets);
  packets = {2, 1, 77};
  sample.SetAudioPacketInfo(packets.data());
  EXPECT_EQ(sample.SetAudioPacketInfo(sample.GetAudioPakcetInfo() + 1), S_OK);
  EXPECT_EQ(table(2), (std::vector{1, 77})) << "a table inside its own one";
  EXPECT_EQ(sample.SetAudioPacketInfo(nullptr), S_OK);
  EXPECT_EQ(table(2), (std::vector{1, 4096}));

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

TEST_F(SampleTest, GoesBackToItsPool) {
  Pool first, second;
  {
    Sample sample(kVideo, kDecoded, 10);
    MEDIA_FRAME* const frame = sample.GetMediaFrame();
    sample.SetSampleType(static_cast<SAMPLE_TYPE>(4));
    EXPECT_EQ(sample.ReturnSampleBack2Buffer(), E_ZEL_STATE);
    EXPECT_EQ(sample.GetSampleType(), 0);
    for (Pool* pool : {&first, &first, &second}) EXPECT_EQ(sample.SetFrameBuffer(pool), S_OK);
    EXPECT_EQ(sample.SetFrameBuffer(nullptr), E_ZEL_STATE);
    EXPECT_EQ(first.count, 1U);
    EXPECT_EQ(second.count, 2U);
    EXPECT_EQ(sample.ReturnSampleBack2Buffer(), 23);
    EXPECT_EQ(second.returned, &sample);
    EXPECT_EQ(sample.GetMediaFrame(), frame);
    EXPECT_EQ(sample.SetCompareFrame(&sample), S_OK);
    EXPECT_EQ(sample.GetCompareFrame(), &sample);
  }
  EXPECT_EQ(second.count, 1U);
}

// Each operation, with each of its allocations failing in turn: the sample is as before, and whole.
TEST_F(SampleTest, SurvivesShortMemory) {
  const std::vector<int> table(100, 99);
  const std::wstring text(5000, L'x');
  const MEDIA_FRAME larger = YuvFrame(bytes, 16, 16), flat = BufferFrame(bytes, 300);
  const std::function<void(Sample&)> operations[] = {
      [](Sample& s) { s.SetSampleSize(300); },
      [](Sample& s) { s.RemallocYUVFrame(20, 20, YUV_IMAGE_420P); },
      [&](Sample& s) { s.FrameCopy(&larger); },
      [](Sample& s) {
        MEDIA_FRAME f = s.frame();
        f.video.yuv.pPlane[1] = f.video.yuv.pPlane[0] + 1;
        s.FrameCopy(&f);
      },
      [&](Sample& s) { s.FrameCopy(&flat); },
      [&](Sample& s) { s.SetAudioPacketInfo(table.data()); },
      [&](Sample& s) { s.SetSubStreamString(text.c_str()); },
      [](Sample&) { Sample(kVideo, kDecoded); },
  };
  const MEDIA_FRAME picture = YuvFrame(bytes, 4, 4);
  for (std::size_t i = 0; i < std::size(operations); ++i) {
    SCOPED_TRACE(i);
    std::unique_ptr<Sample> sample;
    MEDIA_FRAME before{};
    const auto prepare = [&] {
      sample = std::make_unique<Sample>(kVideo, kDecoded);
      sample->RemallocYUVFrame(2, 2, YUV_IMAGE_420P);
      sample->FrameCopy(&picture);
      before = sample->frame();
    };
    prepare();
    const int failures = FailEachAllocation(
        [&] {
          operations[i](*sample);
          return true;
        },
        [&] {
          EXPECT_EQ(std::memcmp(&sample->frame(), &before, sizeof(before)), 0);
          EXPECT_EQ(sample->GetSampleSize(), 24U);
          EXPECT_STREQ(sample->GetSubStreamString(), L"");
          prepare();
        });
    EXPECT_GE(failures, 1);
  }
}

TEST(SampleDeathTest, AssertsItsPreconditions) {
  unsigned char bytes[4] = {};
  Sample audio(kAudio, kDecoded), other(kAudio, kDecoded, 4);
  Sample bitmap(kVideo, kDecoded, 4, IMAGE_FORMAT_RGB);
  const MEDIA_FRAME frame = AudioFrame(bytes, 4), typeless{};
  const MEDIA_FRAME unknown = Frame(kVideo, 3);
  MEDIA_FRAME foreign{};
  CZelSample none;
  EXPECT_DEATH(none.SetSampleSize(1), "`0'");
  none.FrameAttach(&foreign);
  EXPECT_DEATH(audio.FrameCopy(other), "m_pMediaFrame");
  EXPECT_DEATH(audio.FrameCopy(&frame), "m_pMediaFrame");
  EXPECT_DEATH(none.FreeMediaFrame(), "`0'");
  EXPECT_DEATH(none.RefreshSampleInfo(), "`0'");
  EXPECT_DEATH(none.FrameCopy(&typeless), "`0'");
  EXPECT_DEATH(bitmap.RefreshSampleInfo(), "`0'");
  EXPECT_DEATH(bitmap.FrameCopy(&unknown), "`0'");
  none.FrameAttach(nullptr);
}

}  // namespace
