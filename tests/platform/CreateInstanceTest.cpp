#include <dlfcn.h>

#include <thread>

#include "tests/support/Media.h"

namespace zel::test {
namespace {

namespace fs = std::filesystem;

// Creates an object, which must be there if, and only if, the result is S_OK.
HRESULT Create(const _GUID& clsid, const _GUID& iid, IUnknown* outer = nullptr,
               decltype(&ZelCreateInstance) create = &ZelCreateInstance) {
  auto* object = reinterpret_cast<IUnknown*>(1);
  const HRESULT result = create(clsid, outer, 0, iid, reinterpret_cast<void**>(&object));
  EXPECT_EQ(object != nullptr, result == S_OK);
  EXPECT_EQ(object != nullptr ? object->Release() : 0, 0U);
  return result;
}

fs::path Shipped() {
  Dl_info info{};
  EXPECT_NE(dladdr(reinterpret_cast<void*>(&SysFreeString), &info), 0);
  return fs::canonical(info.dli_fname);
}

// Asks the support library in a folder for a decoder manager.
HRESULT CreateFrom(const Folder& folder) {
  void* library = dlopen((folder / "libCOMSupport.dylib").c_str(), RTLD_NOW | RTLD_LOCAL);
  EXPECT_NE(library, nullptr) << dlerror();
  if (library == nullptr) return E_POINTER;
  void* create = dlsym(library, "ZelCreateInstance");
  return Create(CLSID_CMediaDecoderMgr, IID_IMediaDecoderMgr, nullptr,
                reinterpret_cast<decltype(&ZelCreateInstance)>(create));
}

TEST(CreateInstance, LacksTheClassWithoutItsModule) {
  EXPECT_EQ(Create(CLSID_CAudioCompositor, IID_IUnknown), CLASS_E_CLASSNOTAVAILABLE);
  EXPECT_EQ(ZelCreateInstance(CLSID_CMediaDecoderMgr, nullptr, 0, IID_IMediaDecoderMgr, nullptr),
            E_POINTER);
  const Folder folder;
  fs::copy_file(Shipped(), folder / "libCOMSupport.dylib");
  EXPECT_EQ(CreateFrom(folder), CLASS_E_CLASSNOTAVAILABLE);
  WriteFile(folder / "libkernaldec.so", "no library");
  EXPECT_EQ(CreateFrom(folder), CLASS_E_CLASSNOTAVAILABLE);
  // A library, but of another kind.
  fs::copy_file(Shipped(), folder / "libkernaldec.so", fs::copy_options::overwrite_existing);
  EXPECT_EQ(CreateFrom(folder), CLASS_E_CLASSNOTAVAILABLE);
}

#ifdef ZEL_HAS_DECODER

// What a host puts into its own folder.
TEST(CreateInstance, FindsItsModuleThroughALinkAndBesideACopy) {
  const Folder links, copies;
  fs::create_symlink(Shipped(), links / "libCOMSupport.dylib");
  for (const char* name : {"libCOMSupport.dylib", "libkernaldec.so"}) {
    fs::copy_file(Shipped().parent_path() / name, copies / name);
  }
  EXPECT_EQ(CreateFrom(links), S_OK);
  EXPECT_EQ(CreateFrom(copies), S_OK);
}

TEST(CreateInstance, LoadsTheDecoderModuleOnManyThreadsAtOnce) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) threads.emplace_back(Manager);
  for (std::thread& thread : threads) thread.join();
}

TEST(CreateInstance, MakesManagersAlsoInsideOtherObjects) {
  const Ref<IMediaDecoderMgr> outer = Manager();
  EXPECT_EQ(Create(CLSID_CMediaDecoderMgr, IID_IMediaStream), E_NOINTERFACE);
  EXPECT_EQ(Create(CLSID_CMediaDecoderMgr, IID_IMediaDecoderMgr, outer.get()),
            CLASS_E_NOAGGREGATION);
  EXPECT_EQ(Create(CLSID_CMediaDecoderMgr, IID_IUnknown, outer.get()), S_OK);
}

#endif

}  // namespace
}  // namespace zel::test
