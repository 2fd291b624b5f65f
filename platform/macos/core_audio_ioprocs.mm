// IOProcs of the Core Audio hardware seam: a block IOProc per call, each on
// a serial dispatch queue of its own.
#include "platform/macos/core_audio_hardware.h"
#include "platform/macos/core_audio_types.h"

namespace ac::platform::macos {
namespace {

AudioDeviceIOProcID coreAudioProc(IOProcID proc) {
  return reinterpret_cast<AudioDeviceIOProcID>(static_cast<uintptr_t>(proc));
}

}  // namespace

OSStatus CoreAudioHardware::createIOProc(AudioObjectID device, const std::string& queueLabel, IOBlock block,
                                         IOProcID& out) {
  if (!block) return kAudioHardwareIllegalOperationError;
  dispatch_queue_attr_t attributes =
      dispatch_queue_attr_make_with_qos_class(DISPATCH_QUEUE_SERIAL, QOS_CLASS_USER_INTERACTIVE, 0);
  dispatch_queue_t queue = dispatch_queue_create(queueLabel.c_str(), attributes);

  // Real time: the list passes through as it is; the time stamp's head is
  // copied onto the stack.
  AudioDeviceIOBlock ioBlock = ^(const ::AudioTimeStamp*, const ::AudioBufferList* inputData,
                                 const ::AudioTimeStamp* inputTime, ::AudioBufferList*, const ::AudioTimeStamp*) {
    if (!inputTime) {
      block(seamBufferList(inputData), nullptr);
      return;
    }
    const platform::AudioTimeStamp time = seamTimeStamp(*inputTime);
    block(seamBufferList(inputData), &time);
  };

  AudioDeviceIOProcID proc = nullptr;
  OSStatus status = AudioDeviceCreateIOProcIDWithBlock(&proc, device, queue, ioBlock);
  out = reinterpret_cast<uintptr_t>(proc);
  if (status == noErr && proc) {
    std::lock_guard<std::mutex> lock(mutex_);
    ioProcQueues_[out] = queue;
  }
  return status;
}

OSStatus CoreAudioHardware::startDevice(AudioObjectID device, IOProcID proc) {
  return AudioDeviceStart(device, coreAudioProc(proc));
}

OSStatus CoreAudioHardware::stopDevice(AudioObjectID device, IOProcID proc) {
  return AudioDeviceStop(device, coreAudioProc(proc));
}

OSStatus CoreAudioHardware::destroyIOProc(AudioObjectID device, IOProcID proc) {
  OSStatus status = AudioDeviceDestroyIOProcID(device, coreAudioProc(proc));
  // A proc that could not be destroyed may still be called: keep its queue.
  if (status == noErr) {
    std::lock_guard<std::mutex> lock(mutex_);
    ioProcQueues_.erase(proc);
  }
  return status;
}

}  // namespace ac::platform::macos
