#include "sim_mic_capture.h"

#include <algorithm>
#include <cstring>

#include "support/dispatch.h"

namespace ac::sim {

namespace {

template <class T>
T readLocked(std::mutex& mutex, const T& field) {
  std::lock_guard<std::mutex> lock(mutex);
  return field;
}

template <class T, class V>
void writeLocked(std::mutex& mutex, T& field, V&& value) {
  std::lock_guard<std::mutex> lock(mutex);
  field = std::forward<V>(value);
}

}  // namespace

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

// ---- device ----------------------------------------------------------------

bool SimCaptureDevice::isConnected() const { return readLocked(mutex_, connected_); }

void SimCaptureDevice::setConnected(bool connected) { writeLocked(mutex_, connected_, connected); }

// ---- output ----------------------------------------------------------------

void SimAudioDataOutput::setAudioSettings(const platform::CaptureAudioSettings& settings) {
  writeLocked(mutex_, settings_, settings);
}

platform::CaptureAudioSettings SimAudioDataOutput::audioSettings() const { return readLocked(mutex_, settings_); }

void SimAudioDataOutput::setSampleBufferHandler(platform::SampleBufferHandler handler, ::ac::SerialQueue* queue) {
  std::lock_guard<std::mutex> lock(mutex_);
  handler_ = std::move(handler);
  queue_ = queue;
}

bool SimAudioDataOutput::deliver(const platform::SampleBuffer& buffer) {
  platform::SampleBufferHandler handler;
  ::ac::SerialQueue* queue;
  {
    std::lock_guard<std::mutex> lock(mutex_);
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
  std::lock_guard<std::mutex> lock(mutex_);
  return queue_ ? queue_->label() : std::string();
}

// ---- session ---------------------------------------------------------------

void SimCaptureSession::failNextStarts(int count) { writeLocked(mutex_, failStarts_, count); }

void SimCaptureSession::scriptCanAddInput(std::vector<bool> answers) {
  std::lock_guard<std::mutex> lock(mutex_);
  canAddInputAnswers_.assign(answers.begin(), answers.end());
}

void SimCaptureSession::setCanAddOutput(bool can) { writeLocked(mutex_, canAddOutput_, can); }

void SimCaptureSession::setRunning(bool running) { writeLocked(mutex_, running_, running); }

std::vector<std::shared_ptr<platform::CaptureDeviceInput>> SimCaptureSession::inputs() const {
  return readLocked(mutex_, inputs_);
}

std::vector<std::shared_ptr<platform::AudioDataOutput>> SimCaptureSession::outputs() const {
  return readLocked(mutex_, outputs_);
}

int SimCaptureSession::startCalls() const { return readLocked(mutex_, startCalls_); }

int SimCaptureSession::stopCalls() const { return readLocked(mutex_, stopCalls_); }

bool SimCaptureSession::inConfiguration() const { return readLocked(mutex_, inConfiguration_); }

void SimCaptureSession::beginConfiguration() { writeLocked(mutex_, inConfiguration_, true); }

void SimCaptureSession::commitConfiguration() { writeLocked(mutex_, inConfiguration_, false); }

bool SimCaptureSession::canAddInput(const std::shared_ptr<platform::CaptureDeviceInput>& input) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!canAddInputAnswers_.empty()) {
    bool answer = canAddInputAnswers_.front();
    canAddInputAnswers_.pop_front();
    return answer;
  }
  return input && std::find(inputs_.begin(), inputs_.end(), input) == inputs_.end();
}

void SimCaptureSession::addInput(const std::shared_ptr<platform::CaptureDeviceInput>& input) {
  std::lock_guard<std::mutex> lock(mutex_);
  inputs_.push_back(input);
}

void SimCaptureSession::removeInput(const std::shared_ptr<platform::CaptureDeviceInput>& input) {
  std::lock_guard<std::mutex> lock(mutex_);
  inputs_.erase(std::remove(inputs_.begin(), inputs_.end(), input), inputs_.end());
}

