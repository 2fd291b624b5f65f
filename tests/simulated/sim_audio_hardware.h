// A scriptable audio-hardware seam for tests.
//
// Device side (also meant for device-listing tests): devices are added with
// a UID, an optional name, a number of output streams and the channel count
// of each input stream; IDs are handed out from 100 up in order of creation
// and deviceList() answers them in that order. Private aggregates are not
// listed. setDefaultOutput() fires the default-output listeners.
//
// Capture side: taps take the format set by setNextTapFormat (48 kHz stereo
// float by default) and setTapFormat() fires their listeners. An aggregate
// is built from its description (recorded verbatim): its input streams are
// the master device's followed by the tap's (one buffer when interleaved,
// one mono buffer per channel otherwise), unless overridden. IOProcs are
// driven by the test through SimIOProc::deliver().
//
// Failures: failNext(call, status) makes the next call(s) of that name
// return `status` without side effects; several queue up in order. Status 0 makes the call succeed
// with nothing (an absent string, a zero ID or handle). Call names (a name
// not among them scripts nothing):
//   DefaultOutputDevice DeviceUID ObjectName DeviceListSize DeviceList
//   StreamsSize TranslateUIDToDevice StreamConfigurationSize
//   StreamConfiguration AudioHardwareCreateProcessTap
//   AudioHardwareDestroyProcessTap TapUID TapFormat
//   AudioHardwareCreateAggregateDevice AudioHardwareDestroyAggregateDevice
//   AudioDeviceCreateIOProcIDWithBlock AudioDeviceStart AudioDeviceStop
//   AudioDeviceDestroyIOProcID AudioObjectAddPropertyListenerBlock
//   AudioObjectRemovePropertyListenerBlock
//
// Thread-safe. Listener blocks run on the queue they were registered with;
// IOProc blocks run on the thread that calls deliver(). No lock is held
// while either runs. A listener stays registered until removed (a failed
// removal keeps it): its queue must outlive it.
#pragma once

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/audio_hardware.h"
#include "tests/simulated/locked_fields.h"

namespace ac::sim {

using platform::AudioObjectID;
using platform::OSStatus;
using platform::Scope;

// Statuses the simulated hardware answers with, as the platform spells them.
inline constexpr OSStatus kBadObjectErr = OSStatus(platform::fourCC("!obj"));
inline constexpr OSStatus kBadDeviceErr = OSStatus(platform::fourCC("!dev"));

// One IOProc. Tests decide whether a stopped or destroyed proc still gets
// called; its state changes under the hardware's lock.
struct SimIOProc {
  platform::IOProcID id;
  AudioObjectID device;
  platform::IOBlock block;
  bool running = false, destroyed = false;
  // Runs the block once, as a hardware period would.
  void deliver(const platform::AudioBufferList& list, uint64_t hostTime) {
    platform::AudioTimeStamp time;
    time.hostTime = hostTime;
    block(&list, &time);
  }
};

class SimAudioHardware final : public platform::AudioHardware {
 public:
  struct Device {
    std::string uid;
    std::optional<std::string> name;  // absent: the name lookup answers no string
    OSStatus nameStatus = 0;          // non-zero: the name lookup fails with it
    uint32_t outputStreams = 1;       // 0: an input-only device
    std::vector<uint32_t> inputChannels;
    int64_t sizeBias = 0;  // stream-configuration size queries report this many bytes more (or fewer)
  };

  ~SimAudioHardware() override { waitForListeners(5); }

  // --- scripting: devices ---
  AudioObjectID addDevice(Device device) {
    std::lock_guard lock(mutex_);
    devices_[nextID_] = SimDevice{std::move(device)};
    return nextID_++;
  }
  void setDefaultOutput(AudioObjectID device) {  // fires default-output listeners
    defaultOutput_.set(device);
    fire(platform::kAudioObjectSystemObject, platform::ListenedProperty::defaultOutputDevice);
  }
  void setDefaultInput(AudioObjectID) {  // fires default-input listeners
    fire(platform::kAudioObjectSystemObject, platform::ListenedProperty::defaultInputDevice);
  }

  // --- scripting: taps ---
  Locked<platform::StreamFormat> nextTapFormat = platform::floatPCMFormat(48000, 2);
  void setTapFormat(AudioObjectID tap, const platform::StreamFormat& format) {  // fires listeners
    {
      std::lock_guard lock(mutex_);
      taps_.at(tap).format = format;
    }
    fire(tap, platform::ListenedProperty::tapFormat);
  }

  // --- scripting: failures ---
  void failNext(const std::string& call, OSStatus status, int times = 1) {
    std::lock_guard lock(mutex_);
    failures_[call].push_back({status, times});
  }
  void failAlways(const std::string& call, OSStatus status) { failNext(call, status, -1); }
  void clearFailures() {
    std::lock_guard lock(mutex_);
    failures_.clear();
  }

