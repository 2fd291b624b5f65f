#include "platform/linux/pulse_capture_devices.h"

#include "platform/linux/pulse_connection.h"
#include "platform/linux/pulse_watch.h"
#include "support/dispatch.h"

namespace ac::platform::linux_backend {

PulseCaptureDevice::PulseCaptureDevice(std::shared_ptr<PulseConnection> connection, const SourceInfo& source)
    : connection_(std::move(connection)), name_(source.name), description_(source.description), spec_(source.spec) {}

bool PulseCaptureDevice::isConnected() const {
  Snapshot snap;
  return PulseWatch::read(*connection_, snap) == kNoErr && snap.inputSource(name_) != nullptr;
}

std::optional<AudioFormatDescription> PulseCaptureDevice::activeFormat() const {
  StreamFormat f = streamFormatFor(spec_);
  if (f.formatID == 0) return std::nullopt;
  return AudioFormatDescription{f, 0, 0};
}

ObserverToken MicObservers::addDisconnect(::ac::SerialQueue* queue,
                                          std::function<void(std::shared_ptr<CaptureDevice>)> handler) {
  std::lock_guard<std::mutex> guard(mutex_);
  ObserverToken token = next_++;
  observers_[token] = Observer{nullptr, queue, std::move(handler), nullptr, std::make_shared<std::atomic<bool>>(true)};
  return token;
}

ObserverToken MicObservers::addRuntimeError(const CaptureSession* session, ::ac::SerialQueue* queue,
                                            std::function<void(std::optional<Error>)> handler) {
  std::lock_guard<std::mutex> guard(mutex_);
  ObserverToken token = next_++;
  observers_[token] = Observer{session, queue, nullptr, std::move(handler), std::make_shared<std::atomic<bool>>(true)};
  return token;
}

void MicObservers::remove(ObserverToken token) {
  std::lock_guard<std::mutex> guard(mutex_);
  auto it = observers_.find(token);
  if (it == observers_.end()) return;
  *it->second.active = false;
  observers_.erase(it);
}

namespace {
void deliver(::ac::SerialQueue* queue, const std::shared_ptr<std::atomic<bool>>& active, std::function<void()> call) {
  auto guarded = [active, call = std::move(call)] {
    if (*active) call();
  };
  if (queue) {
    queue->async(std::move(guarded));
  } else {
    guarded();
  }
}
}  // namespace

// Queued under the lock that remove() takes, so a removed observer's queue
// is never touched; observers without a queue are called after it.
void MicObservers::postDisconnect(const std::shared_ptr<CaptureDevice>& device) {
  std::vector<Observer> inlineTargets;
  {
    std::lock_guard<std::mutex> guard(mutex_);
    for (const auto& [token, o] : observers_)
      if (o.onDisconnect && o.queue)
        deliver(o.queue, o.active, [h = o.onDisconnect, device] { h(device); });
      else if (o.onDisconnect)
        inlineTargets.push_back(o);
  }
  for (auto& o : inlineTargets) deliver(nullptr, o.active, [h = o.onDisconnect, device] { h(device); });
}

void MicObservers::postRuntimeError(const CaptureSession* session, const Error& error) {
  std::vector<Observer> inlineTargets;
  {
    std::lock_guard<std::mutex> guard(mutex_);
    for (const auto& [token, o] : observers_)
      if (o.onRuntimeError && o.session == session && o.queue)
        deliver(o.queue, o.active, [h = o.onRuntimeError, error] { h(error); });
      else if (o.onRuntimeError && o.session == session)
        inlineTargets.push_back(o);
  }
  for (auto& o : inlineTargets) deliver(nullptr, o.active, [h = o.onRuntimeError, error] { h(error); });
}

}  // namespace ac::platform::linux_backend
