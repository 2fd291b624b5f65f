// The shared state of one recording. Blocks queued on the recording's queues
// and handlers registered with the platform hold it weakly, so a finished
// recording is never kept alive (or revived) by a late callback.
//
// Field ownership by thread:
// - set-up values (writer, inputs, session, output) are written by setup()
//   on the main thread before anything is captured, then only read;
// - the system counters belong to writeQueueSystem, the mic counters, format
//   tracking, peak and level file to writeQueueMic;
// - micDevice, micDeviceInput and the observer tokens are guarded by
//   micRebuildLock once the recording has started;
// - sessionAnchor by anchorLock, sessionStarted by sessionStartLock.
// Lock order: the system chain's rebuild lock before micRebuildLock.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "capture/system_capture.h"
#include "platform/platform.h"
#include "recorder/failure_notices.h"
#include "recorder/level_file.h"
#include "recorder/output_claim.h"
#include "recorder/recorder.h"
#include "recorder/recording_stats.h"
#include "support/dispatch.h"

namespace ac {

// Fixed set-up and start error codes (-7 to -10 belong to the encoder
// settings and the system chain).
inline constexpr int64_t noMicDeviceErrorCode = -2;
inline constexpr int64_t micInputRejectedErrorCode = -3;
inline constexpr int64_t micOutputRejectedErrorCode = -4;
inline constexpr int64_t systemInputRejectedErrorCode = -5;
inline constexpr int64_t micWriterInputRejectedErrorCode = -6;
inline constexpr int64_t startWritingErrorCode = -11;

inline constexpr double micRebuildRetrySeconds = 0.5;
inline constexpr int64_t appendFailureNoticeCount = 10;
inline constexpr int64_t micTickInterval = 50;

struct Recorder::Impl : capture::SystemSampleSink, std::enable_shared_from_this<Recorder::Impl> {
  Impl(platform::Platform& platform, std::string outputPath, bool includeSystem, bool includeMic,
       std::optional<std::string> micUID, capture::PostNotification post);
  ~Impl() override;

  platform::Platform& platform;
  const std::string outputPath;
  const bool includeSystem;
  const bool includeMic;
  const std::optional<std::string> micUID;
  const capture::PostNotification post;
  FailureNotices notices;

  std::shared_ptr<SerialQueue> writeQueueSystem;
  std::shared_ptr<SerialQueue> writeQueueMic;
  std::shared_ptr<SerialQueue> micWatchQueue;
  std::shared_ptr<SerialQueue> deviceWatchQueue;

  // -- writer --
  std::optional<OutputClaim> outputClaim;  // set by setup(); what discards may remove
  std::unique_ptr<platform::AssetWriter> assetWriter;
  std::shared_ptr<platform::WriterInput> systemInput;
  std::shared_ptr<platform::WriterInput> micInput;
  std::mutex sessionStartLock;
  bool sessionStarted = false;

  // -- system track --
  std::unique_ptr<capture::SystemCapture> systemCapture;
  // Wakes writeQueueSystem from the IOProc to drain the chain's ring.
  std::unique_ptr<QueueSignal> systemPeriodsSignal;
  double systemAacRate = 0;
  bool systemAacClamped = false;
  int64_t systemSamplesAppended = 0;
  int64_t systemAppendFailures = 0;

  // -- microphone --
  std::shared_ptr<platform::CaptureSession> captureSession;
  std::shared_ptr<platform::AudioDataOutput> micOutput;
  std::shared_ptr<platform::CaptureDevice> micDevice;
  std::shared_ptr<platform::CaptureDeviceInput> micDeviceInput;
  std::mutex micRebuildLock;
  std::vector<platform::ObserverToken> micNotificationTokens;
  std::atomic<bool> micEndedEarly{false};
  int64_t micSamplesAppended = 0;
  int64_t micAppendFailures = 0;
  std::optional<platform::AudioFormatDescription> micFormatDescription;
  int64_t micFormatChanges = 0;
  float micMaxSampleAbs = 0;
  std::unique_ptr<MicLevelFile> levelFile;

  // -- one time line for both tracks --
  std::mutex anchorLock;
  std::optional<platform::MediaTime> sessionAnchor;

  std::atomic<bool> stopped{false};

  // -- armed-mode input watch --
  std::mutex armedLock;
  std::optional<platform::ListenerID> armedInputListener;
  platform::ObserverToken armedDisconnectToken = 0;

  // recorder.cpp
  void setup();
  void start();
  // `time` minus the shared anchor, setting the anchor on the first valid
  // time either track presents.
  platform::MediaTime anchoredPTS(platform::MediaTime time);
  // The write-failure notice title for the writer's current error.
  std::string currentAppendFailureReason();

  // system_path.cpp (SystemSampleSink)
  bool hasSystemInput() const override;
  void systemPeriodsReady() override;
  void appendSystemSample(platform::MediaTime hostPTS, platform::SampleBuffer& sample) override;
  void notifyAppendFailureOnce(const std::string& reason, const std::string& advice) override;

  // mic_path.cpp
  void buildMicSession();
  void handleMicBuffer(const platform::SampleBuffer& buffer);

  // mic_recovery.cpp
  void installMicDisconnectObservers();
  // Caller holds micRebuildLock.
  void removeMicDisconnectObservers();
  void handleDeviceDisconnected(const std::shared_ptr<platform::CaptureDevice>& device);
  void handleRuntimeError(const std::optional<Error>& error);
  void handleMicDisconnect(const std::string& reason);
  void recoverSessionWithoutRebuild(const std::string& reason);
  // One attempt to swap in a fresh device input; caller holds micRebuildLock.
  bool rebuildMicInput();

  // armed_watch.cpp
  bool installArmedInputWatch(std::function<void(const std::string&)> onChange);
  void removeArmedInputWatch();
  std::optional<std::string> armedDeviceStaleReason();
  void discardArmed();
  void discardOutput(const std::string& logPrefix);
  void buildWriterAndSources();  // setup() after the output is claimed

  // teardown.cpp
  void stop(std::function<void()> completion);
  RecordingStats stats() const;
};

}  // namespace ac
