#include "capture/tap_format.h"

#include <cmath>

#include "support/log.h"

namespace ac::capture {

bool isUsableTapFormat(const platform::StreamFormat& f) {
  // The comparisons are written so that NaN fails each of them.
  if (!(f.sampleRate <= 2147483647.0)) return false;
  if (!std::isfinite(f.sampleRate)) return false;
  if (!(f.sampleRate >= minUsableTapSampleRate)) return false;
  return f.channelsPerFrame != 0 && f.bytesPerFrame != 0;
}

bool asbdEquivalent(const platform::StreamFormat& a, const platform::StreamFormat& b) {
  return a.sampleRate == b.sampleRate && a.channelsPerFrame == b.channelsPerFrame &&
         a.bytesPerFrame == b.bytesPerFrame && a.bitsPerChannel == b.bitsPerChannel &&
         a.formatFlags == b.formatFlags && a.formatID == b.formatID &&
         a.framesPerPacket == b.framesPerPacket && a.bytesPerPacket == b.bytesPerPacket;
}

std::string formatFragment(const platform::StreamFormat& f) {
  return "sr=" + formatDouble(f.sampleRate) + " ch=" + std::to_string(f.channelsPerFrame) +
         " bpf=" + std::to_string(f.bytesPerFrame);
}

}  // namespace ac::capture
