// The entry's view of the notification agent; the modes themselves live
// beside the concepts they run (notify_command, cold_route, withdraw,
// notif_auth).
#include "notify/notify_modes.h"

#include "notify/click_payload.h"

namespace ac::notify {

std::optional<std::string> clickTokenRefusal(const std::string& token) {
  if (auto rejection = clickRejection(resolveNotifyClickTarget(token))) return std::string(rawValue(*rejection));
  return std::nullopt;
}

}  // namespace ac::notify
