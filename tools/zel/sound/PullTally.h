// How many frames of a compositor were silent, and why.
#pragma once

#include <array>
#include <string>

#include "zel/base/Ref.h"
#include "zel/compositor/Diagnosis.h"

namespace zel::tool {

/// Counts what the pulls of one compositor gave.
class PullTally {
 public:
  /// Holds a reference on `compositor`. One that cannot tell has no counts.
  explicit PullTally(IUnknown* compositor);

  /// Counts the last pull.
  void Note();
  /// "431: 119 silent: before the delay; 312 sound of the second source"
  std::string Text() const;

 private:
  Ref<ICompositorDiagnosis> diagnosis_;
  std::array<long long, kPullResults> counts_ = {};
};

}  // namespace zel::tool
