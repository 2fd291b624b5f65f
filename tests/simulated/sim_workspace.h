// A scriptable desktop for tests: bundle identity, installed applications and
// launch failures are set by the test; every URL opened, application launched
// and distributed notification posted is recorded.
//
// Thread-safe; nothing here ever starts a real process.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/workspace.h"
#include "tests/simulated/locked_fields.h"

namespace ac::sim {

class SimWorkspace final : public platform::Workspace {
 public:
  struct Launch {
    std::string appPath;
    std::vector<std::string> args;
  };
  struct Distributed {
    std::string name;
    std::string object;
  };

  // --- scripting ---
  void setBundleIdentifier(std::optional<std::string> id) { writeLocked(mutex_, bundleIdentifier_, std::move(id)); }
  void setBundlePath(std::string path) { writeLocked(mutex_, bundlePath_, std::move(path)); }
  // An absent path uninstalls the application.
  void setApplication(const std::string& bundleIdentifier, std::optional<std::string> path) {
    std::lock_guard lock(mutex_);
    applications_[bundleIdentifier] = std::move(path);
  }
  void setLaunchError(std::optional<Error> error) { writeLocked(mutex_, launchError_, std::move(error)); }

  // --- records ---
  std::vector<std::string> openedURLs() const { return readLocked(mutex_, openedURLs_); }
  std::vector<Launch> launches() const { return readLocked(mutex_, launches_); }
  std::vector<Distributed> distributed() const { return readLocked(mutex_, distributed_); }

  // --- platform::Workspace ---
  std::optional<std::string> bundleIdentifier() override { return readLocked(mutex_, bundleIdentifier_); }
  std::string bundlePath() override { return readLocked(mutex_, bundlePath_); }
  int64_t bundleModificationTime() override { return 1'700'000'000; }
  bool openURL(const std::string& url) override {
    std::lock_guard lock(mutex_);
    openedURLs_.push_back(url);
    return true;
  }
  std::optional<std::string> applicationPath(const std::string& bundleIdentifier) override {
    std::lock_guard lock(mutex_);
    auto it = applications_.find(bundleIdentifier);
    return it == applications_.end() ? std::nullopt : it->second;
  }
  std::optional<Error> openApplication(const std::string& appPath, const std::vector<std::string>& args) override {
    std::lock_guard lock(mutex_);
    if (!launchError_) launches_.push_back({appPath, args});
    return launchError_;
  }
  void postDistributedNotification(const std::string& name, const std::string& object) override {
    std::lock_guard lock(mutex_);
    distributed_.push_back({name, object});
  }

 private:
  mutable std::mutex mutex_;
  std::optional<std::string> bundleIdentifier_ = std::string("com.quorlan.vela.audio-capture");
  std::string bundlePath_ = "/nonexistent/audio-capture-src/bin";
  std::map<std::string, std::optional<std::string>> applications_;
  std::optional<Error> launchError_;
  std::vector<std::string> openedURLs_;
  std::vector<Launch> launches_;
  std::vector<Distributed> distributed_;
};

}  // namespace ac::sim
