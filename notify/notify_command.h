// "--notify": posting one banner (with its click envelope, category and
// journal row), the fire-and-forget post for the recorder's notices, and the
// delegate that receives clicks.
//
// Threads: postNotifyBanner() blocks its caller (the main thread) on
// semaphores with the stated time-outs, never on the centre's threads. The
// delegate hops every response to the main queue.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "platform/notification_center.h"

namespace ac::notify {

inline constexpr double notifyAddTimeoutSeconds = 10.0;
inline constexpr double notifyAuthRequestTimeoutSeconds = 10.0;
inline constexpr double notifyAuthRecheckTimeoutSeconds = 2.0;
inline constexpr double notifyClickableLingerSeconds = 180.0;
inline constexpr double notifyPlainLingerSeconds = 1.0;
// How long a warm poster stays once its click has been fully handled.
inline constexpr double notifyAfterClickLingerSeconds = 1.0;

// The platform refuses processes without a bundle identifier.
bool notificationCenterUsable();

// The content's sound name: empty (the default sound) for a missing or
// empty name.
std::string notificationSound(const std::optional<std::string>& name);

// Title, body, sound; the click envelope as user info only when a token is
// given (no token: no user info at all); the category when given; the
// presentation (banner_presentation.h) that follows from the token.
platform::NotificationContent makeNotifyContent(const std::string& title, const std::string& body,
                                                const std::optional<std::string>& soundName,
                                                const std::optional<std::string>& clickToken,
                                                std::optional<double> expiresAt,
                                                const std::optional<std::string>& categoryID);

class NotifyDelegate final : public platform::NotificationDelegate {
 public:
  // done: called once a click has been fully handled (default: nothing).
  // claim: whether this answer may act (default: every answer may).
  // closed: called on the main queue when a banner of this process has left
  // the screen (default: nothing).
  explicit NotifyDelegate(std::function<void()> done = nullptr, std::function<bool()> claim = nullptr,
                          std::function<void()> closed = nullptr);
  void willPresent(std::function<void(bool banner, bool sound)> completion) override;
  void didReceive(const platform::NotificationResponse& response, std::function<void()> completion) override;
  void didClose(const std::string& requestIdentifier) override;
  void didActivate(const std::string& requestIdentifier, const std::string& actionIdentifier) override;

 private:
  std::function<void()> done_;
  std::function<bool()> claim_;
  std::function<void()> closed_;
};

// Makes a delegate the current centre's, kept for the life of the process
// (replacing any earlier one, which is kept alive too).
NotifyDelegate& installNotifyDelegate(std::function<void()> done = nullptr, std::function<bool()> claim = nullptr,
                                      std::function<void()> closed = nullptr);

struct NotifyRequest {
  std::string title;
  std::string body;
  std::optional<std::string> clickToken;  // already validated by the caller
  std::optional<std::string> soundName;
  bool allowAuthRequest = true;
  bool meetingPrompt = false;
};

// Everything "--notify" does before lingering: the usability and
// authorization checks, categories, the add and the journal row. The delay
// after which the process may exit, or nothing when it should end at once.
std::optional<double> postNotifyBanner(const NotifyRequest& request);

// Runs the platform's main loop for good; exits come from scheduled checks.
[[noreturn]] void runNotifyMainLoop();

}  // namespace ac::notify
