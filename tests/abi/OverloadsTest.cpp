// Operations that share a name cannot be told apart by it (see check_vtables.py), so their entries
// are read from pointers to them.
#include <gtest/gtest.h>

#include <cstring>

#include "zel/zel.h"

namespace {

/// Entry of a virtual operation in its class's table. On x86 such a pointer holds 1 + the offset.
template <class Operation>
std::size_t Entry(Operation operation) {
  std::size_t value = 0;
  static_assert(sizeof(operation) == 2 * sizeof(value));
  std::memcpy(&value, &operation, sizeof(value));
  return (value - 1) / sizeof(void*);
}

TEST(Vtables, OverloadsAreInOrder) {
  using ExtraBytes = unsigned char* (IStreamInfo::*)();
  using ExtraBlock = SStreamExtraData* (IStreamInfo::*)(unsigned long);
  EXPECT_EQ(Entry<ExtraBytes>(&IStreamInfo::GetExtraData), 23U);
  EXPECT_EQ(Entry<ExtraBlock>(&IStreamInfo::GetExtraData), 27U);

  using CopySample = HRESULT (CZelSample::*)(CZelSample&);
  using CopyFrame = HRESULT (CZelSample::*)(const MEDIA_FRAME*);
  EXPECT_EQ(Entry<CopySample>(&CZelSample::FrameCopy), 26U);
  EXPECT_EQ(Entry<CopyFrame>(&CZelSample::FrameCopy), 27U);
}

}  // namespace
