#include "zel/compositor/detail/DiagnosisFace.h"

#include <chrono>

#include "zel/compositor/detail/CompositorImpl.h"

namespace zel {
namespace {

// Callbacks that the thread is inside of, of any compositor. A thread that waited for callbacks
// from inside one might wait for itself.
thread_local int t_callbacks = 0;

}  // namespace

HRESULT DiagnosisFace::QueryInterface(const _GUID& riid, void** ppv) {
  return compositor_.GetOwner()->QueryInterface(riid, ppv);
}

ULONG DiagnosisFace::AddRef() {
  return compositor_.GetOwner()->AddRef();
}
ULONG DiagnosisFace::Release() {
  return compositor_.GetOwner()->Release();
}

HRESULT DiagnosisFace::GetDiagnosis(SDiagnosis* now) {
  if (now == nullptr) return E_POINTER;
  const std::lock_guard lock(guard_);
  *now = loads_;
  now->pull = pull_.load(std::memory_order_relaxed);
  return S_OK;
}

HRESULT DiagnosisFace::WaitForLoad(std::uint32_t timeoutMs) {
  if (t_callbacks > 0 || compositor_.IsInsideCall()) return E_ZEL_STATE;
  const auto isIdle = [this] { return !isLoaderBusy_ && unreported_ == 0; };
  std::unique_lock lock(guard_);
  if (timeoutMs == kWaitForever) {
    changed_.wait(lock, isIdle);
    return S_OK;
  }
  return changed_.wait_for(lock, std::chrono::milliseconds(timeoutMs), isIdle) ? S_OK : S_FALSE;
}

HRESULT DiagnosisFace::SetCallback(DiagnosisCallback callback, void* context) {
  std::unique_lock lock(guard_);
  callback_ = callback;
  context_ = context;
  if (t_callbacks > 0 || compositor_.IsInsideCall()) return S_FALSE;
  changed_.wait(lock, [this] { return calls_ == 0; });
  return S_OK;
}

void DiagnosisFace::BeginLoad() {
  const std::lock_guard lock(guard_);
  loads_.isLoading = 1;
  isLoaderBusy_ = true;
  withoutSource_ = PULL_PASSED_LOADING;
}

void DiagnosisFace::EndLoad(LOAD_RESULT result, HRESULT code, bool isMore) {
  const std::lock_guard lock(guard_);
  loads_.isLoading = isMore ? 1 : 0;
  loads_.load = result;
  loads_.loadCode = code;
  ++loads_.loads;
  ++unreported_;
  if (isMore) return;
  withoutSource_ = result == LOAD_ADDED ? PULL_PASSED_NO_SOURCE : PULL_PASSED_LOAD_FAILED;
}

void DiagnosisFace::ReportLoad() {
  Call(DIAGNOSIS_LOAD_ENDED);
  const std::lock_guard lock(guard_);
  --unreported_;
  changed_.notify_all();
}

void DiagnosisFace::EndLoading() {
  const std::lock_guard lock(guard_);
  isLoaderBusy_ = false;
  changed_.notify_all();
}

void DiagnosisFace::ForgetFailure() {
  const std::lock_guard lock(guard_);
  if (loads_.isLoading == 0) withoutSource_ = PULL_PASSED_NO_SOURCE;
}

void DiagnosisFace::ReportPull() {
  reportedPull_ = pull_.load(std::memory_order_relaxed);
  pullReporter_.store(std::this_thread::get_id(), std::memory_order_relaxed);
  Call(DIAGNOSIS_PULL_CHANGED);
  pullReporter_.store({}, std::memory_order_relaxed);
}

// Calls the callback without a lock: it may take as long as it likes, and may call back.
void DiagnosisFace::Call(DIAGNOSIS_EVENT event) {
  std::unique_lock lock(guard_);
  if (callback_ == nullptr) return;
  const DiagnosisCallback callback = callback_;
  void* const context = context_;
  SDiagnosis now = loads_;
  now.pull = pull_.load(std::memory_order_relaxed);
  ++calls_;
  lock.unlock();
  ++t_callbacks;
  callback(context, event, &now);
  --t_callbacks;
  lock.lock();
  --calls_;
  changed_.notify_all();
}

}  // namespace zel
