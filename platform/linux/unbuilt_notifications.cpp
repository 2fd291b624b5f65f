// Placeholder for the D-Bus notification backend and the desktop workspace:
// the centre never answers and the process has no bundle identity, so every
// notify path refuses cleanly.
#include "platform/linux/backends.h"

namespace ac::platform::linux_backend {
namespace {
class UnbuiltCenter final : public NotificationCenter {
 public:
  void setDelegate(NotificationDelegate*) override {}
  void getAuthorizationStatus(std::function<void(NotificationAuthorizationStatus)>) override {}
  void requestAuthorization(bool, bool, bool, std::function<void(bool, std::optional<Error>)>) override {}
  void add(const std::string&, const NotificationContent&, std::function<void(std::optional<Error>)> completion) override {
    completion(Error{kErrorDomain, kUnimplementedErr, "notifications are not built on this platform yet"});
  }
  void getDelivered(std::function<void(std::vector<DeliveredNotification>)>) override {}
  void removeDelivered(const std::vector<std::string>&) override {}
  void getCategories(std::function<void(std::vector<NotificationCategory>)>) override {}
  void setCategories(const std::vector<NotificationCategory>&) override {}
};
class UnbuiltWorkspace final : public Workspace {
 public:
  std::optional<std::string> bundleIdentifier() override { return std::nullopt; }
  std::string bundlePath() override { return ""; }
  int64_t bundleModificationTime() override { return 0; }
  bool openURL(const std::string&) override { return false; }
  std::optional<std::string> applicationPath(const std::string&) override { return std::nullopt; }
  std::optional<Error> openApplication(const std::string&, const std::vector<std::string>&) override {
    return Error{kErrorDomain, kUnimplementedErr, "launching applications is not built on this platform yet"};
  }
  void postDistributedNotification(const std::string&, const std::string&) override {}
};
}  // namespace
std::unique_ptr<NotificationCenter> makeDBusNotificationCenter() { return std::make_unique<UnbuiltCenter>(); }
std::unique_ptr<Workspace> makeLinuxWorkspace() { return std::make_unique<UnbuiltWorkspace>(); }
}  // namespace ac::platform::linux_backend
