// Recorder: one recording of system audio and the microphone into a single
// two-track MPEG-4 file (system first, microphone second).
//
// Lifecycle: construct → setup() → start() → stop(completion). Armed launches
// may call discardArmed() instead of start(). One recording per Recorder.
// Threads: setup/start/discardArmed from the main thread; stop from the signal
// queue (a repeated call is ignored); completion runs on a global queue.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "capture/system_capture.h"
#include "platform/platform.h"

namespace ac {

class MicLevelFile;

class Recorder {
 public:
  Recorder(platform::Platform& platform, std::string outputPath, bool includeSystem, bool includeMic,
           std::optional<std::string> micUID, capture::PostNotification post);
  ~Recorder();

  // Builds the writer, the system chain and the microphone session; nothing
  // is captured yet. Throws CaptureError.
  void setup();
  // Starts the writer session at zero, the IOProc and the mic session, then
  // installs the device listeners. Throws CaptureError.
  void start();
  // Tears everything down and finalizes the file; completion is called once,
  // on a global queue. A second call returns at once.
  void stop(std::function<void()> completion);

  // Set by the entry before start(); fed from the mic write queue.
  void setLevelFile(std::unique_ptr<MicLevelFile> file);

  // Armed mode.
  bool installArmedInputWatch(std::function<void(const std::string& reason)> onChange);
  void removeArmedInputWatch();
  std::optional<std::string> armedDeviceStaleReason();
  void discardArmed();
  // After a set-up or start that threw: drops the writer and removes the
  // output file this recorder created (never anything that was there before).
  void discardUnstarted();

  const std::string& outputPath() const;

  struct Impl;

 private:
  std::shared_ptr<Impl> impl_;
};

}  // namespace ac