bool SimCaptureSession::canAddOutput(const std::shared_ptr<platform::AudioDataOutput>&) {
  std::lock_guard<std::mutex> lock(mutex_);
  return canAddOutput_;
}

void SimCaptureSession::addOutput(const std::shared_ptr<platform::AudioDataOutput>& output) {
  std::lock_guard<std::mutex> lock(mutex_);
  outputs_.push_back(output);
}

void SimCaptureSession::startRunning() {
  std::lock_guard<std::mutex> lock(mutex_);
  ++startCalls_;
  if (failStarts_ > 0) {
    --failStarts_;
    return;
  }
  running_ = true;
}

void SimCaptureSession::stopRunning() {
  std::lock_guard<std::mutex> lock(mutex_);
  ++stopCalls_;
  running_ = false;
}

bool SimCaptureSession::isRunning() {
  std::lock_guard<std::mutex> lock(mutex_);
  return running_;
}

// ---- mic capture -----------------------------------------------------------

std::shared_ptr<SimCaptureDevice> SimMicCapture::addDevice(const std::string& uid, const std::string& name,
                                                           std::optional<AudioFormatDescription> format) {
  auto device = std::make_shared<SimCaptureDevice>(uid, name, std::move(format));
  std::lock_guard<std::mutex> lock(mutex_);
  devices_[uid] = device;
  return device;
}

std::shared_ptr<SimCaptureDevice> SimMicCapture::device(const std::string& uid) const {
  std::lock_guard<std::mutex> lock(mutex_);
  auto it = devices_.find(uid);
  return it == devices_.end() ? nullptr : it->second;
}

void SimMicCapture::setDefaultDevice(std::optional<std::string> uid) {
  writeLocked(mutex_, defaultUID_, std::move(uid));
}

void SimMicCapture::disconnect(const std::string& uid, bool notify) {
  std::shared_ptr<SimCaptureDevice> dev = device(uid);
  if (!dev) return;
  dev->setConnected(false);
  if (notify) postDeviceDisconnected(dev);
}

void SimMicCapture::reconnect(const std::string& uid) {
  if (auto dev = device(uid)) dev->setConnected(true);
}

void SimMicCapture::failDeviceInput(const std::string& uid, Error error) {
  std::lock_guard<std::mutex> lock(mutex_);
  inputFailures_[uid] = std::move(error);
}

void SimMicCapture::setAuthorization(platform::MicAuthorization status, bool grantOnRequest) {
  std::lock_guard<std::mutex> lock(mutex_);
  authorization_ = status;
  grantOnRequest_ = grantOnRequest;
}

void SimMicCapture::failStartsOfNewSessions(int count) { writeLocked(mutex_, failStartsOfNewSessions_, count); }

void SimMicCapture::runOnQueues(const std::vector<std::pair<::ac::SerialQueue*, std::function<void()>>>& calls,
                                bool wait) {
  for (const auto& [queue, call] : calls) {
    if (queue && !wait)
      queue->async(call);
    else if (queue)
      queue->sync(call);
    else
      call();
  }
}

void SimMicCapture::postDeviceDisconnected(std::shared_ptr<CaptureDevice> device, bool wait) {
  std::vector<std::pair<::ac::SerialQueue*, std::function<void()>>> calls;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& [token, o] : observers_)
      if (o.onDisconnect) calls.emplace_back(o.queue, [h = o.onDisconnect, device] { h(device); });
  }
  runOnQueues(calls, wait);
}

void SimMicCapture::postRuntimeError(const std::shared_ptr<platform::CaptureSession>& session,
                                     std::optional<Error> error) {
  std::vector<std::pair<::ac::SerialQueue*, std::function<void()>>> calls;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& [token, o] : observers_)
      if (o.onError && o.session == session) calls.emplace_back(o.queue, [h = o.onError, error] { h(error); });
  }
  runOnQueues(calls, true);
}

