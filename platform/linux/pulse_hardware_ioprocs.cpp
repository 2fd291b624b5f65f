// IOProcs of the PulseAudio hardware seam: each records its aggregate's
// main-sink monitor (see PulseIOProc). Starting and stopping wait on the
// server outside mutex_, so a slow server never blocks the other calls.
#include "platform/linux/pulse_audio_hardware.h"
#include "platform/linux/pulse_connection.h"
#include "platform/linux/pulse_ioproc.h"
#include "platform/linux/pulse_status.h"
#include "support/dispatch.h"

namespace ac::platform::linux_backend {

OSStatus PulseAudioHardware::createIOProc(AudioObjectID device, const std::string& queueLabel, IOBlock block,
                                          IOProcID& out) {
  if (!block) return kIllegalOperationErr;
  std::lock_guard<std::mutex> guard(mutex_);
  if (!aggregates_.count(device)) return kBadObjectErr;
  out = nextIOProc_++;
  // A server gone for good takes the output with it: the default output's
  // listeners hear of it, as of any lost device, and the core repairs.
  auto serverGone = [this] {
    std::lock_guard<std::mutex> lock(mutex_);
    outputLostToServer_ = true;
    fireLocked([](const Listener& l) { return l.property == ListenedProperty::defaultOutputDevice; });
  };
  std::shared_ptr<PulseConnection> connection = std::move(spareIOProcConnection_);
  if (!connection) connection = std::make_shared<PulseConnection>(queueLabel, connection_->server());
  ioProcs_[out] = {device,
                   std::make_shared<PulseIOProc>(queueLabel, std::move(connection), std::move(block), std::move(serverGone))};
  return kNoErr;
}

void PulseAudioHardware::prepareIOProcConnectionLocked() {
  if (spareIOProcConnection_) return;
  spareIOProcConnection_ = std::make_shared<PulseConnection>("audio-capture.io", connection_->server());
  // A failed connect costs nothing: the stream's start connects again.
  dispatchGlobal([connection = spareIOProcConnection_] {
    PulseConnection::Lock lock(*connection);
    (void)connection->ensureReady();
  });
}

OSStatus PulseAudioHardware::startDevice(AudioObjectID device, IOProcID proc) {
  Snapshot snap;
  if (OSStatus st = snapshot(snap)) return st;
  std::shared_ptr<PulseIOProc> ioProc;
  std::string monitor;
  uint32_t rate = 0;
  {
    std::lock_guard<std::mutex> guard(mutex_);
    auto it = ioProcs_.find(proc);
    auto agg = aggregates_.find(device);
    if (it == ioProcs_.end() || it->second.device != device || agg == aggregates_.end()) return kBadObjectErr;
    const SinkInfo* master = snap.sink(agg->second.master);
    if (!master || master->monitorSource.empty()) return kBadDeviceErr;
    auto tap = taps_.find(agg->second.tap);
    rate = tap != taps_.end() && tap->second.reportedRate ? tap->second.reportedRate : master->spec.rate;
    monitor = master->monitorSource;
    ioProc = it->second.proc;
  }
  return ioProc->start(monitor, rate);
}

OSStatus PulseAudioHardware::stopDevice(AudioObjectID device, IOProcID proc) {
  std::shared_ptr<PulseIOProc> ioProc;
  {
    std::lock_guard<std::mutex> guard(mutex_);
    auto it = ioProcs_.find(proc);
    if (it == ioProcs_.end() || it->second.device != device) return kBadObjectErr;
    ioProc = it->second.proc;
  }
  return ioProc->stop();
}

OSStatus PulseAudioHardware::destroyIOProc(AudioObjectID device, IOProcID proc) {
  std::shared_ptr<PulseIOProc> ioProc;
  {
    std::lock_guard<std::mutex> guard(mutex_);
    auto it = ioProcs_.find(proc);
    if (it == ioProcs_.end() || it->second.device != device) return kBadObjectErr;
    ioProc = std::move(it->second.proc);
    ioProcs_.erase(it);
  }
  ioProc->stop();
  return kNoErr;
}

}  // namespace ac::platform::linux_backend
