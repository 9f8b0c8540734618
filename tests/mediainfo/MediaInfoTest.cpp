#include <climits>
#include <cstring>
#include <vector>

#include "tests/mediainfo/LeakCheck.h"
#include "zel/base/Ids.h"
#include "zel/base/Ref.h"
#include "zel/mediainfo/MediaInfo.h"
#include "zel/platform/MediaInfoLibrary.h"

namespace {

using ListTest = LeakCheck;
using MediaInfoTest = LeakCheck;
using ProgramInfoTest = LeakCheck;
using zel::Ref;

unsigned char kExtraData[] = {7, 8, 9};

StreamInfo MakeStream(int type, std::uint32_t id) {
  StreamInfo s{};
  s.type = type;
  s.id = id;
  s.channelIndex = -1;
  s.extraData = kExtraData;
  s.extraDataLength = 3;
  return s;
}

/// Program records over arrays of their own.
struct Program {
  std::vector<StreamInfo> video, audio, subPic;
  ProgramInfo record{};

  Program(std::uint32_t id, int videos, int audios, int subPics) {
    const auto fill = [id](std::vector<StreamInfo>& streams, int type, int count,
                           std::uint32_t at) {
      for (int i = 0; i < count; ++i) {
        streams.push_back(MakeStream(type, id << 16 | (at + static_cast<std::uint32_t>(i))));
      }
    };
    fill(video, 2, videos, 1);
    fill(audio, 3, audios, 11);
    fill(subPic, 4, subPics, 21);
    record = {static_cast<int>(id) + 100,
              id,
              2.5,
              64000,
              videos,
              audios,
              video.data(),
              audio.data(),
              id << 16 | 1,
              subPics,
              subPic.data()};
  }
};

struct File {
  std::vector<ProgramInfo> programs;
  MEDIA_FILE_INFO record{};

