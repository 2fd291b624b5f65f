// Placeholder for the PulseAudio microphone backend: no devices, so set-up
// fails with "no mic device" rather than recording nothing.
#include "platform/linux/backends.h"

namespace ac::platform::linux_backend {
namespace {
class Unbuilt final : public MicCapture {
 public:
  MicAuthorization authorizationStatus() override { return MicAuthorization::authorized; }
  void requestAccess(std::function<void(bool)> completion) override { completion(true); }
  std::shared_ptr<CaptureDevice> defaultAudioDevice() override { return nullptr; }
  std::shared_ptr<CaptureDevice> deviceWithUniqueID(const std::string&) override { return nullptr; }
  std::shared_ptr<CaptureDeviceInput> makeDeviceInput(const std::shared_ptr<CaptureDevice>&, Error& error) override {
    error = Error{kCaptureErrorDomain, kUnimplementedErr, "microphone capture is not built on this platform yet"};
    return nullptr;
  }
  std::shared_ptr<AudioDataOutput> makeAudioDataOutput() override { return nullptr; }
  std::shared_ptr<CaptureSession> makeSession() override { return nullptr; }
  ObserverToken observeDeviceDisconnected(::ac::SerialQueue*, std::function<void(std::shared_ptr<CaptureDevice>)>) override {
    return 0;
  }
  ObserverToken observeRuntimeError(const std::shared_ptr<CaptureSession>&, ::ac::SerialQueue*,
                                    std::function<void(std::optional<Error>)>) override {
    return 0;
  }
  void removeObserver(ObserverToken) override {}
};
}  // namespace
std::unique_ptr<MicCapture> makePulseMicCapture() { return std::make_unique<Unbuilt>(); }
}  // namespace ac::platform::linux_backend
