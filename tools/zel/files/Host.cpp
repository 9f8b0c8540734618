#include "tools/zel/files/Host.h"

#include <dlfcn.h>

#include <set>

#include "media/Utf8.h"
#include "tools/zel/files/PacketSource.h"
#include "tools/zel/text/Failure.h"
#include "zel/base/EntryPoints.h"
#include "zel/base/Ids.h"
#include "zel/platform/Zel_Log.h"

namespace zel::tool {
namespace {

std::string HexText(HRESULT result) {
  char text[16];
  std::snprintf(text, sizeof(text), "0x%08X", static_cast<unsigned>(result));
  return text;
}

std::string InOwnFolder(const char* name) {
  wchar_t folder[4096] = L"";
  GetAppPath(folder, 4096);
  return media::ToUtf8(folder) + "/" + name;
}

/// Loads a library that is never closed: the objects' code stays for as long as the process.
void* Load(const std::string& path) {
  if (void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) return library;
  const std::string reason = dlerror();
  throw Failure(path, reason.starts_with(path + ": ") ? reason.substr(path.size() + 2) : reason);
}

template <class Item, class List>
std::vector<ComPtr<Item>> ItemsOf(List* list) {
  std::vector<ComPtr<Item>> items;
  for (int i = 0; list != nullptr && i < list->GetCount(); ++i) {
    ComPtr<Item> item;
    list->GetItem(i, item.Receive());
    if (item) items.push_back(std::move(item));
  }
  return items;
}

DecoderSelection SelectionOf(IProgramInfo* program, IStreamInfo* stream) {
  return {sizeof(DecoderSelection), 0, program->GetID(), stream->GetID(), {}};
}

/// The sound that a decoder yields for `selection`, or null.
ComPtr<IMediaStream> StreamOf(IMediaDecoderMgr* manager, const std::string& path,
                              DecoderSelection selection) {
  ComPtr<IMediaDecoder> decoder;
  ComPtr<IMediaStream> stream;
  manager->CreateDecoder(media::ToWide(path).c_str(), 0, &selection, 11, decoder.Receive());
  if (decoder) decoder->GetAudioStream(stream.Receive());
  return stream;
}

DecodedSound Controlled(const std::string& path, ComPtr<IMediaStream> stream) {
  DecodedSound sound{path, std::move(stream), {}, {}};
  sound.stream->QueryInterface(IID_IDecodedAudio, sound.controls.ReceiveVoid());
  if (!sound.controls) throw Failure(path, "its decoder cannot be controlled");
  sound.Refresh();
  return sound;
}

}  // namespace

ComPtr<IAudioCompositor> MakeCompositor() {
  const std::string path = InOwnFolder("libZel_AudioCompositor.so");
  void* library = Load(path);
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
    // The platform only says that there is no such class: the module that has it may say why.
    const std::string module = InOwnFolder("libkernaldec.so");
    Load(module);
    throw Failure(module, "offers no decoders (" + HexText(result) + ")");
  }
  return manager;
}

ComPtr<IMediaInfo> OpenMedia(IMediaDecoderMgr* manager, const std::string& path) {
  ComPtr<IMediaInfo> media;
  manager->OpenMediaInfo(media::ToWide(path).c_str(), 11, media.Receive());
  if (!media) throw Failure(path, WhyNotOpened(path));
  return media;
}

std::vector<ComPtr<IProgramInfo>> ProgramsOf(IMediaInfo* media) {
  ComPtr<IProgramInfos> list;
  media->GetIPrograms(list.Receive());
  return ItemsOf<IProgramInfo>(list.get());
}

std::vector<ComPtr<IStreamInfo>> StreamsOf(IProgramInfo* program, StreamKind kind) {
  ComPtr<IStreamInfos> list;
  switch (kind) {
    case StreamKind::kVideo:
      program->GetVideoStreamInfos(list.Receive());
      break;
    case StreamKind::kAudio:
      program->GetAudioStreamInfos(list.Receive());
      break;
    case StreamKind::kSubPicture:
      program->GetSubPicStreamInfos(list.Receive());
      break;
  }
  return ItemsOf<IStreamInfo>(list.get());
}

