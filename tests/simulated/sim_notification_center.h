// A scriptable notification centre for tests: every answer can be set, made
// to fail or withheld (a withheld answer never calls its completion, like a
// centre that is not there), and every call is recorded.
//
// Thread-safe: the code under test may call it from any thread while the
// test reads its records. Completions run on the calling thread, outside the
// lock.
#pragma once

#include <algorithm>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/notification_center.h"
#include "tests/simulated/locked_fields.h"

namespace ac::sim {

class SimNotificationCenter final : public platform::NotificationCenter {
 public:
  using Status = platform::NotificationAuthorizationStatus;
  struct Script {
    std::optional<Status> status = 2;  // absent: never answers
    std::optional<Status> statusAfterRequest;  // absent: unchanged by a request
    bool grantsRequest = true;
    std::optional<Error> requestError;
    std::optional<Error> addError;  // otherwise an added banner shows up as delivered
    bool answersDelivered = true;
    bool answersCategories = true;
  };
  struct Added {
    std::string identifier;
    platform::NotificationContent content;
  };
  struct RequestOptions {
    bool alert = false, sound = false, badge = false;
  };
  // The delivery date of added banners.
  static constexpr double deliveryDate = 1'800'000'000;

  // --- scripting ---
  // Changes some answers, keeping the rest.
  void editScript(const std::function<void(Script&)>& edit) {
    std::lock_guard lock(mutex_);
    edit(script_);
  }
  void setDelivered(std::vector<platform::DeliveredNotification> delivered) {
    writeLocked(mutex_, delivered_, std::move(delivered));
  }
  void setCategoriesDirectly(std::vector<platform::NotificationCategory> categories) {
    writeLocked(mutex_, categories_, std::move(categories));
  }

  // --- records ---
  std::vector<Added> added() const { return readLocked(mutex_, added_); }
  std::vector<std::string> removed() const { return readLocked(mutex_, removed_); }
  std::vector<platform::NotificationCategory> categories() const { return readLocked(mutex_, categories_); }
  // The options of the last authorization request.
  std::optional<RequestOptions> lastRequestOptions() const { return readLocked(mutex_, lastRequest_); }

  // Delivers a response for a delivered banner to the delegate, as a user's
  // click or action would; completion signals when it was answered. Nothing
  // when there is no delegate or no such banner.
  void respond(const std::string& requestIdentifier, const std::string& actionIdentifier,
               std::function<void()> completion = [] {}) {
    std::unique_lock lock(mutex_);
    auto it = std::find_if(delivered_.begin(), delivered_.end(),
                           [&](const auto& d) { return d.requestIdentifier == requestIdentifier; });
    if (!delegate_ || it == delivered_.end()) return;
    platform::NotificationResponse response{requestIdentifier, actionIdentifier, it->content};
    auto* delegate = delegate_;
    lock.unlock();
    delegate->didReceive(response, std::move(completion));
  }

  // --- platform::NotificationCenter ---
  void setDelegate(platform::NotificationDelegate* delegate) override { writeLocked(mutex_, delegate_, delegate); }
  void getAuthorizationStatus(std::function<void(Status)> completion) override {
    if (auto status = readLocked(mutex_, script_.status)) completion(*status);
  }
  void requestAuthorization(bool alert, bool sound, bool badge,
                            std::function<void(bool, std::optional<Error>)> completion) override {
    std::unique_lock lock(mutex_);
    lastRequest_ = RequestOptions{alert, sound, badge};
    if (script_.statusAfterRequest) script_.status = script_.statusAfterRequest;
    Script s = script_;
    lock.unlock();
    completion(s.grantsRequest, s.requestError);
  }
  void add(const std::string& identifier, const platform::NotificationContent& content,
           std::function<void(std::optional<Error>)> completion) override {
    std::unique_lock lock(mutex_);
    std::optional<Error> error = script_.addError;
    added_.push_back({identifier, content});
    if (!error) delivered_.push_back({identifier, content, deliveryDate});
    lock.unlock();
    completion(error);
  }
  void getDelivered(std::function<void(std::vector<platform::DeliveredNotification>)> completion) override {
    if (readLocked(mutex_, script_.answersDelivered)) completion(readLocked(mutex_, delivered_));
  }
  void removeDelivered(const std::vector<std::string>& identifiers) override {
    std::lock_guard lock(mutex_);
    for (const auto& id : identifiers) {
      removed_.push_back(id);
      std::erase_if(delivered_, [&](const auto& d) { return d.requestIdentifier == id; });
    }
  }
  void getCategories(std::function<void(std::vector<platform::NotificationCategory>)> completion) override {
    if (readLocked(mutex_, script_.answersCategories)) completion(readLocked(mutex_, categories_));
  }
  void setCategories(const std::vector<platform::NotificationCategory>& categories) override {
    writeLocked(mutex_, categories_, categories);
  }

 private:
  mutable std::mutex mutex_;
  Script script_;
  std::vector<Added> added_;
  std::vector<platform::DeliveredNotification> delivered_;
  std::vector<std::string> removed_;
  std::vector<platform::NotificationCategory> categories_;
  std::optional<RequestOptions> lastRequest_;
  platform::NotificationDelegate* delegate_ = nullptr;
};

}  // namespace ac::sim
