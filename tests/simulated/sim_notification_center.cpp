#include "tests/simulated/sim_notification_center.h"

#include <algorithm>

namespace ac::sim {

using platform::DeliveredNotification;
using platform::NotificationCategory;

bool SimNotificationCenter::respond(const std::string& requestIdentifier, const std::string& actionIdentifier,
                                    std::function<void()> completion) {
  platform::NotificationResponse response{requestIdentifier, actionIdentifier, {}};
  platform::NotificationDelegate* delegate = nullptr;
  {
    std::lock_guard lock(mutex_);
    auto it = std::find_if(delivered_.begin(), delivered_.end(),
                           [&](const DeliveredNotification& d) { return d.requestIdentifier == requestIdentifier; });
    if (!delegate_ || it == delivered_.end()) return false;
    delegate = delegate_;
    response.content = it->content;
  }
  delegate->didReceive(response, completion ? std::move(completion) : [] {});
  return true;
}

void SimNotificationCenter::getAuthorizationStatus(
    std::function<void(platform::NotificationAuthorizationStatus)> completion) {
  if (auto status = readLocked(mutex_, script_.status)) completion(*status);
}

void SimNotificationCenter::requestAuthorization(bool alert, bool sound, bool badge,
                                                 std::function<void(bool, std::optional<Error>)> completion) {
  Script s;
  {
    std::lock_guard lock(mutex_);
    lastRequest_ = RequestOptions{alert, sound, badge};
    if (script_.statusAfterRequest) script_.status = script_.statusAfterRequest;
    s = script_;
  }
  completion(s.grantsRequest, s.requestError);
}

void SimNotificationCenter::add(const std::string& identifier, const platform::NotificationContent& content,
                                std::function<void(std::optional<Error>)> completion) {
  std::optional<Error> error;
  {
    std::lock_guard lock(mutex_);
    error = script_.addError;
    added_.push_back({identifier, content});
    if (!error) delivered_.push_back({identifier, content, deliveryDate});
  }
  completion(error);
}

void SimNotificationCenter::getDelivered(std::function<void(std::vector<DeliveredNotification>)> completion) {
  std::vector<DeliveredNotification> copy;
  {
    std::lock_guard lock(mutex_);
    if (!script_.answersDelivered) return;
    copy = delivered_;
  }
  completion(std::move(copy));
}

void SimNotificationCenter::removeDelivered(const std::vector<std::string>& identifiers) {
  std::lock_guard lock(mutex_);
  for (const auto& id : identifiers) {
    removed_.push_back(id);
    std::erase_if(delivered_, [&](const DeliveredNotification& d) { return d.requestIdentifier == id; });
  }
}

void SimNotificationCenter::getCategories(std::function<void(std::vector<NotificationCategory>)> completion) {
  std::vector<NotificationCategory> copy;
  {
    std::lock_guard lock(mutex_);
    if (!script_.answersCategories) return;
    copy = categories_;
  }
  completion(std::move(copy));
}

void SimNotificationCenter::setCategories(const std::vector<NotificationCategory>& categories) {
  std::lock_guard lock(mutex_);
  categories_ = categories;
}

}  // namespace ac::sim
