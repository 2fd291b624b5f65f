// IOProcs of the PulseAudio hardware seam: each records its aggregate's
// main-sink monitor (see PulseIOProc). Starting and stopping wait on the
// server outside mutex_, so a slow server never blocks the other calls.
#include "platform/linux/pulse_audio_hardware.h"
#include "platform/linux/pulse_connection.h"
#include "platform/linux/pulse_ioproc.h"
#include "platform/linux/pulse_status.h"
#include "support/dispatch.h"

namespace ac::platform::linux_backend {

std::shared_ptr<PulseIOProc> PulseAudioHardware::makeIOProc() {
  // A server gone for good takes the output with it: the default output's
  // listeners hear of it, as of any lost device, and the core repairs.
  auto serverGone = [this] {
    std::lock_guard<std::mutex> lock(mutex_);
    outputLostToServer_ = true;
    fireLocked([](const Listener& l) { return l.property == ListenedProperty::defaultOutputDevice; });
  };
  return std::make_shared<PulseIOProc>(std::make_shared<PulseConnection>("audio-capture.io", connection_->server()),
                                       std::move(serverGone));
}

void PulseAudioHardware::prepareIOProc(AudioObjectID aggregate, const std::string& monitor, uint32_t rate) {
  std::shared_ptr<PulseIOProc> proc = makeIOProc();
  (void)proc->prepare(monitor, rate);
  std::lock_guard<std::mutex> guard(mutex_);
  auto agg = aggregates_.find(aggregate);
  // Gone meanwhile (destroyed by another thread): the proc goes too.
  if (agg != aggregates_.end() && !agg->second.prepared) agg->second.prepared = std::move(proc);
}

uint32_t PulseAudioHardware::ioProcRateLocked(const Aggregate& agg, const SinkInfo& master) const {
  auto tap = taps_.find(agg.tap);
  return tap != taps_.end() && tap->second.reportedRate ? tap->second.reportedRate : master.spec.rate;
}

OSStatus PulseAudioHardware::createIOProc(AudioObjectID device, const std::string& queueLabel, IOBlock block,
                                          IOProcID& out) {
  if (!block) return kIllegalOperationErr;
  std::shared_ptr<PulseIOProc> proc;
  {
    std::lock_guard<std::mutex> guard(mutex_);
    auto agg = aggregates_.find(device);
    if (agg == aggregates_.end()) return kBadObjectErr;
    proc = std::move(agg->second.prepared);
  }
  if (!proc) proc = makeIOProc();
  proc->bind(queueLabel, std::move(block));
  std::lock_guard<std::mutex> guard(mutex_);
  if (!aggregates_.count(device)) return kBadObjectErr;
  out = nextIOProc_++;
  ioProcs_[out] = {device, std::move(proc)};
  return kNoErr;
}

OSStatus PulseAudioHardware::startDevice(AudioObjectID device, IOProcID proc) {
  std::shared_ptr<PulseIOProc> ioProc;
  std::string monitor;
  uint32_t rate = 0;
  std::string master;
  {
    std::lock_guard<std::mutex> guard(mutex_);
    auto it = ioProcs_.find(proc);
    auto agg = aggregates_.find(device);
    if (it == ioProcs_.end() || it->second.device != device || agg == aggregates_.end()) return kBadObjectErr;
    ioProc = it->second.proc;
    master = agg->second.master;
    // Known since the aggregate was made and the core read the tap's
    // format: the start asks the server nothing.
    monitor = agg->second.monitor;
    auto tap = taps_.find(agg->second.tap);
    if (tap != taps_.end()) rate = tap->second.reportedRate;
  }
  if (monitor.empty() || rate == 0) {
    Snapshot snap;
    if (OSStatus st = snapshot(snap)) return st;
    std::lock_guard<std::mutex> guard(mutex_);
    auto agg = aggregates_.find(device);
    const SinkInfo* sink = snap.sink(master);
    if (agg == aggregates_.end()) return kBadObjectErr;
    if (!sink || sink->monitorSource.empty()) return kBadDeviceErr;
    monitor = sink->monitorSource;
    rate = ioProcRateLocked(agg->second, *sink);
  }
  // A master sink gone meanwhile fails here: its monitor went with it.
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