std::string IdText(std::uint32_t id) {
  char text[16];
  std::snprintf(text, sizeof(text), "0x%X", static_cast<unsigned>(id));
  return text;
}

DecoderSelection SelectSound(IMediaDecoderMgr* manager, const std::string& path,
                             std::optional<std::uint32_t> program,
                             std::optional<std::uint32_t> stream) {
  if (!program && !stream) return {};
  const ComPtr<IMediaInfo> media = OpenMedia(manager, path);
  std::string programIds;
  std::string soundIds;
  const auto list = [](std::string& ids, const std::string& id) {
    ids += (ids.empty() ? "" : ", ") + id;
  };
  for (const ComPtr<IProgramInfo>& candidate : ProgramsOf(media.get())) {
    list(programIds, std::to_string(candidate->GetID()));
    if (program && *program != candidate->GetID()) continue;
    for (const ComPtr<IStreamInfo>& sound : StreamsOf(candidate.get(), StreamKind::kAudio)) {
      if (!stream || *stream == sound->GetID()) {
        return SelectionOf(candidate.get(), sound.get());
      }
      list(soundIds, IdText(sound->GetID()));
    }
    if (!program) continue;
    const std::string where = "program " + std::to_string(*program);
    if (soundIds.empty()) throw Failure(path, "no audio stream in " + where);
    std::string text = "no audio stream ";
    text.append(IdText(*stream)).append(" in ").append(where).append("; there are: ");
    throw Failure(path, text.append(soundIds));
  }
  if (program) {
    throw Failure(path, "no program " + std::to_string(*program) + "; there are: " + programIds);
  }
  throw Failure(path, "no audio stream " + IdText(*stream) +
                          "; there are: " + (soundIds.empty() ? "none" : soundIds));
}

DecodedSound OpenSound(IMediaDecoderMgr* manager, const std::string& path,
                       DecoderSelection selection) {
  const ComPtr<IMediaStream> stream = StreamOf(manager, path, selection);
  if (!stream) throw Failure(path, WhyNoSound(path));
  return Controlled(path, stream);
}

DecodedSound OpenNumberedSound(IMediaDecoderMgr* manager, const std::string& path, int number) {
  if (number == 0) return OpenSound(manager, path);
  const ComPtr<IMediaInfo> media = OpenMedia(manager, path);
  std::set<unsigned long> seen;  // Programs may share streams.
  for (const ComPtr<IProgramInfo>& program : ProgramsOf(media.get())) {
    const auto sounds = StreamsOf(program.get(), StreamKind::kAudio);
    for (std::size_t i = 0; i < sounds.size(); ++i) {
      if (!seen.insert(sounds[i]->GetStreamIndex()).second) continue;
      if (seen.size() <= static_cast<std::size_t>(number)) continue;
      // Opened at the program's first sound, unless that is one that cannot be decoded.
      ComPtr<IMediaStream> stream =
          StreamOf(manager, path, SelectionOf(program.get(), sounds[0].get()));
      if (!stream) {
        stream = StreamOf(manager, path, SelectionOf(program.get(), sounds[i].get()));
      } else if (i > 0 && stream->ChangeStream(static_cast<int>(i)) != S_OK) {
        stream = {};
      }
      if (!stream) {
        throw Failure(path, "its audio stream " + std::to_string(number) + " cannot be decoded");
      }
      return Controlled(path, stream);
    }
  }
  if (seen.empty()) throw Failure(path, WhyNoSound(path));
  throw Failure(path, "has no audio stream " + std::to_string(number) + ": it has " +
                          std::to_string(seen.size()) + ", counted from 0");
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
  std::string narrow = text != nullptr ? media::ToUtf8(text) : "unknown";
  SysFreeString(text);
  return narrow;
}

}  // namespace zel::tool
