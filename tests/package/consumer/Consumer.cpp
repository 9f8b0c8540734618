// A host in the small: creates a compositor through the entry point that it is linked to, and
// through the one of the library that it loads from the path given as its argument.
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <cwchar>

#include <zel/zel.h>

#define CHECK(condition)                                                   \
  do {                                                                     \
    if (!(condition)) {                                                    \
      std::fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #condition); \
      std::exit(1);                                                        \
    }                                                                      \
  } while (false)

namespace {

void CreateCompositor(decltype(&DllGetClassObject) getClassObject) {
  IClassFactory* factory = nullptr;
  CHECK(getClassObject(CLSID_CAudioCompositor, IID_IClassFactory,
                       reinterpret_cast<void**>(&factory)) == S_OK);
  IAudioCompositor* compositor = nullptr;
  CHECK(factory->CreateInstance(nullptr, uuidof_class<IAudioCompositor>::get_guid(),
                                reinterpret_cast<void**>(&compositor)) == S_OK);
  CHECK(factory->Release() == 0);

  CHECK(compositor->SetDelayTime(-1.25) == S_OK && compositor->GetDelayTime() == -1.25);
  IMediaStream* output = nullptr;
  CHECK(compositor->GetOutPutAudioStream(&output) == S_OK);
  CHECK(output->GetSampleEx() == nullptr);
  IMediaStream* same = nullptr;
  CHECK(compositor->QueryInterface(IID_IMediaStream, reinterpret_cast<void**>(&same)) == S_OK);
  CHECK(same == output && scombase::IsEqualObject(compositor, output) == 1);
  CHECK(same->Release() == 2);
  CHECK(output->Release() == 1);
  CHECK(compositor->Release() == 0);
}

// A component of the host's own, on the library's base.
class Component final : public scombase::CUnknown {
 public:
  Component() : CUnknown(nullptr) {}
};

}  // namespace

int main(int argc, char** argv) {
  CHECK(argc == 2);
  CreateCompositor(&DllGetClassObject);
  void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  CHECK(library != nullptr);
  CreateCompositor(
      reinterpret_cast<decltype(&DllGetClassObject)>(dlsym(library, "DllGetClassObject")));
  CHECK(dlclose(library) == 0);

  auto* component = new Component;
  CHECK(component->NonDelegatingAddRef() == 1 && component->GetOwner()->Release() == 0);

  wchar_t* text = SysAllocString(L"owned");
  CHECK(text != nullptr && std::wcscmp(text, L"owned") == 0);
  SysFreeString(text);
}
