#include "tools/zel/sound/PullTally.h"

#include <cstddef>
#include <numeric>

namespace zel::tool {

PullTally::PullTally(IUnknown* compositor) {
  compositor->QueryInterface(IID_ICompositorDiagnosis, diagnosis_.ReceiveVoid());
}

void PullTally::Note() {
  SDiagnosis now = {};
  if (!diagnosis_ || diagnosis_->GetDiagnosis(&now) != S_OK) return;
  // Another library than the one that came with the command may know more results.
  if (now.pull >= 0 && now.pull < kPullResults) ++counts_[static_cast<std::size_t>(now.pull)];
}

std::string PullTally::Text() const {
  std::string text = std::to_string(std::accumulate(counts_.begin(), counts_.end(), 0LL));
  const char* separator = ": ";
  for (std::size_t i = 0; i < counts_.size(); ++i) {
    if (counts_[i] == 0) continue;
    text += separator + std::to_string(counts_[i]) + ' ';
    text += DiagnosisText(static_cast<PULL_RESULT>(i));
    separator = "; ";
  }
  return text;
}

}  // namespace zel::tool