  explicit File(std::initializer_list<const Program*> list) {
    for (const Program* program : list) programs.push_back(program->record);
    record.fourCC = 0x34706D2E;
    std::wcscpy(record.fileName, L"/a/\x4E2D.mp4");
    std::wcscpy(record.description, L"a file");
    record.mediaLength = 12.25;
    record.bitrate = 128000;
    record.programCount = static_cast<int>(programs.size());
    record.programs = programs.data();
    record.frameRateConstant = 0;
  }
};

/// Ids of a program's streams of one kind; nothing when it has no such list.
std::vector<std::uint32_t> Ids(IProgramInfo& program,
                               HRESULT (IProgramInfo::*get)(IStreamInfos**)) {
  std::vector<std::uint32_t> ids;
  Ref<IStreamInfos> list;
  if ((program.*get)(list.Receive()) != S_OK) return ids;
  for (int i = 0; i < list->GetCount(); ++i) {
    Ref<IStreamInfo> item;
    EXPECT_EQ(list->GetItem(i, item.Receive()), S_OK);
    ids.push_back(item->GetID());
  }
  return ids;
}

using IdList = std::vector<std::uint32_t>;
constexpr auto kVideos = &IProgramInfo::GetVideoStreamInfos;
constexpr auto kAudios = &IProgramInfo::GetAudioStreamInfos;
constexpr auto kSubPics = &IProgramInfo::GetSubPicStreamInfos;

TEST_F(ListTest, HoldsOneReferencePerItem) {
  auto list = Ref<CStreamInfos>::Share(new CStreamInfos);
  EXPECT_EQ(list->GetCount(), 0);
  EXPECT_EQ(list->Clear(), S_OK);
  CStreamInfo* items[3];
  for (int i = 0; i < 3; ++i) {
    items[i] = new CStreamInfo;
    EXPECT_EQ(list->Add(items[i]), i);
    EXPECT_EQ(items[i]->GetRefCount(), 1);
  }
  EXPECT_EQ(list->Add(nullptr), -1);
  IStreamInfo* item = nullptr;
  ASSERT_EQ(list->GetItem(1, &item), S_OK);
  EXPECT_EQ(item, static_cast<IStreamInfo*>(items[1]));
  EXPECT_EQ(items[1]->GetRefCount(), 2);
  EXPECT_EQ(list->GetItem(0, nullptr), E_POINTER);
  for (const int index : {-1, 3, INT_MIN, INT_MAX}) {
    IStreamInfo* none = item;
    EXPECT_EQ(list->GetItem(index, &none), E_POINTER);
    EXPECT_EQ(none, nullptr);
  }
  EXPECT_EQ(list->Clear(), S_OK);
  EXPECT_EQ(list->GetCount(), 0);
  EXPECT_EQ(items[1]->GetRefCount(), 1);
  EXPECT_EQ(list->Add(items[1]), 0);
  EXPECT_EQ(item->Release(), 1U);
}

template <class List>
void ExpectFace(const _GUID& own, const _GUID& ofItem) {
  auto list = Ref<List>::Share(new List);
  void* face = nullptr;
  ASSERT_EQ(list->QueryInterface(own, &face), S_OK);
  EXPECT_EQ(static_cast<IUnknown*>(face)->Release(), 1U);
  ASSERT_EQ(list->QueryInterface(IID_IUnknown, &face), S_OK);
  EXPECT_EQ(static_cast<IUnknown*>(face)->Release(), 1U);
  EXPECT_EQ(list->QueryInterface(ofItem, &face), E_NOINTERFACE);
  EXPECT_EQ(face, nullptr);
  EXPECT_EQ(list->QueryInterface(own, nullptr), E_POINTER);
}

TEST_F(ListTest, ExposesItsOwnInterfaceAlone) {
  ExpectFace<CStreamInfos>(IID_IStreamInfos, IID_IStreamInfo);
  ExpectFace<CProgramInfos>(IID_IProgramInfos, IID_IProgramInfo);
  ExpectFace<CSubPicStreamInfos>(IID_ISubPicStreamInfos, IID_ISubPicStreamInfo);
}

TEST_F(ListTest, AppendsCopiesOfRecords) {
  auto streams = Ref<CStreamInfos>::Share(new CStreamInfos);
  const StreamInfo record = MakeStream(2, 5);
  EXPECT_EQ(streams->AddByStreamInfo(nullptr), E_POINTER);
  EXPECT_EQ(streams->AddByStreamInfo(&record), S_OK);
  StreamInfo* fresh = streams->AddNewStream();
  EXPECT_EQ(fresh->id, 0xFFFFFFFF);
  fresh->id = 6;
  ASSERT_EQ(streams->GetCount(), 2);
  Ref<IStreamInfo> item;
  streams->GetItem(1, item.Receive());
  EXPECT_EQ(item->GetID(), 6U);

  auto subPics = Ref<CSubPicStreamInfos>::Share(new CSubPicStreamInfos);
  SubPicStreamInfo subPic{};
  subPic.id = 8;
  EXPECT_EQ(subPics->AddBySubPicStreamInfo(nullptr), E_POINTER);
  EXPECT_EQ(subPics->AddBySubPicStreamInfo(&subPic), S_OK);
  Ref<ISubPicStreamInfo> subPicItem;
  ASSERT_EQ(subPics->GetItem(0, subPicItem.Receive()), S_OK);
  EXPECT_EQ(subPicItem->GetID(), 8U);
  EXPECT_EQ(subPicItem->AddRef(), 3U);
  EXPECT_EQ(subPicItem->Release(), 2U);

  for (int i = 0; i < 20; ++i) {
    const int before = streams->GetCount();
    FailEachAllocation([&] { return streams->AddByStreamInfo(&record) == S_OK; },
                       [&] { EXPECT_EQ(streams->GetCount(), before); });
    EXPECT_EQ(streams->GetCount(), before + 1);
  }
}

TEST_F(ProgramInfoTest, IsEmptyWithoutARecord) {
  auto program = Ref<CProgramInfo>::Share(new CProgramInfo);
  EXPECT_EQ(program->GetNumber(), 0);
  EXPECT_EQ(program->GetID(), 0U);
  EXPECT_EQ(program->GetMediaLength(), 0.0);
  EXPECT_EQ(program->GetBitrate(), 0U);
  EXPECT_EQ(program->GetTimeStampReferenceStreamID(), 0U);
  for (const auto get : {kVideos, kAudios, kSubPics}) {
    auto* out = reinterpret_cast<IStreamInfos*>(8);
    EXPECT_EQ((program.get()->*get)(&out), E_FAIL);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ((program.get()->*get)(nullptr), E_POINTER);
  }
  void* face = nullptr;
  ASSERT_EQ(program->QueryInterface(IID_IProgramInfo, &face), S_OK);
  EXPECT_EQ(face, static_cast<IProgramInfo*>(program.get()));
  EXPECT_EQ(program->Release(), 1U);
  EXPECT_EQ(program->QueryInterface(IID_IProgramInfos, &face), E_NOINTERFACE);
}

TEST_F(ProgramInfoTest, ReplacesRecordAndListsTogether) {
  const Program first(1, 2, 0, 1), second(2, 0, 1, 0);
  auto program = Ref<CProgramInfo>::Share(new CProgramInfo);
  EXPECT_EQ(program->SetProgramInfo(&first.record), S_OK);
  EXPECT_EQ(program->GetNumber(), 101);
  EXPECT_EQ(program->GetID(), 1U);
  EXPECT_EQ(program->GetMediaLength(), 2.5);
  EXPECT_EQ(program->GetBitrate(), 64000U);
  EXPECT_EQ(program->GetTimeStampReferenceStreamID(), 0x10001U);
  EXPECT_EQ(Ids(*program.get(), kVideos), (IdList{0x10001, 0x10002}));
  EXPECT_EQ(Ids(*program.get(), kAudios), IdList{});
  EXPECT_EQ(Ids(*program.get(), kSubPics), IdList{0x10015});
  Ref<IStreamInfos> old;
  ASSERT_EQ(program->GetVideoStreamInfos(old.Receive()), S_OK);

  EXPECT_EQ(program->SetProgramInfo(&second.record), S_OK);
  EXPECT_EQ(Ids(*program.get(), kVideos), IdList{});
  EXPECT_EQ(Ids(*program.get(), kAudios), IdList{0x2000B});
  EXPECT_EQ(Ids(*program.get(), kSubPics), IdList{});
  EXPECT_EQ(old->GetCount(), 2);
  EXPECT_EQ(program->SetProgramInfo(nullptr), E_POINTER);
  EXPECT_EQ(program->GetID(), 2U);

  ProgramInfo hostile = first.record;
  hostile.videoStreamCount = -3;
  hostile.subPicStreams = nullptr;
  EXPECT_EQ(program->SetProgramInfo(&hostile), S_OK);
  for (const auto get : {kVideos, kAudios, kSubPics}) {
    EXPECT_EQ(Ids(*program.get(), get), IdList{});
  }
}

TEST_F(ProgramInfoTest, AddsStreamsOnRequest) {
  auto program = Ref<CProgramInfo>::Share(new CProgramInfo);
  StreamInfo* first = program->AddStream(AV_STREAM_VIDEO);
  StreamInfo* second = program->AddStream(AV_STREAM_VIDEO);
  ASSERT_NE(first, second);
  EXPECT_EQ(first->id, 0xFFFFFFFF);
  first->id = 1;
  second->id = 2;
  program->AddStream(AV_STREAM_AUDIO)->id = 3;
  EXPECT_EQ(program->AddStream(static_cast<AV_STREAM_TYPE>(4)), nullptr);
  EXPECT_EQ(Ids(*program.get(), kVideos), (IdList{1, 2}));
  EXPECT_EQ(Ids(*program.get(), kAudios), IdList{3});
  EXPECT_EQ(program->GetID(), 0U);
  auto other = Ref<CProgramInfo>::Share(new CProgramInfo);
  EXPECT_GE(FailEachAllocation([&] { return other->AddStream(AV_STREAM_AUDIO) != nullptr; },
                               [&] { EXPECT_EQ(Ids(*other.get(), kAudios), IdList{}); }),
            2);
}

TEST_F(ProgramInfoTest, RecordsAreClonedDeeply) {
  Program program(1, 2, 1, 1);
  program.audio[0].extraData = nullptr;  // A length without data.
  ProgramInfo* copy = CloneProgramInfo(&program.record);
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->id, 1U);
  ASSERT_EQ(copy->videoStreamCount, 2);
  ASSERT_EQ(copy->audioStreamCount, 1);
  ASSERT_EQ(copy->subPicStreamCount, 1);
  EXPECT_NE(copy->videoStreams, program.record.videoStreams);
  EXPECT_EQ(copy->videoStreams[1].id, 0x10002U);
  EXPECT_NE(copy->subPicStreams[0].extraData, kExtraData);
  EXPECT_EQ(std::memcmp(copy->subPicStreams[0].extraData, kExtraData, 3), 0);
  EXPECT_EQ(copy->audioStreams[0].extraData, nullptr);
  EXPECT_EQ(copy->audioStreams[0].extraDataLength, 0U);
  FreeProgramInfo(copy);

