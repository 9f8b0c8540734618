#include "zel/compositor/detail/BaseThread.h"

#include <unistd.h>

#include <chrono>
#include <memory>
#include <new>

#include "zel/platform/Types.h"

SyncEvent::SyncEvent() : m_signaled(1), m_manualReset(1) {
  pthread_mutex_init(&m_mutex, nullptr);
}

SyncEvent::~SyncEvent() {
  pthread_mutex_destroy(&m_mutex);
}

void SyncEvent::Store(std::int32_t signaled) {
  const CSingleLock lock(&m_mutex);
  m_signaled.store(signaled, std::memory_order_release);
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
  while (m_signaled.load(std::memory_order_acquire) == 0) {
    if (timeoutMs == 0) return WAIT_TIMEOUT;
    if (timeoutMs != kWaitForever && std::chrono::steady_clock::now() - start >= limit) {
      return WAIT_TIMEOUT;
    }
    usleep(10'000);
  }
  if (m_manualReset == 0) Clear();
  return 0;
}

CSingleLock::CSingleLock(pthread_mutex_t* mutex) : m_pMutex(mutex), m_bLocked(1) {
  pthread_mutex_lock(m_pMutex);
}

CSingleLock::~CSingleLock() {
  Unlock();
}

void CSingleLock::Unlock() {
  if (m_bLocked != 1) return;
  pthread_mutex_unlock(m_pMutex);
  m_bLocked = 0;
}

BaseThread::BaseThread() {
  auto stopEvent = std::make_unique<SyncEvent>();
  m_pExitEvent = new SyncEvent;
  m_pStopEvent = stopEvent.release();
}

BaseThread::~BaseThread() {
  Abort();
  Wait(kWaitForever);
  Join();
  m_nPauseCount = 0;
  m_state = kIdle;
  delete m_pStopEvent;
  delete m_pExitEvent;
}

bool BaseThread::IsActive() const {
  const State state = GetState();
  return state == kRunning || state == kPaused;
}

BaseThread::State BaseThread::GetState() const {
  return m_state.load(std::memory_order_acquire);
}

SyncEvent* BaseThread::GetStopEvent() {
  return m_pStopEvent;
}

int BaseThread::Start() {
  if (IsActive()) return 0;
  Join();  // A run that ended by itself has left its thread behind.
  m_pStopEvent->Clear();
  m_pExitEvent->Clear();

  // The state comes first: a short run may have ended before pthread_create returns.
  const State before = m_state.exchange(kRunning);
  m_nPauseCount = 0;
  m_pThread = new (std::nothrow) pthread_t{};
  bool created = false;
  pthread_attr_t attributes;
  if (m_pThread != nullptr && pthread_attr_init(&attributes) == 0) {
    created = pthread_create(m_pThread, &attributes, thread_func, this) == 0;
    pthread_attr_destroy(&attributes);
  }
  if (!created) {
    delete m_pThread;
    m_pThread = nullptr;
    m_pStopEvent->Set();
    m_pExitEvent->Set();
    m_state = before;
    return 0;
  }
  usleep(1'000);  // A first chance for the new thread.
  return 1;
}

void* BaseThread::thread_func(void* arg) {
  if (arg == nullptr) return nullptr;
  auto* self = static_cast<BaseThread*>(arg);
  self->svc();
  self->m_pExitEvent->Set();
  self->m_state.store(kFinished, std::memory_order_release);
  return nullptr;
}

int BaseThread::svc() {
  for (;;) {
    while (GetState() == kPaused) usleep(10'000);
    if (m_pStopEvent == nullptr || m_pStopEvent->Wait(0) == 0) return 0;
  }
}

int BaseThread::Abort() {
  if (!IsActive()) return 0;
  m_pStopEvent->Set();
  if (m_nPauseCount > 0) {
    m_nPauseCount = 0;
    m_state = kRunning;  // Lets a held body see the stop event.
  }
  return 1;
}

unsigned BaseThread::Wait(unsigned timeoutMs) {
  if (!IsActive()) return 0;
  const unsigned result = m_pExitEvent->Wait(timeoutMs);
  if (result != 0) return result;
  Join();
  return 0;
}

int BaseThread::Stop() {
  if (!IsActive()) return 0;
  Abort();
  // The run may end between the lines; it is waited for and joined all the same.
  m_pExitEvent->Wait(kWaitForever);
  Join();
  return 1;
}

void BaseThread::Join() {
  if (m_pThread == nullptr) return;
  pthread_join(*m_pThread, nullptr);
  delete m_pThread;
  m_pThread = nullptr;
}
