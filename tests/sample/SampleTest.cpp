#include <gmock/gmock.h>

#include <climits>
#include <cstring>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/support/Faces.h"
#include "tests/support/LeakCheck.h"
#include "zel/sample/FrameBuffer.h"
#include "zel/sample/Sample.h"

namespace {

constexpr AV_STREAM_TYPE kVideo = AV_STREAM_VIDEO, kAudio = AV_STREAM_AUDIO;
constexpr FRAME_DATA_TYPE kEncoded = FRAME_DATA_ENCODED, kDecoded = FRAME_DATA_DECODED;
constexpr int kSound = -1, kBitmap = IMAGE_FORMAT_RGB, kPicture = IMAGE_FORMAT_YUV,
              kBytes = IMAGE_FORMAT_BUFFER;
unsigned char letters[] =
    "abcdefghijklmnopqrstuvwxyzabcdefghijklmnopqrstuvwxyzabcdefghijklmnopqrstuvwxyz"
    "abcdefghijklmnopqrstuvwxyz";

/// A frame of `a` bytes, or of `a` x `b` pixels, at `data`.
MEDIA_FRAME Frame(int kind, int a, int b = 0, unsigned char* data = letters) {
  MEDIA_FRAME f{
      kind == kSound ? kAudio : kVideo, kDecoded, {}, kind == kSound ? 0 : 2, {}, 70, 60, -5};
  if (kind == kSound) {
    f.audio = {44100, 2, 16, data, a, a};
    return f;
  }
  f.video.nImageFormat = kind;
  if (kind == kBytes) f.video.buffer = {data, a, a};
  if (kind == kBitmap)
    f.video.rgb = {{40, 1, 2, 1, 24, 0, static_cast<unsigned>(a), 0, 0, 0, 0}, data};
  if (kind == kPicture) {
    const int w = (a + 1) / 2, luma = a * b, chroma = w * ((b + 1) / 2);
    f.video.yuv = {2, {data, data + luma, data + luma + chroma}, a, b, {a, w, w}};
  }
  return f;
}

/// A sample on the stack; nobody takes a reference that would destroy it.
struct Sample : CZelSample {
  Sample(AV_STREAM_TYPE stream, FRAME_DATA_TYPE data, unsigned size = 0, int format = kPicture)
      : CZelSample(stream, data) {
    if (data == kDecoded) SetVideoImageFormat(static_cast<IMAGE_FORMAT>(format));
    SetSampleSize(size);
  }
  MEDIA_FRAME& frame() { return *GetMediaFrame(); }
  MEDIA_FRAME_YUV& yuv() { return frame().video.yuv; }
};

/// What a sample and its frame say, with the frame's data. Planes are given by their distance.
std::string Text(CZelSample& s, HRESULT result = S_OK) {
  std::ostringstream out;
  const auto print = [&](const std::vector<long long>& facts) {
    for (const long long fact : facts) out << ' ' << fact;
  };
  out << (result == S_OK ? "ok" : "refused");
  print({s.GetStreamType(), s.GetFrameType(), s.GetStreamID(), s.GetSampleType(), s.IsKeyFrame(),
         s.GetSampleSize(), s.GetCurrentPTS(), s.GetCurrentDTS(), s.GetDuration()});
  const MEDIA_FRAME* f = s.GetMediaFrame();
  if (f == nullptr || f->nStreamType == 0) return out.str();
  s.SetAudioPacketInfo(nullptr);
  const int size = s.GetAudioPakcetInfo()[1];
  out << " |";
  print({f->nFrameType, f->bKeyFrame, f->nDuration, size});
  const unsigned char* data = nullptr;
  if (f->nStreamType == kAudio) {
    const auto& [rate, channels, bits, bytes, valid, room] = f->audio;
    print({rate, channels, bits, valid, room});
    data = bytes;
  } else if (const auto& [format, yuv] = std::tie(f->video.nImageFormat, f->video.yuv);
             format == kPicture) {
    print({yuv.nYuvFormat, yuv.nWidth, yuv.nHeight, yuv.nStride[0], yuv.nStride[1], yuv.nStride[2],
           yuv.nStride[3]});
    data = yuv.pPlane[0];
    for (int i = 1; i < 4; ++i) print({yuv.pPlane[i] != nullptr ? yuv.pPlane[i] - data : 0});
  } else if (format == kBytes) {
    print({f->video.buffer.nDataSize, f->video.buffer.nBufferSize});
    data = f->video.buffer.pData;
  } else if (format == kBitmap) {
    print({f->video.rgb.bmiHeader.biHeight, f->video.rgb.bmiHeader.biSizeImage});
    data = f->video.rgb.pBits;
  }
  if (data != nullptr) out << " '" << std::string(data, data + size) << "'";
  return out.str();
}

using SampleTest = LeakCheck;

TEST_F(SampleTest, IsEmptyWhenNewAndHandsOutItsFace) {
  long result = 17;
  CZelSample plain, aggregating(nullptr, &result);
  EXPECT_EQ(result, 17);
  EXPECT_EQ(Text(plain), "ok 0 0 -1 0 0 0 -1 -1 0");
  EXPECT_EQ(Text(aggregating), Text(plain));
  const auto sample = zel::Ref<CZelSample>::Share(new CZelSample(kAudio, kDecoded));
  sample->SetCurrentPTS(5);
  sample->SetCurrentDTS(5);
  EXPECT_EQ(Text(*sample, sample->RefreshSampleInfo()), "refused 3 1 -1 0 0 0 -1 -1 0");
  EXPECT_STREQ(sample->GetSubStreamString(), L"");
  EXPECT_EQ(sample->GetAudioPakcetInfo()[0], 0) << "no frame to describe";
  ExpectFaces<IZelSample>(*sample, IID_IStreamInfo);
}

TEST_F(SampleTest, KeepsItsTimesApartFromTheFramesTimes) {
  Sample sample(kAudio, kDecoded, 4), copy(kAudio, kDecoded, 4);
  sample.SetDuration(33);
  sample.SetSampleType(static_cast<SAMPLE_TYPE>(12));
  sample.frame().llPTS = 7;
  sample.frame().llDTS = 6;
  EXPECT_EQ(Text(sample, sample.RefreshSampleInfo()),
            "ok 3 1 -1 12 1 4 7 6 33 | 1 0 0 0 0 0 0 0 4 ''");
  copy.SetDuration(44);
  EXPECT_EQ(Text(copy, copy.FrameCopy(sample)), "ok 3 1 -1 12 1 4 7 6 44 | 1 0 0 0 0 0 0 0 4 ''");
  const MEDIA_FRAME bare = Frame(kSound, 2);
  EXPECT_EQ(Text(copy, copy.FrameCopy(&bare)),
            "ok 3 1 -1 12 1 4 70 60 -5 | 1 0 -5 2 44100 2 16 2 4 'ab'");
  copy.frame().nStreamType = 0;
  copy.SetSampleType(static_cast<SAMPLE_TYPE>(13));
  EXPECT_EQ(Text(copy), "ok 3 1 -1 13 1 4 -1 -1 -5");
  // Its frame holds nothing; the sample's facts are copied all the same.
  EXPECT_EQ(Text(sample, sample.FrameCopy(copy)),
            "refused 3 1 -1 13 1 4 70 60 33 | 1 0 -5 0 0 0 0 0 4 ''");
  copy.frame().nStreamType = kAudio;
  copy.FreeMediaFrame();
  EXPECT_EQ(Text(copy), "ok 3 1 -1 13 0 0 -1 -1 0");
}

TEST_F(SampleTest, AllocatesByStreamAndImageFormat) {
  Sample sound(kAudio, kDecoded), encoded(kVideo, kEncoded), picture(kVideo, kDecoded),
      bitmap(kVideo, kDecoded, 0, kBitmap), unknown(kVideo, kDecoded, 0, 3);
  EXPECT_EQ(Text(sound, sound.RemallocYUVFrame(4, 2, YUV_IMAGE_420P)),
            "refused 3 1 -1 0 0 0 -1 -1 0");
  EXPECT_EQ(Text(encoded, encoded.RemallocYUVFrame(4, 2, YUV_IMAGE_420P)),
            "refused 2 0 -1 0 0 0 -1 -1 0");
  EXPECT_EQ(Text(picture, picture.RemallocYUVFrame(4, 2, static_cast<YUV_IMAGE_FORMAT>(1))),
            "refused 2 1 -1 0 0 0 -1 -1 0");
  EXPECT_EQ(Text(sound, sound.SetSampleSize(100)),
            "ok 3 1 -1 0 0 100 0 0 0 | 1 0 0 0 0 0 0 0 100 ''");
  EXPECT_EQ(Text(encoded, encoded.SetSampleSize(100)),
            "ok 2 0 -1 0 0 100 0 0 0 | 0 0 0 0 0 100 ''");
  EXPECT_EQ(Text(picture, picture.SetSampleSize(100)),
            "ok 2 1 -1 0 0 100 0 0 0 | 1 0 0 0 2 0 0 0 0 0 0 0 0 0 ''");
  EXPECT_EQ(Text(bitmap, bitmap.SetSampleSize(100)), "ok 2 1 -1 0 0 100 0 0 0 | 1 0 0 0 0 0 ''");
  EXPECT_EQ(Text(unknown, unknown.SetSampleSize(100)),
            "refused 2 1 -1 0 0 100 0 0 0 | 1 0 0 0 0 0");
  const MEDIA_FRAME* frame = sound.GetMediaFrame();
  for (const unsigned size : {100, 50}) EXPECT_EQ(sound.SetSampleSize(size), S_OK);
  EXPECT_EQ(sound.GetMediaFrame(), frame) << "memory never shrinks";
  EXPECT_EQ(picture.RemallocYUVFrame(4, 2, YUV_IMAGE_420P), S_OK);
  std::memset(picture.yuv().pPlane[0], '.', 19);
  EXPECT_EQ(Text(picture), "ok 2 1 -1 0 0 19 -1 -1 0 | 1 0 0 0 2 4 2 4 2 2 0 8 11 0 ''");
}

// Both forms: the frame says what its source says, over a block of the sample's own.
TEST_F(SampleTest, CopiesEveryField) {
  struct Case {
    Sample to;
    MEDIA_FRAME from;
    unsigned size;
    const char* text;
  };
  for (const bool bySample : {false, true}) {
    Case cases[] = {
        {{kAudio, kDecoded, 2}, Frame(kSound, 3), 3, "| 1 0 -5 3 44100 2 16 3 3 'abc'"},
        {{kVideo, kDecoded, 8, kBytes},
         Frame(kBytes, 33),
         33,
         "| 1 2 -5 33 33 33 'abcdefghijklmnopqrstuvwxyzabcdefg'"},
        {{kVideo, kDecoded, 5},
         Frame(kPicture, 3, 3),
         17,
         "| 1 2 -5 17 7 3 3 6 2 2 0 9 13 0 'abcdefghijklmnopq'"},
        {{kVideo, kDecoded, 9}, Frame(kPicture, 3, 0), 9, "| 1 2 -5 0 2 3 0 3 2 2 0 0 0 0 ''"},
        {{kVideo, kDecoded, 9, kBitmap}, Frame(kBitmap, 10), 20, "| 1 2 -5 10 2 10 'abcdefghij'"},
        {{kVideo, kDecoded, 64, 5}, Frame(kBitmap, 10), 64, "| 1 2 -5 10 2 10 'abcdefghij'"},
    };
    cases[2].from.video.yuv.nYuvFormat = 7;
    cases[2].from.video.yuv.nStride[0] = 6;
    for (auto& [to, from, size, text] : cases) {
      Sample source(to.GetStreamType(), kDecoded);
      source.FrameAttach(&from);
      const HRESULT result = bySample ? to.FrameCopy(source) : to.FrameCopy(&from);
      EXPECT_THAT(Text(to, result), testing::EndsWith(text));
      EXPECT_EQ(to.GetSampleSize(), size);
      EXPECT_EQ(to.IsKeyFrame(), bySample ? 0 : from.bKeyFrame);
      source.FrameAttach(nullptr);
    }
  }
}

TEST_F(SampleTest, CopiesWhatThereIsAndRefreshesSizes) {
  Sample audio(kAudio, kDecoded, 8), video(kVideo, kDecoded, 17), encoded(kVideo, kEncoded, 9);
  MEDIA_FRAME source = Frame(kSound, 3);
  audio.FrameCopy(&source);
  source = Frame(kSound, 2, 0, nullptr);
  source.audio.nChannels = 1;
  EXPECT_EQ(Text(audio, audio.FrameCopy(&source)),
            "ok 3 1 -1 0 0 8 70 60 -5 | 1 0 -5 3 44100 2 16 3 8 'abc'");
  audio.frame().audio.nDataSize = audio.frame().audio.nBufferSize = 0;
  EXPECT_EQ(Text(audio, audio.RefreshSampleInfo()),
            "ok 3 1 -1 0 1 0 70 60 -5 | 1 0 -5 0 44100 2 16 0 0 ''");
  encoded.frame().bKeyFrame = 2;
  encoded.frame().video.buffer.nBufferSize = 7;
  EXPECT_EQ(Text(encoded, encoded.RefreshSampleInfo()), "ok 2 0 -1 0 1 7 0 0 0 | 0 2 0 0 0 7 ''");

  // Without U, V goes where the larger picture had it.
  source = Frame(kPicture, 3, 3);
  video.FrameCopy(&source);
  source = Frame(kPicture, 2, 2);
  source.video.yuv.pPlane[1] = nullptr;
  EXPECT_EQ(Text(video, video.FrameCopy(&source)),
            "ok 2 1 -1 0 2 17 70 60 -5 | 1 2 -5 6 2 2 2 2 1 1 0 4 13 0 'abcdef'");
  EXPECT_EQ(video.yuv().pPlane[2][0], 'f');
  video.yuv().nWidth = video.yuv().nHeight = 5;
  for (const int height : {5, 1}) {
    video.yuv().nHeight = height;
    EXPECT_EQ(video.RefreshSampleInfo(), S_OK);
    EXPECT_EQ(video.GetSampleSize(), 43U) << "planes raise the size and never lower it";
  }
}

// What is refused, each with nothing changed.
TEST_F(SampleTest, RefusesFramesAndSizesThatCannotBe) {
  Sample audio(kAudio, kDecoded, 8), video(kVideo, kDecoded, 8), encoded(kVideo, kEncoded, 8);
  MEDIA_FRAME huge = Frame(kPicture, 3, 3);
  huge.video.yuv.nWidth = huge.video.yuv.nHeight = 65536;
  std::pair<Sample*, MEDIA_FRAME> cases[] = {
      {&audio, Frame(kSound, -1)},
      {&video, Frame(kSound, 4)},
      {&video, Frame(kPicture, -1, 3, nullptr)},
      {&video, Frame(kPicture, 3, -1, nullptr)},
      {&video, huge},
      {&video, Frame(kBytes, -4)},
      {&video, Frame(kBitmap, 16, 0, nullptr)},
      {&video, Frame(kBitmap, INT_MIN)},
      {&encoded, Frame(kBytes, 4)},
  };
  for (auto& [sample, source] : cases) {
    SCOPED_TRACE(&source - &cases[0].second);
    const std::string refused = "refused" + Text(*sample).substr(2);
    Sample holder(static_cast<AV_STREAM_TYPE>(source.nStreamType), kDecoded);
    holder.FrameAttach(&source);
    EXPECT_EQ(Text(*sample, sample->FrameCopy(&source)), refused);
    EXPECT_EQ(Text(*sample, sample->FrameCopy(holder)), refused);
    holder.FrameAttach(nullptr);
  }
  Sample empty(kAudio, kDecoded), none(kVideo, kDecoded);
  EXPECT_EQ(audio.FrameCopy(nullptr), E_ZEL_STATE);
  EXPECT_EQ(audio.FrameCopy(audio.GetMediaFrame()), E_ZEL_STATE);
  EXPECT_EQ(audio.FrameCopy(audio), E_ZEL_STATE);
  EXPECT_EQ(audio.FrameCopy(empty), E_ZEL_STATE);
  EXPECT_EQ(empty.SetSampleSize(0x80000000UL), E_ZEL_STATE);
  EXPECT_EQ(empty.SetSampleSize(ULONG_MAX), E_ZEL_STATE);
  for (auto [w, h] : {std::pair(65536UL, 65536UL), std::pair(0xFFFFFFFFUL, 0xFFFFFFFFUL),
                      std::pair(0x7FFFFFFFUL, 2UL)}) {
    EXPECT_EQ(none.RemallocYUVFrame(w, h, YUV_IMAGE_420P), E_ZEL_STATE) << w << " x " << h;
  }
  EXPECT_EQ(none.GetMediaFrame(), nullptr);

  audio.frame().audio.nDataSize = -1;
  video.yuv().nWidth = -7;
  encoded.frame().video.nImageFormat = 7;
  for (Sample* s : {&audio, &video, &encoded}) EXPECT_EQ(s->RefreshSampleInfo(), E_ZEL_STATE);
  encoded.frame().video.nImageFormat = kBytes;
  for (const int count : {-1, INT_MAX}) EXPECT_EQ(audio.SetAudioPacketInfo(&count), E_ZEL_STATE);
}

// Frames that a producer attached: copies go by the sample's size and by what the frame states.
TEST_F(SampleTest, CopiesIntoAttachedFrames) {
  Sample audio(kAudio, kDecoded, 100), video(kVideo, kDecoded);
  const std::unique_ptr<unsigned char[]> old(audio.frame().audio.pData);
  audio.frame().audio = {0, 0, 0, new unsigned char[10], 0, 10};
  MEDIA_FRAME source = Frame(kSound, 60);
  EXPECT_EQ(audio.FrameCopy(&source), S_OK);
  EXPECT_EQ(audio.frame().audio.nBufferSize, 100) << "it had room for 10 bytes";

  // The picture shrinks, then grows again: the block, which the producer knows, is large enough.
  auto* block = new unsigned char[96];
  EXPECT_EQ(video.FrameAttach(new MEDIA_FRAME(Frame(kPicture, 8, 8, block))), S_OK);
  EXPECT_EQ(video.GetSampleSize(), 0U);
  for (const int side : {8, 2}) {
    video.yuv().nWidth = video.yuv().nHeight = side;
    EXPECT_EQ(video.RefreshSampleInfo(), S_OK);
  }
  source = Frame(kPicture, 8, 8);
  EXPECT_EQ(Text(video, video.FrameCopy(&source)),
            "ok 2 1 -1 0 2 96 70 60 -5 | 1 2 -5 96 2 8 8 8 4 4 0 64 80 0 "
            "'abcdefghijklmnopqrstuvwxyzabcdefghijklmnopqrstuvwxyzabcdefghijklmnopqrstuvwxyzabcdefg"
            "hijklmnopqr'");
  EXPECT_EQ(video.yuv().pPlane[0], block);
  // The planes of that picture stay where they are; the chroma of this one would not fit there.
  source = Frame(kPicture, 1, 40);
  source.video.yuv.pPlane[0] = nullptr;
  EXPECT_EQ(video.FrameCopy(&source), S_OK);

  // A buffer with less room than its sample says becomes a picture.
  Sample buffer(kVideo, kDecoded, 100, kBytes);
  delete[] buffer.frame().video.buffer.pData;
  buffer.frame().video.buffer = {new unsigned char[20], 0, 20};
  for (const int side : {2, 7}) {
    source = Frame(kPicture, side, side);
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
  EXPECT_EQ(Text(audio, audio.FrameCopy(&shallow)),
            "ok 3 1 -1 0 0 8 0 0 0 | 1 0 0 6 0 0 0 6 8 'cdefgh'");
  // Both samples hold the one frame, as a stream's output does with its input.
  other.FrameAttach(audio.GetMediaFrame());
  EXPECT_EQ(other.FrameCopy(audio), S_OK);
  // The same data, through another record, in a sample whose size is not its frame's: it grows.
  shallow = audio.frame();
  audio.FrameAttach(nullptr);
  EXPECT_EQ(Text(other, other.FrameCopy(&shallow)),
            "ok 3 1 -1 0 0 6 0 0 0 | 1 0 0 6 0 0 0 6 6 'cdefgh'");

  // Planes allocated by the one formula move to where the other one packs them.
  video.RemallocYUVFrame(4, 2, YUV_IMAGE_420P);
  unsigned char* const block = video.yuv().pPlane[0];
  std::memcpy(block, "YYYYYYYYUU.VV", 13);
  MEDIA_FRAME planes = video.frame();
  EXPECT_EQ(Text(video, video.FrameCopy(&planes)),
            "ok 2 1 -1 0 0 19 -1 -1 0 | 1 0 0 12 2 4 2 4 2 2 0 8 10 0 'YYYYYYYYUUVV'");
  // Planes in another order overlap each other's places.
  planes = video.frame();
  std::swap(planes.video.yuv.pPlane[1], planes.video.yuv.pPlane[2]);
  planes.video.yuv.pPlane[0] += 4;
  EXPECT_EQ(Text(video, video.FrameCopy(&planes)),
            "ok 2 1 -1 0 0 19 -1 -1 0 | 1 0 0 12 2 4 2 4 2 2 0 8 10 0 'YYYYUUVVVVUU'");
  // One block serves every known format.
  const MEDIA_FRAME flat = Frame(kBytes, 17), picture = Frame(kPicture, 3, 3);
  EXPECT_EQ(Text(video, video.FrameCopy(&flat)),
            "ok 2 1 -1 0 2 19 70 60 -5 | 1 2 -5 17 17 19 'abcdefghijklmnopq'");
  EXPECT_EQ(Text(video, video.FrameCopy(&picture)),
            "ok 2 1 -1 0 2 19 70 60 -5 | 1 2 -5 17 2 3 3 3 2 2 0 9 13 0 'abcdefghijklmnopq'");
  EXPECT_EQ(video.yuv().pPlane[0], block);
  // An unknown format has no data and no memory; nothing leaks.
  Sample unknown(kVideo, kDecoded);
  unknown.FrameAttach(new MEDIA_FRAME(Frame(9, 0)));
  EXPECT_EQ(Text(video, video.FrameCopy(unknown)), "ok 2 1 -1 0 0 19 70 60 -5 | 1 2 -5 0");
  EXPECT_EQ(video.yuv().nWidth, 0);
  EXPECT_EQ(Text(video, video.FrameCopy(&picture)),
            "ok 2 1 -1 0 2 19 70 60 -5 | 1 2 -5 17 2 3 3 3 2 2 0 9 13 0 'abcdefghijklmnopq'");
}

TEST_F(SampleTest, KeepsPacketTablesAndTexts) {
  Sample sample(kAudio, kDecoded, 4096);
  sample.frame().audio.nDataSize = 4096;
  const auto table = [&](std::size_t size) {
    const int* const entries = sample.GetAudioPakcetInfo();
    return std::vector<int>(entries, entries + size);
  };
  EXPECT_EQ(table(2), (std::vector{1, 4096}));
  std::vector<int> packets(13, 100);
  packets[0] = 12;
  EXPECT_EQ(sample.SetAudioPacketInfo(packets.data()), S_OK);
  EXPECT_EQ(table(13), packets);
  sample.SetAudioPacketInfo(std::vector{2, 1, 77}.data());
  EXPECT_EQ(sample.SetAudioPacketInfo(sample.GetAudioPakcetInfo() + 1), S_OK);
  EXPECT_EQ(table(2), (std::vector{1, 77})) << "a table inside its own one";
  EXPECT_EQ(sample.SetAudioPacketInfo(nullptr), S_OK);
  EXPECT_EQ(table(2), (std::vector{1, 4096}));

  for (const std::size_t length : {1023U, 1024U, 2047U, 2048U, 3U}) {
    const std::wstring text(length, L'\x1F600');
    EXPECT_EQ(sample.SetSubStreamString(text.c_str()), S_OK);
    EXPECT_EQ(sample.GetSubStreamString(), text);
  }
  EXPECT_EQ(sample.SetSubStreamString(sample.GetSubStreamString() + 1), S_OK);
  EXPECT_STREQ(sample.GetSubStreamString(), L"\x1F600\x1F600");
  EXPECT_EQ(sample.SetSubStreamString(nullptr), S_OK);
  EXPECT_STREQ(sample.GetSubStreamString(), L"");
}

/// A pool that counts its references and remembers what came back.
struct Pool : CFrameBuffer {
  ULONG count = 1;
  CZelSample* returned = nullptr;
  MEDIA_FRAME* frameAtRelease = nullptr;
  HRESULT NonDelegatingQueryInterface(const _GUID&, void**) override { return E_NOINTERFACE; }
  ULONG NonDelegatingAddRef() override { return ++count; }
  ULONG NonDelegatingRelease() override { return --count; }
  HRESULT QueryInterface(const _GUID&, void**) override { return E_NOINTERFACE; }
  ULONG AddRef() override { return ++count; }
  ULONG Release() override {
    frameAtRelease = returned != nullptr ? returned->GetMediaFrame() : nullptr;
    return --count;
  }
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
  EXPECT_EQ(second.frameAtRelease, nullptr) << "frames go first";
}

// Each operation, with each of its allocations failing in turn: the sample is as before, and whole.
TEST_F(SampleTest, SurvivesShortMemory) {
  Sample sample(kVideo, kDecoded, 24);
  const MEDIA_FRAME small = Frame(kPicture, 4, 4), larger = Frame(kPicture, 8, 8);
  sample.FrameCopy(&small);
  MEDIA_FRAME moved = sample.frame();
  moved.video.yuv.pPlane[1] = moved.video.yuv.pPlane[0] + 1;
  const MEDIA_FRAME flat = Frame(kBytes, 100);
  const std::vector<int> table(100, 99);
  const std::wstring text(5000, L'x');
  const std::string before = Text(sample);
  // The later ones of these change the sample once they succeed.
  const std::function<HRESULT()> operations[] = {
      [&] { return Sample(kVideo, kDecoded).SetSampleType(SAMPLE_TYPE_NONE); },
      [&] { return sample.SetAudioPacketInfo(table.data()); },
      [&] { return sample.SetSubStreamString(text.c_str()); },
      [&] { return sample.FrameCopy(&moved); },
      [&] { return sample.FrameCopy(&larger); },
      [&] { return sample.FrameCopy(&flat); },
      [&] { return sample.SetSampleSize(300); },
      [&] { return sample.RemallocYUVFrame(20, 20, YUV_IMAGE_420P); },
  };
  for (const auto& operation : operations) {
    const std::string unchanged = Text(sample);
    EXPECT_GE(FailEachAllocation([&] { return operation() == S_OK; },
                                 [&] { EXPECT_EQ(Text(sample), unchanged); }),
              1);
  }
}

TEST(SampleDeathTest, AssertsItsPreconditions) {
  Sample audio(kAudio, kDecoded), other(kAudio, kDecoded, 4);
  Sample bitmap(kVideo, kDecoded, 4, kBitmap);
  const MEDIA_FRAME frame = Frame(kSound, 4), typeless{};
  const MEDIA_FRAME unknown = Frame(3, 0);
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
