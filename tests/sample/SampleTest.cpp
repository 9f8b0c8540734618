#include <gmock/gmock.h>

#include <climits>
#include <cstring>
#include <sstream>

#include "tests/support/Faces.h"
#include "tests/support/LeakCheck.h"
#include "zel/base/Component.h"
#include "zel/sample/FrameBuffer.h"
#include "zel/sample/Sample.h"

namespace {

using testing::Each, testing::EndsWith, testing::HasSubstr, testing::StartsWith;
constexpr AV_STREAM_TYPE kVideo = AV_STREAM_VIDEO, kAudio = AV_STREAM_AUDIO;
constexpr FRAME_DATA_TYPE kEncoded = FRAME_DATA_ENCODED, kDecoded = FRAME_DATA_DECODED;
constexpr int kSound = -1, kBitmap = IMAGE_FORMAT_RGB, kPicture = IMAGE_FORMAT_YUV,
              kBytes = IMAGE_FORMAT_BUFFER;
unsigned char letters[] =
    "abcdefghijklmnopqrstuvwxyzabcdefghijklmnopqrstuvwxyzabcdefghijklmnopqrstuvwxyz0123456789012345"
    "678";

/// A frame of `a` bytes, or of `a` x `b` pixels, at `data`.
MEDIA_FRAME Frame(int kind, int a, int b = 0, unsigned char* data = letters) {
  MEDIA_FRAME f{kVideo, kDecoded, {}, 2, {}, 70, 60, -5};
  if (kind == kSound) f = {kAudio, kDecoded, {{44100, 2, 16, data, a, a}}, 0, {}, 70, 60, -5};
  if (kind == kSound) return f;
  f.video.nImageFormat = kind;
  if (kind == kBytes) f.video.buffer = {data, a, a + 1};
  if (kind == kBitmap) f.video.rgb = {{40, 1, 2, 1, 24, 0, 0U + a, 0, 0, 0, 0}, data};
  if (kind == kPicture) {
    const int w = (a + 1) / 2;
    const unsigned luma = (0U + a) * b, chroma = (0U + w) * ((b + 1) / 2);
    f.video.yuv = {2, {data, data + luma, data + luma + chroma}, a, b, {a, w, w}};
  }
  return f;
}

/// A sample on the stack; nobody takes a reference that would destroy it.
struct Sample : CZelSample {
  explicit Sample(int kind, unsigned size = 0, FRAME_DATA_TYPE data = kDecoded)
      : CZelSample(kind == kSound ? kAudio : kVideo, data) {
    if (data == kDecoded) SetVideoImageFormat(static_cast<IMAGE_FORMAT>(kind));
    SetSampleSize(size);
  }
  MEDIA_FRAME& frame() { return *GetMediaFrame(); }
  MEDIA_FRAME_YUV& yuv() { return frame().video.yuv; }
};

/// What a sample and its frame say, with the frame's data. Planes are given by their distance.
std::string Text(CZelSample& s, HRESULT result = S_OK) {
  std::ostringstream out;
  const auto print = [&](auto... facts) { ((out << ' ' << facts), ...); };
  print(s.GetStreamType(), s.GetFrameType(), s.GetStreamID(), s.GetSampleType(), s.IsKeyFrame(),
        s.GetSampleSize(), s.GetCurrentPTS(), s.GetCurrentDTS(), s.GetDuration());
  const MEDIA_FRAME* f = s.GetMediaFrame();
  const char* const end = result == S_OK ? "" : " refused";
  if (f == nullptr || f->nStreamType == 0) return out.str() + end;
  s.SetAudioPacketInfo(nullptr);
  const int size = s.GetAudioPakcetInfo()[1];
  out << " |";
  print(f->nFrameType, f->bKeyFrame, f->nDuration, size);
  const unsigned char* data = nullptr;
  const auto& [format, rgb, yuv, buffer] =
      std::tie(f->video.nImageFormat, f->video.rgb, f->video.yuv, f->video.buffer);
  if (f->nStreamType == kAudio) {
    const auto& [rate, channels, bits, bytes, valid, room] = f->audio;
    print(rate, channels, bits, valid, room);
    data = bytes;
  } else if (format == kPicture) {
    const auto& [to0, to1, to2, to3] = yuv.nStride;
    print(yuv.nYuvFormat, yuv.nWidth, yuv.nHeight, to0, to1, to2, to3);
    data = yuv.pPlane[0];
    for (int i = 1; i < 4; ++i) print(yuv.pPlane[i] != nullptr ? yuv.pPlane[i] - data : 0);
  } else if (format == kBytes) {
    print(buffer.nDataSize, buffer.nBufferSize);
    data = buffer.pData;
  } else if (format == kBitmap) {
    print(rgb.bmiHeader.biHeight, rgb.bmiHeader.biSizeImage);
    data = rgb.pBits;
  }
  if (data != nullptr) out << " '" << std::string(data, data + size) << "'";
  return out.str() + end;
}

/// What a sample says after an operation. Each allocation fails once: nothing is changed by that.
std::string Step(Sample& s, const std::function<HRESULT()>& operation) {
  const std::string before = Text(s);
  HRESULT result = E_FAIL;
  const auto run = [&] {
    result = operation();
    return true;
  };
  FailEachAllocation(run, [&] { EXPECT_EQ(Text(s), before); });
  return Text(s, result);
}
std::string Copy(Sample& to, const MEDIA_FRAME& from) {
  return Step(to, [&] { return to.FrameCopy(&from); });
}
std::string Grow(Sample& s) {
  return Step(s, [&] { return s.SetSampleSize(100); });
}

using SampleTest = LeakCheck;

TEST_F(SampleTest, IsEmptyWhenNewAndHandsOutItsFace) {
  long result = 17;
  CZelSample plain, aggregating(nullptr, &result);
  EXPECT_EQ(result, 17);
  EXPECT_EQ(Text(plain), " 0 0 -1 0 0 0 -1 -1 0");
  EXPECT_EQ(Text(aggregating), Text(plain));
  const auto sample = zel::MakeComponent<CZelSample>(kAudio, kDecoded);
  sample->SetCurrentPTS(5);
  sample->SetCurrentDTS(5);
  EXPECT_EQ(Text(*sample, sample->RefreshSampleInfo()), " 3 1 -1 0 0 0 -1 -1 0 refused");
  EXPECT_EQ(sample->GetCompareFrame(), nullptr);
  EXPECT_STREQ(sample->GetSubStreamString(), L"");
  EXPECT_EQ(sample->GetAudioPakcetInfo()[0], 0) << "no frame to describe";
  ExpectFaces<IZelSample>(*sample, IID_IStreamInfo);
}

TEST_F(SampleTest, KeepsItsTimesApartFromTheFramesTimes) {
  Sample sample(kSound, 4), copy(kSound, 4);
  sample.SetDuration(33);
  sample.SetSampleType(static_cast<SAMPLE_TYPE>(12));
  sample.frame().llPTS = 7;
  sample.frame().llDTS = 6;
  EXPECT_THAT(Text(sample, sample.RefreshSampleInfo()), StartsWith(" 3 1 -1 12 1 4 7 6 33"));
  copy.SetDuration(44);
  EXPECT_THAT(Text(copy, copy.FrameCopy(sample)), StartsWith(" 3 1 -1 12 1 4 7 6 44"));
  EXPECT_THAT(Copy(copy, Frame(kSound, 2)), StartsWith(" 3 1 -1 12 1 4 70 60 -5"));
  copy.frame().nStreamType = 0;
  copy.SetSampleType(static_cast<SAMPLE_TYPE>(13));
  EXPECT_EQ(Text(copy), " 3 1 -1 13 1 4 -1 -1 -5");
  // Its frame holds nothing; the sample's facts are copied all the same.
  EXPECT_THAT(Text(sample, sample.FrameCopy(copy)), StartsWith(" 3 1 -1 13 1 4 70 60 33"));
  copy.frame().nStreamType = kAudio;
  copy.FreeMediaFrame();
  EXPECT_EQ(Text(copy), " 3 1 -1 13 0 0 -1 -1 0");
}

TEST_F(SampleTest, AllocatesByStreamAndImageFormat) {
  Sample sound(kSound), encoded(kBytes, 0, kEncoded), picture(kPicture), bitmap(kBitmap),
      unknown(3);
  const HRESULT refusals[] = {sound.RemallocYUVFrame(4, 2, YUV_IMAGE_420P),
                              encoded.RemallocYUVFrame(4, 2, YUV_IMAGE_420P),
                              picture.RemallocYUVFrame(4, 2, static_cast<YUV_IMAGE_FORMAT>(1)),
                              picture.RemallocYUVFrame(65536, 65536, YUV_IMAGE_420P),
                              picture.RemallocYUVFrame(~0U, 0, YUV_IMAGE_420P),
                              picture.RemallocYUVFrame(0, ~0U, YUV_IMAGE_420P),
                              picture.RemallocYUVFrame(INT_MAX, 2, YUV_IMAGE_420P),
                              sound.SetSampleSize(0x80000000UL)};
  EXPECT_THAT(refusals, Each(E_ZEL_STATE));
  EXPECT_EQ(picture.GetMediaFrame(), nullptr);
  EXPECT_THAT(Grow(sound), EndsWith("0 | 1 0 0 0 0 0 0 0 100 ''"));
  EXPECT_THAT(Grow(encoded), EndsWith("0 | 0 0 0 0 0 100 ''"));
  EXPECT_THAT(Grow(picture), EndsWith("0 | 1 0 0 0 2 0 0 0 0 0 0 0 0 0 ''"));
  EXPECT_THAT(Grow(bitmap), EndsWith("0 | 1 0 0 0 0 0 ''"));
  EXPECT_THAT(Grow(unknown), EndsWith("0 | 1 0 0 0 0 0 refused"));
  const MEDIA_FRAME* frame = sound.GetMediaFrame();
  EXPECT_EQ(sound.SetSampleSize(100), S_OK);
  EXPECT_EQ(sound.GetMediaFrame(), frame) << "memory never shrinks";
  const auto place = [&] { return picture.RemallocYUVFrame(4, 2, YUV_IMAGE_420P); };
  EXPECT_THAT(Step(picture, place), EndsWith(" 19 -1 -1 0 | 1 0 0 0 2 4 2 4 2 2 0 8 11 0 ''"));
}

TEST_F(SampleTest, CopiesEveryField) {
  struct Case {
    Sample to;
    MEDIA_FRAME from;
    const char* text;
  };
  MEDIA_FRAME three = Frame(kPicture, 3, 3);
  three.video.yuv.nYuvFormat = 7;
  three.video.yuv.nStride[0] = 6;
  Case cases[] = {
      {Sample(kSound, 2), Frame(kSound, 3), " 3 70 60 -5 | 1 0 -5 3 44100 2 16 3 3 'abc'"},
      {Sample(kBytes, 2), Frame(kBytes, 3), " 3 70 60 -5 | 1 2 -5 3 3 3 'abc'"},
      {Sample(kPicture, 5), three,
       " 17 70 60 -5 | 1 2 -5 17 7 3 3 6 2 2 0 9 13 0 'abcdefghijklmnopq'"},
      {Sample(kPicture, 9), Frame(kPicture, 0, 3), " 9 70 60 -5 | 1 2 -5 0 2 0 3 0 0 0 0 0 0 0 ''"},
      {Sample(kPicture, 9), Frame(kPicture, 3, 0), " 9 70 60 -5 | 1 2 -5 0 2 3 0 3 2 2 0 0 0 0 ''"},
      {Sample(kBitmap, 2), Frame(kBitmap, 3), " 6 70 60 -5 | 1 2 -5 3 2 3 'abc'"},
      {Sample(5, 64), Frame(kBitmap, 3), " 64 70 60 -5 | 1 2 -5 3 2 3 'abc'"},
  };
  for (auto& [to, from, text] : cases) {
    EXPECT_THAT(Copy(to, from), EndsWith(text));
    EXPECT_EQ(to.IsKeyFrame(), from.bKeyFrame);
  }
}

TEST_F(SampleTest, CopiesWhatThereIsAndRefreshesSizes) {
  Sample audio(kSound, 8), video(kPicture, 17), encoded(kBytes, 9, kEncoded);
  Copy(audio, Frame(kSound, 3));
  MEDIA_FRAME source = Frame(kSound, 2, 0, nullptr);
  source.audio.nChannels = 1;
  EXPECT_THAT(Copy(audio, source), EndsWith(" 8 70 60 -5 | 1 0 -5 3 44100 2 16 3 8 'abc'"));
  audio.frame().audio.nDataSize = audio.frame().audio.nBufferSize = 0;
  EXPECT_THAT(Text(audio, audio.RefreshSampleInfo()),
              EndsWith(" 0 70 60 -5 | 1 0 -5 0 44100 2 16 0 0 ''"));
  EXPECT_EQ(encoded.RefreshSampleInfo() + encoded.IsKeyFrame(), 0);
  encoded.frame().bKeyFrame = 2;
  encoded.frame().video.buffer.nBufferSize = 7;
  EXPECT_THAT(Text(encoded, encoded.RefreshSampleInfo()), EndsWith(" 1 7 0 0 0 | 0 2 0 0 0 7 ''"));

  // Without U, V goes where the larger picture had it.
  Copy(video, Frame(kPicture, 3, 3));
  source = Frame(kPicture, 2, 2);
  source.video.yuv.pPlane[1] = nullptr;
  EXPECT_THAT(Copy(video, source),
              EndsWith(" 17 70 60 -5 | 1 2 -5 6 2 2 2 2 1 1 0 4 13 0 'abcdef'"));
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
  Sample audio(kSound, 8), video(kPicture, 8), encoded(kBytes, 8, kEncoded), empty(kSound);
  std::pair<Sample*, MEDIA_FRAME> cases[] = {
      {&audio, Frame(kSound, -1)},
      {&video, Frame(kSound, 4)},
      {&video, Frame(kPicture, -1, 0)},
      {&video, Frame(kPicture, 0, -1)},
      {&video, Frame(kPicture, 131072, 131072)},
      {&video, Frame(kBytes, -4)},
      {&video, Frame(kBitmap, 16, 0, nullptr)},
      {&video, Frame(kBitmap, INT_MIN)},
      {&encoded, Frame(kBytes, 4)},
  };
  for (auto& [sample, source] : cases) {
    SCOPED_TRACE(&source - &cases[0].second);
    const std::string refused = Text(*sample) + " refused";
    Sample holder(source.nStreamType == kAudio ? kSound : kPicture);
    holder.FrameAttach(&source);
    EXPECT_EQ(Text(*sample, sample->FrameCopy(&source)), refused);
    EXPECT_EQ(Text(*sample, sample->FrameCopy(holder)), refused);
    holder.FrameAttach(nullptr);
  }
  const HRESULT itself[] = {audio.FrameCopy(nullptr), audio.FrameCopy(audio.GetMediaFrame()),
                            audio.FrameCopy(audio), audio.FrameCopy(empty)};
  EXPECT_THAT(itself, Each(E_ZEL_STATE));
  audio.frame().audio.nDataSize = -1;
  video.yuv().nWidth = -7;
  encoded.frame().video.nImageFormat = 7;
  constexpr int kBadCounts[] = {-1, INT_MAX};
  const HRESULT bad[] = {audio.RefreshSampleInfo(), video.RefreshSampleInfo(),
                         encoded.RefreshSampleInfo(), audio.SetAudioPacketInfo(&kBadCounts[0]),
                         audio.SetAudioPacketInfo(&kBadCounts[1])};
  EXPECT_THAT(bad, Each(E_ZEL_STATE));
  encoded.frame().video.nImageFormat = kBytes;
}

// Frames that a producer attached: copies go by the sample's size and by what the frame states.
TEST_F(SampleTest, CopiesIntoAttachedFrames) {
  Sample audio(kSound, 100), video(kPicture);
  const std::unique_ptr<unsigned char[]> old(audio.frame().audio.pData);
  audio.frame().audio = {0, 0, 0, new unsigned char[10], 0, 10};
  EXPECT_THAT(Copy(audio, Frame(kSound, 20)), HasSubstr(" 20 100 'abcdefgh")) << "it had 10 bytes";

  // The picture shrinks, then grows again: the block, which the producer knows, is large enough.
  auto* block = new unsigned char[24];
  EXPECT_EQ(video.FrameAttach(new MEDIA_FRAME(Frame(kPicture, 4, 4, block))), S_OK);
  EXPECT_EQ(video.GetSampleSize(), 0U);
  for (const int side : {4, 2}) {
    video.yuv().nWidth = video.yuv().nHeight = side;
    EXPECT_EQ(video.RefreshSampleInfo(), S_OK);
  }
  EXPECT_THAT(Copy(video, Frame(kPicture, 4, 4)), EndsWith("16 20 0 'abcdefghijklmnopqrstuvwx'"));
  EXPECT_EQ(video.yuv().pPlane[0], block);
  // The planes of that picture stay where they are; the chroma of this one would not fit there.
  MEDIA_FRAME tall = Frame(kPicture, 1, 12);
  tall.video.yuv.pPlane[0] = nullptr;
  EXPECT_EQ(video.FrameCopy(&tall), S_OK);

  // A buffer with less room than its sample says becomes a picture.
  Sample buffer(kBytes, 100);
  delete[] buffer.frame().video.buffer.pData;
  buffer.frame().video.buffer = {new unsigned char[20], 0, 20};
  EXPECT_THAT(Copy(buffer, Frame(kPicture, 2, 2)), HasSubstr(" 100 70"));
  EXPECT_THAT(Copy(buffer, Frame(kPicture, 7, 7)), HasSubstr(" 100 70"));
}

TEST_F(SampleTest, CopiesFromItsOwnMemory) {
  Sample audio(kSound, 8), other(kSound), video(kPicture);
  std::memcpy(audio.frame().audio.pData, "abcdefgh", 8);
  MEDIA_FRAME shallow = audio.frame();
  shallow.audio.pData += 2;
  shallow.audio.nDataSize = 6;
  EXPECT_THAT(Copy(audio, shallow), EndsWith("| 1 0 0 6 0 0 0 6 8 'cdefgh'"));
  // Both samples hold the one frame, as a stream's output does with its input.
  other.FrameAttach(audio.GetMediaFrame());
  EXPECT_EQ(other.FrameCopy(audio), S_OK);
  // The same data, through another record, in a sample whose size is not its frame's: it grows.
  shallow = audio.frame();
  audio.FrameAttach(nullptr);
  EXPECT_THAT(Copy(other, shallow), EndsWith("| 1 0 0 6 0 0 0 6 6 'cdefgh'"));

  // Planes allocated by the one formula move to where the other one packs them.
  video.RemallocYUVFrame(4, 2, YUV_IMAGE_420P);
  unsigned char* const block = video.yuv().pPlane[0];
  std::memcpy(block, "YYYYYYYYUU.VV", 13);
  MEDIA_FRAME planes = video.frame();
  EXPECT_THAT(Copy(video, planes), EndsWith("| 1 0 0 12 2 4 2 4 2 2 0 8 10 0 'YYYYYYYYUUVV'"));
  // Planes in another order overlap each other's places.
  planes = video.frame();
  std::swap(planes.video.yuv.pPlane[1], planes.video.yuv.pPlane[2]);
  planes.video.yuv.pPlane[0] += 4;
  EXPECT_THAT(Copy(video, planes), EndsWith("| 1 0 0 12 2 4 2 4 2 2 0 8 10 0 'YYYYUUVVVVUU'"));
  // One block serves every known format.
  const MEDIA_FRAME picture = Frame(kPicture, 2, 2);
  EXPECT_THAT(Copy(video, Frame(kBytes, 9)), EndsWith("| 1 2 -5 9 9 19 'abcdefghi'"));
  EXPECT_THAT(Copy(video, picture), EndsWith("| 1 2 -5 6 2 2 2 2 1 1 0 4 5 0 'abcdef'"));
  EXPECT_EQ(video.yuv().pPlane[0], block);
  // An unknown format has no data and no memory; nothing leaks.
  Sample unknown(kPicture);
  unknown.FrameAttach(new MEDIA_FRAME(Frame(9, 0)));
  EXPECT_THAT(Text(video, video.FrameCopy(unknown)), EndsWith("| 1 2 -5 0"));
  EXPECT_THAT(Copy(video, picture), EndsWith("| 1 2 -5 6 2 2 2 2 1 1 0 4 5 0 'abcdef'"));
}

TEST_F(SampleTest, KeepsPacketTablesAndTexts) {
  Sample sample(kSound, 4096);
  sample.frame().audio.nDataSize = 4096;
  const auto table = [&](std::size_t size) {
    const int* const entries = sample.GetAudioPakcetInfo();
    return std::vector<int>(entries, entries + size);
  };
  const auto set = [&](const int* packets) {
    const auto before = table(10);
    return FailEachAllocation([&] { return sample.SetAudioPacketInfo(packets) == S_OK; },
                              [&] { EXPECT_EQ(table(10), before); });
  };
  EXPECT_EQ(table(2), (std::vector{1, 4096}));
  for (const int count : {9, 12}) {
    std::vector<int> packets(1 + static_cast<std::size_t>(count), 100);
    packets[0] = count;
    EXPECT_EQ(set(packets.data()), count == 9 ? 0 : 1) << "it has room for 9 from the start";
    EXPECT_EQ(table(packets.size()), packets);
  }
  set(std::vector{2, 1, 77}.data());
  EXPECT_EQ(set(sample.GetAudioPakcetInfo() + 1), 0);
  EXPECT_EQ(table(2), (std::vector{1, 77})) << "a table inside its own one";
  set(nullptr);
  EXPECT_EQ(table(2), (std::vector{1, 4096}));

  std::wstring text;
  const auto expectText = [&] { EXPECT_EQ(sample.GetSubStreamString(), text); };
  for (const std::size_t length : {1023U, 1024U, 2047U, 2048U, 3U}) {
    const std::wstring next(length, L'\x1F600');
    FailEachAllocation([&] { return sample.SetSubStreamString(next.c_str()) == S_OK; }, expectText);
    text = next;
    expectText();
  }
  EXPECT_EQ(sample.SetSubStreamString(sample.GetSubStreamString() + 1), S_OK);
  EXPECT_STREQ(sample.GetSubStreamString(), L"\x1F600\x1F600");
  EXPECT_EQ(sample.SetSubStreamString(nullptr), S_OK);
  EXPECT_STREQ(sample.GetSubStreamString(), L"");
  EXPECT_EQ(FailEachAllocation([] { return Sample(kSound).GetRefCount() == 0; }, [] {}), 2);
}

/// A pool that counts its references and remembers what came back.
struct Pool : CFrameBuffer {
  ULONG count = 1;
  CZelSample* returned = nullptr;
  HRESULT NonDelegatingQueryInterface(const _GUID&, void**) override { return E_NOINTERFACE; }
  ULONG NonDelegatingAddRef() override { return 0; }
  ULONG NonDelegatingRelease() override { return 0; }
  HRESULT QueryInterface(const _GUID&, void**) override { return E_NOINTERFACE; }
  ULONG AddRef() override { return ++count; }
  ULONG Release() override {
    EXPECT_TRUE(returned == nullptr || returned->GetMediaFrame() == nullptr) << "frames go first";
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
    Sample sample(kPicture, 10);
    MEDIA_FRAME* const frame = sample.GetMediaFrame();
    sample.SetSampleType(static_cast<SAMPLE_TYPE>(4));
    EXPECT_EQ(sample.ReturnSampleBack2Buffer(), E_ZEL_STATE);
    EXPECT_EQ(sample.GetSampleType(), 0);
    for (Pool* pool : {&first, &first, &second}) EXPECT_EQ(sample.SetFrameBuffer(pool), S_OK);
    EXPECT_EQ(sample.SetFrameBuffer(nullptr), E_ZEL_STATE);
    EXPECT_EQ(std::pair(first.count, second.count), std::pair(ULONG{1}, ULONG{2}));
    EXPECT_EQ(sample.ReturnSampleBack2Buffer(), 23);
    EXPECT_EQ(second.returned, &sample);
    EXPECT_EQ(sample.GetMediaFrame(), frame);
    sample.SetCompareFrame(&sample);
    EXPECT_EQ(sample.GetCompareFrame(), &sample);
  }
  EXPECT_EQ(second.count, 1U);
}

TEST(SampleDeathTest, AssertsItsPreconditions) {
  Sample audio(kSound), other(kSound, 4), bitmap(kBitmap, 4);
  const MEDIA_FRAME sound = Frame(kSound, 4), unknown = Frame(3, 0);
  MEDIA_FRAME typeless{};
  typeless.video.nImageFormat = kBytes;
  CZelSample none;
  EXPECT_DEATH(none.SetSampleSize(1), "`0'");
  none.FrameAttach(&typeless);
  EXPECT_DEATH(none.FreeMediaFrame(), "`0'");
  EXPECT_DEATH(none.RefreshSampleInfo(), "`0'");
  const MEDIA_FRAME copy = typeless;
  EXPECT_DEATH(none.FrameCopy(&copy), "`0'");
  none.FrameAttach(nullptr);
  EXPECT_DEATH(audio.FrameCopy(other), "m_pMediaFrame");
  EXPECT_DEATH(audio.FrameCopy(&sound), "m_pMediaFrame");
  EXPECT_DEATH(bitmap.RefreshSampleInfo(), "`0'");
  EXPECT_DEATH(bitmap.FrameCopy(&unknown), "`0'");
}

}  // namespace
