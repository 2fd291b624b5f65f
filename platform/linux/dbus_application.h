// Clicks that outlive their poster, where the desktop offers activation
// (GNOME Shell's org.gtk.Notifications): banners are posted under the
// program's application id with every click as the action "app.click" whose
// target names the banner and the action ([request identifier, action
// identifier]); on a click the desktop calls
// org.freedesktop.Application.ActivateAction("click", [target], {}) on the
// application id, and the bus starts the program (its D-Bus service file)
// when no process of it holds that name.
#pragma once

#include <dbus/dbus.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/dbus_session.h"
#include "platform/notification_center.h"

namespace ac::platform::linux_backend {

inline constexpr const char* kGtkNotificationsService = "org.gtk.Notifications";
inline constexpr const char* kGtkNotificationsPath = "/org/gtk/Notifications";

// "/" + the id with dots as slashes and dashes as underscores.
std::string applicationObjectPath(std::string_view applicationID);

DBusMessage* gtkAddNotification(const std::string& applicationID, const std::string& identifier,
                                const NotificationContent& content, const std::vector<NotificationAction>& actions);
DBusMessage* gtkRemoveNotification(const std::string& applicationID, const std::string& identifier);

// Answers org.freedesktop.Application at the id's object path and takes the
// id's name on the bus. onClick(request identifier, action identifier) runs
// on the session thread for every ActivateAction "click" with a well-formed
// target; Activate and Open are answered and do nothing more (a bare launch
// already is what they ask for). Blocks until the name is taken or refused:
// false when another process holds it or the bus refused.
bool exportApplication(DBusSession& session, const std::string& applicationID,
                       std::function<void(const std::string&, const std::string&)> onClick);

}  // namespace ac::platform::linux_backend
