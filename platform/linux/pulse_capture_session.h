// The capture session of the PulseAudio microphone seam: one device input,
// one audio data output, and while running one record stream from the
// input's source in the output's format (the server converts).
//
// Threads: configuration, start and stop come from the core's threads (they
// block on the server and are serialised by mutex_). Buffers are made on the
// shared pulse loop thread and handed to the output's queue. A stream the
// server ends (its source went away) stops the session and posts a runtime
// error (micStopError) to the session's observers; it never moves to another source by
// itself. A server that went away is waited for (PulseReconnect): back
// within the window, the same source is recorded again and the session runs
// on; gone for good, the session stops with the service-reset kind.
//
// A session given its output after its input, not running, makes its
// stream ready, corked (PulseRecordStream::prepare): an armed recorder sets
// its session up long before "go", and startRunning() then only uncorks it.
// Stopping drops it; a start on another input or format makes it afresh.
#pragma once

#include <array>
#include <atomic>
#include <memory>
#include <mutex>
#include <optional>

#include <pulse/sample.h>

#include "platform/linux/pulse_capture_devices.h"
#include "platform/linux/pulse_reconnect.h"
#include "platform/linux/pulse_record_stream.h"
#include "platform/mic_capture.h"
#include "support/dispatch.h"
#include "support/spsc_ring.h"

namespace ac::platform::linux_backend {

class PulseConnection;

// The server-side sample format for an output's settings; absent for layouts the
// server cannot deliver (non-interleaved multichannel, odd bit depths).
std::optional<pa_sample_spec> sampleSpecFor(const CaptureAudioSettings& settings);

class PulseAudioDataOutput final : public AudioDataOutput {
 public:
  void setAudioSettings(const CaptureAudioSettings& settings) override;
  CaptureAudioSettings audioSettings() const override;
  void setSampleBufferHandler(SampleBufferHandler handler, ::ac::SerialQueue* queue) override;

  struct Delivery {
    SampleBufferHandler handler;
    ::ac::SerialQueue* queue = nullptr;
  };
  Delivery delivery() const;

 private:
  mutable std::mutex mutex_;
  CaptureAudioSettings settings_;
  Delivery delivery_;
};

// Carries a record stream's chunks from the loop thread to the output's
// queue. push() is the real-time side: it copies the chunk into a
// preallocated ring slot and wakes the queue with a QueueSignal, never
// allocating, locking or logging; a full ring drops the chunk and counts it.
// On the queue, drain() makes the sample buffers, hands them to the handler
// set at that moment and logs the drop counts by the rate rules.
class MicChunkPipe {
 public:
  static std::shared_ptr<MicChunkPipe> make(std::shared_ptr<PulseAudioDataOutput> output, ::ac::SerialQueue& queue,
                                            AudioFormatDescription format);
  void push(const CapturedChunk& chunk);

  // How far the write queue may fall behind before a chunk is dropped: 10 s
  // of 10 ms chunks, half a second where a low-latency player drives the
  // server to 0.5 ms ones. A larger chunk (up to a 64 KiB libpulse memory
  // block) takes several slots.
  static constexpr size_t kSlots = 1024;
  static constexpr size_t kSlotBytes = 8 * 1024;

 private:
  // No initialisers: push() writes every field before publishing, and an
  // untouched slot then costs no memory.
  struct MicChunk {
    int64_t hostTimeNs;
    uint64_t frames;
    size_t bytes;
    std::array<uint8_t, kSlotBytes> data;
  };
  MicChunkPipe(std::shared_ptr<PulseAudioDataOutput> output, ::ac::SerialQueue& queue, AudioFormatDescription format);
  void drain();
  static void logDrops(const std::atomic<int64_t>& count, int64_t& logged, const char* why);

  std::shared_ptr<PulseAudioDataOutput> output_;
  const AudioFormatDescription format_;
  ::ac::SerialQueue* const queue_;
  ::ac::SpscRing<MicChunk> ring_;
  std::atomic<int64_t> overruns_{0};
  int64_t loggedOverruns_ = 0;  // the queue's
  std::unique_ptr<::ac::QueueSignal> signal_;
};

class PulseCaptureSession final : public CaptureSession {
 public:
  PulseCaptureSession(std::shared_ptr<PulseConnection> connection, std::shared_ptr<MicObservers> observers);
  ~PulseCaptureSession() override;

  void beginConfiguration() override;
  void commitConfiguration() override;
  bool canAddInput(const std::shared_ptr<CaptureDeviceInput>& input) override;
  void addInput(const std::shared_ptr<CaptureDeviceInput>& input) override;
  void removeInput(const std::shared_ptr<CaptureDeviceInput>& input) override;
  bool canAddOutput(const std::shared_ptr<AudioDataOutput>& output) override;
  void addOutput(const std::shared_ptr<AudioDataOutput>& output) override;
  void startRunning() override;
  void stopRunning() override;
  bool isRunning() override { return running_; }

  static constexpr uint32_t kFragmentMs = 10;

 private:
  // What a stream for the current input and output records, and where it
  // delivers; absent for settings the server cannot deliver.
  struct StreamPlan {
    std::string source;
    pa_sample_spec spec;
    ::ac::SerialQueue* queue;
  };
  // mutex_ held for all of these.
  std::optional<StreamPlan> planLocked();
  void applyLocked();
  // Opens the stream running, uncorking the prepared one where it fits.
  bool openStreamLocked();
  // Makes the stream corked, for a configured session that is not running.
  void prepareStreamLocked();
  void makeStreamLocked(const StreamPlan& plan);
  void closeStreamLocked();
  // Opens the stream again after the server came back (the retry thread);
  // true when it runs or no longer should.
  bool reopen();

  std::shared_ptr<PulseConnection> connection_;
  std::shared_ptr<MicObservers> observers_;
  std::mutex mutex_;
  int configurationDepth_ = 0;
  std::shared_ptr<PulseCaptureDeviceInput> pendingInput_;  // as configured
  std::shared_ptr<PulseCaptureDeviceInput> activeInput_;   // as committed
  std::shared_ptr<PulseAudioDataOutput> output_;
  std::unique_ptr<PulseRecordStream> stream_;
  std::optional<StreamPlan> streamPlan_;  // what stream_ was made for
  std::unique_ptr<::ac::SerialQueue> ownQueue_;  // delivery for a handler set without a queue
  std::atomic<bool> running_{false};
  PulseReconnect reconnect_;
};

}  // namespace ac::platform::linux_backend
