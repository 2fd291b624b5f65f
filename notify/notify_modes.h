// The notification agent's entry points, dispatched by the executable's
// entry. Every run* function ends the process itself.
#pragma once

#include <functional>
#include <optional>
#include <string>

namespace ac::notify {

[[noreturn]] void runNotify(const std::string& title, const std::string& body,
                            const std::optional<std::string>& clickToken,
                            const std::optional<std::string>& soundName, bool allowAuthRequest,
                            bool meetingPrompt);
[[noreturn]] void runWithdrawMeetingPrompt(std::optional<double> before);
[[noreturn]] void runNotifyColdRoute();
[[noreturn]] void runRequestNotifAuth();
[[noreturn]] void runNotifAuthStatus();

// Validates a click token; the refusal's raw value ("not-an-absolute-path",
// ...) when it is refused, nothing when it is accepted.
std::optional<std::string> clickTokenRefusal(const std::string& token);

// Makes the notify side's delegate the centre's for the rest of the process,
// so clicks on banners are handled while a recording runs (the recording's
// main loop delivers them).
void installRecordingNotifyDelegate();

// Fire-and-forget post for the recorder's notices; `then` runs once the post
// was handed over or refused.
void postNotification(const std::string& title, const std::string& body, const std::string& soundName,
                      std::function<void()> then = nullptr);

}  // namespace ac::notify
