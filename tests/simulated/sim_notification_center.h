// A scriptable notification centre for tests: every answer can be set, made
// to fail or withheld (a withheld answer never calls its completion, like a
// centre that is not there), and every call is recorded.
//
// Thread-safe: the code under test may call it from any thread while the
// test reads its records. Completions run on the calling thread, outside the
// lock.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <tuple>
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
  // The delivery date of added banners.
  static constexpr double deliveryDate = 1'800'000'000;

  // --- scripts and state the test may set ---
  Locked<Script> script;
  Locked<std::vector<platform::DeliveredNotification>> delivered;
  Locked<std::vector<platform::NotificationCategory>> categories;
  // --- records ---
  Locked<std::vector<Added>> added;
  Locked<std::vector<std::string>> removed;
  Locked<std::optional<std::tuple<bool, bool, bool>>> lastRequest;  // alert, sound, badge of the last request

  // Delivers a response for a delivered banner to the delegate, as a user's
  // click or action would; completion signals when it was answered. Nothing
  // when there is no delegate or no such banner.
  void respond(const std::string& requestIdentifier, const std::string& actionIdentifier,
               std::function<void()> completion = [] {}) {
    platform::NotificationDelegate* delegate = delegate_.get();
    for (const auto& d : delivered.get())
      if (delegate && d.requestIdentifier == requestIdentifier)
        return delegate->didReceive({requestIdentifier, actionIdentifier, d.content}, std::move(completion));
  }

  // --- platform::NotificationCenter ---
  void setDelegate(platform::NotificationDelegate* delegate) override { delegate_.set(delegate); }
  void getAuthorizationStatus(std::function<void(Status)> completion) override {
    if (auto status = script.get().status) completion(*status);
  }
  void requestAuthorization(bool alert, bool sound, bool badge,
                            std::function<void(bool, std::optional<Error>)> completion) override {
    lastRequest.set(std::tuple(alert, sound, badge));
    const Script s = script.with([](Script& s) {
      if (s.statusAfterRequest) s.status = s.statusAfterRequest;
      return s;
    });
    completion(s.grantsRequest, s.requestError);
  }
  void add(const std::string& identifier, const platform::NotificationContent& content,
           std::function<void(std::optional<Error>)> completion) override {
    const std::optional<Error> error = script.get().addError;
    added.push_back(Added{identifier, content});
    if (!error) delivered.push_back(platform::DeliveredNotification{identifier, content, deliveryDate});
    completion(error);
  }
  void getDelivered(std::function<void(std::vector<platform::DeliveredNotification>)> completion) override {
    if (script.get().answersDelivered) completion(delivered.get());
  }
  void removeDelivered(const std::vector<std::string>& identifiers) override {
    for (const auto& id : identifiers) {
      removed.push_back(id);
      delivered.with([&](auto& v) { std::erase_if(v, [&](const auto& d) { return d.requestIdentifier == id; }); });
    }
  }
  void getCategories(std::function<void(std::vector<platform::NotificationCategory>)> completion) override {
    if (script.get().answersCategories) completion(categories.get());
  }
  void setCategories(const std::vector<platform::NotificationCategory>& list) override { categories.set(list); }

 private:
  Locked<platform::NotificationDelegate*> delegate_ = nullptr;
};

}  // namespace ac::sim
