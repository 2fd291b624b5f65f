// Microphone devices and the observers of the PulseAudio microphone seam.
//
// A capture device is a source that is not a monitor, known by its name;
// what it reports beyond the name is what the server said when the object
// was made, except isConnected(), which asks the server each time.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>

#include "platform/linux/pulse_snapshot.h"
#include "platform/mic_capture.h"

namespace ac::platform::linux_backend {

class PulseConnection;

class PulseCaptureDevice final : public CaptureDevice {
 public:
  PulseCaptureDevice(std::shared_ptr<PulseConnection> connection, const SourceInfo& source);
  std::string uniqueID() const override { return name_; }
  std::string localizedName() const override { return description_; }
  bool isConnected() const override;
  std::optional<AudioFormatDescription> activeFormat() const override;
  uint8_t channels() const { return spec_.channels; }

 private:
  std::shared_ptr<PulseConnection> connection_;
  std::string name_;
  std::string description_;
  pa_sample_spec spec_;
};

class PulseCaptureDeviceInput final : public CaptureDeviceInput {
 public:
  explicit PulseCaptureDeviceInput(std::shared_ptr<PulseCaptureDevice> device) : device_(std::move(device)) {}
  std::shared_ptr<CaptureDevice> device() const override { return device_; }
  const PulseCaptureDevice& pulseDevice() const { return *device_; }

 private:
  std::shared_ptr<PulseCaptureDevice> device_;
};

// The registered observers. Posting hands each matching handler its call on
// the observer's queue (or runs it on the posting thread without one). Safe
// on any thread, including the pulse loop: the lock is only held to copy.
class MicObservers {
 public:
  ObserverToken addDisconnect(::ac::SerialQueue* queue, std::function<void(std::shared_ptr<CaptureDevice>)> handler);
  ObserverToken addRuntimeError(const CaptureSession* session, ::ac::SerialQueue* queue,
                                std::function<void(std::optional<Error>)> handler);
  void remove(ObserverToken token);

  void postDisconnect(const std::shared_ptr<CaptureDevice>& device);
  void postRuntimeError(const CaptureSession* session, const Error& error);

 private:
  struct Observer {
    const CaptureSession* session = nullptr;  // null: a disconnect observer
    ::ac::SerialQueue* queue = nullptr;
    std::function<void(std::shared_ptr<CaptureDevice>)> onDisconnect;
    std::function<void(std::optional<Error>)> onRuntimeError;
    // Cleared on removal; a call already queued checks it before running.
    std::shared_ptr<std::atomic<bool>> active;
  };
  mutable std::mutex mutex_;
  std::map<ObserverToken, Observer> observers_;
  ObserverToken next_ = 1;
};

}  // namespace ac::platform::linux_backend
