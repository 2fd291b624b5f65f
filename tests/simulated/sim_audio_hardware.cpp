#include "sim_audio_hardware.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <set>
#include <stdexcept>

#include "support/dispatch.h"

namespace ac::sim {

using platform::IOProcID;
using platform::ListenedProperty;
using platform::ListenerID;
using platform::Scope;

namespace {

const std::set<std::string>& knownCalls() {
  static const std::set<std::string> names = {
      "DefaultOutputDevice", "DeviceUID", "ObjectName", "DeviceListSize", "DeviceList", "StreamsSize",
      "TranslateUIDToDevice", "StreamConfigurationSize", "StreamConfiguration", "AudioHardwareCreateProcessTap",
      "AudioHardwareDestroyProcessTap", "TapUID", "TapFormat", "AudioHardwareCreateAggregateDevice",
      "AudioHardwareDestroyAggregateDevice", "AudioDeviceCreateIOProcIDWithBlock", "AudioDeviceStart",
      "AudioDeviceStop", "AudioDeviceDestroyIOProcID", "AudioObjectAddPropertyListenerBlock",
      "AudioObjectRemovePropertyListenerBlock"};
  return names;
}

// The tap's own streams as an aggregate lists them.
std::vector<uint32_t> tapStreams(const platform::StreamFormat& f) {
  if (f.formatFlags & platform::kAudioFormatFlagIsNonInterleaved) return std::vector<uint32_t>(f.channelsPerFrame, 1);
  return {f.channelsPerFrame};
}

}  // namespace

void SimIOProc::deliver(const platform::AudioBufferList& list, uint64_t hostTime) {
  platform::AudioTimeStamp time;
  time.hostTime = hostTime;
  block_(&list, &time);
}

SimAudioHardware::SimAudioHardware() : nextTapFormat_(platform::floatPCMFormat(48000, 2)) {}

SimAudioHardware::~SimAudioHardware() { waitForListeners(5); }

// --- scripting ---

AudioObjectID SimAudioHardware::addDevice(Device device) {
  std::lock_guard lock(mutex_);
  AudioObjectID id = nextID_++;
  SimDevice d;
  static_cast<Device&>(d) = std::move(device);
  devices_[id] = std::move(d);
  return id;
}

void SimAudioHardware::setDefaultOutput(AudioObjectID device) {
  writeLocked(mutex_, defaultOutput_, device);
  fire(platform::kAudioObjectSystemObject, ListenedProperty::defaultOutputDevice);
}

void SimAudioHardware::setDefaultInput(AudioObjectID device) {
  writeLocked(mutex_, defaultInput_, device);
  fire(platform::kAudioObjectSystemObject, ListenedProperty::defaultInputDevice);
}

void SimAudioHardware::setTapFormat(AudioObjectID tap, const platform::StreamFormat& format) {
  {
    std::lock_guard lock(mutex_);
    taps_.at(tap).format = format;
  }
  fire(tap, ListenedProperty::tapFormat);
}

void SimAudioHardware::failNext(const std::string& call, OSStatus status, int times) {
  if (!knownCalls().count(call)) throw std::invalid_argument("no simulated call named " + call);
  std::lock_guard lock(mutex_);
  failures_[call].push_back({status, times});
}

// --- records ---

std::vector<AudioObjectID> SimAudioHardware::liveTaps() const {
  std::lock_guard lock(mutex_);
  std::vector<AudioObjectID> ids;
  for (const auto& [id, tap] : taps_) ids.push_back(id);
  return ids;
}

std::vector<AudioObjectID> SimAudioHardware::liveAggregates() const {
  std::lock_guard lock(mutex_);
  std::vector<AudioObjectID> ids;
  for (const auto& [id, d] : devices_)
    if (d.aggregate) ids.push_back(id);
  return ids;
}

size_t SimAudioHardware::listenerCount(ListenedProperty property) const {
  std::lock_guard lock(mutex_);
  return std::count_if(listeners_.begin(), listeners_.end(),
                       [&](const auto& entry) { return entry.second.property == property; });
}

bool SimAudioHardware::waitForListeners(double timeoutSeconds) {
  std::unique_lock lock(mutex_);
  return idle_.wait_for(lock, std::chrono::duration<double>(timeoutSeconds),
                        [this] { return pendingListenerCalls_ == 0; });
}

std::optional<OSStatus> SimAudioHardware::scripted(const std::string& call) {
  std::lock_guard lock(mutex_);
  auto it = failures_.find(call);
  if (it == failures_.end() || it->second.empty()) return std::nullopt;
  Failure& f = it->second.front();
  OSStatus status = f.status;
  if (f.times > 0 && --f.times == 0) it->second.erase(it->second.begin());
  return status;
}

void SimAudioHardware::fire(AudioObjectID object, ListenedProperty property) {
  // Posted under the lock so a listener being removed cannot lose its queue
  // between the look-up and the post; the post itself never waits.
  std::lock_guard lock(mutex_);
  for (const auto& [id, l] : listeners_) {
    if (l.object != object || l.property != property) continue;
    ++pendingListenerCalls_;
    l.queue->async([this, block = l.block] {
      block();
      std::lock_guard done(mutex_);
      if (--pendingListenerCalls_ == 0) idle_.notify_all();
    });
  }
}

// --- device queries ---

template <class F>
OSStatus SimAudioHardware::answer(const char* call, F&& body) {
  if (auto st = scripted(call)) return *st;
  std::lock_guard lock(mutex_);
  return body();
}

template <class Map, class F>
OSStatus SimAudioHardware::answerFor(const char* call, const Map& objects, AudioObjectID id, F&& body) {
  return answer(call, [&]() -> OSStatus {
    auto it = objects.find(id);
    return it == objects.end() ? kBadObjectErr : body(it->second);
  });
}

OSStatus SimAudioHardware::defaultOutputDevice(AudioObjectID& out) {
  return answer("DefaultOutputDevice", [&] { out = defaultOutput_; return 0; });
}

OSStatus SimAudioHardware::deviceUID(AudioObjectID device, std::optional<std::string>& out) {
  return answerFor("DeviceUID", devices_, device, [&](const SimDevice& d) { out = d.uid; return 0; });
}

OSStatus SimAudioHardware::objectName(AudioObjectID object, std::optional<std::string>& out) {
  return answerFor("ObjectName", devices_, object, [&](const SimDevice& d) {
    if (d.nameStatus == 0) out = d.name;
    return d.nameStatus;
  });
}

OSStatus SimAudioHardware::deviceListByteSize(uint32_t& bytes) {
  return answer("DeviceListSize", [&] {
    bytes = 4 * uint32_t(std::count_if(devices_.begin(), devices_.end(), [](auto& e) { return !e.second.aggregate; }));
    return 0;
  });
}

OSStatus SimAudioHardware::deviceList(std::vector<AudioObjectID>& ids) {
  return answer("DeviceList", [&] {
    size_t i = 0;
    for (const auto& [id, d] : devices_)
      if (!d.aggregate && i < ids.size()) ids[i++] = id;
    return 0;
  });
}

OSStatus SimAudioHardware::streamsByteSize(AudioObjectID device, Scope scope, uint32_t& bytes) {
  return answerFor("StreamsSize", devices_, device, [&](const SimDevice& d) {
    bytes = 4 * (scope == Scope::input ? uint32_t(d.inputChannels.size()) : d.outputStreams);
    return 0;
  });
}

OSStatus SimAudioHardware::translateUIDToDevice(const std::string& uid, AudioObjectID& out) {
  return answer("TranslateUIDToDevice", [&] {
    out = platform::kAudioObjectUnknown;  // an unknown UID answers 0, not an error
    for (const auto& [id, d] : devices_)
      if (d.uid == uid) out = id;
    return 0;
  });
}

OSStatus SimAudioHardware::streamConfigurationByteSize(AudioObjectID device, Scope scope, uint32_t& bytes) {
  return answerFor("StreamConfigurationSize", devices_, device, [&](const SimDevice& d) {
    size_t buffers = scope == Scope::input ? d.inputChannels.size() : d.outputStreams;
    bytes = uint32_t(std::max<int64_t>(0, int64_t(8 + 16 * buffers) + d.sizeBias));
    return 0;
  });
}

OSStatus SimAudioHardware::streamConfiguration(AudioObjectID device, Scope scope, void* data, uint32_t& ioBytes) {
  return answerFor("StreamConfiguration", devices_, device, [&](const SimDevice& d) {
    const std::vector<uint32_t> channels =
        scope == Scope::input ? d.inputChannels : std::vector<uint32_t>(d.outputStreams, 2);
    // The whole list, of which only what fits the caller's room is written:
    // the header keeps declaring every buffer.
    std::vector<uint8_t> full(8 + 16 * channels.size(), 0);
    const uint32_t count = uint32_t(channels.size());
    std::memcpy(full.data(), &count, 4);
    for (size_t i = 0; i < channels.size(); ++i) std::memcpy(full.data() + 8 + 16 * i, &channels[i], 4);
    ioBytes = uint32_t(std::min<size_t>(ioBytes, full.size()));
    std::memcpy(data, full.data(), ioBytes);
    return 0;
  });
}

// --- taps and aggregates ---

OSStatus SimAudioHardware::createProcessTap(const platform::TapDescription& description, AudioObjectID& outTap) {
  return answer("AudioHardwareCreateProcessTap", [&] {
    lastTapDescription_ = description;
    outTap = nextID_++;
    taps_[outTap] = Tap{"sim-tap-" + std::to_string(outTap), nextTapFormat_};
    return 0;
  });
}

OSStatus SimAudioHardware::destroyProcessTap(AudioObjectID tap) {
  return answer("AudioHardwareDestroyProcessTap", [&] { return taps_.erase(tap) ? 0 : kBadObjectErr; });
}

OSStatus SimAudioHardware::tapUID(AudioObjectID tap, std::optional<std::string>& out) {
  return answerFor("TapUID", taps_, tap, [&](const Tap& t) { out = t.uid; return 0; });
}

OSStatus SimAudioHardware::tapFormat(AudioObjectID tap, platform::StreamFormat& out) {
  return answerFor("TapFormat", taps_, tap, [&](const Tap& t) { out = t.format; return 0; });
}

OSStatus SimAudioHardware::createAggregateDevice(const nlohmann::json& description, AudioObjectID& out) {
  {
    std::lock_guard lock(mutex_);
    aggregateDescriptions_.push_back(description);  // refused requests too
  }
  if (auto st = scripted("AudioHardwareCreateAggregateDevice")) return *st;
  std::lock_guard lock(mutex_);
  const SimDevice* master = nullptr;
  const Tap* tap = nullptr;
  try {
    const std::string masterUID = description.at("master");
    for (const auto& [id, d] : devices_)
      if (d.uid == masterUID && !d.aggregate) master = &d;
    const std::string tapUID = description.at("taps").at(0).at("uid");
    for (const auto& [id, t] : taps_)
      if (t.uid == tapUID) tap = &t;
  } catch (const nlohmann::json::exception&) {
    return kIllegalOperationErr;
  }
  if (!master || !tap) return kBadDeviceErr;

  SimDevice agg;
  agg.aggregate = true;
  agg.uid = description.value("uid", "");
  agg.name = description.value("name", "");
  agg.outputStreams = master->outputStreams;
  agg.inputChannels = master->inputChannels;
  for (uint32_t c : tapStreams(tap->format)) agg.inputChannels.push_back(c);
  out = nextID_++;
  devices_[out] = std::move(agg);
  return 0;
}

OSStatus SimAudioHardware::destroyAggregateDevice(AudioObjectID aggregate) {
  return answer("AudioHardwareDestroyAggregateDevice", [&] {
    auto it = devices_.find(aggregate);
    if (it == devices_.end() || !it->second.aggregate) return kBadObjectErr;
    devices_.erase(it);
    return 0;
  });
}

// --- IOProcs ---

std::shared_ptr<SimIOProc> SimAudioHardware::procLocked(AudioObjectID device, IOProcID proc, OSStatus& status) {
  for (auto& p : procs_)
    if (p->id_ == proc && !p->destroyed_) {
      status = p->device_ == device ? 0 : kBadDeviceErr;
      return status == 0 ? p : nullptr;
    }
  status = kBadObjectErr;
  return nullptr;
}

OSStatus SimAudioHardware::createIOProc(AudioObjectID device, const std::string& queueLabel, platform::IOBlock block,
                                        IOProcID& out) {
  if (auto st = scripted("AudioDeviceCreateIOProcIDWithBlock")) return *st;
  std::lock_guard lock(mutex_);
  if (!devices_.count(device)) return kBadDeviceErr;
  auto proc = std::make_shared<SimIOProc>(IOProcID(nextID_++), device, queueLabel, std::move(block));
  procs_.push_back(proc);
  out = proc->id();
  return 0;
}

OSStatus SimAudioHardware::changeProc(const char* call, AudioObjectID device, IOProcID proc, bool running,
                                      bool destroyed) {
  if (auto st = scripted(call)) return *st;
  std::lock_guard lock(mutex_);
  OSStatus status;
  if (auto p = procLocked(device, proc, status)) {
    p->running_ = running;
    p->destroyed_ = destroyed;
  }
  return status;
}

OSStatus SimAudioHardware::startDevice(AudioObjectID device, IOProcID proc) {
  return changeProc("AudioDeviceStart", device, proc, true, false);
}

OSStatus SimAudioHardware::stopDevice(AudioObjectID device, IOProcID proc) {
  return changeProc("AudioDeviceStop", device, proc, false, false);
}

OSStatus SimAudioHardware::destroyIOProc(AudioObjectID device, IOProcID proc) {
  return changeProc("AudioDeviceDestroyIOProcID", device, proc, false, true);
}

// --- listeners ---

OSStatus SimAudioHardware::addPropertyListener(AudioObjectID object, ListenedProperty property,
                                               ::ac::SerialQueue& queue, platform::ListenerBlock block,
                                               ListenerID& out) {
  if (auto st = scripted("AudioObjectAddPropertyListenerBlock")) return *st;
  std::lock_guard lock(mutex_);
  if (object != platform::kAudioObjectSystemObject && !taps_.count(object) && !devices_.count(object))
    return kBadObjectErr;
  out = nextID_++;
  listeners_[out] = Listener{object, property, &queue, std::move(block)};
  return 0;
}

OSStatus SimAudioHardware::removePropertyListener(AudioObjectID object, ListenedProperty property,
                                                  ListenerID listener) {
  if (auto st = scripted("AudioObjectRemovePropertyListenerBlock")) return *st;
  std::lock_guard lock(mutex_);
  auto it = listeners_.find(listener);
  if (it == listeners_.end() || it->second.object != object || it->second.property != property)
    return kBadObjectErr;
  listeners_.erase(it);
  return 0;
}

}  // namespace ac::sim
