// The notification centre on Linux: the desktop notification service
// (org.freedesktop.Notifications) on the session bus.
//
// Mapping to the seam:
// - authorization: a service that answers GetServerInformation has
//   "authorized" (2); no bus, or an error reply (no service), is answered at
//   once as unavailable, with one "notify: " line saying what is missing.
// - add: Notify with the category's actions (identifier, title) and, where
//   a body click does something, "default" labelled with what it does;
//   none at all where the service has no "actions" capability (said once).
//   The sound travels as "sound-name" (a freedesktop sound-theme name), the
//   desktop entry as "desktop-entry" and the icon by its name; a
//   resident banner gets the "resident" hint and stays until it is acted on,
//   withdrawn or its expiry, and a plain one the service's own timeout. The
//   body is escaped where the service reads markup.
// - a click on a resident banner closes it once handed to the delegate; a
//   banner of this process leaving the screen is told to the delegate
//   (didClose).
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

#include <cstdint>
#include <string>
#include <vector>

#include "platform/notification_center.h"

namespace ac::platform::linux_backend {

inline constexpr const char* kNotificationsService = "org.freedesktop.Notifications";
inline constexpr const char* kNotificationsPath = "/org/freedesktop/Notifications";
inline constexpr const char* kNotificationsInterface = "org.freedesktop.Notifications";
inline constexpr const char* kNotificationsAppName = "Vela";
inline constexpr const char* kDefaultActionKey = "default";
// The installed desktop entry (without ".desktop") and icon name.
inline constexpr const char* kDesktopEntryName = "com.quorlan.vela.audio-capture";

// "message-new-instant" for the default sound, "dialog-warning" for the
// warning sound "Basso".
std::string freedesktopSoundName(const std::string& soundName);
// -1 (the service's own choice) for a plain banner; for a resident one the
// time left until its expiry, or 0 (never) without one.
int32_t expireTimeoutMilliseconds(const NotificationContent& content, double now);

// "&", "<" and ">" as entities, for a service that reads body markup.
std::string escapeBodyMarkup(const std::string& body);

}  // namespace ac::platform::linux_backend
