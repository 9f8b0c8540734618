#include "tools/zel/files/Modules.h"

#include <dlfcn.h>

#include <cstdio>
#include <string>

#include "media/Utf8.h"
#include "tools/zel/text/Failure.h"
#include "zel/base/EntryPoints.h"
#include "zel/base/Ids.h"
#include "zel/platform/COMSupport.h"
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

/// Loads a library and never closes it: its code must outlive its objects.
void* Load(const std::string& path) {
  if (void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) return library;
  const std::string reason = dlerror();
  throw Failure(path, reason.starts_with(path + ": ") ? reason.substr(path.size() + 2) : reason);
}

constexpr const char* kLibrary = "libZel_AudioCompositor.so";
constexpr const char* kDecoders = "libkernaldec.so";

}  // namespace

void LoadModules() {
  for (const char* name : {kLibrary, kDecoders}) dlopen(InOwnFolder(name).c_str(), RTLD_NOW);
}

Ref<IAudioCompositor> MakeCompositor() {
  const std::string path = InOwnFolder(kLibrary);
  void* library = Load(path);
  const auto entry =
      reinterpret_cast<decltype(&DllGetClassObject)>(dlsym(library, "DllGetClassObject"));
  if (entry == nullptr) throw Failure(path, "has no entry DllGetClassObject");

  Ref<IClassFactory> factory;
  HRESULT result = entry(CLSID_CAudioCompositor, IID_IClassFactory, factory.ReceiveVoid());
  Ref<IAudioCompositor> compositor;
  if (result == S_OK) {
    result = factory->CreateInstance(nullptr, IID_IAudioCompositor, compositor.ReceiveVoid());
  }
  if (result != S_OK) throw Failure(path, "makes no compositor (" + HexText(result) + ")");
  return compositor;
}

Ref<IMediaDecoderMgr> MakeDecoderManager() {
  Ref<IMediaDecoderMgr> manager;
  const HRESULT result = ZelCreateInstance(CLSID_CMediaDecoderMgr, nullptr, 0, IID_IMediaDecoderMgr,
                                           manager.ReceiveVoid());
  if (result != S_OK || !manager) {
    // The platform says only that it has no such class. Loading the module may tell why.
    const std::string module = InOwnFolder(kDecoders);
    Load(module);
    throw Failure(module, "offers no decoders (" + HexText(result) + ")");
  }
  return manager;
}

}  // namespace zel::tool
