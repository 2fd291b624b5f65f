#include "platform/linux/pulse_connection.h"

#include <chrono>
#include <cstdio>
#include <memory>
#include <mutex>
#include <optional>

#include <pthread.h>

#include <pulse/error.h>
#include <pulse/proplist.h>
#include <pulse/subscribe.h>
#include <pulse/timeval.h>

#include "platform/linux/pulse_status.h"
#include "support/log.h"

namespace ac::platform::linux_backend {

OSStatus pulseStatus(int paError) { return paError == PA_OK ? PA_ERR_UNKNOWN : paError; }

namespace {

// One outage of the server, however many connections notice it: the first
// to lose a ready context logs the loss, the first to connect again logs the
// return with the outage's length.
std::mutex outageMutex;
std::optional<std::chrono::steady_clock::time_point> outageSince;

void noteServerLost() {
  std::lock_guard<std::mutex> guard(outageMutex);
  if (outageSince) return;
  outageSince = std::chrono::steady_clock::now();
  ac::log("pulse: sound server connection lost — reconnecting");
}

void noteServerBack() {
  std::lock_guard<std::mutex> guard(outageMutex);
  if (!outageSince) return;
  char seconds[32];
  std::snprintf(seconds, sizeof seconds, "%.3f",
                std::chrono::duration<double>(std::chrono::steady_clock::now() - *outageSince).count());
  outageSince.reset();
  ac::log(std::string("pulse: sound server back after ") + seconds + " s");
}

bool contextDead(pa_context* c) { return !c || !PA_CONTEXT_IS_GOOD(pa_context_get_state(c)); }

}  // namespace

PulseConnection::PulseConnection(const std::string& threadName, std::string server) : server_(std::move(server)) {
  loop_ = pa_threaded_mainloop_new();
  pa_threaded_mainloop_set_name(loop_, threadName.c_str());
  pa_threaded_mainloop_start(loop_);
}

PulseConnection::~PulseConnection() {
  {
    Lock lock(*this);
    dropContext();
  }
  pa_threaded_mainloop_stop(loop_);
  pa_threaded_mainloop_free(loop_);
}

std::shared_ptr<PulseConnection> PulseConnection::shared() {
  static std::mutex mutex;
  static std::weak_ptr<PulseConnection> current;
  std::lock_guard<std::mutex> guard(mutex);
  auto c = current.lock();
  if (!c) {
    c = std::make_shared<PulseConnection>("audio-capture.pulse");
    current = c;
  }
  return c;
}

PulseConnection::Lock::Lock(PulseConnection& c) : loop_(c.loop_), locked_(!pa_threaded_mainloop_in_thread(c.loop_)) {
  if (locked_) pa_threaded_mainloop_lock(loop_);
}

PulseConnection::Lock::~Lock() {
  if (locked_) pa_threaded_mainloop_unlock(loop_);
}

void PulseConnection::nameLoopThread(const std::string& threadName) {
  Lock lock(*this);
  // The kernel names only the calling thread, so the loop thread does it.
  pa_mainloop_api_once(
      pa_threaded_mainloop_get_api(loop_),
      [](pa_mainloop_api*, void* name) {
        std::unique_ptr<std::string> owned(static_cast<std::string*>(name));
        pthread_setname_np(pthread_self(), owned->substr(0, 15).c_str());
      },
      new std::string(threadName));
}

void PulseConnection::signal() { pa_threaded_mainloop_signal(loop_, 0); }

bool PulseConnection::onLoopThread() const { return pa_threaded_mainloop_in_thread(loop_) != 0; }

void PulseConnection::setEventHandler(std::function<void()> handler) {
  Lock lock(*this);
  bool first = !eventHandler_;
  eventHandler_ = std::move(handler);
  if (first && eventHandler_ && context_ && pa_context_get_state(context_) == PA_CONTEXT_READY) subscribe();
}

int PulseConnection::lastError() const { return context_ ? pa_context_errno(context_) : PA_ERR_CONNECTIONREFUSED; }

void PulseConnection::dropContext() {
  wasReady_ = false;
  if (!context_) return;
  pa_context_set_state_callback(context_, nullptr, nullptr);
  pa_context_set_subscribe_callback(context_, nullptr, nullptr);
  pa_context_disconnect(context_);
  pa_context_unref(context_);
  context_ = nullptr;
}

OSStatus PulseConnection::ensureReady() {
  if (context_ && pa_context_get_state(context_) == PA_CONTEXT_READY) return kNoErr;
  // A connect begun on another thread (one made ahead) is waited for, not
  // started over.
  if (context_ && PA_CONTEXT_IS_GOOD(pa_context_get_state(context_)) &&
      waitFor(
          [this] {
            pa_context_state_t s = context_ ? pa_context_get_state(context_) : PA_CONTEXT_FAILED;
            return s == PA_CONTEXT_READY || !PA_CONTEXT_IS_GOOD(s);
          },
          kConnectTimeoutSeconds) == kNoErr &&
      context_ && pa_context_get_state(context_) == PA_CONTEXT_READY)
    return kNoErr;
  dropContext();

  pa_proplist* props = pa_proplist_new();
  pa_proplist_sets(props, PA_PROP_APPLICATION_NAME, "audio-capture");
  pa_proplist_sets(props, PA_PROP_APPLICATION_ID, "audio-capture");
  context_ = pa_context_new_with_proplist(pa_threaded_mainloop_get_api(loop_), "audio-capture", props);
  pa_proplist_free(props);
  if (!context_) return PA_ERR_INTERNAL;
  pa_context_set_state_callback(
      context_,
      [](pa_context* c, void* userdata) {
        auto* self = static_cast<PulseConnection*>(userdata);
        self->signal();
        if (pa_context_get_state(c) == PA_CONTEXT_READY) {
          self->wasReady_ = true;
        } else if (self->wasReady_ && !PA_CONTEXT_IS_GOOD(pa_context_get_state(c))) {
          self->wasReady_ = false;
          noteServerLost();
          // The watch reads the server again, which reconnects.
          if (self->eventHandler_) self->eventHandler_();
        }
      },
      this);

  if (pa_context_connect(context_, server_.empty() ? nullptr : server_.c_str(), PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) {
    OSStatus st = pulseStatus(pa_context_errno(context_));
    dropContext();
    return st;
  }
  OSStatus st = waitFor(
      [this] {
        pa_context_state_t s = pa_context_get_state(context_);
        return s == PA_CONTEXT_READY || !PA_CONTEXT_IS_GOOD(s);
      },
      kConnectTimeoutSeconds);
  if (st == kNoErr && pa_context_get_state(context_) != PA_CONTEXT_READY) st = pulseStatus(pa_context_errno(context_));
  if (st != kNoErr) {
    dropContext();
    return st;
  }

  noteServerBack();
  if (eventHandler_) {
    subscribe();
    eventHandler_();
  }
  return kNoErr;
}

void PulseConnection::subscribe() {
  pa_context_set_subscribe_callback(
      context_,
      [](pa_context*, pa_subscription_event_type_t, uint32_t, void* userdata) {
        auto* self = static_cast<PulseConnection*>(userdata);
        if (self->eventHandler_) self->eventHandler_();
      },
      this);
  auto mask = static_cast<pa_subscription_mask_t>(PA_SUBSCRIPTION_MASK_SINK | PA_SUBSCRIPTION_MASK_SOURCE |
                                                  PA_SUBSCRIPTION_MASK_SERVER);
  if (pa_operation* op = pa_context_subscribe(context_, mask, nullptr, nullptr)) pa_operation_unref(op);
}

OSStatus PulseConnection::waitFor(const std::function<bool()>& done, double timeoutSeconds) {
  if (onLoopThread()) return done() ? kNoErr : static_cast<OSStatus>(kIllegalOperationErr);  // would deadlock
  struct Timer {
    bool expired = false;
    PulseConnection* self = nullptr;
  } timer{false, this};
  pa_mainloop_api* api = pa_threaded_mainloop_get_api(loop_);
  timeval when;
  pa_gettimeofday(&when);
  pa_timeval_add(&when, static_cast<pa_usec_t>(timeoutSeconds * PA_USEC_PER_SEC));
  pa_time_event* ev = api->time_new(
      api, &when,
      [](pa_mainloop_api*, pa_time_event*, const timeval*, void* userdata) {
        auto* t = static_cast<Timer*>(userdata);
        t->expired = true;
        t->self->signal();
      },
      &timer);

  OSStatus st = kNoErr;
  while (!done()) {
    if (timer.expired) {
      st = PA_ERR_TIMEOUT;
      break;
    }
    if (context_ && contextDead(context_)) {
      st = pulseStatus(pa_context_errno(context_));
      break;
    }
    pa_threaded_mainloop_wait(loop_);
  }
  api->time_free(ev);
  return st;
}

OSStatus PulseConnection::await(pa_operation* op, double timeoutSeconds) {
  if (!op) return pulseStatus(lastError());
  OSStatus st = waitFor([op] { return pa_operation_get_state(op) != PA_OPERATION_RUNNING; }, timeoutSeconds);
  if (st == kNoErr && pa_operation_get_state(op) == PA_OPERATION_CANCELLED) st = pulseStatus(lastError());
  if (pa_operation_get_state(op) == PA_OPERATION_RUNNING) pa_operation_cancel(op);
  pa_operation_unref(op);
  return st;
}

}  // namespace ac::platform::linux_backend
