// A scriptable microphone seam for tests.
//
// Devices are added with a unique id and a name, all 48 kHz mono float32; a device can be
// disconnected (it then vanishes from lookups, and the disconnect
// notification can be posted) and reconnected. The default device is
// whatever the test last set, answered only while it is connected.
// Authorization is always granted.
//
// Sessions and outputs are recorded as they are made; a session's
// startRunning can be scripted to fail (the session stays stopped). Tests
// feed audio through SimAudioDataOutput::deliver, which runs the registered
// handler on its queue, and post disconnect and runtime-error notifications
// through SimMicCapture; both wait until the handlers have run.
//
// Thread-safe. No lock is held while a handler runs.
#pragma once

#include <algorithm>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/mic_capture.h"
#include "tests/simulated/locked_fields.h"

namespace ac::sim {

// 48 kHz mono float32 interleaved: what a capture output is asked for.
platform::AudioFormatDescription micFloatFormat(double rate = 48000, uint32_t channels = 1);

// A mono float32 buffer of `frames` samples of `value`, presented at `ptsNanos`.
platform::SampleBuffer micSampleBuffer(int64_t ptsNanos, int64_t frames = 480, float value = 0.25f,
                                       const platform::AudioFormatDescription& format = micFloatFormat());

class SimCaptureDevice final : public platform::CaptureDevice {
 public:
  SimCaptureDevice(std::string uid, std::string name) : uid_(std::move(uid)), name_(std::move(name)) {}
  std::string uniqueID() const override { return uid_; }
  std::string localizedName() const override { return name_; }
  bool isConnected() const override { return connected.get(); }
  std::optional<platform::AudioFormatDescription> activeFormat() const override { return micFloatFormat(); }
  Locked<bool> connected = true;

 private:
  const std::string uid_;
  const std::string name_;
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
  void setAudioSettings(const platform::CaptureAudioSettings& settings) override { settings_.set(settings); }
  platform::CaptureAudioSettings audioSettings() const override { return settings_.get(); }
  void setSampleBufferHandler(platform::SampleBufferHandler handler, ::ac::SerialQueue* queue) override {
    handler_.set({std::move(handler), queue});
  }
  // Runs the handler with `buffer` on its queue and waits for it; false when
  // no handler is registered.
  bool deliver(const platform::SampleBuffer& buffer);

 private:
  Locked<platform::CaptureAudioSettings> settings_;
  Locked<std::pair<platform::SampleBufferHandler, ::ac::SerialQueue*>> handler_;
};

class SimCaptureSession final : public platform::CaptureSession {
 public:
  Locked<int> failStarts;  // script: the next this many startRunning calls leave the session stopped
  Locked<std::vector<std::shared_ptr<platform::CaptureDeviceInput>>> inputs;  // record

  // --- platform::CaptureSession ---
  void beginConfiguration() override {}
  void commitConfiguration() override {}
  bool canAddInput(const std::shared_ptr<platform::CaptureDeviceInput>& input) override {
    return input && inputs.with([&](auto& v) { return std::find(v.begin(), v.end(), input) == v.end(); });
  }
  void addInput(const std::shared_ptr<platform::CaptureDeviceInput>& input) override { inputs.push_back(input); }
  void removeInput(const std::shared_ptr<platform::CaptureDeviceInput>& input) override {
    inputs.with([&](auto& v) { std::erase(v, input); });
  }
  bool canAddOutput(const std::shared_ptr<platform::AudioDataOutput>&) override { return true; }
  void addOutput(const std::shared_ptr<platform::AudioDataOutput>&) override {}
  void startRunning() override { running_.set(failStarts.with([](int& n) { return n > 0 ? (--n, false) : true; })); }
  // Also what a test calls to stop the session as a device or runtime failure would.
  void stopRunning() override { running_.set(false); }
  bool isRunning() override { return running_.get(); }

 private:
  Locked<bool> running_;
};

class SimMicCapture final : public platform::MicCapture {
 public:
  // --- scripting ---
  void addDevice(const std::string& uid, const std::string& name) {
    devices_.with([&](auto& all) { all[uid] = std::make_shared<SimCaptureDevice>(uid, name); });
  }
  std::shared_ptr<SimCaptureDevice> device(const std::string& uid) const {
    auto all = devices_.get();
    return all.contains(uid) ? all[uid] : nullptr;
  }
  Locked<std::optional<std::string>> defaultUID;  // answered only while that device is connected
  // Marks the device gone; with `notify`, posts the disconnect naming it.
  void disconnect(const std::string& uid, bool notify = true) {
    device(uid)->connected.set(false);
    if (notify) postDeviceDisconnected(device(uid));
  }
  void reconnect(const std::string& uid) { device(uid)->connected.set(true); }

