// The audio-hardware seam on Core Audio (process taps need macOS 14.2).
//
// Each method is one HAL call on the property address of
// core_audio_properties.h, and returns the HAL's status unchanged; strings
// cross as CFString references, formats and buffer lists by their shared
// layout (core_audio_types.h).
//
// - IOProcs: AudioDeviceCreateIOProcIDWithBlock on a serial dispatch queue
//   of the given label with user-interactive quality of service. The seam's
//   IOProcID is the HAL's IOProc ID. The block hands the HAL's input list
//   straight to the core's block and copies only the time stamp's head onto
//   the stack: no lock, no allocation.
// - Listeners: AudioObjectAddPropertyListenerBlock on one private serial
//   queue, whose block forwards each change to the core's SerialQueue. The
//   exact block added is kept for its removal. After a removal returns, no
//   forwarded call runs: the private queue is drained (unless the removal or
//   the destructor runs on it, where nothing else does) and a cleared flag
//   stops calls already queued on the core's queue.
//
// Threads: every method may be called from any thread. mutex_ guards the
// IOProc queues and the listener table; no HAL callback takes it.
// Objective-C++: include from .mm files only.
#pragma once

#ifndef __OBJC__
#error "core_audio_hardware.h holds dispatch objects; include it from .mm files only"
#endif

#include <CoreAudio/CoreAudio.h>
#include <dispatch/dispatch.h>

#include <atomic>
#include <map>
#include <memory>
#include <mutex>

#include "platform/audio_hardware.h"

namespace ac::platform::macos {

class CoreAudioHardware final : public AudioHardware {
 public:
  CoreAudioHardware();
  ~CoreAudioHardware() override;

  OSStatus defaultOutputDevice(AudioObjectID& out) override;
  OSStatus deviceUID(AudioObjectID device, std::optional<std::string>& out) override;
  OSStatus objectName(AudioObjectID object, std::optional<std::string>& out) override;
  OSStatus deviceListByteSize(uint32_t& bytes) override;
  OSStatus deviceList(std::vector<AudioObjectID>& ids) override;
  OSStatus streamsByteSize(AudioObjectID device, Scope scope, uint32_t& bytes) override;
  OSStatus translateUIDToDevice(const std::string& uid, AudioObjectID& out) override;

  OSStatus streamConfigurationByteSize(AudioObjectID device, Scope scope, uint32_t& bytes) override;
  OSStatus streamConfiguration(AudioObjectID device, Scope scope, void* data, uint32_t& ioBytes) override;

  OSStatus createProcessTap(const TapDescription& description, AudioObjectID& outTap) override;
  OSStatus destroyProcessTap(AudioObjectID tap) override;
  OSStatus tapUID(AudioObjectID tap, std::optional<std::string>& out) override;
  OSStatus tapFormat(AudioObjectID tap, StreamFormat& out) override;

  OSStatus createAggregateDevice(const nlohmann::json& description, AudioObjectID& out) override;
  OSStatus destroyAggregateDevice(AudioObjectID aggregate) override;

  OSStatus createIOProc(AudioObjectID device, const std::string& queueLabel, IOBlock block, IOProcID& out) override;
  OSStatus startDevice(AudioObjectID device, IOProcID proc) override;
  OSStatus stopDevice(AudioObjectID device, IOProcID proc) override;
  OSStatus destroyIOProc(AudioObjectID device, IOProcID proc) override;

  OSStatus addPropertyListener(AudioObjectID object, ListenedProperty property, ::ac::SerialQueue& queue,
                               ListenerBlock block, ListenerID& out) override;
  OSStatus removePropertyListener(AudioObjectID object, ListenedProperty property, ListenerID listener) override;

  uint64_t hostTimeNow() override;
  void hostTimebase(uint32_t& numer, uint32_t& denom) override;

 private:
  // What a forwarded change needs; shared with the blocks in flight.
  struct Forward {
    ::ac::SerialQueue* queue;
    ListenerBlock block;
    std::atomic<bool> active{true};
  };
  struct Listener {
    AudioObjectID object;
    ListenedProperty property;
    AudioObjectPropertyListenerBlock installed;  // the block given to the HAL
    std::shared_ptr<Forward> forward;
  };

  std::mutex mutex_;
  // The queue each IOProc's block runs on, kept until the IOProc is destroyed.
  std::map<IOProcID, dispatch_queue_t> ioProcQueues_;
  dispatch_queue_t listenerQueue_;
  std::map<ListenerID, Listener> listeners_;
  ListenerID nextListener_ = 1;
};

}  // namespace ac::platform::macos
