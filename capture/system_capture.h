// The system-audio chain of one recording: process tap, private aggregate
// device, tap buffer selection, the IOProc, and recovery from output-device
// and tap-format changes.
//
// Ownership: owned by the Recorder, which also implements SystemSampleSink.
// Threads: setup/start/teardown run on the caller's thread; listener
// handlers on the "audio-capture.device-watch" queue under rebuildLock; the
// IOProc block on the backend's IOProc thread, lock- and allocation-free,
// handing periods to the system write queue through a ring.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
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
  // True while the system track's writer input exists. Called on the IOProc
  // thread: lock-free.
  virtual bool hasSystemInput() const = 0;
  // Periods wait in the chain's ring: have the system write queue call
  // SystemCapture::drainCallbacks(). Called on the IOProc thread: must not
  // block, lock, allocate or log (a QueueSignal does this).
  virtual void systemPeriodsReady() = 0;
  // On the system write queue, from drainCallbacks(): one converted buffer
  // stamped with host time in nanoseconds (the sink may retime it in place),
  // and the once-only write-failure notice.
  virtual void appendSystemSample(platform::MediaTime hostPTS, platform::SampleBuffer& sample) = 0;
  virtual void notifyAppendFailureOnce(const std::string& reason, const std::string& advice) = 0;
};

}  // namespace ac::capture

namespace ac::capture {

// Figures for the recording's final statistics line.
struct SystemCaptureStats {
  int64_t ioProcCalls = 0;
  int64_t dataFailures = 0;
  platform::StreamFormat format;
  int64_t formatChanges = 0;
  int64_t tapBufferIndex = 0;
  int64_t tapBufferCount = 0;
  float maxSampleAbs = 0;
};

class SystemCapture {
 public:
  SystemCapture(platform::AudioHardware& hw, SystemSampleSink& sink, PostNotification post);
  ~SystemCapture();
  SystemCapture(const SystemCapture&) = delete;
  SystemCapture& operator=(const SystemCapture&) = delete;

  // Creates the tap and the aggregate on the default output and measures the
  // topology. Throws CaptureError and leaves nothing half-built.
  void setup();
  // The adopted tap format (what the system track's encoder is sized for).
  platform::StreamFormat systemFormat() const;
  // Creates and starts the first IOProc and logs "system IOProc started".
  // Throws CaptureError ("AudioDeviceCreateIOProcIDWithBlock failed",
  // "AudioDeviceStart failed"); a proc that failed to start is kept for
  // teardown.
  void start();
  // Default-output and tap-format listeners. Installed before start() (an
  // armed recorder waiting for go), a new default output moves the
  // aggregate, so start() records the output the recording needs.
  void installListeners();
  void removeListeners();
  // Marks the chain stopped under the rebuild lock, then runs whileLocked
  // still holding it, so no repair overlaps what follows.
  void markStopped(const std::function<void()>& whileLocked);
  // Stops and destroys the IOProc, the aggregate and the tap, logging each
  // "teardown: …" step; frees the scratch list only when the IOProc is
  // proven quiesced. Removes listeners still installed; safe to call twice
  // and from inside markStopped's callback. The destructor runs it when
  // anything is left.
  void teardown();
  SystemCaptureStats stats() const;
  // On the system write queue: appends what the IOProc left in the ring and
  // logs what it reported.
  void drainCallbacks();

  struct State;

 private:
  std::shared_ptr<State> state_;
};

}  // namespace ac::capture
