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
// with nothing (an absent string, a zero ID or handle). Call names:
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

// Statuses the simulated hardware answers with, as the platform spells them.
inline constexpr OSStatus kBadObjectErr = OSStatus(platform::fourCC("!obj"));
inline constexpr OSStatus kBadDeviceErr = OSStatus(platform::fourCC("!dev"));
inline constexpr OSStatus kIllegalOperationErr = OSStatus(platform::fourCC("nope"));

class SimIOProc {
 public:
  SimIOProc(platform::IOProcID id, AudioObjectID device, std::string queueLabel, platform::IOBlock block)
      : id_(id), device_(device), queueLabel_(std::move(queueLabel)), block_(std::move(block)) {}
  // Runs the block once, as a hardware period would. Tests decide whether a
  // stopped or destroyed proc still gets called.
  void deliver(const platform::AudioBufferList& list, uint64_t hostTime);

  platform::IOProcID id() const { return id_; }
  const std::string& queueLabel() const { return queueLabel_; }
  bool running() const { return running_; }
  bool destroyed() const { return destroyed_; }

 private:
  friend class SimAudioHardware;
  platform::IOProcID id_;
  AudioObjectID device_;
  std::string queueLabel_;
  platform::IOBlock block_;
  bool running_ = false;
  bool destroyed_ = false;
};

class SimAudioHardware final : public platform::AudioHardware {
 public:
  struct Device {
    std::string uid;
    std::optional<std::string> name;  // absent: the name lookup answers no string
    OSStatus nameStatus = 0;          // non-zero: the name lookup fails with it
    uint32_t outputStreams = 1;       // 0: an input-only device
    std::vector<uint32_t> inputChannels;
  };

  SimAudioHardware();
  ~SimAudioHardware() override;

  // --- scripting: devices ---
  AudioObjectID addDevice(Device device);
  void setDefaultOutput(AudioObjectID device);  // fires default-output listeners
  void setDefaultInput(AudioObjectID device);   // fires default-input listeners
  // Size queries of the device's stream configuration report `bias` bytes
  // more (or fewer) than the configuration really takes.
  void setStreamConfigSizeBias(AudioObjectID device, int64_t bias) {
    std::lock_guard lock(mutex_);
    devices_.at(device).sizeBias = bias;
  }

  // --- scripting: taps ---
  void setNextTapFormat(const platform::StreamFormat& format) { writeLocked(mutex_, nextTapFormat_, format); }
  void setTapFormat(AudioObjectID tap, const platform::StreamFormat& format);  // fires listeners

  // --- scripting: failures ---
  void failNext(const std::string& call, OSStatus status, int times = 1);
  void failAlways(const std::string& call, OSStatus status) { failNext(call, status, -1); }
  void clearFailures() { writeLocked(mutex_, failures_, decltype(failures_){}); }

  // --- records ---
  std::vector<nlohmann::json> aggregateDescriptions() const {  // every create request, in order
    return readLocked(mutex_, aggregateDescriptions_);
  }
  std::optional<platform::TapDescription> lastTapDescription() const { return readLocked(mutex_, lastTapDescription_); }
  std::vector<AudioObjectID> liveTaps() const;
  std::vector<AudioObjectID> liveAggregates() const;
  std::shared_ptr<SimIOProc> latestIOProc() const {  // null before the first
    std::lock_guard lock(mutex_);
    return procs_.empty() ? nullptr : procs_.back();
  }
  size_t listenerCount(platform::ListenedProperty property) const;
  // Waits until every listener block fired so far has finished.
  bool waitForListeners(double timeoutSeconds = 5);

  // --- platform::AudioHardware ---
  OSStatus defaultOutputDevice(AudioObjectID& out) override;
  OSStatus deviceUID(AudioObjectID device, std::optional<std::string>& out) override;
  OSStatus objectName(AudioObjectID object, std::optional<std::string>& out) override;
  OSStatus deviceListByteSize(uint32_t& bytes) override;
  OSStatus deviceList(std::vector<AudioObjectID>& ids) override;
  OSStatus streamsByteSize(AudioObjectID device, platform::Scope scope, uint32_t& bytes) override;
  OSStatus translateUIDToDevice(const std::string& uid, AudioObjectID& out) override;
  OSStatus streamConfigurationByteSize(AudioObjectID device, platform::Scope scope, uint32_t& bytes) override;
  OSStatus streamConfiguration(AudioObjectID device, platform::Scope scope, void* data, uint32_t& ioBytes) override;
  OSStatus createProcessTap(const platform::TapDescription& description, AudioObjectID& outTap) override;
  OSStatus destroyProcessTap(AudioObjectID tap) override;
  OSStatus tapUID(AudioObjectID tap, std::optional<std::string>& out) override;
  OSStatus tapFormat(AudioObjectID tap, platform::StreamFormat& out) override;
  OSStatus createAggregateDevice(const nlohmann::json& description, AudioObjectID& out) override;
  OSStatus destroyAggregateDevice(AudioObjectID aggregate) override;
  OSStatus createIOProc(AudioObjectID device, const std::string& queueLabel, platform::IOBlock block,
                        platform::IOProcID& out) override;
  OSStatus startDevice(AudioObjectID device, platform::IOProcID proc) override;
  OSStatus stopDevice(AudioObjectID device, platform::IOProcID proc) override;
  OSStatus destroyIOProc(AudioObjectID device, platform::IOProcID proc) override;
  OSStatus addPropertyListener(AudioObjectID object, platform::ListenedProperty property, ::ac::SerialQueue& queue,
                               platform::ListenerBlock block, platform::ListenerID& out) override;
  OSStatus removePropertyListener(AudioObjectID object, platform::ListenedProperty property,
                                  platform::ListenerID listener) override;
  // Host time stands still at zero, one tick a nanosecond.
  uint64_t hostTimeNow() override { return 0; }
  void hostTimebase(uint32_t& numer, uint32_t& denom) override { numer = denom = 1; }

 private:
  struct SimDevice : Device {
    bool aggregate = false;
    int64_t sizeBias = 0;
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

  // The scripted status of this call, when one applies.
  std::optional<OSStatus> scripted(const std::string& call);
  // The scripted status of `call`, else what `body` answers under the lock.
  template <class F>
  OSStatus answer(const char* call, F&& body);
  // The same, `body` given the object of this ID; kBadObjectErr without one.
  template <class Map, class F>
  OSStatus answerFor(const char* call, const Map& objects, AudioObjectID id, F&& body);
  void fire(AudioObjectID object, platform::ListenedProperty property);
  std::shared_ptr<SimIOProc> procLocked(AudioObjectID device, platform::IOProcID proc, OSStatus& status);
  // Start, stop and destroy: the proc's new state when the call succeeds.
  OSStatus changeProc(const char* call, AudioObjectID device, platform::IOProcID proc, bool running, bool destroyed);

  mutable std::mutex mutex_;
  std::condition_variable idle_;
  AudioObjectID nextID_ = 100;
  std::map<AudioObjectID, SimDevice> devices_;
  std::map<AudioObjectID, Tap> taps_;
  AudioObjectID defaultOutput_ = 0;
  AudioObjectID defaultInput_ = 0;
  platform::StreamFormat nextTapFormat_;
  std::vector<nlohmann::json> aggregateDescriptions_;
  std::optional<platform::TapDescription> lastTapDescription_;
  std::vector<std::shared_ptr<SimIOProc>> procs_;
  std::map<platform::ListenerID, Listener> listeners_;
  int pendingListenerCalls_ = 0;
  std::map<std::string, std::vector<Failure>> failures_;
};

}  // namespace ac::sim
