// The desktop seam: this process's bundle identity, opening URLs, finding
// and launching applications, and the companion app's tab switch.
//
// "Bundle" is the platform's notion of an installed program:
// - macOS: the application bundle; bundleIdentifier() is its identifier,
//   which the notification centre requires.
// - Linux: the directory holding the executable. bundleIdentifier() is
//   present exactly when the session bus can be reached, since that is what
//   the desktop notification service needs; applications are found by their
//   desktop entry "<identifier>.desktop" in the XDG data directories, and a
//   distributed notification is a session-bus signal.
//
// Every method may be called from any thread.
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