  // --- records ---
  Locked<std::vector<nlohmann::json>> aggregateDescriptions;  // every create request, in order
  Locked<std::optional<platform::TapDescription>> lastTapDescription;
  std::vector<AudioObjectID> liveTaps() const { return ids(taps_, [](auto&) { return true; }); }
  std::vector<AudioObjectID> liveAggregates() const { return ids(devices_, [](auto& d) { return d.aggregate; }); }
  std::shared_ptr<SimIOProc> latestIOProc() const {  // null before the first
    std::lock_guard lock(mutex_);
    return procs_.empty() ? nullptr : procs_.back();
  }
  size_t listenerCount(platform::ListenedProperty property) const;
  // Waits until every listener block fired so far has finished.
  bool waitForListeners(double timeoutSeconds = 5) {
    std::unique_lock lock(mutex_);
    return idle_.wait_for(lock, std::chrono::duration<double>(timeoutSeconds),
                          [this] { return pendingListenerCalls_ == 0; });
  }

  // --- platform::AudioHardware ---
  OSStatus defaultOutputDevice(AudioObjectID& out) override {
    return answer("DefaultOutputDevice", [&] { out = defaultOutput_.get(); return 0; });
  }
  OSStatus deviceUID(AudioObjectID device, std::optional<std::string>& out) override {
    return answerFor("DeviceUID", devices_, device, [&](const SimDevice& d) { out = d.uid; return 0; });
  }
  OSStatus objectName(AudioObjectID object, std::optional<std::string>& out) override {
    return answerFor("ObjectName", devices_, object, [&](const SimDevice& d) {
      if (d.nameStatus == 0) out = d.name;
      return d.nameStatus;
    });
  }
  OSStatus deviceListByteSize(uint32_t& bytes) override {
    return answer("DeviceListSize", [&] { bytes = 4 * uint32_t(listedLocked().size()); return 0; });
  }
  OSStatus deviceList(std::vector<AudioObjectID>& out) override {
    return answer("DeviceList", [&] {
      const std::vector<AudioObjectID> listed = listedLocked();
      std::copy_n(listed.begin(), std::min(listed.size(), out.size()), out.begin());
      return 0;
    });
  }
  OSStatus streamsByteSize(AudioObjectID device, Scope scope, uint32_t& bytes) override {
    return answerFor("StreamsSize", devices_, device, [&](const SimDevice& d) {
      bytes = 4 * uint32_t(d.buffers(scope).size());
      return 0;
    });
  }
  OSStatus translateUIDToDevice(const std::string& uid, AudioObjectID& out) override {
    return answer("TranslateUIDToDevice", [&] {
      out = platform::kAudioObjectUnknown;  // an unknown UID answers 0, not an error
      for (const auto& [id, d] : devices_)
        if (d.uid == uid) out = id;
      return 0;
    });
  }
  OSStatus streamConfigurationByteSize(AudioObjectID device, Scope scope, uint32_t& bytes) override {
    return answerFor("StreamConfigurationSize", devices_, device, [&](const SimDevice& d) {
      bytes = uint32_t(std::max<int64_t>(0, int64_t(8 + 16 * d.buffers(scope).size()) + d.sizeBias));
      return 0;
    });
  }
  OSStatus streamConfiguration(AudioObjectID device, Scope scope, void* data, uint32_t& ioBytes) override;
  OSStatus createProcessTap(const platform::TapDescription& description, AudioObjectID& outTap) override {
    return answer("AudioHardwareCreateProcessTap", [&] {
      lastTapDescription.set(description);
      outTap = nextID_++;
      taps_[outTap] = Tap{"sim-tap-" + std::to_string(outTap), nextTapFormat.get()};
      return 0;
    });
  }
  OSStatus destroyProcessTap(AudioObjectID tap) override {
    return answer("AudioHardwareDestroyProcessTap", [&] { return taps_.erase(tap) ? 0 : kBadObjectErr; });
  }
  OSStatus tapUID(AudioObjectID tap, std::optional<std::string>& out) override {
    return answerFor("TapUID", taps_, tap, [&](const Tap& t) { out = t.uid; return 0; });
  }
  OSStatus tapFormat(AudioObjectID tap, platform::StreamFormat& out) override {
    return answerFor("TapFormat", taps_, tap, [&](const Tap& t) { out = t.format; return 0; });
  }
  OSStatus createAggregateDevice(const nlohmann::json& description, AudioObjectID& out) override;
  OSStatus destroyAggregateDevice(AudioObjectID aggregate) override {
    return answer("AudioHardwareDestroyAggregateDevice", [&] {
      auto it = devices_.find(aggregate);
      if (it == devices_.end() || !it->second.aggregate) return kBadObjectErr;
      devices_.erase(it);
      return 0;
    });
  }
  OSStatus createIOProc(AudioObjectID device, const std::string&, platform::IOBlock block,
                        platform::IOProcID& out) override {
    return answer("AudioDeviceCreateIOProcIDWithBlock", [&] {
      procs_.push_back(std::make_shared<SimIOProc>(SimIOProc{nextID_++, device, std::move(block)}));
      out = procs_.back()->id;
      return 0;
    });
  }
  // Start, stop and destroy: the proc's new state when the call succeeds.
  OSStatus startDevice(AudioObjectID device, platform::IOProcID proc) override {
    return changeProc("AudioDeviceStart", device, proc, true, false);
  }
  OSStatus stopDevice(AudioObjectID device, platform::IOProcID proc) override {
    return changeProc("AudioDeviceStop", device, proc, false, false);
  }
  OSStatus destroyIOProc(AudioObjectID device, platform::IOProcID proc) override {
    return changeProc("AudioDeviceDestroyIOProcID", device, proc, false, true);
  }
  OSStatus addPropertyListener(AudioObjectID object, platform::ListenedProperty property, ::ac::SerialQueue& queue,
                               platform::ListenerBlock block, platform::ListenerID& out) override {
    return answer("AudioObjectAddPropertyListenerBlock", [&] {
      out = nextID_++;
      listeners_[out] = Listener{object, property, &queue, std::move(block)};
      return 0;
    });
  }
  OSStatus removePropertyListener(AudioObjectID, platform::ListenedProperty, platform::ListenerID listener) override {
    return answer("AudioObjectRemovePropertyListenerBlock",
                  [&] { return listeners_.erase(listener) ? 0 : kBadObjectErr; });
  }
  // Host time stands still at zero, one tick a nanosecond.
  uint64_t hostTimeNow() override { return 0; }
  void hostTimebase(uint32_t& numer, uint32_t& denom) override { numer = denom = 1; }

