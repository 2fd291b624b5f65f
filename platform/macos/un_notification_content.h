// The notification seam's values as UserNotifications objects and back:
// content (with its user info as a property list), categories and actions.
// Objective-C++: include from .mm files only.
#pragma once

#ifndef __OBJC__
#error "un_notification_content.h declares Objective-C types; include it from .mm files only"
#endif

#import <UserNotifications/UserNotifications.h>

#include <vector>

#include "platform/notification_center.h"

namespace ac::platform::macos {

// Title, body, sound (the named sound, or the default one for an empty
// name), category, and the user info unless it is null.
UNMutableNotificationContent* makeContent(const NotificationContent& content);
// The sound's name cannot be read back: soundName stays empty. An empty
// user info reads as null.
NotificationContent contentFrom(UNNotificationContent* content);

NSSet<UNNotificationCategory*>* makeCategories(const std::vector<NotificationCategory>& categories);
// In identifier order.
std::vector<NotificationCategory> categoriesFrom(NSSet<UNNotificationCategory*>* categories);

}  // namespace ac::platform::macos
