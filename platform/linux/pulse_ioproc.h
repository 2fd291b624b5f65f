// One IOProc of the hardware seam: a record stream on an aggregate's
// main-sink monitor, with a connection and loop thread of its own, so the
// thread that calls the block is named after the IOProc's queue and no
// device query or other stream ever delays it.
//
// The block receives a one-buffer list pointing at libpulse's bytes
// (interleaved float stereo, valid during the call) and a time stamp whose
// hostTime is the CLOCK_MONOTONIC nanosecond at which the first frame was
// captured, and whose sampleTime counts frames since start().
//
// A server that goes away and comes back within the return window gets the
// same monitor recorded again, from a fresh count (see PulseReconnect); one
// that stays away is reported through serverGone, on a thread of the
// IOProc's own.
//
// An IOProc can be made with its aggregate, before the core asks for one:
// prepare() connects its stream corked, and bind() later gives it the
// core's block, so that starting it only uncorks the stream.
#pragma once

#include <string>

#include "platform/audio_hardware.h"
#include "platform/linux/pulse_connection.h"
#include "platform/linux/pulse_reconnect.h"
#include "platform/linux/pulse_record_stream.h"

namespace ac::platform::linux_backend {

class PulseIOProc {
 public:
  // `connection` is the IOProc's own.
  PulseIOProc(std::shared_ptr<PulseConnection> connection, std::function<void()> serverGone);
  ~PulseIOProc();

  // Gives the IOProc the core's block and names its loop thread after the
  // IOProc's queue; before start().
  void bind(const std::string& queueLabel, IOBlock block);
  // Connects the stream for monitorSource at `rate` corked (see
  // PulseRecordStream::prepare); blocks. Non-zero when it cannot.
  OSStatus prepare(const std::string& monitorSource, uint32_t rate);
  // Starts recording monitorSource at `rate`; a running IOProc stays as is.
  OSStatus start(const std::string& monitorSource, uint32_t rate);
  // After it returns no block call is running or will run, and no
  // reconnection either.
  OSStatus stop();
  bool running() const { return stream_.running(); }

  static constexpr uint32_t kFragmentMs = 10;

 private:
  // The time stamp's validity flags, as the other platform numbers them.
  static constexpr uint32_t kSampleTimeValid = 1u << 0;
  static constexpr uint32_t kHostTimeValid = 1u << 1;

  void deliver(const CapturedChunk& chunk);
  void onStreamEnded(int error);

  IOBlock block_;
  std::function<void()> serverGone_;
  std::shared_ptr<PulseConnection> connection_;
  PulseRecordStream stream_;
  std::string monitor_;  // what start() was last asked to record
  pa_sample_spec spec_{};
  PulseReconnect reconnect_;
};

}  // namespace ac::platform::linux_backend
