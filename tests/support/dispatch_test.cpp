#include "support/dispatch.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <vector>

namespace ac {
namespace {

TEST(SerialQueue, RunsBlocksInOrderOneAtATime) {
  SerialQueue q("test.serial");
  std::vector<int> seen;
  std::atomic<int> running{0};
  bool overlapped = false;
  for (int i = 0; i < 200; ++i) {
    q.async([&, i] {
      if (running.fetch_add(1) != 0) overlapped = true;
      seen.push_back(i);
      running.fetch_sub(1);
    });
  }
  q.sync([] {});
  ASSERT_EQ(seen.size(), 200u);
  for (int i = 0; i < 200; ++i) EXPECT_EQ(seen[i], i);
  EXPECT_FALSE(overlapped);
}

TEST(SerialQueue, SyncFromOwnQueueDoesNotDeadlock) {
  SerialQueue q("test.reentrant");
  bool ran = false;
  q.sync([&] { q.sync([&] { ran = true; }); });
  EXPECT_TRUE(ran);
}

TEST(SerialQueue, DestructionDrainsQueuedBlocks) {
  std::atomic<int> count{0};
  {
    SerialQueue q("test.drain");
    for (int i = 0; i < 50; ++i) q.async([&] { count++; });
  }
  EXPECT_EQ(count.load(), 50);
}

TEST(Semaphore, TimedWaitTimesOutThenSucceedsAfterSignal) {
  Semaphore s;
  double t0 = monotonicSeconds();
  EXPECT_FALSE(s.wait(0.05));
  EXPECT_GE(monotonicSeconds() - t0, 0.045);
  dispatchGlobalAfter(0.02, [&] { s.signal(); });
  EXPECT_TRUE(s.wait(5));
}

TEST(SignalSource, DeliversSignalOnItsQueue) {
  SerialQueue q("test.signal");
  Semaphore got;
  std::atomic<bool> onQueue{false};
  SignalSource src(SIGUSR1, q, [&] {
    onQueue = q.isCurrent();
    got.signal();
  });
  ::kill(::getpid(), SIGUSR1);
  ASSERT_TRUE(got.wait(5));
  EXPECT_TRUE(onQueue.load());
}

TEST(MainQueue, RunsOnlyWhilePumpedAndHonoursDelay) {
  std::atomic<int> ran{0};
  dispatchMain([&] { ran++; });
  dispatchMainAfter(0.1, [&] { ran++; });
  runMainQueueFor(0.02);
  EXPECT_EQ(ran.load(), 1);
  runMainQueueFor(0.3);
  EXPECT_EQ(ran.load(), 2);
}

}  // namespace
}  // namespace ac
