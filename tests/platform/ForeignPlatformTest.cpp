// The shipped library on a platform of the host's own. This program links nothing of ours: it loads
// the library from its own folder, in which the other libraries are foreign.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "zel/zel.h"

namespace {

namespace fs = std::filesystem;

const fs::path& HomeFolder() {
  static const fs::path folder = fs::read_symlink("/proc/self/exe").parent_path();
  return folder;
}

void* Load(const char* name) {
  void* library = dlopen((HomeFolder() / name).c_str(), RTLD_NOW | RTLD_LOCAL);
  EXPECT_NE(library, nullptr) << dlerror();
  return library;
}

template <class T>
T* Symbol(void* library, const std::string& name) {
  void* symbol = dlsym(library, name.c_str());
  EXPECT_NE(symbol, nullptr) << name;
  return reinterpret_cast<T*>(symbol);
}

TEST(ForeignPlatform, CarriesTheWholeLibrary) {
  void* library = Load("libZel_AudioCompositor.so");
  void* support = Load("libCOMSupport.dylib");
  void* media = Load("libMediaInfo.so");
  void* log = Load("libZel_Log.so");
  ASSERT_TRUE(library != nullptr && support != nullptr && media != nullptr && log != nullptr);
  const auto id = [&](const char* name) { return *Symbol<const _GUID>(library, name); };

  void* out = nullptr;
  ASSERT_EQ(
      Symbol<HRESULT(const _GUID&, const _GUID&, void**)>(library, "DllGetClassObject")(
          id("CLSID_CAudioCompositor"), *Symbol<const _GUID>(support, "IID_IClassFactory"), &out),
      S_OK);
  auto* factory = static_cast<IClassFactory*>(out);
  ASSERT_EQ(factory->CreateInstance(nullptr, id("IID_IAudioCompositor"), &out), S_OK);
  factory->Release();
  auto* compositor = static_cast<IAudioCompositor*>(out);

  ASSERT_EQ(Symbol<decltype(ZelCreateInstance)>(support, "ZelCreateInstance")(
                id("CLSID_CMediaDecoderMgr"), nullptr, 0, id("IID_IMediaDecoderMgr"), &out),
            S_OK);
  auto* manager = static_cast<IMediaDecoderMgr*>(out);
  IMediaDecoder* decoder = nullptr;
  ASSERT_EQ(manager->CreateDecoder(L"input", 0, nullptr, 11, &decoder), S_OK);
  IMediaStream* input = nullptr;
  ASSERT_EQ(decoder->GetAudioStream(&input), S_OK);
  EXPECT_EQ(compositor->SetInputAudioStream(input), S_OK);
  input->Release();
  decoder->Release();
  manager->Release();

  wchar_t track[] = L"track";
  ASSERT_EQ(compositor->AddByFileName(track), S_OK);
  IMediaStream* output = nullptr;
  ASSERT_EQ(compositor->GetOutPutAudioStream(&output), S_OK);
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  short heard = 0;
  while (heard != 7777 && std::chrono::steady_clock::now() < end) {
    output->Seek(0, 1);
    output->Forward();
    CZelSample* sample = output->GetSampleEx();
    ASSERT_NE(sample, nullptr);
    heard = reinterpret_cast<const short*>(sample->GetMediaFrame()->audio.pData)[0];
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_EQ(heard, 7777) << "the track was loaded by the foreign manager";

  wchar_t* text = nullptr;
  IStreamInfo* info = nullptr;
  ASSERT_EQ(output->GetStreamInfo(&info), S_OK);
  EXPECT_EQ(info->GetName(&text), S_OK);
  Symbol<decltype(SysFreeString)>(support, "SysFreeString")(text);
  info->Release();
  output->Release();
  compositor->Release();

  const auto calls = [](void* in, const char* name) {
    return Symbol<std::atomic<int>>(in, name + std::string("_calls"))->load();
  };
  for (const char* name : {"CLSIDFromString", "SysAllocString", "SysFreeString",
                           "InterlockedIncrement", "InterlockedDecrement", "ZelCreateInstance"}) {
    EXPECT_GT(calls(support, name), 0) << name;
  }
  EXPECT_EQ(calls(support, "SysAllocString"), calls(support, "SysFreeString"));
  EXPECT_GT(calls(media, "CloneProgramInfo"), 0);
  EXPECT_GE(calls(media, "FreeProgramInfo"), calls(media, "CloneProgramInfo"));
  EXPECT_GT(calls(log, "GetAppPath"), 0);
  EXPECT_EQ(Symbol<std::atomic<int>>(Load("libforeign_decoder.so"), "g_foreignObjects")->load(), 0);

  // No other set has come in behind our back.
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    for (const char* name : {"/libCOMSupport", "/libMediaInfo", "/libZel_", "/libkernaldec"}) {
      if (line.find(name) == std::string::npos) continue;
      EXPECT_NE(line.find(HomeFolder().string() + "/lib"), std::string::npos) << line;
    }
  }
}

}  // namespace
