#include <dlfcn.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <thread>
#include <vector>

#include "tests/support/Media.h"
#include "zel/zel.h"

namespace zel::test {
namespace {

void* const kGarbage = reinterpret_cast<void*>(0x1);

HRESULT Create(const _GUID& clsid, IUnknown* outer, const _GUID& iid, void** out) {
  return ZelCreateInstance(clsid, outer, 0, iid, out);
}

TEST(CreateInstance, AnswersWithCodesAndClearsTheResult) {
  EXPECT_EQ(Create(CLSID_CMediaDecoderMgr, nullptr, IID_IMediaDecoderMgr, nullptr), E_POINTER);
  void* out = kGarbage;
  EXPECT_EQ(Create(CLSID_CAudioCompositor, nullptr, IID_IUnknown, &out), CLASS_E_CLASSNOTAVAILABLE);
  EXPECT_EQ(out, nullptr);
}

// A set of platform libraries without the decoder module.
TEST(CreateInstance, LacksTheClassWithoutItsModule) {
  Dl_info info{};
  ASSERT_NE(dladdr(reinterpret_cast<void*>(&SysFreeString), &info), 0);
  const Folder folder;
  const std::string copy = folder / "libCOMSupport.dylib";
  const auto createWith = [&](const char* content) {
    if (content != nullptr) WriteFile(folder / "libkernaldec.so", content);
    void* library = dlopen(copy.c_str(), RTLD_NOW | RTLD_LOCAL);
    EXPECT_NE(library, nullptr) << dlerror();
    if (library == nullptr) return E_FAIL;
    const auto create =
        reinterpret_cast<decltype(&ZelCreateInstance)>(dlsym(library, "ZelCreateInstance"));
    void* out = kGarbage;
    const HRESULT result = create(CLSID_CMediaDecoderMgr, nullptr, 0, IID_IMediaDecoderMgr, &out);
    EXPECT_EQ(out, nullptr);
    return result;
  };
  std::filesystem::copy_file(info.dli_fname, copy);
  EXPECT_EQ(createWith(nullptr), CLASS_E_CLASSNOTAVAILABLE);
  EXPECT_EQ(createWith("no library"), CLASS_E_CLASSNOTAVAILABLE);
  // A library, but of another kind.
  std::filesystem::copy_file(info.dli_fname, folder / "libkernaldec.so",
                             std::filesystem::copy_options::overwrite_existing);
  EXPECT_EQ(createWith(nullptr), CLASS_E_CLASSNOTAVAILABLE);
}

#ifdef ZEL_HAS_DECODER

// What a host puts into its own folder.
TEST(CreateInstance, FindsItsModuleThroughALinkAndBesideACopy) {
  namespace fs = std::filesystem;
  Dl_info info{};
  ASSERT_NE(dladdr(reinterpret_cast<void*>(&SysFreeString), &info), 0);
  const fs::path shipped = fs::canonical(info.dli_fname);
  const Folder links;
  fs::create_symlink(shipped, links / "libCOMSupport.dylib");
  const Folder copies;
  for (const char* name : {"libCOMSupport.dylib", "libkernaldec.so"}) {
    fs::copy_file(shipped.parent_path() / name, copies / name);
  }
  for (const Folder* folder : {&links, &copies}) {
    void* library = dlopen((*folder / "libCOMSupport.dylib").c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    const auto create =
        reinterpret_cast<decltype(&ZelCreateInstance)>(dlsym(library, "ZelCreateInstance"));
    void* out = nullptr;
    ASSERT_EQ(create(CLSID_CMediaDecoderMgr, nullptr, 0, IID_IMediaDecoderMgr, &out), S_OK);
    static_cast<IMediaDecoderMgr*>(out)->Release();
  }
}

TEST(CreateInstance, LoadsTheDecoderModuleOnManyThreadsAtOnce) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([] {
      const Ref<IMediaDecoderMgr> manager = Manager();
      ASSERT_TRUE(manager);
      void* same = nullptr;
      EXPECT_EQ(manager->QueryInterface(IID_IMediaDecoderMgr, &same), S_OK);
      EXPECT_EQ(manager->Release(), 1U);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

class Outer final : public IUnknown {
 public:
  HRESULT QueryInterface(const _GUID&, void**) override { return E_ZEL_STATE; }
  ULONG AddRef() override { return 7; }
  ULONG Release() override { return 7; }
};

TEST(CreateInstance, MakesManagersAlsoInsideOtherObjects) {
  void* out = kGarbage;
  EXPECT_EQ(Create(CLSID_CMediaDecoderMgr, nullptr, IID_IMediaStream, &out), E_NOINTERFACE);
  EXPECT_EQ(out, nullptr);

  Outer outer;
  out = kGarbage;
  EXPECT_EQ(Create(CLSID_CMediaDecoderMgr, &outer, IID_IMediaDecoderMgr, &out),
            CLASS_E_NOAGGREGATION);
  EXPECT_EQ(out, nullptr);
  ASSERT_EQ(Create(CLSID_CMediaDecoderMgr, &outer, IID_IUnknown, &out), S_OK);
  auto* inner = static_cast<IUnknown*>(out);
  ASSERT_EQ(inner->QueryInterface(IID_IMediaDecoderMgr, &out), S_OK);
  EXPECT_EQ(static_cast<IMediaDecoderMgr*>(out)->AddRef(), 7U);
  EXPECT_EQ(inner->Release(), 0U);
}

#endif

}  // namespace
}  // namespace zel::test
