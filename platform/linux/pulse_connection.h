// One connection to the sound server: a threaded PulseAudio main loop and
// the context on it.
//
// Threads: libpulse runs every callback on the loop thread with the loop
// lock held. Any other thread takes a Lock before touching the context or a
// stream made on it. The waiting calls (ensureReady, await, waitFor) need
// the lock and release it while asleep, so callbacks keep running.
//
// The context is made lazily and remade after the server went away: a call
// on a dead server tries once to reconnect and otherwise fails with a
// non-zero status. Autospawn is off, so no query ever starts a daemon. The
// loss of a ready context calls the event handler (which reads the server
// again, reconnecting) and is logged once per outage, as is the return.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include <pulse/context.h>
#include <pulse/operation.h>
#include <pulse/thread-mainloop.h>

#include "platform/audio_types.h"

namespace ac::platform::linux_backend {

class PulseConnection {
 public:
  // threadName names the loop thread (shown by debuggers, truncated by the
  // kernel to 15 bytes). server: a server string; empty means libpulse's
  // default (PULSE_SERVER, then the user's session server).
  explicit PulseConnection(const std::string& threadName, std::string server = {});
  ~PulseConnection();
  PulseConnection(const PulseConnection&) = delete;
  PulseConnection& operator=(const PulseConnection&) = delete;

  // The process-wide connection for device queries, listeners and the
  // microphone, made on first use and shared by both audio seams. It lives
  // as long as any holder keeps it.
  static std::shared_ptr<PulseConnection> shared();

  // Holds the loop lock; a no-op on the loop thread, which already holds it
  // inside every callback.
  class Lock {
   public:
    explicit Lock(PulseConnection& c);
    ~Lock();
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

   private:
    pa_threaded_mainloop* loop_;
    bool locked_;
  };

  // The following need a Lock held (or the loop thread).

  // Connects, or reconnects after a failure. Non-zero when the server cannot
  // be reached within kConnectTimeoutSeconds.
  OSStatus ensureReady();
  // Valid after ensureReady() returned 0, until the next ensureReady().
  pa_context* context() const { return context_; }
  // Waits for op to finish, then releases it. Non-zero when it was cancelled,
  // the connection failed or the time-out passed (the op is then cancelled).
  OSStatus await(pa_operation* op, double timeoutSeconds = kOperationTimeoutSeconds);
  // Waits until done() holds; every callback that may change its answer
  // must call signal(). Non-zero on time-out or when the connection fails.
  OSStatus waitFor(const std::function<bool()>& done, double timeoutSeconds);
  // The error of the last failed call on the context (PA_ERR_*).
  int lastError() const;

  // Wakes the waiters; for callbacks.
  void signal();
  bool onLoopThread() const;
  pa_threaded_mainloop* loop() const { return loop_; }
  // Names the loop thread anew (a connection made ahead of its use).
  void nameLoopThread(const std::string& threadName);
  // The server string it was made with (empty: libpulse's default).
  const std::string& server() const { return server_; }

  // Called on the loop thread for every sink, source or server event, and
  // after each successful (re)connection, since anything may have changed
  // while the connection was down.
  void setEventHandler(std::function<void()> handler);

  static constexpr double kConnectTimeoutSeconds = 5.0;
  static constexpr double kOperationTimeoutSeconds = 5.0;

 private:
  void dropContext();
  void subscribe();

  std::string server_;
  pa_threaded_mainloop* loop_ = nullptr;
  pa_context* context_ = nullptr;
  bool wasReady_ = false;  // the context reached READY (loop lock held)
  std::function<void()> eventHandler_;
};

}  // namespace ac::platform::linux_backend
