// Output-device lookups used by --current-output, --list-outputs and by
// system capture (the aggregate is built on the default output).
//
// Each lookup throws CaptureError with the platform status as its code and
// the fixed description callers log.
#pragma once

#include <string>
#include <vector>

#include "platform/audio_hardware.h"

namespace ac {

platform::AudioObjectID defaultOutputDeviceID(platform::AudioHardware& hw);
std::string defaultOutputDeviceUID(platform::AudioHardware& hw);
std::string deviceName(platform::AudioHardware& hw, platform::AudioObjectID id);
std::string defaultOutputDeviceName(platform::AudioHardware& hw);
// Names of devices with output streams, sorted case-insensitively in the
// user's locale; equal names keep the platform's device order.
std::vector<std::string> listOutputDeviceNames(platform::AudioHardware& hw);

// The sort used by listOutputDeviceNames, exposed for tests.
void sortDeviceNames(std::vector<std::string>& names);

}  // namespace ac
