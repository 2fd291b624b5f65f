#include "support/dispatch.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <map>
#include <vector>

#if defined(__APPLE__)
#include <dispatch/dispatch.h>
#else
#include <semaphore.h>
#endif

namespace ac {

namespace {
thread_local const void* tCurrentQueue = nullptr;  // the running queue's core
}

void setCurrentThreadName(const std::string& name) {
#if defined(__APPLE__)
  pthread_setname_np(name.substr(0, 63).c_str());
#else
  pthread_setname_np(pthread_self(), name.substr(0, 15).c_str());
#endif
}

double monotonicSeconds() {
  using namespace std::chrono;
  return duration<double>(steady_clock::now().time_since_epoch()).count();
}

double wallSeconds() {
  using namespace std::chrono;
  return duration<double>(system_clock::now().time_since_epoch()).count();
}

// ---- global queue and timers -----------------------------------------------
//
// The pool and the timer live for the whole process and are never destroyed:
// workers and the timer may still run while static destructors do.

namespace {

struct WorkerPool {
  std::mutex mutex;
  std::condition_variable cv;
  std::deque<Block> blocks;
  size_t idle = 0;

  void submit(Block block) {
    bool grow;
    {
      std::lock_guard<std::mutex> lock(mutex);
      blocks.push_back(std::move(block));
      if (idle > 0) cv.notify_one();
      grow = idle < blocks.size();
    }
    if (grow) std::thread([this] { work(); }).detach();
  }

  void work() {
    setCurrentThreadName("ac.global");
    std::unique_lock<std::mutex> lock(mutex);
    for (;;) {
      ++idle;
      cv.wait(lock, [this] { return !blocks.empty(); });
      --idle;
      Block block = std::move(blocks.front());
      blocks.pop_front();
      lock.unlock();
      block();
      block = nullptr;  // its captures go before the worker waits again
      lock.lock();
    }
  }
};

WorkerPool& pool() {
  static WorkerPool* p = new WorkerPool;
  return *p;
}

struct Timer {
  using Clock = std::chrono::steady_clock;
  std::mutex mutex;
  std::condition_variable cv;
  std::multimap<Clock::time_point, Block> due;  // equal keys keep insertion order

  Timer() { std::thread([this] { run(); }).detach(); }

  void add(double delaySeconds, Block fire) {
    const auto at = Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(delaySeconds));
    std::lock_guard<std::mutex> lock(mutex);
    const bool earliest = due.empty() || at < due.begin()->first;
    due.emplace(at, std::move(fire));
    if (earliest) cv.notify_one();
  }

  void run() {
    setCurrentThreadName("ac.timer");
    std::unique_lock<std::mutex> lock(mutex);
    for (;;) {
      if (due.empty()) {
        cv.wait(lock);
        continue;
      }
      auto first = due.begin();
      if (Clock::now() < first->first) {
        cv.wait_until(lock, first->first);
        continue;
      }
      Block fire = std::move(first->second);
      due.erase(first);
      lock.unlock();
      fire();
      fire = nullptr;
      lock.lock();
    }
  }
};

// Runs `fire` on the timer thread after the delay; it must only hand work on.
void scheduleAfter(double delaySeconds, Block fire) {
  static Timer* timer = new Timer;
  timer->add(delaySeconds, std::move(fire));
}

}  // namespace

void dispatchGlobal(Block block) { pool().submit(std::move(block)); }

void dispatchGlobalAfter(double delaySeconds, Block block) {
  if (delaySeconds <= 0) {
    dispatchGlobal(std::move(block));
    return;
  }
  scheduleAfter(delaySeconds, [b = std::move(block)]() mutable { dispatchGlobal(std::move(b)); });
}

// ---- serial queues ---------------------------------------------------------
//
// The queue's thread sleeps on a counting semaphore: every queued block and
// every signal that sets a pending flag posts it once, and every wake-up
// consumes at most one of them, so none is lost and a real-time thread can
// wake the queue with a post alone. The state lives in a Core that the
// thread shares, which is what lets a block destroy its own queue.

namespace {

class WakeSemaphore {
 public:
#if defined(__APPLE__)
  WakeSemaphore() : sem_(dispatch_semaphore_create(0)) {}
  ~WakeSemaphore() { dispatch_release(sem_); }
  void post() { dispatch_semaphore_signal(sem_); }
  void wait() { dispatch_semaphore_wait(sem_, DISPATCH_TIME_FOREVER); }

