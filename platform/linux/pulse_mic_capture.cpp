#include "platform/linux/pulse_mic_capture.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "platform/linux/backends.h"
#include "platform/linux/pulse_capture_session.h"
#include "platform/linux/pulse_connection.h"
#include "platform/linux/pulse_watch.h"
#include "support/dispatch.h"
#include "support/log.h"

namespace ac::platform::linux_backend {

std::unique_ptr<MicCapture> makePulseMicCapture() {
  return std::make_unique<PulseMicCapture>(PulseConnection::shared());
}

PulseMicCapture::PulseMicCapture(std::shared_ptr<PulseConnection> connection) : connection_(std::move(connection)) {}

PulseMicCapture::~PulseMicCapture() {
  std::lock_guard<std::mutex> guard(watchMutex_);
  if (watch_) watch_->unsubscribe(watchToken_);
}

std::shared_ptr<CaptureDevice> PulseMicCapture::deviceNamed(const std::string& name) {
  Snapshot snap;
  if (PulseWatch::read(*connection_, snap) != kNoErr) return nullptr;
  const SourceInfo* source = snap.inputSource(name);
  return source ? std::make_shared<PulseCaptureDevice>(connection_, *source) : nullptr;
}

std::shared_ptr<CaptureDevice> PulseMicCapture::defaultAudioDevice() {
  Snapshot snap;
  if (PulseWatch::read(*connection_, snap) != kNoErr) return nullptr;
  // A monitor as the server's default source is no microphone: none then.
  const SourceInfo* source = snap.inputSource(snap.defaultSource);
  return source ? std::make_shared<PulseCaptureDevice>(connection_, *source) : nullptr;
}

std::shared_ptr<CaptureDevice> PulseMicCapture::deviceWithUniqueID(const std::string& uid) { return deviceNamed(uid); }

std::shared_ptr<CaptureDeviceInput> PulseMicCapture::makeDeviceInput(const std::shared_ptr<CaptureDevice>& device,
                                                                     Error& error) {
  auto pulseDevice = std::dynamic_pointer_cast<PulseCaptureDevice>(device);
  if (!pulseDevice) {
    error = Error{kCaptureErrorDomain, kDeviceNotConnectedCode, "not a PulseAudio capture device"};
    return nullptr;
  }
  if (!pulseDevice->isConnected()) {
    error = Error{kCaptureErrorDomain, kDeviceNotConnectedCode,
                  "the microphone " + pulseDevice->localizedName() + " is not connected"};
    return nullptr;
  }
  return std::make_shared<PulseCaptureDeviceInput>(std::move(pulseDevice));
}

std::shared_ptr<AudioDataOutput> PulseMicCapture::makeAudioDataOutput() {
  return std::make_shared<PulseAudioDataOutput>();
}

std::shared_ptr<CaptureSession> PulseMicCapture::makeSession() {
  return std::make_shared<PulseCaptureSession>(connection_, observers_);
}

void PulseMicCapture::ensureWatching() {
  std::lock_guard<std::mutex> guard(watchMutex_);
  if (watch_) return;
  auto watch = PulseWatch::of(connection_);
  uint64_t token = 0;
  // Holds the observers, not this object, so a late change never touches a
  // destroyed seam.
  auto observers = observers_;
  auto connection = connection_;
  // Sources gone but not yet posted, and since when (the watch queue only).
  struct Gone {
    std::vector<SourceInfo> sources;
    std::chrono::steady_clock::time_point since;
  };
  auto gone = std::make_shared<Gone>();
  std::weak_ptr<PulseWatch> weakWatch = watch;
  OSStatus st = watch->subscribe(
      [observers, connection, gone, weakWatch](const Snapshot& before, const Snapshot& after) {
        const bool first = gone->sources.empty();
        for (const auto& source : before.sources)
          if (!source.isMonitor && !after.inputSource(source.name)) gone->sources.push_back(source);
        if (gone->sources.empty()) return;
        if (first) gone->since = std::chrono::steady_clock::now();
        // The server names a new default source after it removed the old
        // one (PipeWire's session manager a moment later): a disconnect is
        // posted once it did, so a rebuild finds the new default at once.
        bool settled = after.inputSource(after.defaultSource) != nullptr ||
                       std::none_of(after.sources.begin(), after.sources.end(), [](const SourceInfo& s) { return !s.isMonitor; }) ||
                       std::chrono::steady_clock::now() - gone->since >= kDefaultSettleTime;
        if (!settled) {
          if (first)
            dispatchGlobalAfter(std::chrono::duration<double>(kDefaultSettleTime).count(), [weakWatch] {
              if (auto w = weakWatch.lock()) w->changed();
            });
          return;
        }
        for (const auto& source : std::exchange(gone->sources, {}))
          observers->postDisconnect(std::make_shared<PulseCaptureDevice>(connection, source));
      },
      token);
  if (st != kNoErr) {
    ac::log("pulse: cannot watch for microphone disconnects (status " + std::to_string(st) + ")");
    return;
  }
  watch_ = std::move(watch);
  watchToken_ = token;
}

ObserverToken PulseMicCapture::observeDeviceDisconnected(::ac::SerialQueue* queue,
                                                         std::function<void(std::shared_ptr<CaptureDevice>)> handler) {
  ObserverToken token = observers_->addDisconnect(queue, std::move(handler));
  ensureWatching();
  return token;
}

ObserverToken PulseMicCapture::observeRuntimeError(const std::shared_ptr<CaptureSession>& session,
                                                   ::ac::SerialQueue* queue,
                                                   std::function<void(std::optional<Error>)> handler) {
  return observers_->addRuntimeError(session.get(), queue, std::move(handler));
}

void PulseMicCapture::removeObserver(ObserverToken token) { observers_->remove(token); }

}  // namespace ac::platform::linux_backend
