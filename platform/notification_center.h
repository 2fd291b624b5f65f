// The notification-centre seam: authorization, posting, the delivered list,
// categories and actions, removal, and the delegate that receives clicks.
//
// Completion handlers may run on any thread; the core hops to its own queues.
// A centre that cannot answer never calls a completion: the core waits with
// its own time-outs and treats silence as "did not answer", which is
// different from an empty answer. A centre that knows at once that nothing
// is there to ask (no service) may answer the authorization calls at once
// instead: kNotificationAuthorizationUnavailable, and a refused request with
// an error saying what is missing.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "support/error.h"

namespace ac::platform {

// Identifiers the platform gives a body click and a dismissal.
inline constexpr const char* kDefaultActionIdentifier = "com.apple.UNNotificationDefaultActionIdentifier";
inline constexpr const char* kDismissActionIdentifier = "com.apple.UNNotificationDismissActionIdentifier";

// 0 notDetermined, 1 denied, 2 authorized, 3 provisional, 4 ephemeral.
using NotificationAuthorizationStatus = int;
// Not one of the statuses above: read as "unknown", like no answer.
inline constexpr NotificationAuthorizationStatus kNotificationAuthorizationUnavailable = -1;

struct NotificationContent {
  std::string title;
  std::string body;
  // Empty: the default sound; otherwise the platform's sound of that name.
  std::string soundName;
  // The click envelope; null when the banner carries no user info at all.
  nlohmann::json userInfo;
  std::string categoryIdentifier;
  // For a centre that leaves these to the poster (the macOS centre decides
  // them itself and ignores them): keep the banner until it is acted on,
  // expires or is withdrawn; the body click's label (empty: a body click
  // does nothing, so none is offered); when it expires, in seconds since
  // 1970 (0: no expiry).
  bool resident = false;
  std::string defaultActionTitle;
  double expiresAt = 0;

  bool operator==(const NotificationContent&) const = default;
};

struct NotificationAction {
  std::string identifier;
  std::string title;
  bool authenticationRequired = false;
  bool foreground = false;

  bool operator==(const NotificationAction&) const = default;
};

struct NotificationCategory {
  std::string identifier;
  std::vector<NotificationAction> actions;
  bool customDismissAction = false;

  bool operator==(const NotificationCategory&) const = default;
};

struct DeliveredNotification {
  std::string requestIdentifier;
  NotificationContent content;
  double deliveryDate = 0;  // seconds since 1970
};

struct NotificationResponse {
  std::string requestIdentifier;
  std::string actionIdentifier;
  NotificationContent content;
};

class NotificationDelegate {
 public:
  virtual ~NotificationDelegate() = default;
  // Called for a banner of this process while it is frontmost: whether to
  // show it as a banner and play its sound.
  virtual void willPresent(std::function<void(bool banner, bool sound)> completion) = 0;
  // A click, an action button or (where the category asks) a dismissal.
  virtual void didReceive(const NotificationResponse& response, std::function<void()> completion) = 0;
  // A banner this process posted has left the screen (closed by the user,
  // expired, withdrawn), where the centre can tell; after any response it
  // gave rise to.
  virtual void didClose(const std::string& /*requestIdentifier*/) {}
  // A click that the desktop names by its banner's request identifier and
  // the action, reaching this process whichever process posted the banner
  // (so it carries no content; the journal knows the banner).
  virtual void didActivate(const std::string& /*requestIdentifier*/, const std::string& /*actionIdentifier*/) {}
};

class NotificationCenter {
 public:
  virtual ~NotificationCenter() = default;
  // The delegate must outlive the centre's use of it.
  virtual void setDelegate(NotificationDelegate* delegate) = 0;
  virtual void getAuthorizationStatus(std::function<void(NotificationAuthorizationStatus)> completion) = 0;
  virtual void requestAuthorization(bool alert, bool sound, bool badge,
                                    std::function<void(bool granted, std::optional<Error>)> completion) = 0;
  virtual void add(const std::string& identifier, const NotificationContent& content,
                   std::function<void(std::optional<Error>)> completion) = 0;
  virtual void getDelivered(std::function<void(std::vector<DeliveredNotification>)> completion) = 0;
  // Takes back delivered banners by request identifier. Returns once the
  // removal has been handed to the service (the caller may exit right after).
  virtual void removeDelivered(const std::vector<std::string>& identifiers) = 0;
  virtual void getCategories(std::function<void(std::vector<NotificationCategory>)> completion) = 0;
  virtual void setCategories(const std::vector<NotificationCategory>& categories) = 0;
  // Whether clicking a banner after its poster has exited relaunches this
  // program (with no arguments), so that a bare launch may be a click.
  virtual bool relaunchesProgramOnClick() const { return true; }
  // Where the desktop starts (or reaches) the program with the clicked
  // banner named, makes this process the one those clicks go to (they
  // arrive as didActivate) and returns true; false elsewhere.
  virtual bool receiveActivations() { return false; }
  // Whether banners this process has added are clicked through activation
  // (receiveActivations in whichever process the desktop reaches), so that
  // their poster never receives a click itself.
  virtual bool clicksArriveByActivation() const { return false; }
};

}  // namespace ac::platform
