// A platform of somebody else's: how its libraries tell that they were really called.
#pragma once

#include <atomic>

#include "zel/platform/Types.h"

/// Counts the calls of the exported function NAME in the exported counter NAME_calls.
#define FOREIGN_COUNTER(NAME)                       \
  extern "C" ZEL_API std::atomic<int> NAME##_calls; \
  std::atomic<int> NAME##_calls = 0
