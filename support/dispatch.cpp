#include "support/dispatch.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>

namespace ac {

namespace {
thread_local const SerialQueue* tCurrentQueue = nullptr;
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

SerialQueue::SerialQueue(std::string label) : label_(std::move(label)) {
  thread_ = std::thread([this] { run(); });
}

SerialQueue::~SerialQueue() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  cv_.notify_all();
  if (thread_.joinable()) {
    if (thread_.get_id() == std::this_thread::get_id())
      thread_.detach();
    else
      thread_.join();
  }
}

void SerialQueue::async(Block block) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    blocks_.push_back(std::move(block));
  }
  cv_.notify_one();
}

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
  dispatchGlobalAfter(delaySeconds, [this, b = std::move(block)]() mutable { async(std::move(b)); });
}

bool SerialQueue::isCurrent() const { return tCurrentQueue == this; }

void SerialQueue::run() {
  setCurrentThreadName(label_);
  tCurrentQueue = this;
  for (;;) {
    Block block;
    {
      std::unique_lock<std::mutex> lock(mutex_);
      cv_.wait(lock, [this] { return stopping_ || !blocks_.empty(); });
      if (blocks_.empty()) return;  // stopping and drained
      block = std::move(blocks_.front());
      blocks_.pop_front();
    }
    block();
  }
}

void dispatchGlobal(Block block) {
  std::thread([b = std::move(block)] { b(); }).detach();
}

void dispatchGlobalAfter(double delaySeconds, Block block) {
  std::thread([delaySeconds, b = std::move(block)] {
    if (delaySeconds > 0) std::this_thread::sleep_for(std::chrono::duration<double>(delaySeconds));
    b();
  }).detach();
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

std::mutex gSignalMutex;
std::array<SignalSlot, 65> gSignalSlots;
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

namespace {
std::mutex gMainMutex;
std::condition_variable gMainCV;
std::deque<Block> gMainBlocks;
}  // namespace

void dispatchMain(Block block) {
  {
    std::lock_guard<std::mutex> lock(gMainMutex);
    gMainBlocks.push_back(std::move(block));
  }
  gMainCV.notify_one();
}

void dispatchMainAfter(double delaySeconds, Block block) {
  dispatchGlobalAfter(delaySeconds, [b = std::move(block)]() mutable { dispatchMain(std::move(b)); });
}

void runMainQueueFor(double seconds) {
  auto deadline = std::chrono::steady_clock::now() +
                  std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                      std::chrono::duration<double>(seconds));
  for (;;) {
    Block block;
    {
      std::unique_lock<std::mutex> lock(gMainMutex);
      if (!gMainCV.wait_until(lock, deadline, [] { return !gMainBlocks.empty(); })) return;
      block = std::move(gMainBlocks.front());
      gMainBlocks.pop_front();
    }
    block();
  }
}

void runMainQueueForever() {
  for (;;) runMainQueueFor(3600);
}

}  // namespace ac