  // Posts to every matching observer and (unless told not to) waits until
  // the handlers ran.
  void postDeviceDisconnected(std::shared_ptr<platform::CaptureDevice> device, bool wait = true) {
    notify([&](const Observer& o) -> std::function<void()> {
      if (!o.onDisconnect) return nullptr;
      return [h = o.onDisconnect, device] { h(device); };
    }, wait);
  }
  void postRuntimeError(const std::shared_ptr<platform::CaptureSession>& session, std::optional<Error> error) {
    notify([&](const Observer& o) -> std::function<void()> {
      if (!o.onError || o.session != session) return nullptr;
      return [h = o.onError, error] { h(error); };
    }, true);
  }

  // --- records ---
  Locked<std::shared_ptr<SimCaptureSession>> lastSession;
  Locked<std::shared_ptr<SimAudioDataOutput>> lastOutput;
  size_t observerCount() const {
    std::lock_guard lock(mutex_);
    return observers_.size();
  }

  // --- platform::MicCapture ---
  platform::MicAuthorization authorizationStatus() override { return platform::MicAuthorization::authorized; }
  void requestAccess(std::function<void(bool granted)> completion) override {
    if (completion) completion(true);
  }
  std::shared_ptr<platform::CaptureDevice> defaultAudioDevice() override { return connected(defaultUID.get()); }
  std::shared_ptr<platform::CaptureDevice> deviceWithUniqueID(const std::string& uid) override { return connected(uid); }
  std::shared_ptr<platform::CaptureDeviceInput> makeDeviceInput(const std::shared_ptr<platform::CaptureDevice>& device,
                                                                Error& error) override {
    if (device && device->isConnected()) return std::make_shared<SimCaptureDeviceInput>(device);
    error = {platform::kCaptureErrorDomain, -11814, "Cannot Record"};
    return nullptr;
  }
  std::shared_ptr<platform::AudioDataOutput> makeAudioDataOutput() override {
    return lastOutput.with([](auto& last) { return last = std::make_shared<SimAudioDataOutput>(); });
  }
  std::shared_ptr<platform::CaptureSession> makeSession() override {
    return lastSession.with([](auto& last) { return last = std::make_shared<SimCaptureSession>(); });
  }
  platform::ObserverToken observeDeviceDisconnected(
      ::ac::SerialQueue* queue, std::function<void(std::shared_ptr<platform::CaptureDevice>)> handler) override {
    return addObserver({queue, std::move(handler), nullptr, nullptr});
  }
  platform::ObserverToken observeRuntimeError(const std::shared_ptr<platform::CaptureSession>& session,
                                              ::ac::SerialQueue* queue,
                                              std::function<void(std::optional<Error>)> handler) override {
    return addObserver({queue, nullptr, session, std::move(handler)});
  }
  void removeObserver(platform::ObserverToken token) override {
    std::lock_guard lock(mutex_);
    observers_.erase(token);
  }

 private:
  struct Observer {
    ::ac::SerialQueue* queue = nullptr;
    std::function<void(std::shared_ptr<platform::CaptureDevice>)> onDisconnect;
    std::shared_ptr<platform::CaptureSession> session;  // runtime-error observers only
    std::function<void(std::optional<Error>)> onError;
  };
  // Runs callFor(observer), where not null, on each observer's queue.
  void notify(const std::function<std::function<void()>(const Observer&)>& callFor, bool wait);
  platform::ObserverToken addObserver(Observer observer) {
    std::lock_guard lock(mutex_);
    observers_[nextToken_] = std::move(observer);
    return nextToken_++;
  }
  // The device while it is connected, else null.
  std::shared_ptr<SimCaptureDevice> connected(const std::optional<std::string>& uid) const {
    auto d = uid ? device(*uid) : nullptr;
    return d && d->isConnected() ? d : nullptr;
  }

  mutable std::mutex mutex_;
  Locked<std::map<std::string, std::shared_ptr<SimCaptureDevice>>> devices_;
  std::map<platform::ObserverToken, Observer> observers_;
  platform::ObserverToken nextToken_ = 1;
};

}  // namespace ac::sim