  EXPECT_EQ(CloneProgramInfo(nullptr), nullptr);
  FreeProgramInfo(nullptr);
  ProgramInfo hostile{};
  hostile.videoStreamCount = INT_MAX;
  hostile.audioStreamCount = INT_MIN;
  hostile.audioStreams = program.audio.data();
  copy = CloneProgramInfo(&hostile);
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->videoStreamCount, 0);
  EXPECT_EQ(copy->audioStreams, nullptr);
  FreeProgramInfo(copy);

  copy = nullptr;
  const long live = LiveAllocations();
  const int failures =
      FailEachAllocation([&] { return (copy = CloneProgramInfo(&program.record)) != nullptr; },
                         [&] { EXPECT_EQ(LiveAllocations(), live); });
  EXPECT_EQ(failures, 7);  // The record, three arrays, three blocks of extra data.
  FreeProgramInfo(copy);
}

TEST_F(MediaInfoTest, IsEmptyWhenNew) {
  long result = 17;
  auto* object = new CMediaInfo(nullptr, &result);
  const auto info = Ref<CMediaInfo>::Share(object);
  EXPECT_EQ(result, 17);
  EXPECT_EQ(info->GetOjectReference(), 1);
  auto* out = reinterpret_cast<IProgramInfos*>(8);
  EXPECT_EQ(info->GetIPrograms(&out), S_FALSE);
  EXPECT_EQ(out, reinterpret_cast<IProgramInfos*>(8));
  EXPECT_EQ(info->GetSelectStreamNumber(0xFFFFFFFF), 0);
  EXPECT_EQ(info->SelectStream(0x10001, 0, 0), S_FALSE);
  EXPECT_EQ(info->UpdateAllStream(1), S_FALSE);
  EXPECT_EQ(info->FindStream(0), nullptr);
  EXPECT_EQ(info->GetStreamInfoObject(0), nullptr);
  EXPECT_EQ(info->GetTrimSegmentNumber(), 0U);
  EXPECT_EQ(info->IsFrameRateConstant(), 1);
  EXPECT_EQ(info->GetSeekCapacity(), 0);
  EXPECT_EQ(info->GetFourCC(), 0U);
  wchar_t* text = nullptr;
  EXPECT_EQ(info->GetFileName(&text), S_OK);
  EXPECT_EQ(Take(text), L"");
  EXPECT_EQ(info->GetFileName(nullptr), E_POINTER);
  EXPECT_EQ(info->GetDescription(nullptr), E_POINTER);
  EXPECT_EQ(info->GetIPrograms(nullptr), E_POINTER);
  wchar_t identifier[] = L"x";
  EXPECT_EQ(info->SetStreamIdentifier(1, identifier), E_ZEL_NOTIMPL);
  EXPECT_EQ(info->GetStreamIndentifier(1, &text), E_ZEL_NOTIMPL);
  EXPECT_EQ(info->UpdateTrimSetting(nullptr), E_ZEL_NOTIMPL);

  const std::pair<const _GUID&, void*> faces[] = {
      {IID_IMediaInfo, static_cast<IMediaInfo*>(object)},
      {IID_IMediaSetting, static_cast<IMediaSetting*>(object)},
      {IID_IMediaSettingInternal, static_cast<IMediaSettingInternal*>(object)},
      {IID_IUnknown, static_cast<scombase::INonDelegatingUnknown*>(object)}};
  for (const auto& [id, face] : faces) {
    void* found = nullptr;
    ASSERT_EQ(info->QueryInterface(id, &found), S_OK);
    EXPECT_EQ(found, face);
    EXPECT_EQ(info->GetOjectReference(), 2);
    EXPECT_EQ(static_cast<IUnknown*>(found)->Release(), 1U);
  }
  void* none = object;
  EXPECT_EQ(info->QueryInterface(IID_IProgramInfos, &none), E_NOINTERFACE);
  EXPECT_EQ(none, nullptr);
}

