// The microphone seam on PulseAudio: devices are the sources that are not
// monitors, the default device is the server's default source (none when
// that is a monitor), and disconnects are sources the server removed,
// posted once the server named its new default source.
// Microphone access needs no permission here: always authorized.
//
// Threads: any thread except the pulse loop threads. Disconnect observers
// are fed by the shared server watch.
#pragma once

#include <chrono>
#include <memory>
#include <mutex>

#include "platform/linux/pulse_capture_devices.h"
#include "platform/mic_capture.h"

namespace ac::platform::linux_backend {

class PulseConnection;
class PulseWatch;

class PulseMicCapture final : public MicCapture {
 public:
  explicit PulseMicCapture(std::shared_ptr<PulseConnection> connection);
  ~PulseMicCapture() override;

  MicAuthorization authorizationStatus() override { return MicAuthorization::authorized; }
  void requestAccess(std::function<void(bool granted)> completion) override { completion(true); }

  std::shared_ptr<CaptureDevice> defaultAudioDevice() override;
  std::shared_ptr<CaptureDevice> deviceWithUniqueID(const std::string& uid) override;

  std::shared_ptr<CaptureDeviceInput> makeDeviceInput(const std::shared_ptr<CaptureDevice>& device,
                                                      Error& error) override;
  std::shared_ptr<AudioDataOutput> makeAudioDataOutput() override;
  std::shared_ptr<CaptureSession> makeSession() override;

  ObserverToken observeDeviceDisconnected(::ac::SerialQueue* queue,
                                          std::function<void(std::shared_ptr<CaptureDevice>)> handler) override;
  ObserverToken observeRuntimeError(const std::shared_ptr<CaptureSession>& session, ::ac::SerialQueue* queue,
                                    std::function<void(std::optional<Error>)> handler) override;
  void removeObserver(ObserverToken token) override;

  // The capture framework's "device not connected", for inputs on a device
  // that has gone.
  static constexpr int64_t kDeviceNotConnectedCode = -11814;
  // How long a disconnect waits for the server to name a new default source.
  static constexpr std::chrono::milliseconds kDefaultSettleTime{500};

 private:
  std::shared_ptr<CaptureDevice> deviceNamed(const std::string& name);
  // Subscribes to server changes once; retried on the next observer when
  // the server could not be reached.
  void ensureWatching();

  std::shared_ptr<PulseConnection> connection_;
  std::shared_ptr<MicObservers> observers_ = std::make_shared<MicObservers>();
  std::mutex watchMutex_;
  std::shared_ptr<PulseWatch> watch_;
  uint64_t watchToken_ = 0;
};

}  // namespace ac::platform::linux_backend
