// A scriptable microphone seam for tests.
//
// Devices are added with a unique id and a name; a device can be
// disconnected (it then vanishes from lookups, and the disconnect
// notification can be posted) and reconnected. The default device is
// whatever the test last set, answered only while it is connected.
//
// Sessions and outputs are recorded as they are made. A session's
// startRunning can be scripted to fail (the session stays stopped), and its
// canAddInput/canAddOutput answers scripted. Tests feed audio through
// SimAudioDataOutput::deliver, which runs the registered handler on its
// queue, and post disconnect and runtime-error notifications through
// SimMicCapture; both wait until the handlers have run.
//
// Thread-safe. No lock is held while a handler runs.
#pragma once

#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/mic_capture.h"

namespace ac::sim {

// 48 kHz mono float32 interleaved: what a capture output is asked for.
platform::AudioFormatDescription micFloatFormat(double rate = 48000, uint32_t channels = 1);

// A mono float32 buffer of `frames` samples of `value`, presented at `ptsNanos`.
platform::SampleBuffer micSampleBuffer(int64_t ptsNanos, int64_t frames = 480, float value = 0.25f,
                                       const platform::AudioFormatDescription& format = micFloatFormat());

class SimCaptureDevice final : public platform::CaptureDevice {
 public:
  SimCaptureDevice(std::string uid, std::string name, std::optional<platform::AudioFormatDescription> format)
      : uid_(std::move(uid)), name_(std::move(name)), format_(std::move(format)) {}
  std::string uniqueID() const override { return uid_; }
  std::string localizedName() const override { return name_; }
  bool isConnected() const override;
  std::optional<platform::AudioFormatDescription> activeFormat() const override { return format_; }
  void setConnected(bool connected);

 private:
  const std::string uid_;
  const std::string name_;
  const std::optional<platform::AudioFormatDescription> format_;
  mutable std::mutex mutex_;
  bool connected_ = true;
};

class SimCaptureDeviceInput final : public platform::CaptureDeviceInput {
 public:
  explicit SimCaptureDeviceInput(std::shared_ptr<platform::CaptureDevice> device) : device_(std::move(device)) {}
  std::shared_ptr<platform::CaptureDevice> device() const override { return device_; }

 private:
  std::shared_ptr<platform::CaptureDevice> device_;
};

class SimAudioDataOutput final : public platform::AudioDataOutput {
 public:
  void setAudioSettings(const platform::CaptureAudioSettings& settings) override;
  platform::CaptureAudioSettings audioSettings() const override;
  void setSampleBufferHandler(platform::SampleBufferHandler handler, ::ac::SerialQueue* queue) override;

  // Runs the handler with `buffer` on its queue and waits for it; false when
  // no handler is registered.
  bool deliver(const platform::SampleBuffer& buffer);
  std::string queueLabel() const;

 private:
  mutable std::mutex mutex_;
  platform::CaptureAudioSettings settings_{};
  platform::SampleBufferHandler handler_;
  ::ac::SerialQueue* queue_ = nullptr;
};

class SimCaptureSession final : public platform::CaptureSession {
 public:
  // --- scripting ---
  // The next `count` startRunning calls leave the session stopped.
  void failNextStarts(int count);
  // Answers for the next canAddInput calls, in order; then true.
  void scriptCanAddInput(std::vector<bool> answers);
  void setCanAddOutput(bool can);
  // Stops the session as a device or runtime failure would.
  void setRunning(bool running);

  // --- records ---
  std::vector<std::shared_ptr<platform::CaptureDeviceInput>> inputs() const;
  std::vector<std::shared_ptr<platform::AudioDataOutput>> outputs() const;
  int startCalls() const;
  int stopCalls() const;
  bool inConfiguration() const;

  // --- platform::CaptureSession ---
  void beginConfiguration() override;
  void commitConfiguration() override;
  bool canAddInput(const std::shared_ptr<platform::CaptureDeviceInput>& input) override;
  void addInput(const std::shared_ptr<platform::CaptureDeviceInput>& input) override;
  void removeInput(const std::shared_ptr<platform::CaptureDeviceInput>& input) override;
  bool canAddOutput(const std::shared_ptr<platform::AudioDataOutput>& output) override;
  void addOutput(const std::shared_ptr<platform::AudioDataOutput>& output) override;
  void startRunning() override;
  void stopRunning() override;
  bool isRunning() override;

