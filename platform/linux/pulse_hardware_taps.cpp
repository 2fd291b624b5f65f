// Process taps and aggregate devices of the PulseAudio hardware seam.
//
// A tap records the mix of one sink: its aggregate's main sink while one
// exists, else the sink it recorded last, else the default sink. It outlives
// aggregates, so a rebuild on another sink keeps the same tap. The tap's
// description is accepted as given: every PulseAudio monitor carries the
// whole mix, unmuted, and is visible to no one else.
#include "platform/linux/pulse_audio_hardware.h"
#include "platform/linux/pulse_ioproc.h"
#include "platform/linux/pulse_status.h"

namespace ac::platform::linux_backend {

const PulseAudioHardware::Aggregate* PulseAudioHardware::aggregateOfTapLocked(AudioObjectID tapID) const {
  const Aggregate* newest = nullptr;
  for (const auto& [id, agg] : aggregates_)
    if (agg.tap == tapID) newest = &agg;  // ordered by ID: the last one is the newest
  return newest;
}

std::string PulseAudioHardware::tapSinkLocked(AudioObjectID tapID, const Tap& tap, const Snapshot& snap) const {
  const Aggregate* agg = aggregateOfTapLocked(tapID);
  return tapSinkName(agg ? std::optional<std::string>(agg->master) : std::nullopt, tap.capturedSink, snap);
}

OSStatus PulseAudioHardware::createProcessTap(const TapDescription&, AudioObjectID& outTap) {
  Snapshot snap;
  if (OSStatus st = snapshot(snap)) return st;
  // Without any sink there is no mix to record and no format to report.
  if (!snap.sink(snap.defaultSink)) return kBadDeviceErr;
  std::lock_guard<std::mutex> guard(mutex_);
  AudioObjectID id = ids_.fresh(ObjectKind::tap);
  taps_[id] = Tap{"pulse-tap-" + std::to_string(nextTapNumber_++), snap.defaultSink, 0, std::nullopt};
  outTap = id;
  return kNoErr;
}

OSStatus PulseAudioHardware::destroyProcessTap(AudioObjectID tap) {
  std::lock_guard<std::mutex> guard(mutex_);
  return taps_.erase(tap) ? kNoErr : kBadObjectErr;
}

OSStatus PulseAudioHardware::tapUID(AudioObjectID tap, std::optional<std::string>& out) {
  std::lock_guard<std::mutex> guard(mutex_);
  auto it = taps_.find(tap);
  if (it == taps_.end()) return kBadObjectErr;
  out = it->second.uid;
  return kNoErr;
}

OSStatus PulseAudioHardware::tapFormat(AudioObjectID tap, StreamFormat& out) {
  Snapshot snap;
  if (OSStatus st = snapshot(snap)) return st;
  std::lock_guard<std::mutex> guard(mutex_);
  auto it = taps_.find(tap);
  if (it == taps_.end()) return kBadObjectErr;
  std::string sinkName = tapSinkLocked(tap, it->second, snap);
  if (sinkName.empty()) return kBadDeviceErr;
  it->second.capturedSink = sinkName;
  it->second.reportedRate = snap.sink(sinkName)->spec.rate;
  out = tapFormatAt(it->second.reportedRate);
  return kNoErr;
}

OSStatus PulseAudioHardware::createAggregateDevice(const nlohmann::json& description, AudioObjectID& out) {
  Aggregate agg;
  std::string tapUIDText;
  try {
    agg.master = description.at("master").get<std::string>();
    tapUIDText = description.at("taps").at(0).at("uid").get<std::string>();
    agg.uid = description.value("uid", std::string());
    agg.name = description.value("name", std::string());
  } catch (const nlohmann::json::exception&) {
    return kIllegalOperationErr;
  }
  agg.description = description;
  // From here on the IOProc's start reads the server from the watch. One
  // that cannot subscribe only means the start asks the server itself.
  (void)ensureWatching();
  Snapshot snap;
  if (OSStatus st = snapshot(snap)) return st;
  const SinkInfo* master = snap.sink(agg.master);
  if (!master) return kBadDeviceErr;

  const std::string monitor = master->monitorSource;
  agg.monitor = monitor;
  uint32_t rate = 0;
  {
    std::lock_guard<std::mutex> guard(mutex_);
    for (const auto& [id, tap] : taps_)
      if (tap.uid == tapUIDText) agg.tap = id;
    if (agg.tap == 0) return kBadObjectErr;
    out = ids_.fresh(ObjectKind::aggregate);
    taps_[agg.tap].capturedSink = agg.master;
    rate = ioProcRateLocked(agg, *master);
    aggregates_.emplace(out, std::move(agg));
    // The tap now records another sink, whose rate may differ.
    checkTapShapesLocked(snap);
  }
  if (!monitor.empty()) prepareIOProc(out, monitor, rate);
  return kNoErr;
}

OSStatus PulseAudioHardware::destroyAggregateDevice(AudioObjectID aggregate) {
  std::vector<std::shared_ptr<PulseIOProc>> stopping;
  {
    std::lock_guard<std::mutex> guard(mutex_);
    auto agg = aggregates_.find(aggregate);
    if (agg == aggregates_.end()) return kBadObjectErr;
    if (agg->second.prepared) stopping.push_back(std::move(agg->second.prepared));
    aggregates_.erase(agg);
    // Its IOProcs go with it, stopped, so no block outlives the device.
    for (auto it = ioProcs_.begin(); it != ioProcs_.end();) {
      if (it->second.device == aggregate) {
        stopping.push_back(it->second.proc);
        it = ioProcs_.erase(it);
      } else {
        ++it;
      }
    }
  }
  for (auto& proc : stopping) proc->stop();
  return kNoErr;
}

}  // namespace ac::platform::linux_backend