 private:
  dispatch_semaphore_t sem_;
#else
  WakeSemaphore() { ::sem_init(&sem_, 0, 0); }
  ~WakeSemaphore() { ::sem_destroy(&sem_); }
  void post() { ::sem_post(&sem_); }
  void wait() {
    while (::sem_wait(&sem_) != 0 && errno == EINTR) {
    }
  }

 private:
  sem_t sem_;
#endif
};

}  // namespace

struct QueueSignal::State {
  std::atomic<bool> pending{false};
  Block handler;
};

struct SerialQueue::Core {
  std::string label;
  WakeSemaphore wake;
  std::mutex mutex;  // guards blocks, signals, stopping
  std::deque<Block> blocks;
  std::vector<std::shared_ptr<QueueSignal::State>> signals;
  bool stopping = false;

  void push(Block block) {
    {
      std::lock_guard<std::mutex> lock(mutex);
      blocks.push_back(std::move(block));
    }
    wake.post();
  }

  // One wake-up's worth of work: a pending signal, else a queued block.
  // Signals go first so that whatever a signal announced before a block was
  // queued is handled before that block. False once stopping with nothing
  // left.
  bool runOne() {
    Block block;
    std::shared_ptr<QueueSignal::State> signal;
    {
      std::lock_guard<std::mutex> lock(mutex);
      for (const auto& s : signals)
        if (s->pending.exchange(false, std::memory_order_acq_rel)) {
          signal = s;
          break;
        }
      if (!signal) {
        if (blocks.empty()) return !stopping;
        block = std::move(blocks.front());
        blocks.pop_front();
      }
    }
    if (signal) signal->handler();
    if (block) block();
    return true;
  }

  static void run(std::shared_ptr<Core> core) {
    setCurrentThreadName(core->label);
    tCurrentQueue = core.get();
    do core->wake.wait();
    while (core->runOne());
  }
};

SerialQueue::SerialQueue(std::string label) : core_(std::make_shared<Core>()) {
  core_->label = std::move(label);
  std::thread(&Core::run, core_).swap(thread_);
}

SerialQueue::~SerialQueue() {
  {
    std::lock_guard<std::mutex> lock(core_->mutex);
    core_->stopping = true;
  }
  core_->wake.post();
  if (isCurrent())
    thread_.detach();  // the thread holds the core and ends after this block
  else
    thread_.join();
}

const std::string& SerialQueue::label() const { return core_->label; }

void SerialQueue::async(Block block) { core_->push(std::move(block)); }

void SerialQueue::sync(const Block& block) {
  if (isCurrent()) {
    block();
    return;
  }
  Semaphore done;
  async([&] {
    block();
    done.signal();
  });
  done.wait();
}

void SerialQueue::asyncAfter(double delaySeconds, Block block) {
  if (delaySeconds <= 0) {
    async(std::move(block));
    return;
  }
  std::weak_ptr<Core> weak = core_;
  scheduleAfter(delaySeconds, [weak, b = std::move(block)]() mutable {
    if (auto core = weak.lock()) core->push(std::move(b));
  });
}

bool SerialQueue::isCurrent() const { return tCurrentQueue == core_.get(); }

QueueSignal::QueueSignal(SerialQueue& queue, Block handler)
    : core_(queue.core_), state_(std::make_shared<State>()) {
  state_->handler = std::move(handler);
  std::lock_guard<std::mutex> lock(core_->mutex);
  core_->signals.push_back(state_);
}

QueueSignal::~QueueSignal() {
  std::lock_guard<std::mutex> lock(core_->mutex);
  std::erase(core_->signals, state_);
}

void QueueSignal::signal() {
  if (!state_->pending.exchange(true, std::memory_order_acq_rel)) core_->wake.post();
}

void Semaphore::signal() {
  // Notify while holding the lock: a waiter that wakes may destroy the
  // semaphore (a stack semaphore in sync()), which must not race with a
  // notify still touching the condition variable.
  std::lock_guard<std::mutex> lock(mutex_);
  ++count_;
  cv_.notify_one();
}

void Semaphore::wait() {
  std::unique_lock<std::mutex> lock(mutex_);
  cv_.wait(lock, [this] { return count_ > 0; });
  --count_;
}

