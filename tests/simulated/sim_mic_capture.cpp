#include "sim_mic_capture.h"

#include <cstring>

#include "support/dispatch.h"

namespace ac::sim {

using platform::AudioFormatDescription;
using platform::CaptureDevice;

AudioFormatDescription micFloatFormat(double rate, uint32_t channels) {
  AudioFormatDescription d;
  d.asbd = platform::floatPCMFormat(rate, channels);
  return d;
}

platform::SampleBuffer micSampleBuffer(int64_t ptsNanos, int64_t frames, float value,
                                       const AudioFormatDescription& format) {
  platform::SampleBuffer sb;
  sb.format = format;
  sb.numSamples = frames;
  const int32_t rate = static_cast<int32_t>(format.asbd.sampleRate);
  sb.timing.push_back({platform::MediaTime::make(1, rate > 0 ? rate : 48000),
                       platform::MediaTime::make(ptsNanos, 1000000000), platform::MediaTime::invalid()});
  const uint32_t channels = format.asbd.channelsPerFrame ? format.asbd.channelsPerFrame : 1;
  std::vector<uint8_t> bytes(static_cast<size_t>(frames) * channels * sizeof(float));
  for (size_t i = 0; i < bytes.size() / sizeof(float); ++i) std::memcpy(&bytes[i * sizeof(float)], &value, 4);
  sb.buffers.push_back(std::move(bytes));
  sb.bufferChannels.push_back(channels);
  sb.dataReady = true;
  return sb;
}

// ---- output ----------------------------------------------------------------

void SimAudioDataOutput::setSampleBufferHandler(platform::SampleBufferHandler handler, ::ac::SerialQueue* queue) {
  std::lock_guard lock(mutex_);
  handler_ = std::move(handler);
  queue_ = queue;
}

bool SimAudioDataOutput::deliver(const platform::SampleBuffer& buffer) {
  platform::SampleBufferHandler handler;
  ::ac::SerialQueue* queue;
  {
    std::lock_guard lock(mutex_);
    handler = handler_;
    queue = queue_;
  }
  if (!handler) return false;
  if (queue)
    queue->sync([&] { handler(buffer); });
  else
    handler(buffer);
  return true;
}

std::string SimAudioDataOutput::queueLabel() const {
  std::lock_guard lock(mutex_);
  return queue_ ? queue_->label() : std::string();
}

// ---- mic capture -----------------------------------------------------------

std::shared_ptr<SimCaptureDevice> SimMicCapture::addDevice(const std::string& uid, const std::string& name,
                                                           std::optional<AudioFormatDescription> format) {
  auto device = std::make_shared<SimCaptureDevice>(uid, name, std::move(format));
  std::lock_guard lock(mutex_);
  devices_[uid] = device;
  return device;
}

std::shared_ptr<SimCaptureDevice> SimMicCapture::device(const std::string& uid) const {
  std::lock_guard lock(mutex_);
  auto it = devices_.find(uid);
  return it == devices_.end() ? nullptr : it->second;
}

std::shared_ptr<SimCaptureDevice> SimMicCapture::connectedLocked(const std::optional<std::string>& uid) const {
  auto it = uid ? devices_.find(*uid) : devices_.end();
  return it != devices_.end() && it->second->isConnected() ? it->second : nullptr;
}

void SimMicCapture::disconnect(const std::string& uid, bool notify) {
  std::shared_ptr<SimCaptureDevice> dev = device(uid);
  if (!dev) return;
  dev->setConnected(false);
  if (notify) postDeviceDisconnected(dev);
}

void SimMicCapture::notify(const std::function<std::function<void()>(const Observer&)>& callFor, bool wait) {
  // Queued under the lock, as removeObserver takes it: a removed observer's
  // queue is never touched. Observers without a queue (or on the calling
  // queue, when waiting) run inline once the lock is released.
  std::vector<std::function<void()>> inlineCalls;
  auto done = std::make_shared<Semaphore>();
  int queued = 0;
  {
    std::lock_guard lock(mutex_);
    for (const auto& [token, o] : observers_) {
      std::function<void()> call = callFor(o);
      if (!call) continue;
      if (!o.queue || (wait && o.queue->isCurrent())) {
        inlineCalls.push_back(std::move(call));
        continue;
      }
      o.queue->async([call, done] { call(), done->signal(); });
      ++queued;
    }
  }
  for (const auto& call : inlineCalls) call();
  if (wait)
    while (queued-- > 0) done->wait();
}

void SimMicCapture::postDeviceDisconnected(std::shared_ptr<CaptureDevice> device, bool wait) {
  notify([&](const Observer& o) -> std::function<void()> {
    if (!o.onDisconnect) return nullptr;
    return [h = o.onDisconnect, device] { h(device); };
  }, wait);
}

void SimMicCapture::postRuntimeError(const std::shared_ptr<platform::CaptureSession>& session,
                                     std::optional<Error> error) {
  notify([&](const Observer& o) -> std::function<void()> {
    if (!o.onError || o.session != session) return nullptr;
    return [h = o.onError, error] { h(error); };
  }, true);
}

std::shared_ptr<CaptureDevice> SimMicCapture::defaultAudioDevice() {
  std::lock_guard lock(mutex_);
  return connectedLocked(defaultUID_);
}

std::shared_ptr<CaptureDevice> SimMicCapture::deviceWithUniqueID(const std::string& uid) {
  std::lock_guard lock(mutex_);
  return connectedLocked(uid);
}

std::shared_ptr<platform::CaptureDeviceInput> SimMicCapture::makeDeviceInput(
    const std::shared_ptr<CaptureDevice>& device, Error& error) {
  std::lock_guard lock(mutex_);
  if (device) inputRequests_.push_back(device->uniqueID());
  if (!device || !device->isConnected()) {
    error = {platform::kCaptureErrorDomain, -11814, "Cannot Record"};
    return nullptr;
  }
  return std::make_shared<SimCaptureDeviceInput>(device);
}

std::shared_ptr<platform::AudioDataOutput> SimMicCapture::makeAudioDataOutput() {
  auto output = std::make_shared<SimAudioDataOutput>();
  writeLocked(mutex_, lastOutput_, output);
  return output;
}

std::shared_ptr<platform::CaptureSession> SimMicCapture::makeSession() {
  auto session = std::make_shared<SimCaptureSession>();
  writeLocked(mutex_, lastSession_, session);
  return session;
}

platform::ObserverToken SimMicCapture::addObserver(Observer observer) {
  std::lock_guard lock(mutex_);
  observers_[nextToken_] = std::move(observer);
  return nextToken_++;
}

platform::ObserverToken SimMicCapture::observeDeviceDisconnected(
    ::ac::SerialQueue* queue, std::function<void(std::shared_ptr<CaptureDevice>)> handler) {
  return addObserver({queue, std::move(handler), nullptr, nullptr});
}

platform::ObserverToken SimMicCapture::observeRuntimeError(const std::shared_ptr<platform::CaptureSession>& session,
                                                           ::ac::SerialQueue* queue,
                                                           std::function<void(std::optional<Error>)> handler) {
  return addObserver({queue, nullptr, session, std::move(handler)});
}

}  // namespace ac::sim