TEST_F(MediaInfoTest, TakesWhatItIsFilledWith) {
  const Program first(1, 1, 1, 0), second(2, 0, 2, 1), third(3, 0, 0, 0);
  File file{&first, &second, &third};
  std::wmemset(file.record.description, L'x', 128);  // Without a terminator.
  auto info = Ref<CMediaInfo>::Share(new CMediaInfo);
  info->AddTrimSegment({}, 0, 0);
  EXPECT_EQ(info->Fill(&file.record), S_OK);
  EXPECT_EQ(info->GetFourCC(), 0x34706D2EU);
  EXPECT_EQ(info->GetMediaLength(), 12.25);
  EXPECT_EQ(info->GetBitrate(), 128000U);
  EXPECT_EQ(info->IsFrameRateConstant(), 0);
  EXPECT_EQ(info->GetSeekCapacity(), 1);
  EXPECT_EQ(info->GetTrimSegmentNumber(), 0U);
  wchar_t* text = nullptr;
  EXPECT_EQ(info->GetFileName(&text), S_OK);
  EXPECT_EQ(Take(text), L"/a/\x4E2D.mp4");
  EXPECT_EQ(info->GetDescription(&text), S_OK);
  EXPECT_EQ(Take(text), std::wstring(128, L'x'));

  Ref<IProgramInfos> programs;
  ASSERT_EQ(info->GetIPrograms(programs.Receive()), S_OK);
  ASSERT_EQ(programs->GetCount(), 3);
  for (unsigned i = 0; i < 3; ++i) {
    Ref<IProgramInfo> program;
    ASSERT_EQ(programs->GetItem(static_cast<int>(i), program.Receive()), S_OK);
    EXPECT_EQ(program->GetID(), i + 1);
  }
  EXPECT_EQ(info->Fill(nullptr), E_POINTER);
  MEDIA_FILE_INFO hostile = file.record;
  hostile.programs = nullptr;
  EXPECT_EQ(info->Fill(&hostile), E_POINTER);
  EXPECT_EQ(info->GetFourCC(), 0x34706D2EU);
  const auto unchanged = [&] {
    Ref<IProgramInfos> now;
    EXPECT_EQ(info->GetIPrograms(now.Receive()), S_OK);
    EXPECT_EQ(now.get(), programs.get());
  };
  unchanged();
  EXPECT_GE(FailEachAllocation([&] { return info->Fill(&file.record) == S_OK; }, unchanged), 20);
  EXPECT_EQ(programs->GetCount(), 3) << "a list lives on for those who hold it";

  hostile.programCount = -1;
  EXPECT_EQ(info->Fill(&hostile), S_OK);
  programs = Ref<IProgramInfos>();
  ASSERT_EQ(info->GetIPrograms(programs.Receive()), S_OK);
  EXPECT_EQ(programs->GetCount(), 0);
  EXPECT_EQ(info->UpdateAllStream(1), S_OK);

  info->Fill(&file.record);
  EXPECT_EQ(info->AddProgram(), S_OK);
  programs = Ref<IProgramInfos>();
  info->GetIPrograms(programs.Receive());
  ASSERT_EQ(programs->GetCount(), 1);
  Ref<IProgramInfo> program;
  programs->GetItem(0, program.Receive());
  EXPECT_EQ(program->GetID(), 0U);
}

