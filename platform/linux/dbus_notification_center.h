// The notification centre on Linux: the desktop notification service
// (org.freedesktop.Notifications) on the session bus.
//
// Mapping to the seam:
// - authorization: a service that answers GetServerInformation has
//   "authorized" (2); without a bus or a service nothing answers.
// - add: Notify with the category's actions (identifier, title) and
//   "default" for the body click; the sound name travels as the
//   "sound-name" hint; the body is escaped where the service reads markup.
// - responses: ActionInvoked "default" is the default (body-click) action,
//   any other key the action of that identifier; a close by the user
//   (NotificationClosed reason 2) is the dismiss response, delivered only
//   where the banner's category asks for custom dismissal. Responses reach
//   the delegate only in the process that posted the banner (other processes
//   see the same broadcast signals and only update the registry).
// - delivered list, categories, removal: the registry files
//   (dbus_notification_registry.h), cross-checked with the service's list
//   of closed banners where it has one; removal is CloseNotification by the
//   mapped id.
// - a banner clicked after its poster exited relaunches nothing.
#pragma once

#include <string>
#include <vector>

namespace ac::platform::linux_backend {

inline constexpr const char* kNotificationsService = "org.freedesktop.Notifications";
inline constexpr const char* kNotificationsPath = "/org/freedesktop/Notifications";
inline constexpr const char* kNotificationsInterface = "org.freedesktop.Notifications";
inline constexpr const char* kNotificationsAppName = "Vela";
inline constexpr const char* kDefaultActionKey = "default";
inline constexpr const char* kDefaultActionLabel = "Open";

// "&", "<" and ">" as entities, for a service that reads body markup.
std::string escapeBodyMarkup(const std::string& body);

}  // namespace ac::platform::linux_backend
