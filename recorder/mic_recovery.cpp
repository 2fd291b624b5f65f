// Keeping the microphone track alive through device loss and session errors:
// rebuild the input in place (one retry), else end the mic track early while
// system audio goes on.
#include "recorder/mic_recovery.h"

#include <chrono>
#include <thread>

#include "recorder/recorder_state.h"
#include "support/log.h"

namespace ac {

bool runtimeErrorIsDeviceLoss(const std::optional<Error>& error) {
  if (!error) return true;
  if (error->domain == platform::kMicStopDomain)
    return error->code != static_cast<int64_t>(platform::MicStopKind::transient);
  if (error->domain != platform::kCaptureErrorDomain) return true;
  switch (error->code) {
    case avErrorMediaServicesWereReset:
    case -11817:
    case -11815:
    case -11814:
    case -11808:
      return true;
    default:
      return false;
  }
}

bool disconnectConcernsBoundDevice(const std::optional<std::string>& notifiedUID,
                                   const std::optional<std::string>& boundUID) {
  if (!notifiedUID) return true;
  return boundUID && *boundUID == *notifiedUID;
}

void Recorder::Impl::installMicDisconnectObservers() {
  std::lock_guard<std::mutex> lock(micRebuildLock);
  if (!micNotificationTokens.empty() || !captureSession) return;
  platform::MicCapture& mic = platform.mic();
  std::weak_ptr<Impl> weak = weak_from_this();
  micNotificationTokens.push_back(
      mic.observeDeviceDisconnected(micWatchQueue.get(), [weak](std::shared_ptr<platform::CaptureDevice> device) {
        if (auto self = weak.lock()) self->handleDeviceDisconnected(device);
      }));
  micNotificationTokens.push_back(
      mic.observeRuntimeError(captureSession, micWatchQueue.get(), [weak](std::optional<Error> error) {
        if (auto self = weak.lock()) self->handleRuntimeError(error);
      }));
  log("mic disconnect observers installed");
}

void Recorder::Impl::removeMicDisconnectObservers() {
  for (platform::ObserverToken token : micNotificationTokens) platform.mic().removeObserver(token);
  micNotificationTokens.clear();
}

void Recorder::Impl::handleDeviceDisconnected(const std::shared_ptr<platform::CaptureDevice>& device) {
  std::optional<std::string> boundUID;
  {
    std::lock_guard<std::mutex> lock(micRebuildLock);
    if (micDevice) boundUID = micDevice->uniqueID();
  }
  std::optional<std::string> notifiedUID;
  if (device) notifiedUID = device->uniqueID();
  if (!disconnectConcernsBoundDevice(notifiedUID, boundUID)) return;
  handleMicDisconnect("mic device disconnected: " + (device ? device->localizedName() : std::string("unknown")));
}

void Recorder::Impl::handleRuntimeError(const std::optional<Error>& error) {
  const std::string description = error ? error->description : "unknown";
  if (runtimeErrorIsDeviceLoss(error))
    handleMicDisconnect("capture session runtime error (device loss): " + description);
  else
    recoverSessionWithoutRebuild("capture session runtime error (non-device): " + description);
}

void Recorder::Impl::handleMicDisconnect(const std::string& reason) {
  std::lock_guard<std::mutex> lock(micRebuildLock);
  if (stopped || !includeMic || micEndedEarly) return;
  log("mic disconnect: " + reason + " — attempting mic input rebuild");
  if (rebuildMicInput()) {
    log("mic input rebuilt successfully");
    return;
  }
  log("mic input rebuild attempt 1 failed — retrying in 500ms");
  // Sleeping with the lock held keeps a second event from interleaving.
  std::this_thread::sleep_for(std::chrono::duration<double>(micRebuildRetrySeconds));
  if (rebuildMicInput()) {
    log("mic input rebuilt successfully on retry");
    return;
  }
  micEndedEarly = true;
  log("mic input rebuild retry also failed — 'me' track ended early (system audio still recording)");
  notices.notifyMicDisconnectOnce();
}

bool Recorder::Impl::rebuildMicInput() {
  if (!captureSession) return false;
  platform::MicCapture& mic = platform.mic();
  std::shared_ptr<platform::CaptureDevice> device;
  if (!micUID) {
    device = mic.defaultAudioDevice();
    if (!device) {
      log("mic rebuild: no mic device available");
      return false;
    }
  } else {
    // Recording the wrong microphone is worse than recording none.
    device = mic.deviceWithUniqueID(*micUID);
    if (!device || device->uniqueID() != *micUID) {
      log("mic rebuild: pinned mic " + *micUID + " not available — not falling back to a different device");
      return false;
    }
  }
  Error inputError;
  std::shared_ptr<platform::CaptureDeviceInput> input = mic.makeDeviceInput(device, inputError);
  if (!input) {
    log("mic rebuild: AVCaptureDeviceInput failed: " + inputError.description);
    return false;
  }

  // The output, its delegate and the writer input stay: the new device's
  // buffers flow into the same track on the same time line.
  platform::CaptureSession& session = *captureSession;
  session.beginConfiguration();
  if (micDeviceInput) session.removeInput(micDeviceInput);
  if (!session.canAddInput(input)) {
    if (micDeviceInput && session.canAddInput(micDeviceInput)) session.addInput(micDeviceInput);
    session.commitConfiguration();
    log("mic rebuild: session rejected new input");
    return false;
  }
  session.addInput(input);
  session.commitConfiguration();
  micDevice = device;
  micDeviceInput = input;
  if (!session.isRunning()) {
    log("mic rebuild: session stopped after reconfigure — restarting");
    session.startRunning();
    if (!session.isRunning()) {
      log("mic rebuild: session failed to restart — mic still down");
      return false;
    }
  }
  log("mic rebuild: swapped in " + device->localizedName() + " [" + device->uniqueID() + "]");
  return true;
}

void Recorder::Impl::recoverSessionWithoutRebuild(const std::string& reason) {
  std::lock_guard<std::mutex> lock(micRebuildLock);
  if (stopped || !includeMic || micEndedEarly || !captureSession) return;
  if (captureSession->isRunning()) {
    log("mic: " + reason + " — session still running, no action");
    return;
  }
  log("mic: " + reason + " — restarting session (input left in place)");
  captureSession->startRunning();
  if (!captureSession->isRunning())
    log("mic: session did not restart after non-device error — leaving as-is (buffers may resume when the "
        "error clears)");
}

}  // namespace ac
