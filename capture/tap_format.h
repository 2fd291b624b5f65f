// Judging the process tap's stream format: whether the IOProc and the
// encoder can use it, and whether two reads describe the same stream.
#pragma once

#include <string>

#include "platform/audio_types.h"

namespace ac::capture {

// Below this the tap is not delivering real audio.
inline constexpr double minUsableTapSampleRate = 8000.0;

// The rate later becomes a 32-bit media timescale, so it must fit in one;
// NaN and infinities fail; channels and bytes per frame must be non-zero.
bool isUsableTapFormat(const platform::StreamFormat& f);

// Same stream as far as the IOProc and encoder care: every field but the
// reserved one.
bool asbdEquivalent(const platform::StreamFormat& a, const platform::StreamFormat& b);

// True when the tap delivers one buffer per channel.
inline bool isNonInterleaved(const platform::StreamFormat& f) {
  return (f.formatFlags & platform::kAudioFormatFlagIsNonInterleaved) != 0;
}

// "sr=48000.0 ch=2 bpf=8": how diagnostics describe a format.
std::string formatFragment(const platform::StreamFormat& f);

}  // namespace ac::capture
