#include "tools/zel/Host.h"

#include <dlfcn.h>

#include "platform/common/Utf8.h"
#include "tools/zel/Failure.h"
#include "tools/zel/PacketSource.h"
#include "zel/base/EntryPoints.h"
#include "zel/base/Ids.h"
#include "zel/mediainfo/MediaInfo.h"
#include "zel/platform/Zel_Log.h"

namespace zel::tool {
namespace {

std::string HexText(HRESULT result) {
  char text[16];
  std::snprintf(text, sizeof(text), "0x%08X", static_cast<unsigned>(result));
  return text;
}

}  // namespace

ComPtr<IAudioCompositor> MakeCompositor() {
  wchar_t folder[4096] = L"";
  GetAppPath(folder, 4096);
  const std::string path = utf8::FromWide(folder) + "/libZel_AudioCompositor.so";
  // Never closed: the objects' code stays for as long as the process.
  void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) throw Failure(path, dlerror());
  const auto entry =
      reinterpret_cast<decltype(&DllGetClassObject)>(dlsym(library, "DllGetClassObject"));
  if (entry == nullptr) throw Failure(path, "has no entry DllGetClassObject");

  ComPtr<IClassFactory> factory;
  HRESULT result = entry(CLSID_CAudioCompositor, IID_IClassFactory, factory.ReceiveVoid());
  ComPtr<IAudioCompositor> compositor;
  if (result == S_OK) {
    result = factory->CreateInstance(nullptr, IID_IAudioCompositor, compositor.ReceiveVoid());
  }
  if (result != S_OK) throw Failure(path, "makes no compositor (" + HexText(result) + ")");
  return compositor;
}

ComPtr<IMediaDecoderMgr> MakeDecoderManager() {
  ComPtr<IMediaDecoderMgr> manager;
  const HRESULT result = ZelCreateInstance(CLSID_CMediaDecoderMgr, nullptr, 0, IID_IMediaDecoderMgr,
                                           manager.ReceiveVoid());
  if (result != S_OK || !manager) {
    throw Failure("libCOMSupport.dylib", "offers no decoders (" + HexText(result) + ")");
  }
  return manager;
}

namespace {

/// The ids of a file's audio streams, for people.
std::string AudioIds(IMediaDecoderMgr* manager, const std::string& path) {
  ComPtr<IMediaInfo> media;
  manager->OpenMediaInfo(utf8::ToWide(path).c_str(), 11, media.Receive());
  ComPtr<IProgramInfos> programs;
  if (media) media->GetIPrograms(programs.Receive());
  std::string text;
  for (int p = 0; programs && p < programs->GetCount(); ++p) {
    ComPtr<IProgramInfo> program;
    programs->GetItem(p, program.Receive());
    ComPtr<IStreamInfos> streams;
    if (program) program->GetAudioStreamInfos(streams.Receive());
    for (int s = 0; streams && s < streams->GetCount(); ++s) {
      ComPtr<IStreamInfo> stream;
      streams->GetItem(s, stream.Receive());
      if (stream) text += (text.empty() ? "" : ", ") + HexText(stream->GetID());
    }
  }
  return text.empty() ? "none" : text;
}

}  // namespace

DecodedSound OpenSound(IMediaDecoderMgr* manager, const std::string& path,
                       DecoderSelection selection) {
  DecodedSound sound;
  sound.path = path;
  ComPtr<IMediaDecoder> decoder;
  manager->CreateDecoder(utf8::ToWide(path).c_str(), 0, &selection, 11, decoder.Receive());
  if (decoder) decoder->GetAudioStream(sound.stream.Receive());
  if (!sound.stream) {
    if (selection.size != 0) {
      throw Failure(path, "no audio stream " + HexText(selection.streamId) + " in program " +
                              std::to_string(selection.programId) +
                              "; there are: " + AudioIds(manager, path));
    }
    throw Failure(path, WhyNoSound(path));
  }
  sound.stream->QueryInterface(IID_IDecodedAudio, sound.controls.ReceiveVoid());
  if (!sound.controls) throw Failure(path, "its decoder cannot be controlled");
  sound.Refresh();
  return sound;
}

void DecodedSound::Refresh() {
  stream->GetStreamInfo(info.Receive());
  if (!info || info->GetAudioInfo() == nullptr || format().channels <= 0 ||
      format().sampleRate <= 0) {
    throw Failure(path, "its sound has no format");
  }
}

void DecodedSound::CheckStatus() const {
  wchar_t* text = nullptr;
  if (controls->GetStatus(&text) != S_OK) throw Failure(path, TakeText(text));
}

std::string TakeText(wchar_t* text) {
  std::string narrow = text != nullptr ? utf8::FromWide(text) : "unknown";
  SysFreeString(text);
  return narrow;
}

}  // namespace zel::tool
