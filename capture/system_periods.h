// What the IOProc hands to the system write queue: one slot per callback in
// a preallocated ring, holding the period's audio (copied, since the
// callback's buffers live only during the call) and the diagnostics the
// callback chose to report by the rate rules. The callback fills slots
// without allocating, locking or logging; the write queue turns them into
// sample buffers and log lines (drainSystemPeriods).
#pragma once

#include <array>
#include <cstdint>

#include "platform/audio_types.h"

namespace ac::capture {

struct SystemCallbackEvent {
  enum class Kind : uint8_t { rangeUnusable, tick, noScratch, attachFailed, tooLarge };
  Kind kind = Kind::tick;
  bool verifies = false;
  int32_t status = 0;
  int64_t index = 0, count = 0, probed = 0, buffers = 0, failures = 0, capacity = 0;
  uint64_t channelSum = 0;
  uint32_t tapChannels = 0, totalBytes = 0, bytesPerFrame = 0, frames = 0;
  float peak = 0;
};

struct SystemPeriod {
  // 128 KiB covers 8192 frames of 16 interleaved float channels, or 32
  // non-interleaved mono buffers of 1024 frames: more than one period.
  static constexpr size_t maxBytes = 128 * 1024;
  static constexpr size_t maxBuffers = 64;
  static constexpr size_t maxEvents = 3;

  bool hasSample = false;
  bool askForNotice = false;  // the tenth consecutive drop
  uint32_t eventCount = 0;
  platform::MediaTime hostPTS;
  platform::StreamFormat format;
  uint32_t frames = 0;
  uint32_t bufferCount = 0;
  std::array<uint32_t, maxBuffers> channels{};
  std::array<uint32_t, maxBuffers> bytes{};
  std::array<SystemCallbackEvent, maxEvents> events{};
  std::array<uint8_t, maxBytes> audio;  // left unzeroed (see SpscRing)

  void clear() { hasSample = askForNotice = false, eventCount = 0; }
  void report(const SystemCallbackEvent& e) {
    if (eventCount < maxEvents) events[eventCount++] = e;
  }
  // Copies the list's audio (the platform's "set data buffer from audio
  // buffer list" on the slot): non-zero when a buffer claims bytes but has
  // no data, kTooLarge when it does not fit.
  platform::OSStatus copyAudio(const platform::AudioBufferList& list);
  static constexpr platform::OSStatus kTooLarge = 1;
  // The period as a sample buffer (on the write queue: it allocates).
  platform::SampleBuffer sampleBuffer() const;
};

// How many callbacks the write queue may fall behind (a slow disk, a loaded
// machine) before a period is dropped: 10 s of 10 ms periods, and still
// half a second where a low-latency player drives the server to 0.5 ms
// callbacks. Untouched slot pages cost no memory (about 4 MB in use then).
inline constexpr size_t systemPeriodSlots = 1024;

}  // namespace ac::capture
