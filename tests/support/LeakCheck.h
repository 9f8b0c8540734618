// Tests whose memory is counted: leaks, and each allocation failing in turn.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <string>

#include "tests/support/Allocations.h"
#include "zel/platform/COMSupport.h"

/// Every test ends with as many live allocations as it began with.
class LeakCheck : public testing::Test {
 protected:
  LeakCheck() {
    { SCOPED_TRACE("The first one makes room for all."); }
    live_ = LiveAllocations();
  }
  ~LeakCheck() override { EXPECT_EQ(LiveAllocations(), live_); }

 private:
  long live_ = 0;
};

/// A string that an interface handed out, freed.
inline std::wstring Take(wchar_t* text) {
  if (text == nullptr) return L"(null)";
  std::wstring copy = text;
  SysFreeString(text);
  return copy;
}

/// Runs `operation`, which tells whether it succeeded, with its first, second, ... allocation
/// failing, and `check` after each failure. Returns the number of failures.
inline int FailEachAllocation(const std::function<bool()>& operation,
                              const std::function<void()>& check) {
  for (int failures = 0; failures < 100; ++failures) {
    bool succeeded = false;
    FailAllocationAfter(failures);
    try {
      succeeded = operation();
    } catch (const std::bad_alloc&) {
    }
    FailAllocationAfter(-1);
    if (succeeded) return failures;
    check();
  }
  ADD_FAILURE() << "It does not succeed.";
  return -1;
}
