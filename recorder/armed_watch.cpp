// The armed phase's watch on the bound microphone: between set-up and "go"
// any change of the input the recording would use releases the launch, and
// a released launch leaves no output file behind. The system chain meanwhile
// follows the default output, as it does while recording.
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "recorder/recorder_state.h"
#include "support/log.h"
#include "support/paths.h"

namespace ac {

std::optional<std::string> Recorder::Impl::armedDeviceStaleReason() {
  std::shared_ptr<platform::CaptureDevice> bound;
  {
    std::lock_guard<std::mutex> lock(micRebuildLock);
    bound = micDevice;
  }
  if (!includeMic || !bound) return std::nullopt;
  if (!bound->isConnected()) return "device-disconnected";
  // A pinned microphone only cares whether it is still there.
  if (!micUID) {
    std::shared_ptr<platform::CaptureDevice> current = platform.mic().defaultAudioDevice();
    if (!current || current->uniqueID() != bound->uniqueID()) return "input-device-changed";
  }
  return std::nullopt;
}

bool Recorder::Impl::installArmedInputWatch(std::function<void(const std::string&)> onChange) {
  // The system chain follows the default output from now on, not from go:
  // its stream, made ahead for go, is then on the output the call plays to.
  if (systemCapture) systemCapture->installListeners();
  std::shared_ptr<platform::CaptureDevice> bound;
  {
    std::lock_guard<std::mutex> lock(micRebuildLock);
    bound = micDevice;
  }
  if (!includeMic || !bound) return true;

  if (!micUID) {
    platform::ListenerID id = 0;
    // Any change of the default while armed releases; the devices are not
    // compared.
    platform::OSStatus status = platform.audio().addPropertyListener(
        platform::kAudioObjectSystemObject, platform::ListenedProperty::defaultInputDevice, *deviceWatchQueue,
        [onChange] { onChange("input-device-changed"); }, id);
    if (status != platform::kNoErr) {
      log("armed: default-input listener NOT installed — releasing rather than arming blind");
      return false;
    }
    {
      std::lock_guard<std::mutex> lock(armedLock);
      armedInputListener = id;
    }
    log("armed: default-input listener installed");
  }

  const std::string boundUID = bound->uniqueID();
  platform::ObserverToken token = platform.mic().observeDeviceDisconnected(
      nullptr, [onChange, boundUID](std::shared_ptr<platform::CaptureDevice> device) {
        if (device && device->uniqueID() == boundUID) onChange("device-disconnected");
      });
  {
    std::lock_guard<std::mutex> lock(armedLock);
    armedDisconnectToken = token;
  }

  // Closes the window between set-up and the watch.
  if (std::optional<std::string> reason = armedDeviceStaleReason()) {
    log("armed: bound input " + bound->localizedName() + " invalid after setup (" + *reason + ")");
    onChange(*reason);
  }
  return true;
}

void Recorder::Impl::removeArmedInputWatch() {
  std::optional<platform::ListenerID> listener;
  platform::ObserverToken token = 0;
  {
    std::lock_guard<std::mutex> lock(armedLock);
    listener = std::exchange(armedInputListener, std::nullopt);
    token = std::exchange(armedDisconnectToken, 0);
  }
  if (listener)
    platform.audio().removePropertyListener(platform::kAudioObjectSystemObject,
                                            platform::ListenedProperty::defaultInputDevice, *listener);
  if (token != 0) platform.mic().removeObserver(token);
}

void Recorder::Impl::discardArmed() {
  removeArmedInputWatch();
  // The streams made ahead for go go with the devices that hold them.
  if (systemCapture) systemCapture->teardown();
  if (captureSession) captureSession->stopRunning();
  discardOutput("armed: ");
}

void Recorder::Impl::discardOutput(const std::string& logPrefix) {
  if (assetWriter) {
    assetWriter->cancelWriting();
    systemInput.reset();
    micInput.reset();
    assetWriter.reset();
  }
  // Nothing was recorded; only the file this launch created goes.
  if (!outputClaim) return;
  if (int err = outputClaim->remove(); err != 0)
    log(logPrefix + "could not remove the unused output " + outputPath + ": " + errnoText(err));
}

}  // namespace ac
