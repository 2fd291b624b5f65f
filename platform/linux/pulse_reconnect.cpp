#include "platform/linux/pulse_reconnect.h"

#include <pulse/def.h>

namespace ac::platform::linux_backend {

bool serverWentAway(int paError) {
  return paError == PA_ERR_CONNECTIONTERMINATED || paError == PA_ERR_CONNECTIONREFUSED;
}

void PulseReconnect::begin(std::function<bool()> attempt, std::function<void()> gaveUp) {
  std::unique_lock<std::mutex> lock(mutex_);
  deadline_ = std::chrono::steady_clock::now() + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                                     std::chrono::duration<double>(kServerReturnWindowSeconds));
  attempt_ = std::move(attempt);
  gaveUp_ = std::move(gaveUp);
  if (active_ || cancelled_) return;
  // A thread from an earlier outage has left its loop (active_ is false):
  // joining it waits for nothing.
  if (thread_.joinable()) thread_.join();
  active_ = true;
  thread_ = std::thread([this] { run(); });
}

void PulseReconnect::cancel() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    cancelled_ = true;
  }
  wake_.notify_all();
  if (thread_.joinable()) thread_.join();
  std::lock_guard<std::mutex> lock(mutex_);
  cancelled_ = active_ = false;
}

void PulseReconnect::run() {
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    wake_.wait_for(lock, std::chrono::duration<double>(kRetrySeconds), [this] { return cancelled_; });
    if (cancelled_) break;
    std::function<bool()> attempt = attempt_;
    const auto deadline = deadline_;
    lock.unlock();
    const bool back = attempt();
    lock.lock();
    if (cancelled_) break;
    if (back && deadline == deadline_) break;  // not begun again meanwhile
    if (!back && std::chrono::steady_clock::now() >= deadline_) {
      std::function<void()> gaveUp = gaveUp_;
      lock.unlock();
      gaveUp();
      lock.lock();
      break;
    }
  }
  active_ = false;
}

}  // namespace ac::platform::linux_backend
