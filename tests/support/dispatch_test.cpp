#include "support/dispatch.h"

#include <gtest/gtest.h>

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

TEST(SerialQueue, SyncFromOwnQueueAndDestructionDrainAndSelfDestruction) {
  std::atomic<int> count{0};
  {
    SerialQueue q("test.drain");
    q.sync([&] { q.sync([&] { count++; }); });
    for (int i = 0; i < 50; ++i) q.async([&] { count++; });
  }
  EXPECT_EQ(count.load(), 51);
  // Destroyed by its own block: what is queued behind it still runs.
  // The gate holds the queue until both blocks are queued, so nothing here
  // touches the queue after its own block may have deleted it.
  auto* q = new SerialQueue("test.self");
  Semaphore gate, done;
  q->async([&] { gate.wait(); });
  q->async([q] { delete q; });
  q->async([&] { done.signal(); });
  gate.signal();
  EXPECT_TRUE(done.wait(30));
}

TEST(Timers, FireInDeadlineOrderThenSubmissionOrderAndNotAfterTheirQueue) {
  SerialQueue q("test.timers");
  std::vector<int> seen;
  Semaphore last;
  for (auto [delay, id] : {std::pair{0.3, 1}, {0.1, 2}, {0.2, 3}, {0.2, 4}})
    q.asyncAfter(delay, [&seen, id] { seen.push_back(id); });
  q.asyncAfter(0.35, [&] { last.signal(); });
  ASSERT_TRUE(last.wait(30));
  EXPECT_EQ(seen, (std::vector<int>{2, 3, 4, 1}));
  std::atomic<bool> ran{false};
  { SerialQueue gone("test.gone"); gone.asyncAfter(0.05, [&] { ran = true; }); }
  Semaphore later;
  dispatchGlobalAfter(0.1, [&] { later.signal(); });
  ASSERT_TRUE(later.wait(30));
  EXPECT_FALSE(ran.load());
}

TEST(GlobalQueue, ABlockWaitingForAnotherGlobalBlockIsNotStarved) {
  Semaphore inner, outer;
  for (int i = 0; i < 8; ++i) dispatchGlobal([&] { inner.wait(); outer.signal(); });
  dispatchGlobal([&] { for (int i = 0; i < 8; ++i) inner.signal(); });
  for (int i = 0; i < 8; ++i) ASSERT_TRUE(outer.wait(30));
}

TEST(QueueSignal, CoalescesWhilePendingAndRunsAgainWhenSignalledDuringARun) {
  SerialQueue q("test.qsignal");
  std::atomic<int> runs{0};
  Semaphore entered, release, again;
  QueueSignal signal(q, [&] { (runs++ == 0 ? entered : again).signal(), release.wait(); });
  signal.signal();
  ASSERT_TRUE(entered.wait(30));
  for (int i = 0; i < 5; ++i) signal.signal();  // one pending run
  release.signal();
  release.signal();
  ASSERT_TRUE(again.wait(30));
  q.sync([] {});
  EXPECT_EQ(runs.load(), 2);
}

TEST(Semaphore, TimedWaitTimesOutThenSucceedsAfterSignal) {
  Semaphore s;
  double t0 = monotonicSeconds();
  EXPECT_FALSE(s.wait(0.05));
  EXPECT_GE(monotonicSeconds() - t0, 0.045);
  s.signal();
  EXPECT_TRUE(s.wait(5));
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
