// Riding out a sound server that went away: a stream the server dropped is
// opened again, on the same device, as soon as the server answers.
//
// Reconnecting is transport, like the platform's own audio service restarting
// under an application, so the backend decides it alone: the core sees a
// pause in the buffers, which its time line fills with silence. Only a
// server that stays away longer than kServerReturnWindowSeconds is reported,
// in the seam's own terms (the device lost, the session reset).
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace ac::platform::linux_backend {

// Restarts of the server by its session manager or a package upgrade take
// well under 2 s; this leaves room for a loaded machine.
inline constexpr double kServerReturnWindowSeconds = 10.0;

// Whether a stream's failure (its context's PA_ERR_*) means the server
// itself went away, rather than the stream's device.
bool serverWentAway(int paError);

// Retries on a thread of its own until the server is back or the window
// passed. Threads: begin() on any thread, the pulse loop threads included;
// cancel() and the destructor on any other (they join). The callbacks run on
// the retry thread; after cancel() returns neither runs, nor will.
class PulseReconnect {
 public:
  PulseReconnect() = default;
  ~PulseReconnect() { cancel(); }
  PulseReconnect(const PulseReconnect&) = delete;
  PulseReconnect& operator=(const PulseReconnect&) = delete;

  // Calls attempt every kRetrySeconds until it returns true; when the window
  // passes first, calls gaveUp instead. While retrying, a second begin()
  // only restarts the window.
  void begin(std::function<bool()> attempt, std::function<void()> gaveUp);
  void cancel();

  static constexpr double kRetrySeconds = 0.1;

 private:
  void run();

  std::mutex mutex_;
  std::condition_variable wake_;
  std::function<bool()> attempt_;
  std::function<void()> gaveUp_;
  std::chrono::steady_clock::time_point deadline_;
  bool active_ = false, cancelled_ = false;
  std::thread thread_;
};

}  // namespace ac::platform::linux_backend
