// The compositor's diagnosis: what it has to say, and the interface that says it.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

#include "zel/compositor/Diagnosis.h"

class CAudioCompositor;

namespace zel {

/// A member of the compositor that stands beside its bases, so that their order and their tables
/// stay. QueryInterface, AddRef and Release are the compositor's.
///
/// Threads: any thread may call anything, except NotePull, HasNewPull and ReportPull, which belong
/// to the pulling thread. guard_ is taken last, and nothing is called with it held.
class DiagnosisFace final : public ICompositorDiagnosis {
 public:
  explicit DiagnosisFace(CAudioCompositor& compositor) : compositor_(compositor) {}
  DiagnosisFace(const DiagnosisFace&) = delete;
  DiagnosisFace& operator=(const DiagnosisFace&) = delete;
  ~DiagnosisFace() = default;

  HRESULT QueryInterface(const _GUID& riid, void** ppv) override;
  ULONG AddRef() override;
  ULONG Release() override;
  HRESULT GetDiagnosis(SDiagnosis* now) override;
  HRESULT WaitForLoad(std::uint32_t timeoutMs) override;
  HRESULT SetCallback(DiagnosisCallback callback, void* context) override;

  /// A file was accepted.
  void BeginLoad();
  /// A load has ended. @param isMore whether another name waits.
  void EndLoad(LOAD_RESULT result, HRESULT code, bool isMore);
  /// Reports the end of a load to the callback.
  void ReportLoad();
  /// No load is under way any more.
  void EndLoading();
  /// The second source was dropped on purpose: that there is none is not a load's fault.
  void ForgetFailure();

  /// What a frame is without a second source.
  PULL_RESULT WithoutSource() const { return withoutSource_.load(std::memory_order_relaxed); }
  /// Notes what a pull gave.
  void NotePull(PULL_RESULT result) { pull_.store(result, std::memory_order_relaxed); }
  /// Tells whether the last pull gave something else than the one that was reported.
  bool HasNewPull() const { return pull_.load(std::memory_order_relaxed) != reportedPull_; }
  /// Reports the last pull to the callback.
  void ReportPull();
  /// Tells whether the calling thread is inside ReportPull.
  bool IsReportingPull() const {
    return pullReporter_.load(std::memory_order_relaxed) == std::this_thread::get_id();
  }

 private:
  void Call(DIAGNOSIS_EVENT event);

  CAudioCompositor& compositor_;
  std::atomic<PULL_RESULT> pull_ = PULL_NONE;
  std::atomic<PULL_RESULT> withoutSource_ = PULL_PASSED_NO_SOURCE;
  PULL_RESULT reportedPull_ = PULL_NONE;
  std::atomic<std::thread::id> pullReporter_;

  std::mutex guard_;  // Guards all that follows.
  std::condition_variable changed_;
  SDiagnosis loads_ = {};      // All of it but the pull.
  bool isLoaderBusy_ = false;  // From BeginLoad to EndLoading.
  int unreported_ = 0;         // Loads from EndLoad to the end of ReportLoad.
  int calls_ = 0;              // Calls to the callback that are under way.
  DiagnosisCallback callback_ = nullptr;
  void* context_ = nullptr;
};

}  // namespace zel
