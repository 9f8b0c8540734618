// Which interfaces an object hands out.
#pragma once

#include <gtest/gtest.h>

#include "zel/base/Ids.h"
#include "zel/base/Ref.h"
#include "zel/base/Unknown.h"

/// Expects `object`, which has a count of 1, to hand out its faces `I...` and IUnknown, with a
/// reference each, and not the interface `other`.
template <class... I, class C>
void ExpectFaces(C& object, const _GUID& other) {
  const auto expectFace = [&](const _GUID& id, const void* face) {
    zel::Ref<IUnknown> found;
    ASSERT_EQ(object.QueryInterface(id, found.ReceiveVoid()), S_OK);
    EXPECT_EQ(static_cast<void*>(found.get()), face);
    EXPECT_EQ(object.GetRefCount(), 2);
  };
  (expectFace(uuidof_class<I>::get_guid(), static_cast<I*>(&object)), ...);
  expectFace(IID_IUnknown, static_cast<scombase::INonDelegatingUnknown*>(&object));
  void* none = &object;
  EXPECT_EQ(object.QueryInterface(other, &none), E_NOINTERFACE);
  EXPECT_EQ(none, nullptr);
  EXPECT_EQ(object.QueryInterface(IID_IUnknown, nullptr), E_POINTER);
}
