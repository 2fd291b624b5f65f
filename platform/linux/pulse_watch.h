// Follows the server's sinks, sources and defaults for the listeners and
// observers of both audio seams.
//
// Server events only say "something changed"; each burst of them becomes one
// fresh snapshot, read on the watch's own serial queue (never on the pulse
// loop thread, which must not block), and every subscriber is handed the
// snapshot before and after. A server that went away is asked again until it
// answers. Subscribers are called one at a time on that
// queue and must only hand work on (dispatch to their own queues).
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>

#include "platform/linux/pulse_snapshot.h"
#include "support/dispatch.h"

namespace ac::platform::linux_backend {

class PulseConnection;

class PulseWatch : public std::enable_shared_from_this<PulseWatch> {
 public:
  using Subscriber = std::function<void(const Snapshot& before, const Snapshot& after)>;

  // The one watch of a connection, made on first use and kept while anyone
  // holds it.
  static std::shared_ptr<PulseWatch> of(const std::shared_ptr<PulseConnection>& connection);
  explicit PulseWatch(std::shared_ptr<PulseConnection> connection);
  ~PulseWatch();

  // Registers a subscriber. The first one reads the baseline; non-zero when
  // the server cannot be reached (nothing is registered then).
  OSStatus subscribe(Subscriber subscriber, uint64_t& token);
  // After this returns the subscriber is not running and will not run again
  // (unless called from inside a subscriber, which only stops later calls).
  void unsubscribe(uint64_t token);
  // Schedules a re-read; bursts collapse into one. Safe on any thread.
  void changed();

  // The server's sinks, sources and defaults: from the watch of `connection`
  // when it is current (subscribed to, connected, and read since the
  // server's last event), otherwise read from the server. Any thread but
  // the watch's queue and the loop thread.
  static OSStatus read(PulseConnection& connection, Snapshot& out);

 private:
  // Reads a snapshot and hands subscribers the change (on queue_).
  OSStatus refresh();

  std::shared_ptr<PulseConnection> connection_;
  SerialQueue queue_;
  std::atomic<bool> pending_{false};
  // Server events seen so far. What read() hands out: the latest snapshot
  // and how many events it reflects, under a lock of their own that is
  // never held while anything else is taken.
  std::atomic<uint64_t> events_{0};
  std::atomic<bool> listened_{false};  // subscribers_ is not empty
  std::mutex currentMutex_;
  std::shared_ptr<const Snapshot> current_;
  uint64_t readAt_ = 0;
  // Guards subscribers_, last_ and haveBaseline_; held while subscribers run
  // and recursive so one may unsubscribe itself.
  std::recursive_mutex mutex_;
  std::map<uint64_t, Subscriber> subscribers_;
  uint64_t nextToken_ = 1;
  Snapshot last_;
  bool haveBaseline_ = false;
};

}  // namespace ac::platform::linux_backend
