#include "notify/silence_warning.h"

#include "notify/recording_marker.h"

namespace ac::notify::SilenceWarningBanner {

std::string token(std::string_view marker) { return std::string(tokenPrefix) + std::string(marker); }

bool isRecordingMarker(std::string_view marker) { return ac::notify::isRecordingMarker(marker); }

platform::NotificationCategory makeCategory() {
  platform::NotificationCategory category;
  category.identifier = std::string(categoryID);
  for (const Choice& choice : choices) {
    category.actions.push_back({std::string(choice.actionID), std::string(choice.title),
                                /*authenticationRequired=*/true, /*foreground=*/false});
  }
  category.customDismissAction = false;
  return category;
}

std::optional<NotifyClickTarget> clickTarget(std::string_view marker, std::string_view actionIdentifier,
                                             bool isCustomAction) {
  if (!isCustomAction) return std::nullopt;
  for (const Choice& choice : choices) {
    if (choice.actionID != actionIdentifier) continue;
    if (choice.snoozeMinutes) return ClickSnoozeSilence{std::string(marker), *choice.snoozeMinutes};
    return ClickIgnoreSilence{std::string(marker)};
  }
  return std::nullopt;
}

}  // namespace ac::notify::SilenceWarningBanner
