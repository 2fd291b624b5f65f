// A small dispatch runtime: serial queues, a global queue, delayed work,
// counting semaphores with time-outs, signal sources and a main queue that the
// main thread pumps in slices.
//
// Contracts:
// - A SerialQueue runs its blocks one at a time, in submission order, on one
//   thread of its own that carries the queue's label as its thread name
//   (truncated to 15 bytes). async() never blocks beyond a short internal
//   lock; blocks must not call sync() on their own queue.
// - Destroying a SerialQueue drains the blocks already queued, then joins.
//   Destroyed from one of its own blocks, it cannot join itself: its thread
//   keeps the queue's state alive, runs what is still queued once that block
//   returns, then ends on its own.
// - QueueSignal::signal() is the one way to wake a queue from a real-time
//   thread: no lock, no allocation, no system call beyond a semaphore post.
// - The global queue runs its blocks concurrently on a pool of worker
//   threads that grows only when every worker is busy, so a block that waits
//   for another global block cannot starve it. Delayed work (any queue's)
//   waits on one timer thread and fires in deadline order, blocks with equal
//   deadlines in submission order.
// - Semaphore::wait(timeout) returns false on time-out, true once signalled.
// - SignalSource installs a handler for its signal (so the default action no
//   longer runs) and delivers every arrival as one call of its handler on the
//   given queue. Arrivals are coalesced only while a delivery is pending.
// - The main queue holds blocks for the main thread; they run only while the
//   main thread is inside runMainQueueFor() (which the platform's
//   runMainLoopFor() calls).
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace ac {

using Block = std::function<void()>;

class QueueSignal;

class SerialQueue {
 public:
  explicit SerialQueue(std::string label);
  ~SerialQueue();
  SerialQueue(const SerialQueue&) = delete;
  SerialQueue& operator=(const SerialQueue&) = delete;

  const std::string& label() const;
  void async(Block block);
  // Runs block on the queue and waits for it.
  void sync(const Block& block);
  // Runs block on the queue no earlier than delaySeconds from now; dropped
  // when the queue is destroyed before then.
  void asyncAfter(double delaySeconds, Block block);
  // True when called from a block running on this queue.
  bool isCurrent() const;

  struct Core;

 private:
  friend class QueueSignal;
  std::shared_ptr<Core> core_;
  std::thread thread_;
};

// A fixed handler that any thread, a real-time one included, can have run
// on a queue. Signals that arrive while a run is pending coalesce into it; a
// signal that arrives while the handler runs makes it run once more. A
// signal raised before a block is queued is handled before that block. After
// the destructor returns the handler is not started again (a run already
// under way may still be finishing on the queue).
class QueueSignal {
 public:
  QueueSignal(SerialQueue& queue, Block handler);
  ~QueueSignal();
  QueueSignal(const QueueSignal&) = delete;
  QueueSignal& operator=(const QueueSignal&) = delete;
  void signal();

  struct State;

 private:
  std::shared_ptr<SerialQueue::Core> core_;
  std::shared_ptr<State> state_;
};

// Blocks on the global queue run concurrently (see above).
void dispatchGlobal(Block block);
void dispatchGlobalAfter(double delaySeconds, Block block);

class Semaphore {
 public:
  explicit Semaphore(int64_t initial = 0) : count_(initial) {}
  void signal();
  void wait();
  // False when timeoutSeconds passed without a signal.
  bool wait(double timeoutSeconds);

 private:
  std::mutex mutex_;
  std::condition_variable cv_;
  int64_t count_;
};

class SignalSource {
 public:
  // Takes over signo from now on; handler runs on queue for every arrival.
  SignalSource(int signo, SerialQueue& queue, Block handler);
  ~SignalSource();
  SignalSource(const SignalSource&) = delete;
  SignalSource& operator=(const SignalSource&) = delete;

 private:
  int signo_;
};

// Makes SIGTERM/SIGINT ignored by default delivery: the signal no longer kills
// the process; only SignalSources see it.
void ignoreDefaultDelivery(int signo);

// The main queue.
void dispatchMain(Block block);
void dispatchMainAfter(double delaySeconds, Block block);
// Runs main-queue blocks on the calling thread until `seconds` have passed.
// Platform::runMainLoopFor (platform/platform.h) also services the platform's
// own event loop, where it has one.
void runMainQueueFor(double seconds);

// Monotonic seconds since an arbitrary fixed point.
double monotonicSeconds();
// Wall-clock seconds since 1970.
double wallSeconds();

// Names the calling thread (visible in debuggers and /proc).
void setCurrentThreadName(const std::string& name);

}  // namespace ac
