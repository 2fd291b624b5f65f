#include "tests/simulated/sim_workspace.h"

namespace ac::sim {

void SimWorkspace::setBundleIdentifier(std::optional<std::string> id) {
  std::lock_guard lock(mutex_);
  bundleIdentifier_ = std::move(id);
}

void SimWorkspace::setBundlePath(std::string path) {
  std::lock_guard lock(mutex_);
  bundlePath_ = std::move(path);
}

void SimWorkspace::setBundleModificationTime(int64_t seconds) {
  std::lock_guard lock(mutex_);
  mtime_ = seconds;
}

void SimWorkspace::setApplication(const std::string& bundleIdentifier, std::optional<std::string> path) {
  std::lock_guard lock(mutex_);
  if (path)
    applications_[bundleIdentifier] = *path;
  else
    applications_.erase(bundleIdentifier);
}

void SimWorkspace::setLaunchError(std::optional<Error> error) {
  std::lock_guard lock(mutex_);
  launchError_ = std::move(error);
}

void SimWorkspace::setOpenURLResult(bool opened) {
  std::lock_guard lock(mutex_);
  openURLResult_ = opened;
}

std::vector<std::string> SimWorkspace::openedURLs() const {
  std::lock_guard lock(mutex_);
  return openedURLs_;
}

std::vector<SimWorkspace::Launch> SimWorkspace::launches() const {
  std::lock_guard lock(mutex_);
  return launches_;
}

std::vector<SimWorkspace::Distributed> SimWorkspace::distributed() const {
  std::lock_guard lock(mutex_);
  return distributed_;
}

std::optional<std::string> SimWorkspace::bundleIdentifier() {
  std::lock_guard lock(mutex_);
  return bundleIdentifier_;
}

std::string SimWorkspace::bundlePath() {
  std::lock_guard lock(mutex_);
  return bundlePath_;
}

int64_t SimWorkspace::bundleModificationTime() {
  std::lock_guard lock(mutex_);
  return mtime_;
}

bool SimWorkspace::openURL(const std::string& url) {
  std::lock_guard lock(mutex_);
  openedURLs_.push_back(url);
  return openURLResult_;
}

std::optional<std::string> SimWorkspace::applicationPath(const std::string& bundleIdentifier) {
  std::lock_guard lock(mutex_);
  auto it = applications_.find(bundleIdentifier);
  if (it == applications_.end()) return std::nullopt;
  return it->second;
}

std::optional<Error> SimWorkspace::openApplication(const std::string& appPath, const std::vector<std::string>& args) {
  std::lock_guard lock(mutex_);
  if (launchError_) return launchError_;
  launches_.push_back({appPath, args});
  return std::nullopt;
}

void SimWorkspace::postDistributedNotification(const std::string& name, const std::string& object) {
  std::lock_guard lock(mutex_);
  distributed_.push_back({name, object});
}

}  // namespace ac::sim