TEST_F(MediaInfoTest, FindsStreamsByTwoRules) {
  // Program 0x101 is out of reach of the first search; its streams' ids look like program 1's.
  const Program one(1, 1, 2, 1), twin(1, 0, 1, 1);
  Program far(0x101, 1, 0, 0);
  far.video[0].id = 0x00050030;
  const File file{&far, &one, &twin};
  auto info = Ref<CMediaInfo>::Share(new CMediaInfo);
  ASSERT_EQ(info->Fill(&file.record), S_OK);
  struct Case {
    unsigned long id;
    std::uint32_t record;  ///< Id of the record that FindStream returns; 0: none.
    std::uint32_t object;  ///< Id of the object that GetStreamInfoObject returns; 0: none.
  };
  for (const Case& c : {
           Case{0x00010001, 0x00010001, 0x00010001},  // Video.
           Case{0x0001000B, 0x0001000B, 0x0001000B},  // Audio; the first program's one of two.
           Case{0x00010015, 0x00010015, 0x00010015},  // Subpictures.
           Case{0xFF01000C, 0x0001000C, 0x0001000C},  // Bits 24 to 31 do not matter.
           Case{0x0002000B, 0, 0},                    // There is no such program.
           Case{0x00010030, 0, 0},                    // Program 0x101 is not program 1.
           Case{0x00050030, 0, 0x00050030},           // No program 5, but a stream with that id.
           Case{0x01050030, 0, 0x00050030},
           Case{0, 0, 0},
       }) {
    const StreamInfo* record = info->FindStream(c.id);
    EXPECT_EQ(record != nullptr ? record->id : 0, c.record) << c.id;
    CStreamInfo* object = info->GetStreamInfoObject(c.id);
    EXPECT_EQ(object != nullptr ? object->GetID() : 0, c.object) << c.id;
    if (object != nullptr) {
      EXPECT_EQ(object->GetRefCount(), 1);
    }
  }
}

