// The once-per-recording user notices raised while recording: a write
// failure (shared by the mic path, the system path and finalization) and the
// microphone track ending early.
//
// Thread contract: callable from any queue. Each flag is read and set under
// its own lock, and the lock is released before posting so a slow
// notification service never stalls a write queue.
#pragma once

#include <mutex>
#include <optional>
#include <string>

#include "capture/system_capture.h"
#include "support/error.h"

namespace ac {

inline constexpr const char* diskFullAdvice = "Audio may be lost. Free up space and stop the recording.";
inline constexpr const char* micDisconnectedTitle = "Microphone disconnected";
inline constexpr const char* micDisconnectedBody =
    "Your mic track stopped. System audio is still recording. Stop and restart to record your voice again.";
inline constexpr const char* failureNoticeSound = "Basso";

// The title of a write-failure notice, from the writer's error (absent when
// there is no writer or no error).
std::string appendFailureReason(const std::optional<Error>& writerError);

// An error as the platform prints one in full, "nil" when absent; for the
// one-time writer-error diagnostics.
std::string fullErrorDescription(const std::optional<Error>& error);

class FailureNotices {
 public:
  explicit FailureNotices(capture::PostNotification post) : post_(std::move(post)) {}

  // Posts title `reason`, body `advice` unless a write-failure notice was
  // already posted in this recording.
  void notifyAppendFailureOnce(const std::string& reason, const std::string& advice);
  void notifyMicDisconnectOnce();

 private:
  void post(const std::string& title, const std::string& body);

  capture::PostNotification post_;
  std::mutex notifyLock_;
  bool notifiedAppendFailure_ = false;
  std::mutex micNotifyLock_;
  bool notifiedMicDisconnect_ = false;
};

}  // namespace ac
