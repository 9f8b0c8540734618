// Loading of a second source by its file name, on the compositor's own thread.
#include <dlfcn.h>
#include <unistd.h>

#include <cwchar>
#include <memory>
#include <mutex>
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

// The kind of use that the compositor passes to the decoder manager.
constexpr int kDecoderUse = 11;

// Makes the decoder manager of the component support library in the application's folder, which may
// be another file than the one that this library is linked to. The library stays loaded: its
// components may outlive every object here.
Ref<IMediaDecoderMgr> CreateDecoderManager() {
  constexpr int kCapacity = 512;
  constexpr wchar_t kLibrary[] = L"/libCOMSupport.dylib";
  wchar_t path[kCapacity + std::size(kLibrary)] = {};
  GetAppPath(path, kCapacity);
  std::wcscat(path, kLibrary);
  char utf8[zel::kMaxPathBytes + 1];
  zel::PathToUtf8(path, utf8);

  Ref<IMediaDecoderMgr> manager;
  // The mode does not matter, but glibc refuses 0.
  void* library = dlopen(utf8, RTLD_LAZY);
  if (library == nullptr) return manager;
  const auto create =
      reinterpret_cast<decltype(&ZelCreateInstance)>(dlsym(library, "ZelCreateInstance"));
  if (create == nullptr) return manager;
  create(CLSID_CMediaDecoderMgr, nullptr, 0, IID_IMediaDecoderMgr, manager.ReceiveVoid());
  return manager;
}

// Selects the first audio stream of the file's first program. The selection stays empty if that has
// no audio stream.
// @return false when the file has no program.
bool SelectFirstAudio(IMediaInfo& media, DecoderSelection& selection) {
  Ref<IProgramInfos> programs;
  media.GetIPrograms(programs.Receive());
  if (!programs || programs->GetCount() <= 0) return false;
  Ref<IProgramInfo> program;
  programs->GetItem(0, program.Receive());
  if (!program) return false;
  Ref<IStreamInfo> stream;
  Ref<IStreamInfos> streams;  // Last, so that the list is released before the stream.
  program->GetAudioStreamInfos(streams.Receive());
  if (streams && streams->GetCount() > 0) streams->GetItem(0, stream.Receive());
  if (!stream) return true;
  selection.size = sizeof(selection);
  selection.programId = program->GetID();
  selection.streamId = stream->GetID();
  return true;
}

// @return S_OK when the file can be opened; E_FAIL without a decoder manager; E_INVALIDARG.
HRESULT Probe(const wchar_t* fileName) {
  const Ref<IMediaDecoderMgr> manager = CreateDecoderManager();
  if (!manager) return E_FAIL;
  Ref<IMediaInfo> media;
  manager->OpenMediaInfo(fileName, kDecoderUse, media.Receive());
  return media ? S_OK : E_INVALIDARG;
}

// The code to report for an operation that returned no object. E_FAIL if it claimed success.
HRESULT FailureOf(HRESULT code) {
  return ZelSucceeded(code) ? E_FAIL : code;
}

}  // namespace

HRESULT CAudioCompositor::AddByFileName(wchar_t* fileName) {
  if (fileName == nullptr) return E_POINTER;
  if (IsCurrentFile(fileName)) return S_OK;
  const HRESULT probed = Probe(fileName);
  if (probed != S_OK) return probed;
  // The loader gets a copy of its own: Remove may empty m_fileName before the load begins.
  BstrPtr name(SysAllocString(fileName), SysFreeString);
  if (name == nullptr) return E_OUTOFMEMORY;
  bool isLoading = false;
  try {
    const std::lock_guard guard(m_fileGuard);
    m_fileName = fileName;
    m_pNextFile = std::move(name);
    isLoading = std::exchange(m_bLoading, true);
    m_diagnosis.BeginLoad();
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
  if (isLoading) {
    WaitForLoader();
  } else if (!StartLoader()) {
    m_diagnosis.ReportLoad();
  }
  return S_OK;
}

bool CAudioCompositor::IsCurrentFile(const wchar_t* fileName) {
  const std::lock_guard guard(m_fileGuard);
  return m_fileName == fileName;
}

// Starts a thread for m_pNextFile.
// @return false without a thread: the name is dropped and nothing is loaded.
bool CAudioCompositor::StartLoader() {
  const std::lock_guard starting(m_startGuard);
  Stop();  // Joins the thread of the load before, which is about to end.
  if (Start() == 1) return true;
  const std::lock_guard guard(m_fileGuard);
  m_bLoading = false;
  m_pNextFile.reset();
  m_diagnosis.EndLoad(LOAD_NO_THREAD, E_FAIL, false);
  m_diagnosis.EndLoading();
  return false;
}

// Waits until the loader has finished the file before and taken the next one. Does not wait while
// the loader itself waits for a pull, which may be blocked or may be the caller.
void CAudioCompositor::WaitForLoader() {
  if (IsInsideCall()) return;
  const auto isTaken = [this] {
    const std::lock_guard guard(m_fileGuard);
    return m_pNextFile == nullptr;
  };
  while (!isTaken() && !m_bLoaderWaits) usleep(1'000);
}

// Takes the next name to load. After null the loader ends and the next name needs a new thread.
CAudioCompositor::BstrPtr CAudioCompositor::NextFile() {
  const std::lock_guard guard(m_fileGuard);
  m_bLoading = m_pNextFile != nullptr;
  if (!m_bLoading) m_diagnosis.EndLoading();
  return std::move(m_pNextFile);
}

int CAudioCompositor::svc() {
  m_loader = std::this_thread::get_id();
  while (BstrPtr name = NextFile()) EndLoad(Load(std::move(name)));
  m_loader = std::thread::id();
  return 0;
}

void CAudioCompositor::EndLoad(const LoadReport& report) {
  {
    const std::lock_guard guard(m_fileGuard);
    m_diagnosis.EndLoad(report.result, report.code, m_pNextFile != nullptr);
  }
  m_diagnosis.ReportLoad();
}

// Adds the sound of a file as the second source. Does nothing if anything is missing. The order of
// the variables is that of the releases at the end, which others see: stream, name, decoder,
// manager.
CAudioCompositor::LoadReport CAudioCompositor::Load(BstrPtr name) {
  const Ref<IMediaDecoderMgr> manager = CreateDecoderManager();
  Ref<IMediaDecoder> decoder;
  const BstrPtr path = std::move(name);
  Ref<IMediaStream> stream;
  if (!manager) return {LOAD_NO_MANAGER, E_FAIL};
  DecoderSelection selection = {};
  {
    Ref<IMediaInfo> media;
    const HRESULT opened = manager->OpenMediaInfo(path.get(), kDecoderUse, media.Receive());
    if (!media) return {LOAD_NO_FILE, FailureOf(opened)};
    if (!SelectFirstAudio(*media, selection)) return {LOAD_NO_PROGRAM, E_FAIL};
  }
  const HRESULT made =
      manager->CreateDecoder(path.get(), 0, &selection, kDecoderUse, decoder.Receive());
  if (!decoder) return {LOAD_NO_DECODER, FailureOf(made)};
  const HRESULT given = decoder->GetAudioStream(stream.Receive());
  const HRESULT added = stream ? AddByMediaStream(stream.get()) : FailureOf(given);
  const LOAD_RESULT refused = stream ? LOAD_REFUSED : LOAD_NO_SOUND;
  return {added == S_OK ? LOAD_ADDED : refused, added};
}
