#include "platform/linux/ffmpeg_error.h"

#include <mutex>
#include <system_error>

#include "platform/asset_writer.h"
#include "support/log.h"

extern "C" {
#include <libavutil/error.h>
#include <libavutil/log.h>
}

namespace ac::platform::linux_backend {
namespace {

// FFmpeg's own codes are negated four-character tags, far above any errno.
constexpr int kLargestErrno = 4095;

thread_local bool quietThread = false;

void logRoute(void* avcl, int level, const char* fmt, va_list args) {
  if (level > AV_LOG_ERROR || quietThread) return;
  char line[512];
  int printPrefix = 1;
  av_log_format_line2(avcl, level, fmt, args, line, sizeof line, &printPrefix);
  std::string_view text(line);
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.remove_suffix(1);
  if (!text.empty()) log(std::string("ffmpeg: ") + std::string(text));
}

}  // namespace

std::string avErrorText(int averror) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(averror, text, sizeof text);
  return text;
}

Error errorFromAVError(int averror, std::string_view what) {
  const int errnoValue = -averror;
  if (errnoValue > 0 && errnoValue <= kLargestErrno) {
    return Error{kPOSIXErrorDomain, errnoValue, std::generic_category().message(errnoValue)};
  }
  return Error{kErrorDomain, averror, std::string(what) + ": " + avErrorText(averror)};
}

void installFFmpegLogRoute() {
  static std::once_flag once;
  std::call_once(once, [] { av_log_set_callback(logRoute); });
}

QuietFFmpegLog::QuietFFmpegLog() : previous_(quietThread) { quietThread = true; }
QuietFFmpegLog::~QuietFFmpegLog() { quietThread = previous_; }

}  // namespace ac::platform::linux_backend
