// The object base, the ids and the class factory, with a table of classes of the test's own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "zel/base/ClassFactory.h"
#include "zel/base/EntryPoints.h"
#include "zel/base/Ids.h"
#include "zel/base/Unknown.h"

namespace {

const _GUID kGadgetInterface = {1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
const _GUID kGadgetClass = {2, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
const _GUID kFailingClass = {3, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
const _GUID kThrowingClass = {4, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
const _GUID kUnknownId = {9, 9, 9, {9, 9, 9, 9, 9, 9, 9, 9}};

class IGadget : public IUnknown {
 public:
  virtual int Answer() = 0;
};

class IOther : public IUnknown {
 public:
  virtual int Other() = 0;
};

const _GUID kOtherInterface = {5, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};

int g_alive = 0;

class Gadget : public scombase::CUnknown, public IGadget, public IOther {
 public:
  explicit Gadget(IUnknown* outer) : CUnknown(outer) { ++g_alive; }
  Gadget(IUnknown* outer, long* phr) : CUnknown(outer, phr) { ++g_alive; }
  ~Gadget() override {
    // A destructor that lends out the object must not destroy it again.
    NonDelegatingAddRef();
    NonDelegatingRelease();
    --g_alive;
  }
  HRESULT NonDelegatingQueryInterface(const _GUID& riid, void** ppv) override {
    if (ppv == nullptr) return E_POINTER;
    *ppv = nullptr;
    if (ZelIsEqualGUID(riid, kGadgetInterface)) {
      return scombase::GetInterface(static_cast<IGadget*>(this), ppv);
    }
    if (ZelIsEqualGUID(riid, kOtherInterface)) {
      return scombase::GetInterface(static_cast<IOther*>(this), ppv);
    }
    return CUnknown::NonDelegatingQueryInterface(riid, ppv);
  }
  HRESULT QueryInterface(const _GUID& riid, void** ppv) override {
    return GetOwner()->QueryInterface(riid, ppv);
  }
  ULONG AddRef() override { return GetOwner()->AddRef(); }
  ULONG Release() override { return GetOwner()->Release(); }
  int Answer() override { return 42; }
  int Other() override { return 43; }
};

// An outer object that counts what reaches it and refuses every id but its own.
class Outer : public IUnknown {
 public:
  HRESULT QueryInterface(const _GUID& riid, void** ppv) override {
    ++queries;
    if (!ZelIsEqualGUID(riid, IID_IUnknown)) {
      *ppv = nullptr;
      return E_NOINTERFACE;
    }
    *ppv = this;
    ++count;
    return S_OK;
  }
  ULONG AddRef() override { return static_cast<ULONG>(++count); }
  ULONG Release() override { return static_cast<ULONG>(--count); }
  int queries = 0;
  int count = 0;
};

struct Throwing : scombase::CUnknown {
  Throwing(IUnknown* outer, long* phr) : CUnknown(outer, phr) { throw std::bad_alloc(); }
};

scombase::CUnknown* Fail(IUnknown*, long* phr) {
  *phr = E_INVALIDARG;
  return nullptr;
}

template <class I>
I* Query(IUnknown* object, const _GUID& id) {
  void* found = nullptr;
  return ZelSucceeded(object->QueryInterface(id, &found)) ? static_cast<I*>(found) : nullptr;
}

ULONG CountOf(IUnknown* object) {
  object->AddRef();
  return object->Release();
}

IClassFactory* FactoryOf(const _GUID& clsid, const _GUID& iid = IID_IClassFactory) {
  void* factory = nullptr;
  EXPECT_EQ(DllGetClassObject(clsid, iid, &factory), S_OK);
  return static_cast<IClassFactory*>(factory);
}

}  // namespace

const CFactoryTemplate g_Templates[] = {
    {L"Gadget", &kGadgetClass, CreateInstance<Gadget>},
    {L"Failing", &kFailingClass, Fail},
    {L"Throwing", &kThrowingClass, CreateInstance<Throwing>},
    {L"Second of the same id", &kGadgetClass, Fail},
};
const int g_cTemplates = 4;

TEST(Unknown, CountsAndDestroysOnce) {
  auto* gadget = new Gadget(nullptr);
  EXPECT_EQ(gadget->NonDelegatingAddRef(), 1u);
  EXPECT_EQ(gadget->AddRef(), 2u);
  EXPECT_EQ(gadget->Release(), 1u);
  EXPECT_EQ(g_alive, 1);
  EXPECT_EQ(gadget->Release(), 0u);
  EXPECT_EQ(g_alive, 0);
}

TEST(Unknown, AnswersByIdAndReportsNullPointers) {
  auto* gadget = new Gadget(nullptr);
  gadget->AddRef();
  IGadget* face = gadget;
  EXPECT_EQ(face->QueryInterface(kGadgetInterface, nullptr), E_POINTER);
  EXPECT_EQ(gadget->scombase::CUnknown::NonDelegatingQueryInterface(IID_IUnknown, nullptr),
            E_POINTER);
  EXPECT_EQ(scombase::GetInterface(face, nullptr), E_POINTER);
  void* out = gadget;
  EXPECT_EQ(face->QueryInterface(kUnknownId, &out), E_NOINTERFACE);
  EXPECT_EQ(out, nullptr);

  auto* root = Query<IUnknown>(face, IID_IUnknown);
  EXPECT_EQ(static_cast<void*>(root), static_cast<scombase::INonDelegatingUnknown*>(gadget));
  EXPECT_EQ(gadget->GetRefCount(), 2);
  auto* other = Query<IOther>(root, kOtherInterface);
  ASSERT_NE(other, nullptr);
  EXPECT_EQ(other->Other(), 43);
  EXPECT_EQ(gadget->GetRefCount(), 3);
  other->Release();
  root->Release();
  EXPECT_EQ(gadget->Release(), 0u);
}

TEST(Unknown, FacesOfAnAggregatedObjectReachTheOuterOne) {
  Outer outer;
  auto* gadget = new Gadget(&outer);
  gadget->NonDelegatingAddRef();
  IOther* face = gadget;
  EXPECT_EQ(Query<IGadget>(face, kGadgetInterface), nullptr);
  EXPECT_EQ(outer.queries, 1);
  EXPECT_EQ(face->AddRef(), 1u);
  EXPECT_EQ(gadget->GetRefCount(), 1);
  void* inner = nullptr;
  EXPECT_EQ(gadget->NonDelegatingQueryInterface(kGadgetInterface, &inner), S_OK);
  EXPECT_EQ(outer.count, 2) << "references on an inner face are the outer object's";
  EXPECT_EQ(gadget->GetRefCount(), 1);
  EXPECT_EQ(gadget->NonDelegatingRelease(), 0u);
  EXPECT_EQ(g_alive, 0);
}

TEST(Unknown, TellsObjectsApart) {
  auto* first = new Gadget(nullptr);
  auto* second = new Gadget(nullptr);
  first->AddRef();
  second->AddRef();
  IGadget* gadgetFace = first;
  IOther* otherFace = first;
  EXPECT_EQ(scombase::IsEqualObject(gadgetFace, otherFace), 1);
  EXPECT_EQ(scombase::IsEqualObject(gadgetFace, static_cast<IOther*>(second)), 0);
  EXPECT_EQ(scombase::IsEqualObject(gadgetFace, nullptr), 0);
  EXPECT_EQ(first->GetRefCount(), 1);
  EXPECT_EQ(second->GetRefCount(), 1);

  struct Refusing : Outer {
    HRESULT QueryInterface(const _GUID&, void**) override {
      ++queries;
      return E_NOINTERFACE;
    }
  } refusing;
  EXPECT_EQ(scombase::IsEqualObject(&refusing, &refusing), 1);
  EXPECT_EQ(refusing.queries, 0) << "the same pointer needs no question";
  EXPECT_EQ(scombase::IsEqualObject(&refusing, gadgetFace), 0);
  EXPECT_EQ(scombase::IsEqualObject(gadgetFace, &refusing), 0);
  first->Release();
  second->Release();
}

TEST(Unknown, ReferencesMayChangeOnManyThreads) {
  auto* gadget = new Gadget(nullptr);
  gadget->AddRef();
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([gadget] {
      for (int n = 0; n < 5000; ++n) {
        EXPECT_GE(gadget->AddRef(), 1u);
        gadget->Release();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(gadget->GetRefCount(), 1);
  EXPECT_EQ(gadget->Release(), 0u);
}

TEST(Ids, TextAndConstantAgree) {
  struct Row {
    _GUID (*byText)();
    const _GUID& constant;
    const wchar_t* text;
  };
  const Row rows[] = {
#define ROW(Interface, text) {&uuidof_class<Interface>::get_guid, IID_##Interface, L##text}
      ROW(IZelSample, "141440F3-0452-423f-8AEF-AFDC90C0A207"),
      ROW(IAudioCompositor, "4A241910-B213-4456-94E2-EBD09EDED4A2"),
      ROW(IMediaStream, "E6C172B0-6D74-438f-81E0-433D92B2A627"),
      ROW(IStreamInfo, "58FE100C-DCD4-49db-9930-326174CC0ECC"),
      ROW(ISubPicStreamInfo, "FB73C029-B0BD-4cbb-A0CE-971E64D4BDD4"),
      ROW(IProgramInfo, "F5FA588B-55AF-4fa9-8913-323CFF39C231"),
      ROW(IStreamInfos, "5DD650C8-40A3-4d0d-B460-0BA5804A1AAD"),
      ROW(IProgramInfos, "E04C85FD-D887-4716-8D7A-D18A17CE60EC"),
      ROW(ISubPicStreamInfos, "4291F08A-95C4-45c3-AF5B-1CC55A3F2CF7"),
      ROW(IMediaInfo, "10CA4A98-A525-42a5-9282-DD64406261B2"),
      ROW(IMediaSetting, "C69C2F2A-1C48-47e4-B3E6-0A23164EF49A"),
      ROW(IMediaSettingInternal, "4C4A0793-5531-4700-A16A-FEC2D15DF63B"),
#undef ROW
  };
  std::vector<std::thread> threads;  // The first calls of all, at once.
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&rows] {
      for (const Row& row : rows) EXPECT_TRUE(ZelIsEqualGUID(row.byText(), row.constant));
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (const Row& row : rows) {
    _GUID parsed{};
    EXPECT_EQ(CLSIDFromString(row.text, &parsed), S_OK);
    EXPECT_TRUE(ZelIsEqualGUID(parsed, row.constant));
  }
  const unsigned char bytes[16] = {0xa7, 0x22, 0x9d, 0x6c, 0xa2, 0xa4, 0xcc, 0x48,
                                   0x84, 0xfe, 0x27, 0x3d, 0x41, 0x26, 0x51, 0x18};
  EXPECT_EQ(std::memcmp(&CLSID_CAudioCompositor, bytes, 16), 0);
}

TEST(Ids, ParserTakesOnlyTheOneForm) {
  _GUID id{};
  EXPECT_EQ(CLSIDFromString(L"{8EDEE5C0-2AA2-4fcd-9848-B366681BC25A}", &id), S_OK);
  EXPECT_TRUE(ZelIsEqualGUID(id, CLSID_CMediaDecoderMgr));
  EXPECT_EQ(CLSIDFromString(nullptr, &id), E_POINTER);
  EXPECT_EQ(CLSIDFromString(L"", nullptr), E_POINTER);
  for (const wchar_t* text :
       {L"", L"{", L"8EDEE5C0", L"8EDEE5C0-2AA2-4FCD-9848-B366681BC25",
        L"8EDEE5C0-2AA2-4FCD-9848-B366681BC25A0", L"8EDEE5C0-2AA2-4FCD-9848-B366681BC25A}",
        L"{8EDEE5C0-2AA2-4FCD-9848-B366681BC25A", L"8EDEE5C02-AA2-4FCD-9848-B366681BC25A",
        L"GEDEE5C0-2AA2-4FCD-9848-B366681BC25A"}) {
    EXPECT_EQ(CLSIDFromString(text, &id), E_INVALIDARG);
    EXPECT_TRUE(ZelIsEqualGUID(id, _GUID{}));
  }
}

TEST(Factory, GetClassObjectChecksItsArguments) {
  int marker = 0;
  void* out = &marker;
  EXPECT_EQ(DllGetClassObject(kGadgetClass, kGadgetInterface, &out), E_NOINTERFACE);
  EXPECT_EQ(DllGetClassObject(kUnknownId, IID_IClassFactory, &out), CLASS_E_CLASSNOTAVAILABLE);
  EXPECT_EQ(DllGetClassObject(kUnknownId, kGadgetInterface, &out), E_NOINTERFACE);
  EXPECT_EQ(out, &marker) << "left as it was";
  EXPECT_EQ(DllGetClassObject(kGadgetClass, IID_IClassFactory, nullptr), E_POINTER);
}

TEST(Factory, CountsItsReferences) {
  IClassFactory* factory = FactoryOf(kGadgetClass, IID_IUnknown);
  EXPECT_EQ(factory->AddRef(), 2u);
  auto* again = Query<IClassFactory>(factory, IID_IClassFactory);
  EXPECT_EQ(again, factory);
  void* out = factory;
  EXPECT_EQ(factory->QueryInterface(kGadgetInterface, &out), E_NOINTERFACE);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(factory->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
  EXPECT_EQ(factory->Release(), 2u);
  EXPECT_EQ(factory->Release(), 1u);
  EXPECT_EQ(factory->Release(), 0u);
}

TEST(Factory, CreatesTheFirstRowOfTheId) {
  IClassFactory* factory = FactoryOf(kGadgetClass);
  void* out = nullptr;
  ASSERT_EQ(factory->CreateInstance(nullptr, kGadgetInterface, &out), S_OK);
  factory->Release();
  auto* gadget = static_cast<IGadget*>(out);
  EXPECT_EQ(gadget->Answer(), 42);
  EXPECT_EQ(CountOf(gadget), 1u);
  EXPECT_EQ(gadget->Release(), 0u);
  EXPECT_EQ(g_alive, 0);
}

TEST(Factory, DestroysAnObjectWithoutTheInterface) {
  IClassFactory* factory = FactoryOf(kGadgetClass);
  void* out = factory;
  EXPECT_EQ(factory->CreateInstance(nullptr, kUnknownId, &out), E_NOINTERFACE);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(g_alive, 0);
  EXPECT_EQ(factory->CreateInstance(nullptr, kGadgetInterface, nullptr), E_POINTER);
  EXPECT_EQ(g_alive, 0);
  factory->Release();
}

TEST(Factory, AggregatesThroughIUnknownOnly) {
  IClassFactory* factory = FactoryOf(kGadgetClass);
  Outer outer;
  void* out = &outer;
  EXPECT_EQ(factory->CreateInstance(&outer, kGadgetInterface, &out), CLASS_E_NOAGGREGATION);
  EXPECT_EQ(out, &outer);
  ASSERT_EQ(factory->CreateInstance(&outer, IID_IUnknown, &out), S_OK);
  auto* inner = static_cast<IUnknown*>(out);
  EXPECT_EQ(CountOf(inner), 1u);
  EXPECT_EQ(outer.count, 0);
  EXPECT_EQ(inner->Release(), 0u);
  EXPECT_EQ(g_alive, 0);
  factory->Release();
}

TEST(Factory, PassesFailuresOfTheCreationOn) {
  void* out = nullptr;
  IClassFactory* failing = FactoryOf(kFailingClass);
  EXPECT_EQ(failing->CreateInstance(nullptr, IID_IUnknown, &out), E_INVALIDARG);
  failing->Release();
  IClassFactory* throwing = FactoryOf(kThrowingClass);
  EXPECT_EQ(throwing->CreateInstance(nullptr, IID_IUnknown, &out), E_OUTOFMEMORY);
  throwing->Release();
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(g_alive, 0);
}

TEST(Factory, LocksDoNotKeepTheLibrary) {
  IClassFactory* factory = FactoryOf(kGadgetClass);
  EXPECT_EQ(factory->LockServer(1), S_OK);
  EXPECT_EQ(CFactory::s_cServerLocks, 1);
  EXPECT_EQ(DllCanUnloadNow(), S_OK);
  EXPECT_EQ(factory->LockServer(0), S_OK);
  EXPECT_EQ(CFactory::s_cServerLocks, 0);
  EXPECT_EQ(DllRegisterServer(), S_OK);
  EXPECT_EQ(DllUnregisterServer(), S_OK);
  factory->Release();
}