TEST_F(MediaInfoTest, KeepsChoicesInTheStreams) {
  const Program first(1, 1, 1, 1), second(2, 0, 2, 0);
  const File file{&first, &second};
  auto info = Ref<CMediaInfo>::Share(new CMediaInfo);
  ASSERT_EQ(info->Fill(&file.record), S_OK);
  IMediaSetting& setting = *info.get();
  constexpr unsigned long kAudio = 0x1000B, kSubPic = 0x10015, kOther = 0x2000C;
  unsigned int lossless = 44;
  unsigned long channel = 55;
  EXPECT_EQ(setting.IsStreamSelected(0x30001, &lossless, &channel), 0);
  EXPECT_EQ(lossless, 44U);
  EXPECT_EQ(channel, 55U);
  EXPECT_EQ(setting.IsStreamSelected(kAudio, &lossless, &channel), 0);
  EXPECT_EQ(lossless, 0U);
  EXPECT_EQ(channel, static_cast<unsigned long>(-1));

  EXPECT_EQ(setting.SelectStream(kAudio, 1, 3), S_OK);
  EXPECT_EQ(setting.IsStreamSelected(kAudio, &lossless, &channel), 1);
  EXPECT_EQ(lossless, 1U);
  EXPECT_EQ(channel, 3U);
  EXPECT_EQ(setting.IsStreamSelected(kAudio, nullptr, nullptr), 1);
  EXPECT_EQ(setting.ClearSelectStream(kAudio), S_OK);
  EXPECT_EQ(setting.IsStreamSelected(kAudio, &lossless, &channel), 0);
  EXPECT_EQ(lossless, 1U) << "clearing leaves the other choices";
  EXPECT_EQ(channel, 3U);
  EXPECT_EQ(setting.UpdateStreamSetting(kAudio, 7), S_OK);
  EXPECT_EQ(setting.IsStreamSelected(kAudio, &lossless, &channel), 1) << "updating selects";
  EXPECT_EQ(lossless, 7U);
  EXPECT_EQ(channel, 3U);
  for (const unsigned long unknown : {0x20015UL, 0x30001UL}) {
    EXPECT_EQ(setting.SelectStream(unknown, 0, 0), S_FALSE);
    EXPECT_EQ(setting.UpdateStreamSetting(unknown, 0), S_FALSE);
    EXPECT_EQ(setting.ClearSelectStream(unknown), S_FALSE);
  }

  EXPECT_EQ(setting.SelectStream(kSubPic, 5, 0), S_OK);
  EXPECT_EQ(setting.SelectStream(kOther, 5, 0), S_OK);
  IMediaSettingInternal& internal = *info.get();
  const std::pair<unsigned long, int> counts[] = {
      {0, 0}, {1, 1}, {2, 1}, {3, 0}, {0xFFFFFFFE, 0}, {0xFFFFFFFF, 2}, {ULONG_MAX, 2}};
  for (const auto& [number, count] : counts) {
    EXPECT_EQ(internal.GetSelectStreamNumber(number), count) << number;
  }
  EXPECT_EQ(internal.UpdateAllStream(9), S_OK);
  EXPECT_EQ(info->FindStream(kAudio)->losslessProcess, 9);
  EXPECT_EQ(info->FindStream(kOther)->losslessProcess, 9);
  EXPECT_EQ(info->FindStream(kSubPic)->losslessProcess, 5) << "subpictures are left out";
  EXPECT_EQ(info->FindStream(0x10001)->losslessProcess, 0) << "not selected";
  EXPECT_EQ(info->GetStreamInfoObject(kAudio)->IsLosslessProcess(), 9);

  unsigned long length = 66;
  EXPECT_EQ(setting.GetExtraData(0x30001, &length), nullptr);
  EXPECT_EQ(setting.GetExtraData(kAudio, nullptr), nullptr);
  StreamInfo* audio = info->FindStream(kAudio);
  audio->extraDataLength = 0;
  EXPECT_EQ(setting.GetExtraData(kAudio, &length), nullptr);
  EXPECT_EQ(length, 66U);
  audio->extraDataLength = 3;
  EXPECT_EQ(setting.GetExtraData(kAudio, &length), audio->extraData);
  EXPECT_EQ(length, 3U);
}

