// FFmpeg status codes as the writer's Error values, and FFmpeg's own log
// routed into ours.
#pragma once

#include <string>
#include <string_view>

#include "support/error.h"

namespace ac::platform::linux_backend {

// An errno wrapped in AVERROR() becomes a POSIX-domain error carrying that
// errno and its strerror text, so a full disk reads as ENOSPC (28) to the
// core. Any other FFmpeg status stays in our domain with its FFmpeg code and
// "<what>: <FFmpeg's text>".
Error errorFromAVError(int averror, std::string_view what);

// FFmpeg's message for a status code.
std::string avErrorText(int averror);

// Routes FFmpeg's error-level messages to log() as "ffmpeg: ..." lines instead
// of its default stderr printer. Idempotent; safe from any thread.
void installFFmpegLogRoute();

// While alive, FFmpeg messages raised on this thread are dropped: probing an
// encoder with settings it refuses is expected to complain.
class QuietFFmpegLog {
 public:
  QuietFFmpegLog();
  ~QuietFFmpegLog();
  QuietFFmpegLog(const QuietFFmpegLog&) = delete;
  QuietFFmpegLog& operator=(const QuietFFmpegLog&) = delete;

 private:
  bool previous_;
};

}  // namespace ac::platform::linux_backend
