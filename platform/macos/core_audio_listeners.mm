// Property listeners of the Core Audio hardware seam: the default output and
// input devices of the system object, and a tap's format.
#include "platform/macos/core_audio_hardware.h"
#include "platform/macos/core_audio_properties.h"
#include "platform/macos/owned_queue.h"
#include "support/dispatch.h"

namespace ac::platform::macos {

OSStatus CoreAudioHardware::addPropertyListener(AudioObjectID object, ListenedProperty property,
                                                ::ac::SerialQueue& queue, ListenerBlock block, ListenerID& out) {
  if (!block) return kAudioHardwareIllegalOperationError;
  auto forward = std::make_shared<Forward>();
  forward->queue = &queue;
  forward->block = std::move(block);

  AudioObjectPropertyListenerBlock installed = ^(UInt32, const AudioObjectPropertyAddress*) {
    if (!forward->active) return;
    forward->queue->async([forward] {
      if (forward->active) forward->block();
    });
  };
  const AudioObjectPropertyAddress address = listenedAddress(property);
  std::lock_guard<std::mutex> lock(mutex_);
  OSStatus status = AudioObjectAddPropertyListenerBlock(object, &address, listenerQueue_, installed);
  if (status != noErr) return status;
  out = nextListener_++;
  listeners_[out] = Listener{object, property, installed, forward};
  return noErr;
}

OSStatus CoreAudioHardware::removePropertyListener(AudioObjectID object, ListenedProperty property,
                                                   ListenerID listener) {
  std::lock_guard<std::mutex> lock(mutex_);
  auto it = listeners_.find(listener);
  if (it == listeners_.end() || it->second.object != object || it->second.property != property)
    return kAudioHardwareBadObjectError;
  const AudioObjectPropertyAddress address = listenedAddress(property);
  OSStatus status = AudioObjectRemovePropertyListenerBlock(object, &address, listenerQueue_, it->second.installed);
  if (status != noErr) return status;  // still installed: keep it for another try
  it->second.forward->active = false;
  listeners_.erase(it);
  // A change being forwarded right now finishes before we return.
  drainQueue(listenerQueue_);
  return noErr;
}

}  // namespace ac::platform::macos