TEST_F(MediaInfoTest, KeepsTrimSegmentsInOrder) {
  auto info = Ref<CMediaInfo>::Share(new CMediaInfo);
  const STrimSegment first{{1, -2, INT64_MAX, 4}}, second{{5, 6, 7, INT64_MIN}}, none{};
  const auto equal = [](const STrimSegment& a, const STrimSegment& b) {
    return std::memcmp(&a, &b, sizeof(a)) == 0;
  };
  EXPECT_TRUE(equal(info->AddTrimSegment(first, 8, 9), first));
  for (int count = 0; count < 2; ++count) {
    FailAllocationAfter(count);
    EXPECT_TRUE(equal(info->AddTrimSegment(second, 0, 0), second));
    EXPECT_EQ(info->GetTrimSegmentNumber(), 1U) << "memory was short";
  }
  info->AddTrimSegment(second, 0, 0);
  EXPECT_EQ(info->GetTrimSegmentNumber(), 2U);
  EXPECT_TRUE(equal(info->GetTrimSegment(0), first));
  EXPECT_TRUE(equal(info->GetTrimSegment(1), second));
  EXPECT_TRUE(equal(info->GetTrimSegment(2), none));
  EXPECT_TRUE(equal(info->GetTrimSegment(ULONG_MAX), none));
  EXPECT_EQ(info->RemoveAllTrimSegments(), S_OK);
  EXPECT_EQ(info->GetTrimSegmentNumber(), 0U);
}

}  // namespace
