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
  void setBundleIdentifier(std::optional<std::string> id);
  void setBundlePath(std::string path);
  void setBundleModificationTime(int64_t seconds);
  void setApplication(const std::string& bundleIdentifier, std::optional<std::string> path);
  void setLaunchError(std::optional<Error> error);
  void setOpenURLResult(bool opened);

  // --- records ---
  std::vector<std::string> openedURLs() const;
  std::vector<Launch> launches() const;
  std::vector<Distributed> distributed() const;

  // --- platform::Workspace ---
  std::optional<std::string> bundleIdentifier() override;
  std::string bundlePath() override;
  int64_t bundleModificationTime() override;
  bool openURL(const std::string& url) override;
  std::optional<std::string> applicationPath(const std::string& bundleIdentifier) override;
  std::optional<Error> openApplication(const std::string& appPath, const std::vector<std::string>& args) override;
  void postDistributedNotification(const std::string& name, const std::string& object) override;

 private:
  mutable std::mutex mutex_;
  std::optional<std::string> bundleIdentifier_ = std::string("com.quorlan.vela.audio-capture");
  std::string bundlePath_ = "/nonexistent/audio-capture-src/bin";
  int64_t mtime_ = 1'700'000'000;
  std::map<std::string, std::string> applications_;
  std::optional<Error> launchError_;
  bool openURLResult_ = true;
  std::vector<std::string> openedURLs_;
  std::vector<Launch> launches_;
  std::vector<Distributed> distributed_;
};

}  // namespace ac::sim
