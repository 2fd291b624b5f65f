// Device queries and stream configurations of the PulseAudio hardware seam.
#include "platform/linux/pulse_audio_hardware.h"

#include <ctime>

#include "platform/linux/backends.h"
#include "platform/linux/pulse_connection.h"
#include "platform/linux/pulse_status.h"
#include "platform/linux/pulse_watch.h"

namespace ac::platform::linux_backend {

std::unique_ptr<AudioHardware> makePulseAudioHardware() {
  return std::make_unique<PulseAudioHardware>(PulseConnection::shared());
}

PulseAudioHardware::PulseAudioHardware(std::shared_ptr<PulseConnection> connection)
    : connection_(std::move(connection)) {}


OSStatus PulseAudioHardware::snapshot(Snapshot& out) { return PulseWatch::read(*connection_, out); }

OSStatus PulseAudioHardware::view(AudioObjectID id, DeviceView& out) {
  Snapshot snap;
  if (OSStatus st = snapshot(snap)) return st;
  auto known = ids_.lookup(id);
  if (!known) return kBadObjectErr;
  const auto& [kind, name] = *known;
  switch (kind) {
    case ObjectKind::sink:
      if (const SinkInfo* s = snap.sink(name)) {
        out = {kind, s->name, s->description, streamsOfSink(*s)};
        return kNoErr;
      }
      return kBadObjectErr;
    case ObjectKind::source:
      if (const SourceInfo* s = snap.inputSource(name)) {
        out = {kind, s->name, s->description, streamsOfSource(*s)};
        return kNoErr;
      }
      return kBadObjectErr;
    case ObjectKind::aggregate: {
      std::lock_guard<std::mutex> guard(mutex_);
      auto it = aggregates_.find(id);
      if (it == aggregates_.end()) return kBadObjectErr;
      out = {kind, it->second.uid, it->second.name, streamsOfAggregate(kTapChannels, snap.sink(it->second.master))};
      return kNoErr;
    }
    case ObjectKind::tap: {
      std::lock_guard<std::mutex> guard(mutex_);
      auto it = taps_.find(id);
      if (it == taps_.end()) return kBadObjectErr;
      out = {kind, it->second.uid, it->second.uid, {}};
      return kNoErr;
    }
  }
  return kBadObjectErr;
}

OSStatus PulseAudioHardware::defaultOutputDevice(AudioObjectID& out) {
  Snapshot snap;
  if (OSStatus st = snapshot(snap)) return st;
  // No sink at all answers "no device" (0) with success, as the core expects.
  out = snap.sink(snap.defaultSink) ? ids_.idFor(ObjectKind::sink, snap.defaultSink) : kAudioObjectUnknown;
  return kNoErr;
}

OSStatus PulseAudioHardware::deviceUID(AudioObjectID device, std::optional<std::string>& out) {
  DeviceView v;
  if (OSStatus st = view(device, v)) return st;
  out = v.uid;
  return kNoErr;
}

OSStatus PulseAudioHardware::objectName(AudioObjectID object, std::optional<std::string>& out) {
  DeviceView v;
  if (OSStatus st = view(object, v)) return st;
  out = v.name;
  return kNoErr;
}

namespace {
// Sinks first, then the sources that are not monitors, in server order.
template <class Fn>
void forEachDevice(const Snapshot& snap, Fn fn) {
  for (const auto& s : snap.sinks) fn(ObjectKind::sink, s.name);
  for (const auto& s : snap.sources)
    if (!s.isMonitor) fn(ObjectKind::source, s.name);
}
}  // namespace

OSStatus PulseAudioHardware::deviceListByteSize(uint32_t& bytes) {
  Snapshot snap;
  if (OSStatus st = snapshot(snap)) return st;
  uint32_t n = 0;
  forEachDevice(snap, [&](ObjectKind, const std::string&) { ++n; });
  bytes = 4 * n;
  return kNoErr;
}

OSStatus PulseAudioHardware::deviceList(std::vector<AudioObjectID>& ids) {
  Snapshot snap;
  if (OSStatus st = snapshot(snap)) return st;
  size_t i = 0;
  forEachDevice(snap, [&](ObjectKind kind, const std::string& name) {
    if (i < ids.size()) ids[i++] = ids_.idFor(kind, name);
  });
  return kNoErr;
}

OSStatus PulseAudioHardware::streamsByteSize(AudioObjectID device, Scope scope, uint32_t& bytes) {
  DeviceView v;
  if (OSStatus st = view(device, v)) return st;
  bytes = streamIDsByteSize(v.streams, scope);
  return kNoErr;
}

OSStatus PulseAudioHardware::translateUIDToDevice(const std::string& uid, AudioObjectID& out) {
  out = kAudioObjectUnknown;
  Snapshot snap;
  if (OSStatus st = snapshot(snap)) return st;
  if (snap.sink(uid)) {
    out = ids_.idFor(ObjectKind::sink, uid);
  } else if (snap.inputSource(uid)) {
    out = ids_.idFor(ObjectKind::source, uid);
  } else {
    std::lock_guard<std::mutex> guard(mutex_);
    for (const auto& [id, agg] : aggregates_)
      if (agg.uid == uid) out = id;
  }
  return out == kAudioObjectUnknown ? kBadObjectErr : kNoErr;
}

OSStatus PulseAudioHardware::streamConfigurationByteSize(AudioObjectID device, Scope scope, uint32_t& bytes) {
  DeviceView v;
  if (OSStatus st = view(device, v)) return st;
  bytes = bufferListLayoutBytes(buffersInScope(v.streams, scope).size());
  return kNoErr;
}

OSStatus PulseAudioHardware::streamConfiguration(AudioObjectID device, Scope scope, void* data, uint32_t& ioBytes) {
  DeviceView v;
  if (OSStatus st = view(device, v)) return st;
  return writeStreamConfiguration(buffersInScope(v.streams, scope), data, ioBytes);
}

uint64_t PulseAudioHardware::hostTimeNow() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return uint64_t(ts.tv_sec) * 1000000000u + uint64_t(ts.tv_nsec);
}

void PulseAudioHardware::hostTimebase(uint32_t& numer, uint32_t& denom) { numer = denom = 1; }

}  // namespace ac::platform::linux_backend
