// The system-audio hardware seam: output devices, the process tap, private
// aggregate devices, stream configurations, IOProcs and property listeners.
//
// Every call returns the platform's status unchanged (0 on success, see
// OSStatus) so the core decides what each failure means. Calls may come from any thread;
// a backend serialises its own state.
//
// Reconnecting to the sound service is transport, the one thing a backend
// decides alone: a service that restarts under the process and returns
// within a short window gets the same taps, aggregates and IOProcs attached
// again, and the core sees only a pause in the IOProc calls (and any default
// change made meanwhile, through its listeners). A service that stays away
// is reported as the platform reports it: the output device is lost.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "platform/audio_types.h"

namespace ac {
class SerialQueue;
}

namespace ac::platform {

enum class Scope { global, input, output };

// Properties that can be listened to.
enum class ListenedProperty {
  defaultOutputDevice,  // on the system object
  defaultInputDevice,   // on the system object
  tapFormat,            // on a tap
};

// What a process tap is asked to capture. The core asks for the stereo mix of
// every process, unmuted, private.
struct TapDescription {
  bool stereoGlobal = true;
  std::vector<AudioObjectID> excludedProcesses;
  bool muted = false;
  bool isPrivate = true;
};

using IOProcID = uint64_t;  // 0 = none
using ListenerID = uint64_t;

// Called for every captured period. The list and time stamp are only valid
// during the call. A backend calls it serially, from one thread per IOProc,
// never holding a lock the core could need, inside a RealTimeScope
// (support/realtime.h): the block must not allocate, lock, block or log.
// After stopDevice or destroyIOProc succeeds no call is running or will run.
using IOBlock = std::function<void(const AudioBufferList* inputData, const AudioTimeStamp* inputTime)>;
using ListenerBlock = std::function<void()>;

class AudioHardware {
 public:
  virtual ~AudioHardware() = default;

  // -- device queries (system object and devices) --
  virtual OSStatus defaultOutputDevice(AudioObjectID& out) = 0;
  // Absent string with status 0 is possible; the core treats it as failure.
  virtual OSStatus deviceUID(AudioObjectID device, std::optional<std::string>& out) = 0;
  virtual OSStatus objectName(AudioObjectID object, std::optional<std::string>& out) = 0;
  virtual OSStatus deviceListByteSize(uint32_t& bytes) = 0;
  // Fills at most ids.size() entries (4 bytes each); ids arrives zeroed.
  virtual OSStatus deviceList(std::vector<AudioObjectID>& ids) = 0;
  virtual OSStatus streamsByteSize(AudioObjectID device, Scope scope, uint32_t& bytes) = 0;
  virtual OSStatus translateUIDToDevice(const std::string& uid, AudioObjectID& out) = 0;

  // -- stream configuration: an AudioBufferList of the device's streams --
  virtual OSStatus streamConfigurationByteSize(AudioObjectID device, Scope scope, uint32_t& bytes) = 0;
  // Reads into data (ioBytes on entry: room; on return: bytes written).
  virtual OSStatus streamConfiguration(AudioObjectID device, Scope scope, void* data, uint32_t& ioBytes) = 0;

  // -- process taps --
  virtual OSStatus createProcessTap(const TapDescription& description, AudioObjectID& outTap) = 0;
  virtual OSStatus destroyProcessTap(AudioObjectID tap) = 0;
  virtual OSStatus tapUID(AudioObjectID tap, std::optional<std::string>& out) = 0;
  virtual OSStatus tapFormat(AudioObjectID tap, StreamFormat& out) = 0;

  // -- aggregate devices; description is the platform's dictionary --
  virtual OSStatus createAggregateDevice(const nlohmann::json& description, AudioObjectID& out) = 0;
  virtual OSStatus destroyAggregateDevice(AudioObjectID aggregate) = 0;

  // -- IOProcs. queueLabel names the thread or queue the block runs on. --
  virtual OSStatus createIOProc(AudioObjectID device, const std::string& queueLabel, IOBlock block,
                                IOProcID& out) = 0;
  virtual OSStatus startDevice(AudioObjectID device, IOProcID proc) = 0;
  virtual OSStatus stopDevice(AudioObjectID device, IOProcID proc) = 0;
  virtual OSStatus destroyIOProc(AudioObjectID device, IOProcID proc) = 0;

  // -- property listeners; the block is called on `queue`. After
  // removePropertyListener returns the backend never touches that queue; a
  // call it already queued there may still run. --
  virtual OSStatus addPropertyListener(AudioObjectID object, ListenedProperty property,
                                       ::ac::SerialQueue& queue, ListenerBlock block,
                                       ListenerID& out) = 0;
  virtual OSStatus removePropertyListener(AudioObjectID object, ListenedProperty property,
                                          ListenerID listener) = 0;

  // Host time: ticks and their ratio to nanoseconds (numer/denom).
  virtual uint64_t hostTimeNow() = 0;
  virtual void hostTimebase(uint32_t& numer, uint32_t& denom) = 0;
};

}  // namespace ac::platform
