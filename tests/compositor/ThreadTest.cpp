// The worker thread, its events and the scoped lock.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <thread>

#include "tests/compositor/CountedThreads.h"
#include "zel/compositor/detail/BaseThread.h"
#include "zel/platform/Types.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

class Worker : public BaseThread {
 public:
  /// Without a body it runs until it is stopped.
  explicit Worker(std::function<void()> body = nullptr) : body_(std::move(body)) {}
  ~Worker() override { Stop(); }
  int svc() override {
    body_ ? body_() : static_cast<void>(GetStopEvent()->Wait(kWaitForever));
    ++runs;
    return 0;
  }
  using BaseThread::GetState;
  using BaseThread::GetStopEvent;
  std::atomic<int> runs = 0;

 private:
  std::function<void()> body_;
};

TEST(SyncEvent, IsSetAtFirstStaysSetAndTimesOutNoEarlierThanAsked) {
  SyncEvent event;
  EXPECT_EQ(event.Wait(0), 0U);
  EXPECT_EQ(event.Wait(kWaitForever), 0U);
  event.Clear();
  EXPECT_EQ(event.Wait(0), WAIT_TIMEOUT);
  const auto start = Clock::now();
  EXPECT_EQ(event.Wait(50), WAIT_TIMEOUT);
  EXPECT_GE(Clock::now() - start, milliseconds(50));
  event.Set();
  EXPECT_EQ(event.Wait(0), 0U);
}

TEST(SingleLock, HoldsUntilItsEnd) {
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  for (int i = 0; i < 2; ++i) {
    const CSingleLock lock(&mutex);
    EXPECT_NE(pthread_mutex_trylock(&mutex), 0);
  }
}

TEST(BaseThread, RunsOnceAtATimeUntilStopped) {
  Worker worker;
  BaseThread withDefaultBody;
  for (const bool isRefused : {false, true}) {
    g_refuseThreads = isRefused;
    EXPECT_TRUE(!isRefused || worker.Start() == 0);
    EXPECT_EQ(worker.Stop() + worker.Abort(), 0);
    EXPECT_EQ(worker.Wait(kWaitForever), 0U);
    EXPECT_EQ(worker.GetState(), BaseThread::kIdle);
    EXPECT_EQ(worker.GetStopEvent()->Wait(0), 0U);
  }
  g_refuseThreads = false;
  ASSERT_EQ(withDefaultBody.Start(), 1);
  ASSERT_EQ(worker.Start(), 1);
  EXPECT_EQ(worker.GetState(), BaseThread::kRunning);
  EXPECT_EQ(worker.Start(), 0);
  for (const unsigned ms : {0U, 20U}) EXPECT_EQ(worker.Wait(ms), WAIT_TIMEOUT);
  EXPECT_EQ(worker.Stop(), 1);
  EXPECT_EQ(worker.runs, 1);
  EXPECT_EQ(worker.GetState(), BaseThread::kFinished);

  ASSERT_EQ(worker.Start(), 1);
  EXPECT_EQ(worker.Abort(), 1);
  EXPECT_EQ(worker.Wait(kWaitForever), 0U);
  EXPECT_EQ(worker.runs, 2);
}

// A body that ended before Start returned once left the object running for ever.
TEST(BaseThread, AShortRunIsFollowedByTheNextAndEveryThreadIsJoined) {
  {
    Worker worker([] {});
    for (int run = 1; run <= 100; ++run) {
      ASSERT_EQ(worker.Start(), 1);
      if (run % 2 != 0) worker.Stop();  // Against the end of the run.
      while (worker.GetState() != BaseThread::kFinished) std::this_thread::yield();
      EXPECT_EQ(worker.Stop(), 0);
      ASSERT_EQ(worker.runs, run);
    }
  }
  EXPECT_EQ(g_unjoinedThreads, 0);
}

}  // namespace
