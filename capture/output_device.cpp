#include "capture/output_device.h"

#include "support/error.h"

namespace ac {

platform::AudioObjectID defaultOutputDeviceID(platform::AudioHardware& hw) {
  platform::AudioObjectID id = 0;
  platform::OSStatus st = hw.defaultOutputDevice(id);
  if (st != 0) throw CaptureError(st, "default output device lookup failed");
  return id;
}

std::string defaultOutputDeviceUID(platform::AudioHardware& hw) {
  platform::AudioObjectID id = defaultOutputDeviceID(hw);
  std::optional<std::string> uid;
  platform::OSStatus st = hw.deviceUID(id, uid);
  if (st != 0 || !uid) throw CaptureError(st, "default output device UID failed");
  return *uid;
}

}  // namespace ac
