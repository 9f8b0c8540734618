// One worker thread for the object that derives from it, and the polled events that drive it.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>

/// No time-out.
constexpr unsigned kWaitForever = 0xFFFFFFFF;

/// An event that is waited for by polling, every 10 ms. Set at construction.
///
/// Threads: all operations from any thread. The mutex orders writers; waiters read the flag without
/// it.
class SyncEvent {
 public:
  SyncEvent();
  SyncEvent(const SyncEvent&) = delete;
  SyncEvent& operator=(const SyncEvent&) = delete;
  ~SyncEvent();

  void Set();
  void Clear();
  /// Waits until the event is set. A manual-reset event (all are) stays set.
  /// @param timeoutMs milliseconds; 0 looks once without sleeping; kWaitForever never gives up.
  /// @return 0, or WAIT_TIMEOUT.
  unsigned Wait(unsigned timeoutMs);

 private:
  void Store(std::int32_t signaled);

  pthread_mutex_t m_mutex;
  std::atomic<std::int32_t> m_signaled;
  std::int32_t m_manualReset;
};

/// Holds a mutex from construction until Unlock or destruction.
class CSingleLock {
 public:
  explicit CSingleLock(pthread_mutex_t* mutex);
  CSingleLock(const CSingleLock&) = delete;
  CSingleLock& operator=(const CSingleLock&) = delete;
  virtual ~CSingleLock();

  void Unlock();

 private:
  pthread_mutex_t* m_pMutex;
  std::int32_t m_bLocked;
};

/// Gives a derived class one worker thread, which runs its svc().
///
/// A run begins with Start and ends when svc() returns; after that a new run may start. A svc()
/// that loops tests the stop event and returns when it is set. The derived class's destructor must
/// call Stop, for when this class's destructor runs, the derived svc() is no more.
///
/// Threads: Start, Stop, Abort and Wait come from the owner, one at a time, and never from the
/// worker.
class BaseThread {
 public:
  enum State : std::int32_t {
    kIdle = 0,      ///< Never started.
    kRunning = 1,   ///< A run is on.
    kPaused = 2,    ///< A run is held; nothing here enters it.
    kFinished = 3,  ///< svc() has returned.
  };

  BaseThread();
  BaseThread(const BaseThread&) = delete;
  BaseThread& operator=(const BaseThread&) = delete;
  /// Asks the thread to end, waits for it and joins it.
  virtual ~BaseThread();
  /// The body. This one runs without a pause until the stop event is set. The result is not used.
  virtual int svc();

  /// Starts a run. @return 1; 0 when one is on, or no thread could be made (then nothing has
  /// changed).
  int Start();
  /// Asks the run to end and waits until it has. @return 1; 0 when none is on.
  int Stop();
  /// Asks the run to end. @return 1; 0 when none is on.
  int Abort();
  /// Waits for the run to end and joins its thread. @return 0, also when none is on; WAIT_TIMEOUT.
  unsigned Wait(unsigned timeoutMs);

 protected:
  bool IsActive() const;
  State GetState() const;
  /// Set by Abort: the body shall return.
  SyncEvent* GetStopEvent();

 private:
  static void* thread_func(void* arg);
  void Join();

  pthread_t* m_pThread = nullptr;
  SyncEvent* m_pStopEvent = nullptr;
  SyncEvent* m_pExitEvent = nullptr;
  std::int32_t m_nPauseCount = 0;
  std::atomic<State> m_state = kIdle;
};
