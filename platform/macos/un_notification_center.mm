// The notification seam on UserNotifications' current notification centre.
//
// The centre exists only for a bundled process (asking for it without a
// bundle identifier raises), so an unbundled process gets a centre that
// never answers, which the seam defines as "no service". Completions run on
// the centre's own queues. The delegate object relays both callbacks to the
// core's delegate unchanged: its presentation answer becomes the options
// banner and sound, and a response carries the request and action
// identifiers and the content with its user info.
#import <Foundation/Foundation.h>
#import <UserNotifications/UserNotifications.h>

#include <atomic>
#include <memory>

#include "platform/macos/backends.h"
#include "platform/macos/cf_convert.h"
#include "platform/macos/un_notification_content.h"
#include "support/dispatch.h"

using ac::platform::NotificationDelegate;

@interface ACNotificationRelay : NSObject <UNUserNotificationCenterDelegate>
- (void)setTarget:(NotificationDelegate*)target;
@end

@implementation ACNotificationRelay {
  std::atomic<NotificationDelegate*> _target;
}

- (void)setTarget:(NotificationDelegate*)target {
  _target = target;
}

- (void)userNotificationCenter:(UNUserNotificationCenter*)center
       willPresentNotification:(UNNotification*)notification
         withCompletionHandler:(void (^)(UNNotificationPresentationOptions))completionHandler {
  NotificationDelegate* target = _target;
  if (!target) {
    completionHandler(UNNotificationPresentationOptionNone);
    return;
  }
  target->willPresent([completionHandler](bool banner, bool sound) {
    UNNotificationPresentationOptions options = UNNotificationPresentationOptionNone;
    if (banner) options |= UNNotificationPresentationOptionBanner;
    if (sound) options |= UNNotificationPresentationOptionSound;
    completionHandler(options);
  });
}

- (void)userNotificationCenter:(UNUserNotificationCenter*)center
    didReceiveNotificationResponse:(UNNotificationResponse*)response
             withCompletionHandler:(void (^)(void))completionHandler {
  NotificationDelegate* target = _target;
  if (!target) {
    completionHandler();
    return;
  }
  UNNotificationRequest* request = response.notification.request;
  ac::platform::NotificationResponse converted{ac::platform::macos::toStdString(request.identifier),
                                               ac::platform::macos::toStdString(response.actionIdentifier),
                                               ac::platform::macos::contentFrom(request.content)};
  target->didReceive(converted, [completionHandler] { completionHandler(); });
}

@end

namespace ac::platform::macos {
namespace {

// How long removeDelivered waits for the centre to confirm it has the
// removal before returning anyway.
constexpr double removalHandOverSeconds = 2.0;

class UNNotificationCenterSeam final : public NotificationCenter {
 public:
  UNNotificationCenterSeam()
      : center_(NSBundle.mainBundle.bundleIdentifier ? UNUserNotificationCenter.currentNotificationCenter : nil),
        relay_([[ACNotificationRelay alloc] init]) {}

  void setDelegate(NotificationDelegate* delegate) override {
    [relay_ setTarget:delegate];
    center_.delegate = delegate ? relay_ : nil;  // the centre holds it weakly; relay_ keeps it
  }

  void getAuthorizationStatus(std::function<void(NotificationAuthorizationStatus)> completion) override {
    [center_ getNotificationSettingsWithCompletionHandler:^(UNNotificationSettings* settings) {
      completion(static_cast<NotificationAuthorizationStatus>(settings.authorizationStatus));
    }];
  }

  void requestAuthorization(bool alert, bool sound, bool badge,
                            std::function<void(bool granted, std::optional<Error>)> completion) override {
    UNAuthorizationOptions options = UNAuthorizationOptionNone;
    if (alert) options |= UNAuthorizationOptionAlert;
    if (sound) options |= UNAuthorizationOptionSound;
    if (badge) options |= UNAuthorizationOptionBadge;
    [center_ requestAuthorizationWithOptions:options
                           completionHandler:^(BOOL granted, NSError* error) {
                             completion(granted, toOptionalError(error));
                           }];
  }

  void add(const std::string& identifier, const NotificationContent& content,
           std::function<void(std::optional<Error>)> completion) override {
    UNNotificationRequest* request = [UNNotificationRequest requestWithIdentifier:toNSString(identifier)
                                                                          content:makeContent(content)
                                                                          trigger:nil];
    [center_ addNotificationRequest:request
              withCompletionHandler:^(NSError* error) {
                completion(toOptionalError(error));
              }];
  }

  void getDelivered(std::function<void(std::vector<DeliveredNotification>)> completion) override {
    [center_ getDeliveredNotificationsWithCompletionHandler:^(NSArray<UNNotification*>* notifications) {
      std::vector<DeliveredNotification> delivered;
      for (UNNotification* notification in notifications) {
        delivered.push_back({toStdString(notification.request.identifier), contentFrom(notification.request.content),
                             notification.date.timeIntervalSince1970});
      }
      completion(std::move(delivered));
    }];
  }

  void removeDelivered(const std::vector<std::string>& identifiers) override {
    if (!center_) return;
    NSMutableArray<NSString*>* ids = [NSMutableArray arrayWithCapacity:identifiers.size()];
    for (const std::string& identifier : identifiers) [ids addObject:toNSString(identifier)];
    [center_ removeDeliveredNotificationsWithIdentifiers:ids];
    // The removal is sent asynchronously; an answer to a later request on the
    // same centre means it has left this process, so the caller may exit.
    auto answered = std::make_shared<Semaphore>();
    [center_ getDeliveredNotificationsWithCompletionHandler:^(NSArray<UNNotification*>*) {
      answered->signal();
    }];
    answered->wait(removalHandOverSeconds);
  }

  void getCategories(std::function<void(std::vector<NotificationCategory>)> completion) override {
    [center_ getNotificationCategoriesWithCompletionHandler:^(NSSet<UNNotificationCategory*>* categories) {
      completion(categoriesFrom(categories));
    }];
  }

  void setCategories(const std::vector<NotificationCategory>& categories) override {
    [center_ setNotificationCategories:makeCategories(categories)];
  }

 private:
  UNUserNotificationCenter* center_;  // nil when unbundled: nothing answers
  ACNotificationRelay* relay_;
};

}  // namespace

std::unique_ptr<NotificationCenter> makeUNNotificationCenter() { return std::make_unique<UNNotificationCenterSeam>(); }

}  // namespace ac::platform::macos
