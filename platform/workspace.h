// The desktop seam: this process's bundle identity, opening URLs, finding
// and launching applications, and the companion app's tab switch.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "support/error.h"

namespace ac::platform {

class Workspace {
 public:
  virtual ~Workspace() = default;
  // The bundle identifier of the running program; absent when unbundled.
  virtual std::optional<std::string> bundleIdentifier() = 0;
  // The path of the running program's bundle (or executable directory).
  virtual std::string bundlePath() = 0;
  // Modification time of the bundle, whole seconds since 1970.
  virtual int64_t bundleModificationTime() = 0;

  // Opens a URL with the desktop's default handler; false when refused.
  virtual bool openURL(const std::string& url) = 0;
  // The installed application with this bundle identifier, if any.
  virtual std::optional<std::string> applicationPath(const std::string& bundleIdentifier) = 0;
  // Opens an application with arguments; an error when it could not launch.
  virtual std::optional<Error> openApplication(const std::string& appPath, const std::vector<std::string>& args) = 0;
  // Posts a notification to other processes of this user, delivered at once.
  virtual void postDistributedNotification(const std::string& name, const std::string& object) = 0;
};

}  // namespace ac::platform
