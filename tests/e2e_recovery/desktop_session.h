// A throw-away desktop for the notices a recording raises: an X server
// (Xvfb), a private session bus, a real notification service (dunst) on it,
// and a witness on the bus that records every Notify call.
//
// While it lives, this process's DBUS_SESSION_BUS_ADDRESS and DISPLAY name
// it (so a recorder launched meanwhile posts there); both are put back, and
// every process it started is stopped, when it goes. One per process at a time.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "main/exe_runner.h"

namespace ac::e2e {

class DesktopSession {
 public:
  // Why no desktop can be made here (a missing tool); nothing when it can.
  static std::optional<std::string> unavailable();

  explicit DesktopSession(const test::Scratch& scratch);
  ~DesktopSession();
  DesktopSession(const DesktopSession&) = delete;
  DesktopSession& operator=(const DesktopSession&) = delete;

  // Empty when the session came up; else what failed.
  const std::string& failure() const { return failure_; }

  // The summary (title) of every Notify call seen on the bus so far, in order.
  std::vector<std::string> noticeTitles() const;

 private:
  struct Daemon;
  void start(const test::Scratch& scratch);

  std::vector<std::unique_ptr<Daemon>> daemons_;  // stopped last to first
  std::string witnessLog_;
  std::string failure_;
  std::optional<std::string> savedBus_, savedDisplay_;
};

}  // namespace ac::e2e