 private:
  mutable std::mutex mutex_;
  int failStarts_ = 0;
  std::deque<bool> canAddInputAnswers_;
  bool canAddOutput_ = true;
  bool running_ = false;
  bool inConfiguration_ = false;
  int startCalls_ = 0;
  int stopCalls_ = 0;
  std::vector<std::shared_ptr<platform::CaptureDeviceInput>> inputs_;
  std::vector<std::shared_ptr<platform::AudioDataOutput>> outputs_;
};

class SimMicCapture final : public platform::MicCapture {
 public:
  // --- scripting ---
  std::shared_ptr<SimCaptureDevice> addDevice(
      const std::string& uid, const std::string& name,
      std::optional<platform::AudioFormatDescription> format = micFloatFormat());
  std::shared_ptr<SimCaptureDevice> device(const std::string& uid) const;
  void setDefaultDevice(std::optional<std::string> uid);
  // Marks the device gone; with `notify`, posts the disconnect naming it.
  void disconnect(const std::string& uid, bool notify = true);
  void reconnect(const std::string& uid);
  // makeDeviceInput fails for this device with `error`.
  void failDeviceInput(const std::string& uid, Error error);
  void setAuthorization(platform::MicAuthorization status, bool grantOnRequest = true);
  // Sessions made from now on fail this many startRunning calls.
  void failStartsOfNewSessions(int count);

  // Posts to every matching observer and (unless told not to) waits until
  // the handlers ran.
  void postDeviceDisconnected(std::shared_ptr<platform::CaptureDevice> device, bool wait = true);
  void postRuntimeError(const std::shared_ptr<platform::CaptureSession>& session, std::optional<Error> error);

  // --- records ---
  std::shared_ptr<SimCaptureSession> lastSession() const;
  std::shared_ptr<SimAudioDataOutput> lastOutput() const;
  // Unique ids of every device an input was requested for, in order.
  std::vector<std::string> inputRequests() const;
  size_t observerCount() const;

  // --- platform::MicCapture ---
  platform::MicAuthorization authorizationStatus() override;
  void requestAccess(std::function<void(bool granted)> completion) override;
  std::shared_ptr<platform::CaptureDevice> defaultAudioDevice() override;
  std::shared_ptr<platform::CaptureDevice> deviceWithUniqueID(const std::string& uid) override;
  std::shared_ptr<platform::CaptureDeviceInput> makeDeviceInput(const std::shared_ptr<platform::CaptureDevice>& device,
                                                                Error& error) override;
  std::shared_ptr<platform::AudioDataOutput> makeAudioDataOutput() override;
  std::shared_ptr<platform::CaptureSession> makeSession() override;
  platform::ObserverToken observeDeviceDisconnected(
      ::ac::SerialQueue* queue, std::function<void(std::shared_ptr<platform::CaptureDevice>)> handler) override;
  platform::ObserverToken observeRuntimeError(const std::shared_ptr<platform::CaptureSession>& session,
                                              ::ac::SerialQueue* queue,
                                              std::function<void(std::optional<Error>)> handler) override;
  void removeObserver(platform::ObserverToken token) override;

 private:
  struct Observer {
    ::ac::SerialQueue* queue = nullptr;
    std::function<void(std::shared_ptr<platform::CaptureDevice>)> onDisconnect;
    std::shared_ptr<platform::CaptureSession> session;  // runtime-error observers only
    std::function<void(std::optional<Error>)> onError;
  };
  // Runs each call on its observer's queue (inline when none).
  static void runOnQueues(const std::vector<std::pair<::ac::SerialQueue*, std::function<void()>>>& calls, bool wait);

  mutable std::mutex mutex_;
  std::map<std::string, std::shared_ptr<SimCaptureDevice>> devices_;
  std::map<std::string, Error> inputFailures_;
  std::optional<std::string> defaultUID_;
  platform::MicAuthorization authorization_ = platform::MicAuthorization::authorized;
  bool grantOnRequest_ = true;
  int failStartsOfNewSessions_ = 0;
  std::vector<std::shared_ptr<SimCaptureSession>> sessions_;
  std::vector<std::shared_ptr<SimAudioDataOutput>> outputs_;
  std::vector<std::string> inputRequests_;
  std::map<platform::ObserverToken, Observer> observers_;
  platform::ObserverToken nextToken_ = 1;
};

}  // namespace ac::sim
