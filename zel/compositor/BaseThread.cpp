#include "zel/compositor/detail/BaseThread.h"

#include <unistd.h>

#include <chrono>
#include <memory>
#include <new>
#include <utility>

#include "zel/platform/Types.h"

SyncEvent::SyncEvent() : signaled_(1), isManualReset_(1) {
  pthread_mutex_init(&mutex_, nullptr);
}

SyncEvent::~SyncEvent() {
  pthread_mutex_destroy(&mutex_);
}

void SyncEvent::Store(std::int32_t signaled) {
  const CSingleLock lock(&mutex_);
  signaled_.store(signaled, std::memory_order_release);
}

void SyncEvent::Set() {
  Store(1);
}
void SyncEvent::Clear() {
  Store(0);
}

unsigned SyncEvent::Wait(unsigned timeoutMs) {
  const auto start = std::chrono::steady_clock::now();
  const std::chrono::milliseconds limit(timeoutMs);
  while (signaled_.load(std::memory_order_acquire) == 0) {
    if (timeoutMs == 0) return WAIT_TIMEOUT;
    if (timeoutMs != kWaitForever && std::chrono::steady_clock::now() - start >= limit) {
      return WAIT_TIMEOUT;
    }
    usleep(10'000);
  }
  if (isManualReset_ == 0) Clear();
  return 0;
}

CSingleLock::CSingleLock(pthread_mutex_t* mutex) : mutex_(mutex), isLocked_(1) {
  pthread_mutex_lock(mutex_);
}

CSingleLock::~CSingleLock() {
  if (isLocked_ != 1) return;
  pthread_mutex_unlock(mutex_);
  isLocked_ = 0;
}

BaseThread::BaseThread() {
  auto stopEvent = std::make_unique<SyncEvent>();
  exitEvent_ = new SyncEvent;
  stopEvent_ = stopEvent.release();
}

BaseThread::~BaseThread() {
  Abort();
  Wait(kWaitForever);
  Join();
  pauseCount_ = 0;
  state_ = kIdle;
  delete stopEvent_;
  delete exitEvent_;
}

bool BaseThread::IsActive() const {
  const State state = GetState();
  return state == kRunning || state == kPaused;
}

BaseThread::State BaseThread::GetState() const {
  return state_.load(std::memory_order_acquire);
}

SyncEvent* BaseThread::GetStopEvent() {
  return stopEvent_;
}

int BaseThread::Start() {
  if (IsActive()) return 0;
  Join();  // A run that ended by itself has left its thread to be joined.
  stopEvent_->Clear();
  exitEvent_->Clear();
  // Enter the state before creating the thread: a short run may end before pthread_create returns.
  const State before = state_.exchange(kRunning);
  pauseCount_ = 0;
  if (!CreateThread()) {
    stopEvent_->Set();
    exitEvent_->Set();
    state_ = before;
    return 0;
  }
  usleep(1'000);  // Gives the new thread a first chance to run.
  return 1;
}

bool BaseThread::CreateThread() {
  thread_ = new (std::nothrow) pthread_t{};
  pthread_attr_t attributes;
  bool isCreated = false;
  if (thread_ != nullptr && pthread_attr_init(&attributes) == 0) {
    isCreated = pthread_create(thread_, &attributes, thread_func, this) == 0;
    pthread_attr_destroy(&attributes);
  }
  if (!isCreated) delete std::exchange(thread_, nullptr);
  return isCreated;
}

void* BaseThread::thread_func(void* arg) {
  if (arg == nullptr) return nullptr;
  auto* self = static_cast<BaseThread*>(arg);
  self->svc();
  self->exitEvent_->Set();
  self->state_.store(kFinished, std::memory_order_release);
  return nullptr;
}

int BaseThread::svc() {
  for (;;) {
    while (GetState() == kPaused) usleep(10'000);
    if (stopEvent_ == nullptr || stopEvent_->Wait(0) == 0) return 0;
  }
}

int BaseThread::Abort() {
  if (!IsActive()) return 0;
  stopEvent_->Set();
  if (pauseCount_ > 0) {
    pauseCount_ = 0;
    state_ = kRunning;  // A paused body wakes up and sees the stop event.
  }
  return 1;
}

unsigned BaseThread::Wait(unsigned timeoutMs) {
  if (!IsActive()) return 0;
  const unsigned result = exitEvent_->Wait(timeoutMs);
  if (result != 0) return result;
  Join();
  return 0;
}

int BaseThread::Stop() {
  if (!IsActive()) return 0;
  Abort();
  // Do not call Wait here: if the run has just ended, Wait returns without joining the thread.
  exitEvent_->Wait(kWaitForever);
  Join();
  return 1;
}

void BaseThread::Join() {
  if (thread_ == nullptr) return;
  pthread_join(*thread_, nullptr);
  delete thread_;
  thread_ = nullptr;
}
