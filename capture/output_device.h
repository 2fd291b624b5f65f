// The default output device, which system capture builds its aggregate on
// and follows when it changes.
//
// Each lookup throws CaptureError with the platform status as its code and
// the fixed description callers log.
#pragma once

#include <string>

#include "platform/audio_hardware.h"

namespace ac {

platform::AudioObjectID defaultOutputDeviceID(platform::AudioHardware& hw);
std::string defaultOutputDeviceUID(platform::AudioHardware& hw);

}  // namespace ac
