// A scriptable notification centre for tests: every answer can be set, made
// to fail or withheld (a withheld answer never calls its completion, like a
// centre that is not there), and every call is recorded.
//
// Thread-safe: the code under test may call it from any thread while the
// test reads its records. Completions run on the calling thread.
#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/notification_center.h"
#include "tests/simulated/locked_fields.h"

namespace ac::sim {

class SimNotificationCenter final : public platform::NotificationCenter {
 public:
  struct Script {
    // Status answered by getAuthorizationStatus; absent: never answers.
    std::optional<platform::NotificationAuthorizationStatus> status = 2;
    // Status after a request was answered; absent: unchanged.
    std::optional<platform::NotificationAuthorizationStatus> statusAfterRequest;
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
  // click or action would; completion signals when it was answered. False
  // when there is no delegate or no such banner.
  bool respond(const std::string& requestIdentifier, const std::string& actionIdentifier,
               std::function<void()> completion = nullptr);

  // --- platform::NotificationCenter ---
  void setDelegate(platform::NotificationDelegate* delegate) override { writeLocked(mutex_, delegate_, delegate); }
  void getAuthorizationStatus(std::function<void(platform::NotificationAuthorizationStatus)> completion) override;
  void requestAuthorization(bool alert, bool sound, bool badge,
                            std::function<void(bool, std::optional<Error>)> completion) override;
  void add(const std::string& identifier, const platform::NotificationContent& content,
           std::function<void(std::optional<Error>)> completion) override;
  void getDelivered(std::function<void(std::vector<platform::DeliveredNotification>)> completion) override;
  void removeDelivered(const std::vector<std::string>& identifiers) override;
  void getCategories(std::function<void(std::vector<platform::NotificationCategory>)> completion) override;
  void setCategories(const std::vector<platform::NotificationCategory>& categories) override;

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