bool Semaphore::wait(double timeoutSeconds) {
  std::unique_lock<std::mutex> lock(mutex_);
  auto deadline = std::chrono::steady_clock::now() +
                  std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                      std::chrono::duration<double>(timeoutSeconds < 0 ? 0 : timeoutSeconds));
  if (!cv_.wait_until(lock, deadline, [this] { return count_ > 0; })) return false;
  --count_;
  return true;
}

// ---- signals -------------------------------------------------------------
//
// An async-signal-safe handler writes the signal number into a self-pipe; one
// watcher thread reads it and queues the registered handler on its queue.

namespace {

struct SignalSlot {
  SerialQueue* queue = nullptr;
  Block handler;
};

// Never destroyed, like the main queue: the watcher outlives static destructors.
std::mutex& gSignalMutex = *new std::mutex;
std::array<SignalSlot, 65>& gSignalSlots = *new std::array<SignalSlot, 65>;
int gSignalPipe[2] = {-1, -1};
std::once_flag gSignalOnce;

extern "C" void onSignal(int signo) {
  int saved = errno;
  unsigned char b = static_cast<unsigned char>(signo);
  if (gSignalPipe[1] >= 0) (void)!::write(gSignalPipe[1], &b, 1);
  errno = saved;
}

void signalWatcher() {
  setCurrentThreadName("ac.signal-watch");
  for (;;) {
    unsigned char b;
    ssize_t n = ::read(gSignalPipe[0], &b, 1);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    std::lock_guard<std::mutex> lock(gSignalMutex);
    SignalSlot& slot = gSignalSlots[b % gSignalSlots.size()];
    if (slot.queue && slot.handler) slot.queue->async(slot.handler);
  }
}

void startSignalWatcher() {
  std::call_once(gSignalOnce, [] {
    if (::pipe(gSignalPipe) != 0) return;
    ::fcntl(gSignalPipe[0], F_SETFD, FD_CLOEXEC);
    ::fcntl(gSignalPipe[1], F_SETFD, FD_CLOEXEC);
    ::fcntl(gSignalPipe[1], F_SETFL, O_NONBLOCK);
    std::thread(signalWatcher).detach();
  });
}

void installCatcher(int signo) {
  struct sigaction sa {};
  sa.sa_handler = onSignal;
  sigemptyset(&sa.sa_mask);
  sa.sa_flags = SA_RESTART;
  ::sigaction(signo, &sa, nullptr);
}

}  // namespace

SignalSource::SignalSource(int signo, SerialQueue& queue, Block handler) : signo_(signo) {
  startSignalWatcher();
  {
    std::lock_guard<std::mutex> lock(gSignalMutex);
    gSignalSlots[signo] = SignalSlot{&queue, std::move(handler)};
  }
  installCatcher(signo);
}

SignalSource::~SignalSource() {
  std::lock_guard<std::mutex> lock(gSignalMutex);
  gSignalSlots[signo_] = SignalSlot{};
}

void ignoreDefaultDelivery(int signo) {
  // The catcher stays installed: arrivals with no source are dropped by the
  // watcher, which is what "ignored" means here while keeping sources able to
  // observe the signal (SIG_IGN would discard it before anyone saw it).
  startSignalWatcher();
  installCatcher(signo);
}

// ---- main queue ------------------------------------------------------------

// Never destroyed: a timer or worker may still post to it while static
// destructors run at exit.

namespace {
struct MainQueue {
  std::mutex mutex;
  std::condition_variable cv;
  std::deque<Block> blocks;
};
MainQueue& mainQueue() {
  static MainQueue* q = new MainQueue;
  return *q;
}
}  // namespace

void dispatchMain(Block block) {
  MainQueue& q = mainQueue();
  std::lock_guard<std::mutex> lock(q.mutex);
  q.blocks.push_back(std::move(block));
  q.cv.notify_one();
}

void dispatchMainAfter(double delaySeconds, Block block) {
  dispatchGlobalAfter(delaySeconds, [b = std::move(block)]() mutable { dispatchMain(std::move(b)); });
}

void runMainQueueFor(double seconds) {
  auto deadline = std::chrono::steady_clock::now() +
                  std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                      std::chrono::duration<double>(seconds));
  MainQueue& q = mainQueue();
  for (;;) {
    Block block;
    {
      std::unique_lock<std::mutex> lock(q.mutex);
      if (!q.cv.wait_until(lock, deadline, [&q] { return !q.blocks.empty(); })) return;
      block = std::move(q.blocks.front());
      q.blocks.pop_front();
    }
    block();
  }
}

}  // namespace ac
