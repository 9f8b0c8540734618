// The object base, the ids and the class factory, with a table of classes of the test's own.
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "zel/base/ClassFactory.h"
#include "zel/base/Component.h"
#include "zel/base/EntryPoints.h"
#include "zel/mediainfo/ProgramInfo.h"

const _GUID kGadgetClass = {2, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
const _GUID kFailingClass = {3, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
const _GUID kThrowingClass = {4, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
const _GUID kUnknownId = {9, 9, 9, {9, 9, 9, 9, 9, 9, 9, 9}};

namespace {

using zel::Ref;

int g_alive = 0;

struct Gadget : zel::Component<IStreamInfos, IProgramInfos> {
  explicit Gadget(IUnknown* outer = nullptr, long* /*phr*/ = nullptr) : Component(outer) {
    ++g_alive;
  }
  ~Gadget() override {
    // A destructor that lends out the object must not destroy it again.
    NonDelegatingAddRef();
    NonDelegatingRelease();
    --g_alive;
  }
  int GetCount() override { return 42; }
  HRESULT GetItem(int, IStreamInfo**) override { return 43; }
  HRESULT GetItem(int, IProgramInfo**) override { return 44; }
};

struct Refusing : Gadget {
  HRESULT NonDelegatingQueryInterface(const _GUID&, void**) override {
    ++queries;
    return E_NOINTERFACE;
  }
  int queries = 0;
};

struct Throwing : scombase::CUnknown {
  Throwing(IUnknown* outer, long* phr) : CUnknown(outer, phr) { throw std::bad_alloc(); }
};

scombase::CUnknown* Fail(IUnknown*, long* phr) {
  *phr = E_INVALIDARG;
  return nullptr;
}

Ref<IClassFactory> FactoryOf(const _GUID& clsid) {
  Ref<IClassFactory> factory;
  EXPECT_EQ(DllGetClassObject(clsid, IID_IClassFactory, factory.ReceiveVoid()), S_OK);
  return factory;
}

}  // namespace

const CFactoryTemplate g_Templates[] = {
    {L"Gadget", &kGadgetClass, CreateInstance<Gadget>},
    {L"Failing", &kFailingClass, Fail},
    {L"Throwing", &kThrowingClass, CreateInstance<Throwing>},
    {L"Second of the same id", &kGadgetClass, Fail},
};
const int g_cTemplates = 4;

TEST(Unknown, CountsAnswersByIdAndIsDestroyedOnce) {
  auto* gadget = new Gadget;
  EXPECT_EQ(gadget->NonDelegatingAddRef(), 1U);
  EXPECT_EQ(gadget->AddRef(), 2U);
  EXPECT_EQ(gadget->Release(), 1U);
  EXPECT_EQ(gadget->QueryInterface(IID_IStreamInfos, nullptr), E_POINTER);
  EXPECT_EQ(gadget->CUnknown::NonDelegatingQueryInterface(IID_IUnknown, nullptr), E_POINTER);
  EXPECT_EQ(scombase::GetInterface(static_cast<IProgramInfos*>(gadget), nullptr), E_POINTER);
  void* out = gadget;
  EXPECT_EQ(gadget->CUnknown::NonDelegatingQueryInterface(kUnknownId, &out), E_NOINTERFACE);
  EXPECT_EQ(out, nullptr);
  Ref<IUnknown> root;
  EXPECT_EQ(gadget->QueryInterface(IID_IUnknown, root.ReceiveVoid()), S_OK);
  EXPECT_EQ(static_cast<void*>(root.get()), static_cast<scombase::INonDelegatingUnknown*>(gadget));
  Ref<IProgramInfos> other;
  ASSERT_EQ(root->QueryInterface(IID_IProgramInfos, other.ReceiveVoid()), S_OK);
  EXPECT_EQ(other->GetItem(0, nullptr), 44);
  EXPECT_EQ(gadget->GetRefCount(), 3);
  root = nullptr;
  other = nullptr;
  EXPECT_EQ(g_alive, 1);
  EXPECT_EQ(gadget->Release(), 0U);
  EXPECT_EQ(g_alive, 0);
}

TEST(Unknown, TellsObjectsApart) {
  const auto first = zel::MakeComponent<Gadget>();
  const auto second = zel::MakeComponent<Gadget>();
  const auto refusing = zel::MakeComponent<Refusing>();
  IStreamInfos* face = first.get();
  IStreamInfos* another = second.get();
  IStreamInfos* noFace = refusing.get();
  EXPECT_EQ(scombase::IsEqualObject(face, static_cast<IProgramInfos*>(first.get())), 1);
  EXPECT_EQ(scombase::IsEqualObject(noFace, noFace), 1);
  EXPECT_EQ(refusing->queries, 0) << "the same pointer needs no question";
  for (IStreamInfos* other : {another, noFace, static_cast<IStreamInfos*>(nullptr)}) {
    EXPECT_EQ(scombase::IsEqualObject(face, other) + scombase::IsEqualObject(other, face), 0);
  }
  EXPECT_EQ(first->GetRefCount() + second->GetRefCount(), 2);
}

TEST(Ref, HoldsOneReference) {
  const auto gadget = zel::MakeComponent<Gadget>();
  auto shared = Ref<Gadget>::Share(gadget.get());
  Ref<Gadget> copy = shared;
  EXPECT_EQ(copy->GetRefCount(), 3);
  Ref<Gadget> moved = std::move(copy);
  shared = nullptr;
  EXPECT_EQ((*moved).GetRefCount(), 2);
  shared = Ref<Gadget>::Adopt(moved.Detach());
  EXPECT_FALSE(moved);
  *shared.Receive() = nullptr;  // What it held is released.
  EXPECT_EQ(gadget->GetRefCount(), 1);
}

TEST(Ids, TextAndConstantAgree) {
  const std::pair<_GUID (*)(), const _GUID*> ids[] = {
#define ID(Interface) {&uuidof_class<Interface>::get_guid, &IID_##Interface}
      ID(IZelSample),    ID(IAudioCompositor),  ID(IMediaStream),       ID(IStreamInfo),
      ID(IProgramInfo),  ID(ISubPicStreamInfo), ID(IStreamInfos),       ID(IMediaInfo),
      ID(IProgramInfos), ID(IMediaSetting),     ID(ISubPicStreamInfos), ID(IMediaSettingInternal),
#undef ID
  };
  for (const auto& [byText, constant] : ids) EXPECT_TRUE(ZelIsEqualGUID(byText(), *constant));
}

TEST(Ids, ParserTakesOnlyTheOneForm) {
  _GUID id{};
  EXPECT_EQ(CLSIDFromString(L"{8EDEE5C0-2AA2-4fcd-9848-B366681BC25A}", &id), S_OK);
  EXPECT_TRUE(ZelIsEqualGUID(id, CLSID_CMediaDecoderMgr));
  EXPECT_EQ(CLSIDFromString(L"6C9D22A7-A4A2-48CC-84FE-273D41265118", &id), S_OK);
  EXPECT_TRUE(ZelIsEqualGUID(id, CLSID_CAudioCompositor));
  EXPECT_EQ(CLSIDFromString(nullptr, &id), E_POINTER);
  EXPECT_EQ(CLSIDFromString(L"", nullptr), E_POINTER);
  const std::wstring right = L"8EDEE5C0-2AA2-4FCD-9848-B366681BC25A";
  for (const std::wstring& text :
       {std::wstring(), std::wstring(L"{"), right.substr(0, 8), right.substr(0, 35), right + L"0",
        right + L"}", L"{" + right, L"8EDEE5C02-AA2" + right.substr(13), L"G" + right.substr(1)}) {
    EXPECT_EQ(CLSIDFromString(text.c_str(), &id), E_INVALIDARG);
    EXPECT_TRUE(ZelIsEqualGUID(id, _GUID{}));
  }
}

TEST(Factory, IsFoundByClassAndCounted) {
  int marker = 0;
  void* out = &marker;
  EXPECT_EQ(DllGetClassObject(kGadgetClass, IID_IStreamInfos, &out), E_NOINTERFACE);
  EXPECT_EQ(DllGetClassObject(kUnknownId, IID_IClassFactory, &out), CLASS_E_CLASSNOTAVAILABLE);
  EXPECT_EQ(DllGetClassObject(kUnknownId, IID_IStreamInfos, &out), E_NOINTERFACE);
  EXPECT_EQ(out, &marker) << "left as it was";
  EXPECT_EQ(DllGetClassObject(kGadgetClass, IID_IClassFactory, nullptr), E_POINTER);

  ASSERT_EQ(DllGetClassObject(kGadgetClass, IID_IUnknown, &out), S_OK);
  auto* factory = static_cast<IClassFactory*>(out);
  EXPECT_EQ(factory->AddRef(), 2U);
  ASSERT_EQ(factory->QueryInterface(IID_IClassFactory, &out), S_OK);
  EXPECT_EQ(out, factory);
  EXPECT_EQ(factory->QueryInterface(IID_IStreamInfos, &out), E_NOINTERFACE);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(factory->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
  for (const ULONG left : {2U, 1U, 0U}) EXPECT_EQ(factory->Release(), left);
}

TEST(Factory, CreatesTheFirstRowOfTheIdOrNothing) {
  const auto factory = FactoryOf(kGadgetClass);
  Ref<IStreamInfos> gadget;
  ASSERT_EQ(factory->CreateInstance(nullptr, IID_IStreamInfos, gadget.ReceiveVoid()), S_OK);
  EXPECT_EQ(gadget->GetCount(), 42);

  void* out = &gadget;
  EXPECT_EQ(factory->CreateInstance(nullptr, kUnknownId, &out), E_NOINTERFACE);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(factory->CreateInstance(nullptr, IID_IStreamInfos, nullptr), E_POINTER);
  EXPECT_EQ(FactoryOf(kFailingClass)->CreateInstance(nullptr, IID_IUnknown, &out), E_INVALIDARG);
  EXPECT_EQ(FactoryOf(kThrowingClass)->CreateInstance(nullptr, IID_IUnknown, &out), E_OUTOFMEMORY);
  EXPECT_EQ(g_alive, 1);

  IStreamInfos* outer = gadget.get();
  out = outer;
  EXPECT_EQ(factory->CreateInstance(outer, IID_IStreamInfos, &out), CLASS_E_NOAGGREGATION);
  EXPECT_EQ(out, outer);
  Ref<IUnknown> inner;
  Ref<IStreamInfos> face, outerFace;
  ASSERT_EQ(factory->CreateInstance(outer, IID_IUnknown, inner.ReceiveVoid()), S_OK);
  ASSERT_EQ(inner->QueryInterface(IID_IStreamInfos, face.ReceiveVoid()), S_OK);
  EXPECT_NE(face.get(), outer);
  EXPECT_EQ(face->QueryInterface(IID_IStreamInfos, outerFace.ReceiveVoid()), S_OK);
  EXPECT_EQ(outerFace.get(), outer);
  EXPECT_EQ(static_cast<Gadget*>(outer)->GetRefCount(), 3) << "the inner face's one, too";
  face = outerFace = nullptr;
  EXPECT_EQ(inner.Detach()->Release(), 0U);
  EXPECT_EQ(gadget.Detach()->Release(), 0U);
  EXPECT_EQ(g_alive, 0);
}

TEST(Factory, LocksDoNotKeepTheLibrary) {
  const auto factory = FactoryOf(kGadgetClass);
  for (const BOOL lock : {2, 0}) {
    EXPECT_EQ(factory->LockServer(lock), S_OK);
    EXPECT_EQ(CFactory::s_cServerLocks, lock != 0 ? 1 : 0);
    EXPECT_EQ(DllCanUnloadNow(), S_OK);
  }
  EXPECT_EQ(DllRegisterServer(), S_OK);
  EXPECT_EQ(DllUnregisterServer(), S_OK);
}
