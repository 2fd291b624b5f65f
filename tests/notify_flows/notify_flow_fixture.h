// The notify flows against the simulated centre and workspace: a private
// HOME (so the state directory, journal and locks are the test's own), the
// platform set to the simulated seams, standard error captured, and the
// process exit replaced by a flag.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "notify/click_handling.h"
#include "notify/click_journal.h"
#include "notify/state_dir.h"
#include "platform/platform.h"
#include "support/dispatch.h"
#include "tests/simulated/sim_notification_center.h"
#include "tests/simulated/sim_workspace.h"

namespace ac::notify::testing {

class SimNotifyPlatform final : public platform::Platform {
 public:
  platform::AudioHardware& audio() override { std::abort(); }
  platform::MicCapture& mic() override { std::abort(); }
  platform::WriterFactory& writers() override { std::abort(); }
  platform::NotificationCenter& notifications() override { return center; }
  platform::Workspace& workspace() override { return desk; }

  sim::SimNotificationCenter center;
  sim::SimWorkspace desk;
};

// Holds an exclusive flock on a file until destroyed, as another process
// holding one of the notify-side locks would.
class HeldLock {
 public:
  explicit HeldLock(const std::string& path) : fd_(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
    EXPECT_EQ(::flock(fd_, LOCK_EX | LOCK_NB), 0);
  }
  ~HeldLock() { ::close(fd_); }

 private:
  int fd_;
};

class NotifyFlowTest : public ::testing::Test {
 protected:
  void SetUp() override {
    // The real temporary directory, before any test pointed TMPDIR at its
    // own (soon removed) home.
    static const std::filesystem::path base = std::filesystem::temp_directory_path();
    std::string pattern = (base / "ac-notify-flow.XXXXXX").string();
    home_ = ::mkdtemp(pattern.data());
    ::setenv("HOME", home_.c_str(), 1);
    ::setenv("TMPDIR", home_.c_str(), 1);
    platform::setCurrent(&sim_);
    exits_ = 0;
    setNotifyExitAction([this] { ++exits_; });
  }
  void TearDown() override {
    if (capturing_) (void)stderrText();
    runMainQueueFor(0.05);
    setNotifyExitAction(nullptr);
    platform::setCurrent(nullptr);
    ::unsetenv("TMPDIR");
    std::filesystem::remove_all(home_);
  }

  void captureStderr() {
    ::testing::internal::CaptureStderr();
    capturing_ = true;
  }
  std::string stderrText() {
    capturing_ = false;
    return ::testing::internal::GetCapturedStderr();
  }

  std::string stateDir() const { return notifAuthStateDir(); }
  std::string statePath(const std::string& name) const { return stateDir() + "/" + name; }
  HeldLock holdLock(const std::string& name) {
    secureStateDir(stateDir());
    return HeldLock(statePath(name));
  }

  static std::string readFile(const std::string& path) {
    std::ifstream in(path);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
  }
  static void writeFile(const std::string& path, const std::string& text, bool executable = false) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path) << text;
    if (executable) std::filesystem::permissions(path, std::filesystem::perms::owner_all);
  }

  // A banner as the centre lists it.
  static platform::DeliveredNotification banner(const std::string& id, const nlohmann::json& userInfo,
                                                const std::string& category = "", double at = 1'800'000'000) {
    platform::DeliveredNotification d;
    d.requestIdentifier = id;
    d.content.userInfo = userInfo;
    d.content.categoryIdentifier = category;
    d.deliveryDate = at;
    return d;
  }

  SimNotifyPlatform sim_;
  sim::SimNotificationCenter& center_ = sim_.center;
  sim::SimWorkspace& desk_ = sim_.desk;
  std::string home_;
  int exits_ = 0;
  bool capturing_ = false;
};

}  // namespace ac::notify::testing
