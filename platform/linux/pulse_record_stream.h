// A PulseAudio record stream that hands each captured chunk, stamped with
// the host time of its first frame, to a handler.
//
// Threads: the chunk handler runs on the connection's loop thread, with the
// loop lock held, serially, inside a RealTimeScope: it is the platform's
// real-time callback, so it must not allocate, lock, block, log or call back
// into the stream.
// The chunk's bytes belong to libpulse and are valid only during the call
// (no copy is made). start() and stop() block and must not be called on the
// loop thread. No chunk holds a frame captured before start() was called.
// After stop() returns, the handler is not running and will not run again.
//
// The stream never moves: when its source goes away the server ends it and
// the failure handler is called, rather than the stream silently recording
// another device.
//
// A stream can be made ahead of its use (prepare): connected corked, so the
// server captures nothing for it and no chunk is delivered. A start() with
// the same arguments then only uncorks it — one command, not waited for —
// so a start answers at once; anything else (other arguments, a prepared
// stream the server ended meanwhile) is started afresh.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include <pulse/sample.h>
#include <pulse/stream.h>

#include "platform/audio_types.h"
#include "platform/linux/pulse_stream_clock.h"

namespace ac::platform::linux_backend {

class PulseConnection;

struct CapturedChunk {
  const void* data;
  size_t bytes;
  uint64_t frames;
  int64_t hostTimeNs;     // capture time of the first frame
  uint64_t framePosition;  // frames delivered before this chunk
};

class PulseRecordStream {
 public:
  using ChunkHandler = std::function<void(const CapturedChunk&)>;
  // Called on the loop thread when a running stream ends without stop().
  using FailureHandler = std::function<void(int paError)>;

  PulseRecordStream(PulseConnection& connection, ChunkHandler onChunk, FailureHandler onFailure);
  ~PulseRecordStream();
  PulseRecordStream(const PulseRecordStream&) = delete;
  PulseRecordStream& operator=(const PulseRecordStream&) = delete;

  // Records `source` in the given sample format (the server converts), with chunks of about
  // fragmentMs. Blocks until the stream runs; non-zero when it cannot.
  OSStatus start(const std::string& source, const pa_sample_spec& spec, uint32_t fragmentMs, const char* streamName);
  // Connects the stream corked (see above); blocks until the server made
  // it. Non-zero when it cannot be made; start() then tries afresh.
  OSStatus prepare(const std::string& source, const pa_sample_spec& spec, uint32_t fragmentMs, const char* streamName);
  // Stops a running stream and drops a prepared one.
  OSStatus stop();
  bool running() const { return running_; }

  static constexpr double kStartTimeoutSeconds = 5.0;

 private:
  static void onRead(pa_stream* s, size_t, void* userdata);
  static void onState(pa_stream* s, void* userdata);
  static void onOverflow(pa_stream* s, void* userdata);
  static void onLatencyUpdate(pa_stream* s, void* userdata);
  struct Arguments {
    std::string source;
    pa_sample_spec spec;
    uint32_t fragmentMs;
  };
  // Loop lock held. Makes stream_ and waits until it is ready.
  OSStatus open(const Arguments& args, const char* streamName, bool corked);
  // Loop lock held. Uncorks the prepared stream when it was made with
  // `args` and still stands; false otherwise.
  bool uncorkPrepared(const Arguments& args);
  void drain();
  void requestReportIfWanted();
  // When the byte at the read index was captured, by the server's last
  // timing report; absent until the server sent a usable one.
  std::optional<TimingReport> timingReport(int64_t nowMonotonicNs) const;
  void release();

  PulseConnection& connection_;
  ChunkHandler onChunk_;
  FailureHandler onFailure_;
  pa_stream* stream_ = nullptr;
  pa_sample_spec spec_{};
  size_t frameBytes_ = 0;
  StreamClock clock_{0};
  std::atomic<bool> running_{false};
  std::optional<Arguments> prepared_;  // loop lock held
  int64_t startedNs_ = 0;              // when start() was called; loop lock held
};

}  // namespace ac::platform::linux_backend
