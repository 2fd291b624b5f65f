#include "recorder/failure_notices.h"

#include "platform/asset_writer.h"
#include "support/log.h"

namespace ac {

std::string appendFailureReason(const std::optional<Error>& writerError) {
  if (!writerError) return "Audio write failed";
  const Error& e = *writerError;
  const bool outOfSpace = (e.domain == platform::kCocoaErrorDomain && e.code == 640) ||
                          (e.domain == platform::kPOSIXErrorDomain && e.code == 28);
  if (outOfSpace) return "Disk full";
  return "Audio write failed (" + e.description + ")";
}

std::string fullErrorDescription(const std::optional<Error>& error) {
  if (!error) return "nil";
  return "Error Domain=" + error->domain + " Code=" + std::to_string(error->code) + " \"" + error->description + "\"";
}

void FailureNotices::notifyAppendFailureOnce(const std::string& reason, const std::string& advice) {
  {
    std::lock_guard<std::mutex> lock(notifyLock_);
    if (notifiedAppendFailure_) return;
    notifiedAppendFailure_ = true;
  }
  log("user notify: " + reason + ". " + advice);
  post(reason, advice);
}

void FailureNotices::notifyMicDisconnectOnce() {
  {
    std::lock_guard<std::mutex> lock(micNotifyLock_);
    if (notifiedMicDisconnect_) return;
    notifiedMicDisconnect_ = true;
  }
  post(micDisconnectedTitle, micDisconnectedBody);
}

void FailureNotices::post(const std::string& title, const std::string& body) {
  if (post_) post_(title, body, failureNoticeSound);
}

}  // namespace ac
