// Registering notification categories (the meeting prompts' per-prompt
// categories and the silence warning's) under the cross-process category
// lock ".notify-categories.lock": taken without blocking; a busy lock means
// the banner is posted without actions, never a wait.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "notify/meeting_banner.h"
#include "platform/notification_center.h"

namespace ac::notify {

inline constexpr const char* notifyCategoryLockFileName = ".notify-categories.lock";
inline constexpr double categoryQueryTimeoutSeconds = 2.0;

// Runs body holding the category lock; false (body not run) when another
// process holds it or the lock file cannot be opened.
bool withNotifyCategoryLock(const std::function<void()>& body);

// Registers a meeting prompt's category beside the ones worth keeping.
// False, with a "notify: ..." line, when the lock is busy or the centre's
// categories cannot be read; the prompt then goes out without actions.
bool registerCategory(platform::NotificationCenter& center, const std::string& identifier,
                      const std::vector<MeetingBanner::MenuItem>& items);

// Adds the silence warning's category to the existing ones; false (said on
// standard error) when it could not.
bool registerSilenceCategory(platform::NotificationCenter& center);

}  // namespace ac::notify