std::shared_ptr<SimCaptureSession> SimMicCapture::lastSession() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return sessions_.empty() ? nullptr : sessions_.back();
}

std::shared_ptr<SimAudioDataOutput> SimMicCapture::lastOutput() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return outputs_.empty() ? nullptr : outputs_.back();
}

std::vector<std::string> SimMicCapture::inputRequests() const { return readLocked(mutex_, inputRequests_); }

size_t SimMicCapture::observerCount() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return observers_.size();
}

platform::MicAuthorization SimMicCapture::authorizationStatus() {
  std::lock_guard<std::mutex> lock(mutex_);
  return authorization_;
}

void SimMicCapture::requestAccess(std::function<void(bool granted)> completion) {
  bool granted;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    granted = grantOnRequest_;
    authorization_ = granted ? platform::MicAuthorization::authorized : platform::MicAuthorization::denied;
  }
  if (completion) completion(granted);
}

std::shared_ptr<CaptureDevice> SimMicCapture::defaultAudioDevice() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!defaultUID_) return nullptr;
  auto it = devices_.find(*defaultUID_);
  if (it == devices_.end() || !it->second->isConnected()) return nullptr;
  return it->second;
}

std::shared_ptr<CaptureDevice> SimMicCapture::deviceWithUniqueID(const std::string& uid) {
  std::lock_guard<std::mutex> lock(mutex_);
  auto it = devices_.find(uid);
  if (it == devices_.end() || !it->second->isConnected()) return nullptr;
  return it->second;
}

std::shared_ptr<platform::CaptureDeviceInput> SimMicCapture::makeDeviceInput(
    const std::shared_ptr<CaptureDevice>& device, Error& error) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (!device) {
    error = {platform::kCaptureErrorDomain, -11814, "Cannot Record"};
    return nullptr;
  }
  inputRequests_.push_back(device->uniqueID());
  if (auto it = inputFailures_.find(device->uniqueID()); it != inputFailures_.end()) {
    error = it->second;
    return nullptr;
  }
  if (!device->isConnected()) {
    error = {platform::kCaptureErrorDomain, -11814, "Cannot Record"};
    return nullptr;
  }
  return std::make_shared<SimCaptureDeviceInput>(device);
}

std::shared_ptr<platform::AudioDataOutput> SimMicCapture::makeAudioDataOutput() {
  auto output = std::make_shared<SimAudioDataOutput>();
  std::lock_guard<std::mutex> lock(mutex_);
  outputs_.push_back(output);
  return output;
}

std::shared_ptr<platform::CaptureSession> SimMicCapture::makeSession() {
  auto session = std::make_shared<SimCaptureSession>();
  std::lock_guard<std::mutex> lock(mutex_);
  session->failNextStarts(failStartsOfNewSessions_);
  sessions_.push_back(session);
  return session;
}

platform::ObserverToken SimMicCapture::observeDeviceDisconnected(
    ::ac::SerialQueue* queue, std::function<void(std::shared_ptr<CaptureDevice>)> handler) {
  std::lock_guard<std::mutex> lock(mutex_);
  Observer o;
  o.queue = queue;
  o.onDisconnect = std::move(handler);
  observers_[nextToken_] = std::move(o);
  return nextToken_++;
}

platform::ObserverToken SimMicCapture::observeRuntimeError(const std::shared_ptr<platform::CaptureSession>& session,
                                                           ::ac::SerialQueue* queue,
                                                           std::function<void(std::optional<Error>)> handler) {
  std::lock_guard<std::mutex> lock(mutex_);
  Observer o;
  o.queue = queue;
  o.session = session;
  o.onError = std::move(handler);
  observers_[nextToken_] = std::move(o);
  return nextToken_++;
}

void SimMicCapture::removeObserver(platform::ObserverToken token) {
  std::lock_guard<std::mutex> lock(mutex_);
  observers_.erase(token);
}

}  // namespace ac::sim
