// Property listeners of the PulseAudio hardware seam, fed by the server
// watch: the default sink (output) and source (input) of the system object,
// and the rate and channel count of the sink a tap records.
#include "platform/linux/pulse_audio_hardware.h"
#include "platform/linux/pulse_connection.h"
#include "platform/linux/pulse_ioproc.h"
#include "platform/linux/pulse_status.h"
#include "platform/linux/pulse_watch.h"
#include "support/dispatch.h"

namespace ac::platform::linux_backend {

PulseAudioHardware::~PulseAudioHardware() {
  {
    std::lock_guard<std::mutex> guard(watchMutex_);
    if (watch_) watch_->unsubscribe(watchToken_);
  }
  std::map<IOProcID, IOProcRecord> procs;
  std::vector<std::shared_ptr<PulseIOProc>> prepared;
  {
    std::lock_guard<std::mutex> guard(mutex_);
    procs.swap(ioProcs_);
    for (auto& [id, agg] : aggregates_)
      if (agg.prepared) prepared.push_back(std::move(agg.prepared));
    for (auto& [id, l] : listeners_) *l.active = false;
  }
  for (auto& [id, record] : procs) record.proc->stop();
  for (auto& proc : prepared) proc->stop();
}

OSStatus PulseAudioHardware::ensureWatching() {
  std::lock_guard<std::mutex> guard(watchMutex_);
  if (watch_) return kNoErr;
  auto watch = PulseWatch::of(connection_);
  uint64_t token = 0;
  OSStatus st = watch->subscribe([this](const Snapshot& before, const Snapshot& after) { onServerChange(before, after); },
                                 token);
  if (st != kNoErr) return st;
  watch_ = std::move(watch);
  watchToken_ = token;
  return kNoErr;
}

void PulseAudioHardware::fireLocked(const std::function<bool(const Listener&)>& matches) {
  for (const auto& [id, l] : listeners_) {
    if (!matches(l)) continue;
    l.queue->async([active = l.active, block = l.block] {
      if (*active) block();
    });
  }
}

void PulseAudioHardware::checkTapShapesLocked(const Snapshot& snap) {
  for (auto& [tapID, tap] : taps_) {
    std::optional<TapShape> shape = tapShapeOf(tapSinkLocked(tapID, tap, snap), snap);
    if (!shape) continue;  // no sink to compare with; keep the last shape
    bool moved = tap.watchedShape && *tap.watchedShape != *shape;
    tap.watchedShape = shape;
    if (moved) {
      AudioObjectID id = tapID;
      fireLocked([id](const Listener& l) { return l.object == id && l.property == ListenedProperty::tapFormat; });
    }
  }
}

void PulseAudioHardware::onServerChange(const Snapshot& before, const Snapshot& after) {
  std::lock_guard<std::mutex> guard(mutex_);
  const bool outputBack = outputLostToServer_ && !after.defaultSink.empty();
  if (outputBack) outputLostToServer_ = false;
  if (before.defaultSink != after.defaultSink || outputBack)
    fireLocked([](const Listener& l) { return l.property == ListenedProperty::defaultOutputDevice; });
  if (before.defaultSource != after.defaultSource)
    fireLocked([](const Listener& l) { return l.property == ListenedProperty::defaultInputDevice; });
  checkTapShapesLocked(after);
}

OSStatus PulseAudioHardware::addPropertyListener(AudioObjectID object, ListenedProperty property,
                                                 ::ac::SerialQueue& queue, ListenerBlock block, ListenerID& out) {
  if (!block) return kIllegalOperationErr;
  bool onSystem = property != ListenedProperty::tapFormat;
  if (onSystem && object != kAudioObjectSystemObject) return kUnknownPropertyErr;
  if (OSStatus st = ensureWatching()) return st;
  // A tap's shape is known once its aggregate was made; the server is read
  // only for one that has none yet.
  bool shapeKnown = onSystem;
  if (!onSystem) {
    std::lock_guard<std::mutex> guard(mutex_);
    auto tap = taps_.find(object);
    shapeKnown = tap != taps_.end() && tap->second.watchedShape;
  }
  Snapshot snap;
  if (!shapeKnown) {
    if (OSStatus st = snapshot(snap)) return st;
  }
  std::lock_guard<std::mutex> guard(mutex_);
  if (!onSystem) {
    auto tap = taps_.find(object);
    if (tap == taps_.end()) return kBadObjectErr;
    if (!tap->second.watchedShape) tap->second.watchedShape = tapShapeOf(tapSinkLocked(object, tap->second, snap), snap);
  }
  out = nextListener_++;
  listeners_[out] = Listener{object, property, &queue, std::move(block), std::make_shared<std::atomic<bool>>(true)};
  return kNoErr;
}

OSStatus PulseAudioHardware::removePropertyListener(AudioObjectID object, ListenedProperty property,
                                                    ListenerID listener) {
  std::lock_guard<std::mutex> guard(mutex_);
  auto it = listeners_.find(listener);
  if (it == listeners_.end() || it->second.object != object || it->second.property != property) return kBadObjectErr;
  *it->second.active = false;
  listeners_.erase(it);
  return kNoErr;
}

}  // namespace ac::platform::linux_backend
