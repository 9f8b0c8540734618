// One worker thread for the object that derives from it, and the polled events that drive it.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>

/// No time-out.
constexpr unsigned kWaitForever = 0xFFFFFFFF;

/// An event. Waiters poll it every 10 ms. A new event is set.
///
/// Threads: any thread may call anything. The mutex orders writers; waiters read the flag without
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

  pthread_mutex_t mutex_;
  std::atomic<std::int32_t> signaled_;
  std::int32_t isManualReset_;
};

/// Holds a mutex until the end of the scope.
class CSingleLock {
 public:
  explicit CSingleLock(pthread_mutex_t* mutex);
  CSingleLock(const CSingleLock&) = delete;
  CSingleLock& operator=(const CSingleLock&) = delete;
  virtual ~CSingleLock();

 private:
  pthread_mutex_t* mutex_;
  std::int32_t isLocked_;
};

/// Gives a derived class one worker thread, which runs its svc().
///
/// A run begins with Start and ends when svc() returns; after that a new run may start. A svc()
/// that loops tests the stop event and returns when it is set. A derived class calls Stop in its
/// destructor: when this class's destructor runs, the derived svc() no longer exists.
///
/// Threads: one thread at a time calls Start, Stop, Abort and Wait, and never the worker itself.
class BaseThread {
 public:
  enum State : std::int32_t {
    kIdle = 0,      ///< Never started.
    kRunning = 1,   ///< svc() has not returned yet.
    kPaused = 2,    ///< As kRunning, but held. Nothing here enters this state.
    kFinished = 3,  ///< svc() has returned.
  };

  BaseThread();
  BaseThread(const BaseThread&) = delete;
  BaseThread& operator=(const BaseThread&) = delete;
  /// Asks the thread to end, waits for it and joins it.
  virtual ~BaseThread();
  /// The body of a run. This one loops without sleeping until the stop event is set. The result is
  /// not used.
  virtual int svc();

  /// Starts a run.
  /// @return 1; 0 when a run has not ended yet, or when no thread can be made. Nothing has changed
  ///   then.
  int Start();
  /// Asks the run to end and waits until it has ended. @return 1; 0 when there is no run.
  int Stop();
  /// Asks the run to end. @return 1; 0 when there is no run.
  int Abort();
  /// Waits for the run to end and joins its thread.
  /// @param timeoutMs milliseconds, or kWaitForever.
  /// @return 0, also when there is no run; WAIT_TIMEOUT.
  unsigned Wait(unsigned timeoutMs);

 protected:
  bool IsActive() const;
  State GetState() const;
  /// Abort sets this event; the body returns then.
  SyncEvent* GetStopEvent();

 private:
  static void* thread_func(void* arg);
  bool CreateThread();
  void Join();

  pthread_t* thread_ = nullptr;
  SyncEvent* stopEvent_ = nullptr;
  SyncEvent* exitEvent_ = nullptr;
  std::int32_t pauseCount_ = 0;
  std::atomic<State> state_ = kIdle;
};
