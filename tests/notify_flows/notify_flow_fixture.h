// The notify flows against the simulated centre and workspace: a private
// HOME (so the state directory, journal and locks are the test's own), the
// platform set to the simulated seams, standard error captured, and the
// process exit replaced by a flag.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "notify/click_handling.h"
#include "notify/click_journal.h"
#include "notify/state_dir.h"
#include "support/dispatch.h"
#include "tests/simulated/sim_platform.h"
#include "tests/support/held_lock.h"
#include "tests/support/scratch_dir.h"

namespace ac::notify::testing {

// The scratch directory is HOME; its whole-file reads and writes are the tests' own.
class NotifyFlowTest : public ::testing::Test, protected test::ScratchDir {
 protected:
  void SetUp() override {
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
  }

  void captureStderr() {
    ::testing::internal::CaptureStderr();
    capturing_ = true;
  }
  // Pumps the main queue until done() holds, at most 10 s: a click's work
  // hops across queues, which a loaded machine may make slower than any
  // fixed wait.
  static void pumpUntil(const std::function<bool()>& done) {
    for (double start = monotonicSeconds(); !done() && monotonicSeconds() - start < 10;) runMainQueueFor(0.01);
  }
  std::string stderrText() {
    capturing_ = false;
    return ::testing::internal::GetCapturedStderr();
  }

  std::string stateDir() const { return notifAuthStateDir(); }
  std::string statePath(const std::string& name) const { return stateDir() + "/" + name; }
  std::unique_ptr<test::HeldLock> holdLock(const std::string& name) {
    secureStateDir(stateDir());
    return std::make_unique<test::HeldLock>(statePath(name));
  }

  // The journal's identifiers, comma-separated.
  static std::string journalIDs() {
    std::string out;
    for (const auto& e : NotifyClickJournal::read()) out += (out.empty() ? "" : ",") + e.id;
    return out;
  }
  std::vector<std::string> categoryIDs() const {
    std::vector<std::string> out;
    for (const auto& c : center_.categories.get()) out.push_back(c.identifier);
    return out;
  }

  // A banner as the centre lists it.
  static platform::DeliveredNotification banner(const std::string& id, const nlohmann::json& userInfo,
                                                const std::string& category = "", double at = 1'800'000'000) {
    platform::NotificationContent content;
    content.userInfo = userInfo;
    content.categoryIdentifier = category;
    return {id, content, at};
  }

  const std::string home_ = root();
  sim::SimPlatform sim_;
  sim::SimNotificationCenter& center_ = sim_.center;
  sim::SimWorkspace& desk_ = sim_.desk;
  int exits_ = 0;
  bool capturing_ = false;
};

}  // namespace ac::notify::testing
