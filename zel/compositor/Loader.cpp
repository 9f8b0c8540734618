// Loading of a second source by its file name, on the compositor's own thread.
#include <dlfcn.h>

#include <cwchar>
#include <memory>
#include <new>
#include <utility>

#include "zel/base/Ids.h"
#include "zel/base/Ref.h"
#include "zel/compositor/detail/CompositorImpl.h"
#include "zel/compositor/detail/PathText.h"
#include "zel/mediainfo/MediaInfo.h"
#include "zel/platform/DecoderManager.h"
#include "zel/platform/Zel_Log.h"

namespace {

using zel::Ref;

// What the compositor tells the decoder manager of its kind of use.
constexpr int kDecoderUse = 11;

// The manager of the component support library in the application's folder, which is another file
// than the one that this library is linked to. It stays loaded: its components may outlive every
// object here.
Ref<IMediaDecoderMgr> CreateDecoderManager() {
  constexpr int kCapacity = 512;
  constexpr wchar_t kLibrary[] = L"/libCOMSupport.dylib";
  wchar_t path[kCapacity + std::size(kLibrary)] = {};
  GetAppPath(path, kCapacity);
  std::wcscat(path, kLibrary);
  char utf8[zel::kMaxPathBytes + 1];
  zel::PathToUtf8(path, utf8);

  Ref<IMediaDecoderMgr> manager;
  // Nothing is asked of the mode, but glibc refuses 0, which elsewhere is RTLD_LAZY.
  void* library = dlopen(utf8, RTLD_LAZY);
  if (library == nullptr) return manager;
  const auto create =
      reinterpret_cast<decltype(&ZelCreateInstance)>(dlsym(library, "ZelCreateInstance"));
  if (create == nullptr) return manager;
  create(CLSID_CMediaDecoderMgr, nullptr, 0, IID_IMediaDecoderMgr, manager.ReceiveVoid());
  return manager;
}

// The file's first program and its first audio stream. Without an audio stream the selection stays
// empty.
// @return false when the file has no program.
bool SelectFirstAudio(IMediaInfo& media, DecoderSelection& selection) {
  Ref<IProgramInfos> programs;
  media.GetIPrograms(programs.Receive());
  if (!programs || programs->GetCount() <= 0) return false;
  Ref<IProgramInfo> program;
  programs->GetItem(0, program.Receive());
  if (!program) return false;
  Ref<IStreamInfos> streams;
  program->GetAudioStreamInfos(streams.Receive());
  if (!streams || streams->GetCount() <= 0) return true;
  Ref<IStreamInfo> stream;
  streams->GetItem(0, stream.Receive());
  if (!stream) return true;
  selection.size = sizeof(selection);
  selection.programId = program->GetID();
  selection.streamId = stream->GetID();
  return true;
}

}  // namespace

HRESULT CAudioCompositor::AddByFileName(wchar_t* fileName) {
  if (fileName == nullptr) return E_POINTER;
  {
    const CSingleLock lock(&m_mutex);
    if (m_fileName == fileName) return S_OK;
  }
  {
    const Ref<IMediaDecoderMgr> manager = CreateDecoderManager();
    if (!manager) return E_FAIL;
    Ref<IMediaInfo> probed;
    manager->OpenMediaInfo(fileName, kDecoderUse, probed.Receive());
    if (!probed) return E_INVALIDARG;
  }
  // The load has a copy of its own: Remove may empty the other one before the thread has begun.
  BstrPtr loading(SysAllocString(fileName), SysFreeString);
  if (loading == nullptr) return E_OUTOFMEMORY;
  try {
    const CSingleLock lock(&m_mutex);
    m_fileName = fileName;
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
  Stop();
  m_pLoading = std::move(loading);
  Start();
  return S_OK;
}

int CAudioCompositor::svc() {
  const BstrPtr name = std::move(m_pLoading);
  if (name == nullptr) return 0;
  const Ref<IMediaDecoderMgr> manager = CreateDecoderManager();
  if (!manager) return 0;

  DecoderSelection selection = {};
  {
    Ref<IMediaInfo> media;
    manager->OpenMediaInfo(name.get(), kDecoderUse, media.Receive());
    if (!media || !SelectFirstAudio(*media, selection)) return 0;
  }
  Ref<IMediaDecoder> decoder;
  manager->CreateDecoder(name.get(), 0, &selection, kDecoderUse, decoder.Receive());
  if (!decoder) return 0;
  Ref<IMediaStream> stream;
  decoder->GetAudioStream(stream.Receive());
  if (stream) AddByMediaStream(stream.get());
  return 0;
}