 private:
  struct SimDevice : Device {
    bool aggregate = false;
    // The channel count of each buffer of the scope's stream configuration.
    std::vector<uint32_t> buffers(Scope scope) const {
      return scope == Scope::input ? inputChannels : std::vector<uint32_t>(outputStreams, 2);
    }
  };
  struct Tap {
    std::string uid;
    platform::StreamFormat format;
  };
  struct Listener {
    AudioObjectID object;
    platform::ListenedProperty property;
    ::ac::SerialQueue* queue;
    platform::ListenerBlock block;
  };
  struct Failure {
    OSStatus status;
    int times;  // -1: for ever
  };

  // The scripted status of `call`, else what `body` answers under the lock.
  template <class F>
  OSStatus answer(const char* call, F&& body) {
    std::lock_guard lock(mutex_);
    auto it = failures_.find(call);
    if (it == failures_.end() || it->second.empty()) return body();
    const OSStatus status = it->second.front().status;
    if (int& times = it->second.front().times; times > 0 && --times == 0) it->second.erase(it->second.begin());
    return status;
  }
  // The same, `body` given the object of this ID; kBadObjectErr without one.
  template <class Map, class F>
  OSStatus answerFor(const char* call, const Map& objects, AudioObjectID id, F&& body) {
    return answer(call, [&]() -> OSStatus {
      auto it = objects.find(id);
      return it == objects.end() ? kBadObjectErr : body(it->second);
    });
  }
  template <class Map, class Keep>
  std::vector<AudioObjectID> ids(const Map& objects, Keep keep) const {
    std::lock_guard lock(mutex_);
    std::vector<AudioObjectID> out;
    for (const auto& [id, o] : objects)
      if (keep(o)) out.push_back(id);
    return out;
  }
  std::vector<AudioObjectID> listedLocked() const {  // private aggregates are not listed
    std::vector<AudioObjectID> out;
    for (const auto& [id, d] : devices_)
      if (!d.aggregate) out.push_back(id);
    return out;
  }
  void fire(AudioObjectID object, platform::ListenedProperty property);
  OSStatus changeProc(const char* call, AudioObjectID device, platform::IOProcID proc, bool running, bool destroyed);

  mutable std::mutex mutex_;
  std::condition_variable idle_;
  AudioObjectID nextID_ = 100;
  std::map<AudioObjectID, SimDevice> devices_;
  std::map<AudioObjectID, Tap> taps_;
  Locked<AudioObjectID> defaultOutput_;
  std::vector<std::shared_ptr<SimIOProc>> procs_;
  std::map<platform::ListenerID, Listener> listeners_;
  int pendingListenerCalls_ = 0;
  std::map<std::string, std::vector<Failure>> failures_;
};

}  // namespace ac::sim
