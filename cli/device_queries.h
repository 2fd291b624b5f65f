// Output-device lookups used by --current-output and --list-outputs.
//
// Each lookup throws CaptureError with the platform status as its code and
// the fixed description callers log.
#pragma once

#include <string>
#include <vector>

#include "platform/audio_hardware.h"

namespace ac {

std::string deviceName(platform::AudioHardware& hw, platform::AudioObjectID id);
std::string defaultOutputDeviceName(platform::AudioHardware& hw);
// Names of devices with output streams, sorted case-insensitively in the
// user's locale; equal names keep the platform's device order.
std::vector<std::string> listOutputDeviceNames(platform::AudioHardware& hw);

// The sort used by listOutputDeviceNames, exposed for tests.
void sortDeviceNames(std::vector<std::string>& names);

// What a device-query mode prints and its exit status: the answer on
// standard output (0), or one failure line on standard error (1). The
// failure line carries the platform status so an unreachable or missing
// backend can be told apart.
struct DeviceQueryOutcome {
  std::string out;
  std::string err;
  int exitStatus = 0;
};
DeviceQueryOutcome currentOutputQuery(platform::AudioHardware& hw);
DeviceQueryOutcome listOutputsQuery(platform::AudioHardware& hw);

}  // namespace ac
