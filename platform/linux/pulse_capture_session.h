// The capture session of the PulseAudio microphone seam: one device input,
// one audio data output, and while running one record stream from the
// input's source in the output's format (the server converts).
//
// Threads: configuration, start and stop come from the core's threads (they
// block on the server and are serialised by mutex_). Buffers are made on the
// shared pulse loop thread and handed to the output's queue. A stream the
// server ends (its source went away) stops the session and posts a runtime
// error to the session's observers; it never moves to another source by
// itself. A server that went away is waited for (PulseReconnect): back
// within the window, the same source is recorded again and the session runs
// on; gone for good, the session stops with the "services reset" error.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>

#include <pulse/sample.h>

#include "platform/linux/pulse_capture_devices.h"
#include "platform/linux/pulse_reconnect.h"
#include "platform/linux/pulse_record_stream.h"
#include "platform/mic_capture.h"

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

  // The code a failed stream is reported with: the capture framework's
  // generic "operation could not be completed", which the core treats as
  // worth a restart rather than a device loss.
  static constexpr int64_t kStreamFailedCode = -11800;
  // "Media services were reset": the sound server itself is gone, which the
  // core treats as a lost device.
  static constexpr int64_t kServicesResetCode = -11819;
  static constexpr uint32_t kFragmentMs = 10;

 private:
  // mutex_ held for all of these.
  void applyLocked();
  bool openStreamLocked();
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
  std::atomic<bool> running_{false};
  PulseReconnect reconnect_;
};

}  // namespace ac::platform::linux_backend
