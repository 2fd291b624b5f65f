#include "platform/macos/un_notification_content.h"

#include <algorithm>

#include "platform/macos/cf_convert.h"

namespace ac::platform::macos {

UNMutableNotificationContent* makeContent(const NotificationContent& content) {
  UNMutableNotificationContent* out = [[UNMutableNotificationContent alloc] init];
  out.title = toNSString(content.title);
  out.body = toNSString(content.body);
  out.sound = content.soundName.empty() ? UNNotificationSound.defaultSound
                                        : [UNNotificationSound soundNamed:toNSString(content.soundName)];
  if (!content.userInfo.is_null()) {
    id userInfo = toPropertyList(content.userInfo);
    if ([userInfo isKindOfClass:[NSDictionary class]]) out.userInfo = userInfo;
  }
  if (!content.categoryIdentifier.empty()) out.categoryIdentifier = toNSString(content.categoryIdentifier);
  return out;
}

NotificationContent contentFrom(UNNotificationContent* content) {
  NotificationContent out;
  out.title = toStdString(content.title);
  out.body = toStdString(content.body);
  if (content.userInfo.count > 0) out.userInfo = toJSON(content.userInfo);
  out.categoryIdentifier = toStdString(content.categoryIdentifier);
  return out;
}

NSSet<UNNotificationCategory*>* makeCategories(const std::vector<NotificationCategory>& categories) {
  NSMutableSet<UNNotificationCategory*>* out = [NSMutableSet setWithCapacity:categories.size()];
  for (const NotificationCategory& category : categories) {
    NSMutableArray<UNNotificationAction*>* actions = [NSMutableArray arrayWithCapacity:category.actions.size()];
    for (const NotificationAction& action : category.actions) {
      UNNotificationActionOptions options = UNNotificationActionOptionNone;
      if (action.authenticationRequired) options |= UNNotificationActionOptionAuthenticationRequired;
      if (action.foreground) options |= UNNotificationActionOptionForeground;
      [actions addObject:[UNNotificationAction actionWithIdentifier:toNSString(action.identifier)
                                                              title:toNSString(action.title)
                                                            options:options]];
    }
    UNNotificationCategoryOptions options =
        category.customDismissAction ? UNNotificationCategoryOptionCustomDismissAction : UNNotificationCategoryOptionNone;
    [out addObject:[UNNotificationCategory categoryWithIdentifier:toNSString(category.identifier)
                                                          actions:actions
                                                intentIdentifiers:@[]
                                                          options:options]];
  }
  return out;
}

std::vector<NotificationCategory> categoriesFrom(NSSet<UNNotificationCategory*>* categories) {
  std::vector<NotificationCategory> out;
  for (UNNotificationCategory* category in categories) {
    NotificationCategory converted;
    converted.identifier = toStdString(category.identifier);
    converted.customDismissAction = (category.options & UNNotificationCategoryOptionCustomDismissAction) != 0;
    for (UNNotificationAction* action in category.actions) {
      converted.actions.push_back({toStdString(action.identifier), toStdString(action.title),
                                   (action.options & UNNotificationActionOptionAuthenticationRequired) != 0,
                                   (action.options & UNNotificationActionOptionForeground) != 0});
    }
    out.push_back(std::move(converted));
  }
  std::sort(out.begin(), out.end(), [](const auto& a, const auto& b) { return a.identifier < b.identifier; });
  return out;
}

}  // namespace ac::platform::macos
