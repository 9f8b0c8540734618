// A decoder manager without files: a name stands for ten frames of one value.
#include <algorithm>
#include <string_view>

#include "tests/support/foreign/Counted.h"
#include "zel/zel.h"

extern "C" ZEL_API std::atomic<int> g_foreignObjects;
std::atomic<int> g_foreignObjects = 0;

namespace {

constexpr int kRate = 44100;
constexpr int kFrameSize = 441;
constexpr int kFrames = 10;

short ValueOf(const wchar_t* name) {
  return name == std::wstring_view(L"track") ? 7777 : 1000;
}

template <class I>
class Component : public scombase::CUnknown, public I {
 public:
  Component() : CUnknown(nullptr) {
    ++g_foreignObjects;
    NonDelegatingAddRef();
  }
  ~Component() override { --g_foreignObjects; }
  HRESULT QueryInterface(const _GUID& riid, void** ppv) override {
    return GetOwner()->QueryInterface(riid, ppv);
  }
  ULONG AddRef() override { return GetOwner()->AddRef(); }
  ULONG Release() override { return GetOwner()->Release(); }
};

class Stream : public Component<IMediaStream> {
 public:
  explicit Stream(short value) : m_sample(new CZelSample(AV_STREAM_AUDIO, FRAME_DATA_DECODED)) {
    m_sample->AddRef();
    m_sample->SetSampleSize(sizeof(short) * kFrameSize);
    m_value = value;
  }
  ~Stream() override { m_sample->Release(); }

  HRESULT GetStreamInfo(IStreamInfo** out) override {
    auto* info = new CStreamInfo;
    info->GetStreamInfo()->audioInfo = {kRate, 1, 16, {}};
    info->AddRef();
    *out = info;
    return S_OK;
  }
  HRESULT ChangeStream(int) override { return S_FALSE; }
  int Forward() override { return ++m_position < kFrames ? 0 : -1; }
  int Backward() override { return -1; }
  double Seek(double seconds, int) override {
    m_position = static_cast<int>(seconds * kRate / kFrameSize) - 1;
    return seconds;
  }
  CZelSample* GetSampleEx() override {
    if (m_position < 0 || m_position >= kFrames) return nullptr;
    MEDIA_FRAME* frame = m_sample->GetMediaFrame();
    frame->audio.nSampleRate = kRate;
    frame->audio.nChannels = 1;
    frame->audio.nBitsPerSample = 16;
    frame->audio.nDataSize = sizeof(short) * kFrameSize;
    std::fill_n(reinterpret_cast<short*>(frame->audio.pData), kFrameSize, m_value);
    frame->llPTS = m_position * 100'000LL;
    return m_sample;
  }
  CZelSample* GetOriginSampleEx() override { return GetSampleEx(); }
  HRESULT NotifyStreamMessage(unsigned long, long long, void*, void*) override { return S_FALSE; }

 private:
  CZelSample* m_sample;
  short m_value = 0;
  int m_position = -1;
};

class Decoder : public Component<IMediaDecoder> {
 public:
  explicit Decoder(short value) : m_value(value) {}
  HRESULT GetVideoStream(IMediaStream** out) override {
    *out = nullptr;
    return E_FAIL;
  }
  HRESULT GetAudioStream(IMediaStream** out) override {
    *out = new Stream(m_value);
    return S_OK;
  }

 private:
  short m_value;
};

class Manager : public Component<IMediaDecoderMgr> {
 public:
  HRESULT CreateDecoder(const wchar_t* name, int, DecoderSelection* selection, int,
                        IMediaDecoder** out) override {
    // The loader asks for the stream that it has found below.
    if (selection != nullptr && (selection->programId != 5 || selection->streamId != 0x50001)) {
      return E_INVALIDARG;
    }
    *out = new Decoder(ValueOf(name));
    return S_OK;
  }
  HRESULT OpenMediaInfo(const wchar_t*, int, IMediaInfo** out) override {
    StreamInfo streams[2] = {};
    unsigned char data[] = {1, 2, 3};
    streams[0].id = 0x50001;
    streams[0].extraData = data;
    streams[0].extraDataLength = sizeof(data);
    ProgramInfo program = {};
    program.id = 5;
    program.audioStreamCount = 2;
    program.audioStreams = streams;
    MEDIA_FILE_INFO file = {};
    file.programCount = 1;
    file.programs = &program;
    auto* info = new CMediaInfo;
    info->Fill(&file);
    info->AddRef();
    *out = info;
    return S_OK;
  }
};

}  // namespace

extern "C" ZEL_API HRESULT CreateForeignManager(const _GUID& iid, void** out);

HRESULT CreateForeignManager(const _GUID& iid, void** out) {
  if (!ZelIsEqualGUID(iid, IID_IMediaDecoderMgr)) return E_NOINTERFACE;
  *out = static_cast<IMediaDecoderMgr*>(new Manager);
  return S_OK;
}
