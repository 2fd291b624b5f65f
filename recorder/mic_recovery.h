// Decisions of microphone recovery: which capture-session runtime errors
// mean the device is gone, and whether a disconnect concerns our device.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "support/error.h"

namespace ac {

// The capture framework's "media services were reset" code.
inline constexpr int64_t avErrorMediaServicesWereReset = -11819;

// True for no error at all; for a named stop kind (platform::kMicStopDomain)
// other than transient; in the capture framework's domain for media
// services reset and the device-loss codes -11817, -11815, -11814, -11808;
// and for any other domain (anything unexplained gets the stronger remedy, a
// rebuild).
bool runtimeErrorIsDeviceLoss(const std::optional<Error>& error);

// A disconnect naming no device is taken as ours; one naming a device
// concerns us only when it is the device currently bound.
bool disconnectConcernsBoundDevice(const std::optional<std::string>& notifiedUID,
                                   const std::optional<std::string>& boundUID);

}  // namespace ac
