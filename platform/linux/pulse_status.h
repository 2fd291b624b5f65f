// Status values the PulseAudio backends report through the seams.
//
// PulseAudio's own error codes (PA_ERR_*, small positive numbers) pass
// through unchanged, so a log line can be looked up with pa_strerror();
// refusals about objects use the four-character codes the core already
// prints for the other platform. No failure is ever reported as 0.
#pragma once

#include "platform/audio_types.h"

namespace ac::platform::linux_backend {

inline constexpr OSStatus kBadObjectErr = static_cast<OSStatus>(fourCC("!obj"));
inline constexpr OSStatus kUnknownPropertyErr = static_cast<OSStatus>(fourCC("who?"));
inline constexpr OSStatus kBadPropertySizeErr = static_cast<OSStatus>(fourCC("!siz"));
inline constexpr OSStatus kIllegalOperationErr = static_cast<OSStatus>(fourCC("nope"));
inline constexpr OSStatus kBadDeviceErr = static_cast<OSStatus>(fourCC("!dev"));

// A PulseAudio error as a status; 0 (PA_OK) becomes PA_ERR_UNKNOWN, because
// the caller only converts errors.
OSStatus pulseStatus(int paError);

}  // namespace ac::platform::linux_backend
