// Error values shared by the capture, writer and notification code.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace ac {

// The domain of every error this program raises itself.
inline constexpr const char* kErrorDomain = "audio-capture";

// An error as the platforms report them: a domain, an integer code and a
// fixed English description that callers log verbatim.
struct Error {
  std::string domain = kErrorDomain;
  int64_t code = 0;
  std::string description;

  bool operator==(const Error&) const = default;
};

// Thrown by set-up and start code; what() is the description, so a caller
// that logs "setup/start failed: " + what() logs the fixed text.
class CaptureError : public std::runtime_error {
 public:
  CaptureError(int64_t code, const std::string& description,
               std::string domain = kErrorDomain)
      : std::runtime_error(description), error_{std::move(domain), code, description} {}
  explicit CaptureError(Error e) : std::runtime_error(e.description), error_(std::move(e)) {}

  const Error& error() const { return error_; }
  int64_t code() const { return error_.code; }

 private:
  Error error_;
};

}  // namespace ac
