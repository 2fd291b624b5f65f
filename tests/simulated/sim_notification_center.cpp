#include "tests/simulated/sim_notification_center.h"

#include <algorithm>

namespace ac::sim {

using platform::DeliveredNotification;
using platform::NotificationCategory;

void SimNotificationCenter::setScript(const Script& script) {
  std::lock_guard lock(mutex_);
  script_ = script;
}

void SimNotificationCenter::editScript(const std::function<void(Script&)>& edit) {
  std::lock_guard lock(mutex_);
  edit(script_);
}

SimNotificationCenter::Script SimNotificationCenter::script() const {
  std::lock_guard lock(mutex_);
  return script_;
}

void SimNotificationCenter::setDelivered(std::vector<DeliveredNotification> delivered) {
  std::lock_guard lock(mutex_);
  delivered_ = std::move(delivered);
}

void SimNotificationCenter::setCategoriesDirectly(std::vector<NotificationCategory> categories) {
  std::lock_guard lock(mutex_);
  categories_ = std::move(categories);
}

std::vector<SimNotificationCenter::Added> SimNotificationCenter::added() const {
  std::lock_guard lock(mutex_);
  return added_;
}

std::vector<DeliveredNotification> SimNotificationCenter::delivered() const {
  std::lock_guard lock(mutex_);
  return delivered_;
}

std::vector<std::string> SimNotificationCenter::removed() const {
  std::lock_guard lock(mutex_);
  return removed_;
}

std::vector<NotificationCategory> SimNotificationCenter::categories() const {
  std::lock_guard lock(mutex_);
  return categories_;
}

int SimNotificationCenter::authorizationRequests() const {
  std::lock_guard lock(mutex_);
  return requests_;
}

int SimNotificationCenter::setCategoriesCalls() const {
  std::lock_guard lock(mutex_);
  return setCategoriesCalls_;
}

platform::NotificationDelegate* SimNotificationCenter::delegate() const {
  std::lock_guard lock(mutex_);
  return delegate_;
}

std::optional<SimNotificationCenter::RequestOptions> SimNotificationCenter::lastRequestOptions() const {
  std::lock_guard lock(mutex_);
  return lastRequest_;
}

bool SimNotificationCenter::respond(const std::string& requestIdentifier, const std::string& actionIdentifier,
                                    std::function<void()> completion) {
  platform::NotificationResponse response;
  platform::NotificationDelegate* delegate = nullptr;
  {
    std::lock_guard lock(mutex_);
    delegate = delegate_;
    bool found = false;
    for (const auto& d : delivered_) {
      if (d.requestIdentifier == requestIdentifier) {
        response.content = d.content;
        found = true;
      }
    }
    for (const auto& a : added_) {
      if (!found && a.identifier == requestIdentifier) {
        response.content = a.content;
        found = true;
      }
    }
    if (!delegate || !found) return false;
  }
  response.requestIdentifier = requestIdentifier;
  response.actionIdentifier = actionIdentifier;
  delegate->didReceive(response, completion ? std::move(completion) : [] {});
  return true;
}

void SimNotificationCenter::setDelegate(platform::NotificationDelegate* delegate) {
  std::lock_guard lock(mutex_);
  delegate_ = delegate;
}

void SimNotificationCenter::getAuthorizationStatus(
    std::function<void(platform::NotificationAuthorizationStatus)> completion) {
  std::optional<int> status;
  {
    std::lock_guard lock(mutex_);
    status = script_.status;
  }
  if (status) completion(*status);
}

void SimNotificationCenter::requestAuthorization(bool alert, bool sound, bool badge,
                                                 std::function<void(bool, std::optional<Error>)> completion) {
  Script s;
  {
    std::lock_guard lock(mutex_);
    ++requests_;
    lastRequest_ = RequestOptions{alert, sound, badge};
    if (!script_.answersRequest) return;
    if (script_.statusAfterRequest) script_.status = script_.statusAfterRequest;
    s = script_;
  }
  completion(s.grantsRequest, s.requestError);
}

void SimNotificationCenter::add(const std::string& identifier, const platform::NotificationContent& content,
                                std::function<void(std::optional<Error>)> completion) {
  Script s;
  {
    std::lock_guard lock(mutex_);
    s = script_;
    added_.push_back({identifier, content});
    if (!s.addError && s.deliverOnAdd) delivered_.push_back({identifier, content, s.now});
  }
  if (s.answersAdd) completion(s.addError);
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
  ++setCategoriesCalls_;
  categories_ = categories;
}

bool SimNotificationCenter::relaunchesProgramOnClick() const {
  std::lock_guard lock(mutex_);
  return script_.relaunches;
}

}  // namespace ac::sim
