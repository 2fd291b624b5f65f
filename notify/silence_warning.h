// The silence warning: a banner posted while a recording has been silent,
// whose four action buttons snooze the auto-stop or ignore silence for the
// rest of the call. Only the buttons act; the body, a dismissal and a cold
// relaunch never do, and the snooze length comes only from the button.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "notify/click_payload.h"
#include "platform/notification_center.h"

namespace ac::notify::SilenceWarningBanner {

inline constexpr std::string_view categoryID = "vela.silence-warning";
inline constexpr std::string_view tokenPrefix = "vela-app:ignore-silence:";
inline constexpr std::string_view ignoreActionID = "vela.silence:ignore";
inline constexpr std::string_view ignoreActionTitle = "Ignore for this call";
// How long the silence-ignore script may run.
inline constexpr double silenceIgnoreWaitSeconds = 10.0;

struct Choice {
  std::string_view actionID;
  std::string_view title;
  std::optional<int> snoozeMinutes;  // none: ignore for the rest of the call
};

// In the order the buttons are shown.
inline constexpr std::array<Choice, 4> choices{{
    {"vela.silence:snooze-5", "Snooze 5 minutes", 5},
    {"vela.silence:snooze-10", "Snooze 10 minutes", 10},
    {"vela.silence:snooze-15", "Snooze 15 minutes", 15},
    {ignoreActionID, ignoreActionTitle, std::nullopt},
}};

std::string token(std::string_view marker);

// The recording-marker grammar shared with the click tokens.
bool isRecordingMarker(std::string_view marker);

// Every action needs the device unlocked and none brings the companion app
// forward; no custom-dismiss option, so closing the banner is never
// delivered as a response.
platform::NotificationCategory makeCategory();

// The target of a response on a silence warning for `marker`: only one of
// the four choices arriving as a custom action acts.
std::optional<NotifyClickTarget> clickTarget(std::string_view marker, std::string_view actionIdentifier,
                                             bool isCustomAction);

}  // namespace ac::notify::SilenceWarningBanner
