// The choice of a room's kernels: a table of function pointers for each level.
#pragma once

#include "zel/detail/Level.h"

namespace zel {

/// A room's tables, in the order of Level. A level without a table (null), such as one of another
/// architecture, has the kernels of the level below it. Level::kPlain always has one.
template <typename Kernels>
struct LevelTables {
  const Kernels* of[kLevelCount];

  const Kernels& For(Level level) const {
    int i = static_cast<int>(level);
    while (of[i] == nullptr) --i;
    return *of[i];
  }
  /// The kernels in use.
  const Kernels& Active() const { return For(ActiveLevel()); }
};

}  // namespace zel
