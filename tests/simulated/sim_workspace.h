// A scriptable desktop for tests: bundle identity, installed applications and
// launch failures are set by the test; every URL opened, application launched
// and distributed notification posted is recorded.
//
// Thread-safe; nothing here ever starts a real process.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/workspace.h"
#include "tests/simulated/locked_fields.h"

namespace ac::sim {

class SimWorkspace final : public platform::Workspace {
 public:
  // --- scripts ---
  Locked<std::optional<std::string>> bundleID = std::optional<std::string>("com.quorlan.vela.audio-capture");
  Locked<std::string> bundleDir = std::string("/nonexistent/audio-capture-src/bin");
  Locked<std::map<std::string, std::string>> applications;  // bundle identifier -> path; absent: not installed
  Locked<std::optional<Error>> launchError;                  // openApplication fails with it, launching nothing

  // --- records ---
  Locked<std::vector<std::string>> openedURLs;
  Locked<std::vector<std::pair<std::string, std::vector<std::string>>>> launches;  // application path, arguments
  Locked<std::vector<std::pair<std::string, std::string>>> distributed;           // name, object

  // --- platform::Workspace ---
  std::optional<std::string> bundleIdentifier() override { return bundleID.get(); }
  std::string bundlePath() override { return bundleDir.get(); }
  int64_t bundleModificationTime() override { return 1'700'000'000; }
  bool openURL(const std::string& url) override { return openedURLs.push_back(url), true; }
  std::optional<std::string> applicationPath(const std::string& bundleIdentifier) override {
    auto apps = applications.get();
    return apps.contains(bundleIdentifier) ? std::optional(apps[bundleIdentifier]) : std::nullopt;
  }
  std::optional<Error> openApplication(const std::string& appPath, const std::vector<std::string>& args) override {
    const std::optional<Error> error = launchError.get();
    if (!error) launches.push_back(std::pair{appPath, args});
    return error;
  }
  void postDistributedNotification(const std::string& name, const std::string& object) override {
    distributed.push_back(std::pair{name, object});
  }
};

}  // namespace ac::sim
