// The system-audio chain of one recording: process tap, private aggregate
// device, tap buffer selection, the IOProc, and recovery from output-device
// and tap-format changes.
//
// Ownership: owned by the Recorder, which also implements SystemSampleSink.
// Threads: setup/start/teardown run on the caller's thread; listener
// handlers on the "audio-capture.device-watch" queue under rebuildLock; the
// IOProc block on the backend's IOProc thread, lock-free.
#pragma once

#include <functional>
#include <string>

#include "platform/audio_hardware.h"

namespace ac::capture {

// Posts a plain notification (title, body, sound name); never blocks.
using PostNotification =
    std::function<void(const std::string& title, const std::string& body, const std::string& sound)>;

// What the system chain needs from the recording that owns it.
class SystemSampleSink {
 public:
  virtual ~SystemSampleSink() = default;
  // True while the system track's writer input exists.
  virtual bool hasSystemInput() const = 0;
  // Hands one converted buffer (stamped with host time in nanoseconds) to the
  // system write queue. Called on the IOProc thread: must not block.
  virtual void enqueueSystemSample(platform::MediaTime hostPTS, platform::SampleBuffer&& sample) = 0;
  // Queues, on the system write queue, the once-only write-failure notice
  // with this title and body.
  virtual void notifyAppendFailureOnceOnSystemQueue(std::string reason, std::string advice) = 0;
};

}  // namespace ac::capture
