// The worker thread, its events and the scoped lock.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "zel/compositor/detail/BaseThread.h"
#include "zel/platform/Types.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

class Worker : public BaseThread {
 public:
  explicit Worker(std::function<void(Worker&)> body) : m_body(std::move(body)) {}
  ~Worker() override { Stop(); }
  int svc() override {
    m_body(*this);
    ++runs;
    return 0;
  }
  using BaseThread::GetState;
  using BaseThread::GetStopEvent;
  void WaitFor(State state) {
    while (GetState() != state) std::this_thread::yield();
  }
  std::atomic<int> runs = 0;

 private:
  std::function<void(Worker&)> m_body;
};

void UntilStopped(Worker& worker) {
  worker.GetStopEvent()->Wait(kWaitForever);
}

}  // namespace

TEST(SyncEvent, IsSetAtFirstAndStaysSet) {
  SyncEvent event;
  EXPECT_EQ(event.Wait(0), 0u);
  EXPECT_EQ(event.Wait(kWaitForever), 0u);
  event.Clear();
  EXPECT_EQ(event.Wait(0), WAIT_TIMEOUT);
  event.Set();
  EXPECT_EQ(event.Wait(0), 0u);
}

TEST(SyncEvent, TimesOutNoEarlierThanAsked) {
  SyncEvent event;
  event.Clear();
  const auto start = Clock::now();
  EXPECT_EQ(event.Wait(50), WAIT_TIMEOUT);
  EXPECT_GE(Clock::now() - start, milliseconds(50));
}

TEST(SyncEvent, WakesAWaiter) {
  SyncEvent event;
  event.Clear();
  std::thread setter([&event] {
    std::this_thread::sleep_for(milliseconds(20));
    event.Set();
  });
  EXPECT_EQ(event.Wait(kWaitForever), 0u);
  setter.join();
}

TEST(SingleLock, HoldsUntilItsEnd) {
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  {
    const CSingleLock lock(&mutex);
    EXPECT_NE(pthread_mutex_trylock(&mutex), 0);
  }
  CSingleLock lock(&mutex);
  lock.Unlock();
  EXPECT_EQ(pthread_mutex_trylock(&mutex), 0);
  pthread_mutex_unlock(&mutex);
}

TEST(BaseThread, NothingToStopBeforeTheFirstStart) {
  Worker worker(UntilStopped);
  EXPECT_EQ(worker.Stop(), 0);
  EXPECT_EQ(worker.Abort(), 0);
  EXPECT_EQ(worker.Wait(kWaitForever), 0u);
  EXPECT_EQ(worker.GetState(), BaseThread::kIdle);
  EXPECT_EQ(worker.GetStopEvent()->Wait(0), 0u);
}

TEST(BaseThread, RunsOnceAtATime) {
  Worker worker(UntilStopped);
  ASSERT_EQ(worker.Start(), 1);
  EXPECT_EQ(worker.GetState(), BaseThread::kRunning);
  EXPECT_EQ(worker.Start(), 0);
  EXPECT_EQ(worker.Wait(0), WAIT_TIMEOUT);
  EXPECT_EQ(worker.Wait(20), WAIT_TIMEOUT);
  EXPECT_EQ(worker.Stop(), 1);
  EXPECT_EQ(worker.runs, 1);
  EXPECT_EQ(worker.GetState(), BaseThread::kFinished);
  EXPECT_EQ(worker.Stop(), 0);
}

TEST(BaseThread, AbortThenWaitJoins) {
  Worker worker(UntilStopped);
  ASSERT_EQ(worker.Start(), 1);
  EXPECT_EQ(worker.Abort(), 1);
  EXPECT_EQ(worker.Wait(kWaitForever), 0u);
  EXPECT_EQ(worker.runs, 1);
}

// A body that ends before Start has returned once left the object "running" for ever.
TEST(BaseThread, AShortRunCanBeFollowedByTheNext) {
  Worker worker([](Worker&) {});
  for (int run = 1; run <= 200; ++run) {
    ASSERT_EQ(worker.Start(), 1);
    worker.WaitFor(BaseThread::kFinished);
    EXPECT_EQ(worker.Stop(), 0);
    ASSERT_EQ(worker.runs, run);
  }
}

TEST(BaseThread, StopAgainstTheEndOfTheRun) {
  for (int i = 0; i < 100; ++i) {
    Worker worker([](Worker&) {});
    ASSERT_EQ(worker.Start(), 1);
    worker.Stop();
    EXPECT_EQ(worker.runs, 1);
  }
}

TEST(BaseThread, DestructionWaitsForTheRun) {
  std::atomic<bool> ended = false;
  {
    Worker worker([&ended](Worker& self) {
      UntilStopped(self);
      std::this_thread::sleep_for(milliseconds(30));
      ended = true;
    });
    ASSERT_EQ(worker.Start(), 1);
  }
  EXPECT_TRUE(ended);
}

TEST(BaseThread, DefaultBodyRunsUntilStopped) {
  BaseThread thread;
  ASSERT_EQ(thread.Start(), 1);
  EXPECT_EQ(thread.Stop(), 1);
  ASSERT_EQ(thread.Start(), 1);  // Ended by the destructor.
}
