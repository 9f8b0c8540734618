#include "zel/compositor/detail/BaseThread.h"

#include <unistd.h>

#include <chrono>
#include <memory>
#include <new>
#include <utility>

#include "zel/platform/Types.h"

SyncEvent::SyncEvent() : signaled_(1), manual_reset_(1) {
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
  if (manual_reset_ == 0) Clear();
  return 0;
}

CSingleLock::CSingleLock(pthread_mutex_t* mutex) : mutex_(mutex), is_locked_(1) {
  pthread_mutex_lock(mutex_);
}

CSingleLock::~CSingleLock() {
  if (is_locked_ != 1) return;
  pthread_mutex_unlock(mutex_);
  is_locked_ = 0;
}

BaseThread::BaseThread() {
  auto stopEvent = std::make_unique<SyncEvent>();
  exit_event_ = new SyncEvent;
  stop_event_ = stopEvent.release();
}

BaseThread::~BaseThread() {
  Abort();
  Wait(kWaitForever);
  Join();
  pause_count_ = 0;
  state_ = kIdle;
  delete stop_event_;
  delete exit_event_;
}

bool BaseThread::IsActive() const {
  const State state = GetState();
  return state == kRunning || state == kPaused;
}

BaseThread::State BaseThread::GetState() const {
  return state_.load(std::memory_order_acquire);
}

SyncEvent* BaseThread::GetStopEvent() {
  return stop_event_;
}

int BaseThread::Start() {
  if (IsActive()) return 0;
  Join();  // A run that ended by itself has left its thread to be joined.
  stop_event_->Clear();
  exit_event_->Clear();
  // Enter the state before creating the thread: a short run may end before pthread_create returns.
  const State before = state_.exchange(kRunning);
  pause_count_ = 0;
  if (!CreateThread()) {
    stop_event_->Set();
    exit_event_->Set();
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
  self->exit_event_->Set();
  self->state_.store(kFinished, std::memory_order_release);
  return nullptr;
}

int BaseThread::svc() {
  for (;;) {
    while (GetState() == kPaused) usleep(10'000);
    if (stop_event_ == nullptr || stop_event_->Wait(0) == 0) return 0;
  }
}

int BaseThread::Abort() {
  if (!IsActive()) return 0;
  stop_event_->Set();
  if (pause_count_ > 0) {
    pause_count_ = 0;
    state_ = kRunning;  // A paused body wakes up and sees the stop event.
  }
  return 1;
}

unsigned BaseThread::Wait(unsigned timeoutMs) {
  if (!IsActive()) return 0;
  const unsigned result = exit_event_->Wait(timeoutMs);
  if (result != 0) return result;
  Join();
  return 0;
}

int BaseThread::Stop() {
  if (!IsActive()) return 0;
  Abort();
  // Not through Wait: the run may have ended by now, and its thread must be joined all the same.
  exit_event_->Wait(kWaitForever);
  Join();
  return 1;
}

void BaseThread::Join() {
  if (thread_ == nullptr) return;
  pthread_join(*thread_, nullptr);
  delete thread_;
  thread_ = nullptr;
}
