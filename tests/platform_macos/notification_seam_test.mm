// The UserNotifications and workspace side: content with its click
// envelope, categories and actions, the platform's action identifiers, and
// the arguments given to /usr/bin/open.
#import <UserNotifications/UserNotifications.h>

#include <gtest/gtest.h>

#include "platform/macos/open_command.h"
#include "platform/macos/un_notification_content.h"

namespace {

namespace p = ac::platform;
using namespace ac::platform::macos;

TEST(NotificationContent, TheEnvelopeKeepsItsPlistTypesThroughSecureCoding) {
  p::NotificationContent in;
  in.title = "Meeting";
  in.body = "Record it?";
  in.userInfo = {{"vela_click_v", 1}, {"vela_click_target", "vela-app:record-start"}, {"vela_click_expires_at", 1.5e9}};
  in.categoryIdentifier = "vela.meeting.1700000000.X";

  NSError* error = nil;
  NSData* archived = [NSKeyedArchiver archivedDataWithRootObject:[makeContent(in) copy]
                                           requiringSecureCoding:YES
                                                           error:&error];
  ASSERT_TRUE(archived != nil) << error.localizedDescription.UTF8String;
  NSSet* classes = [NSSet setWithObjects:[UNNotificationContent class], [UNMutableNotificationContent class], nil];
  UNNotificationContent* restored = [NSKeyedUnarchiver unarchivedObjectOfClasses:classes
                                                                        fromData:archived
                                                                           error:&error];
  ASSERT_TRUE(restored != nil) << error.localizedDescription.UTF8String;

  const p::NotificationContent out = contentFrom(restored);
  EXPECT_EQ(out.title, in.title);
  EXPECT_EQ(out.body, in.body);
  EXPECT_EQ(out.categoryIdentifier, in.categoryIdentifier);
  EXPECT_EQ(out.userInfo, in.userInfo);
  EXPECT_TRUE(out.userInfo["vela_click_v"].is_number_integer());
  EXPECT_TRUE(out.userInfo["vela_click_expires_at"].is_number_float());
}

TEST(NotificationContent, NoEnvelopeMeansNoUserInfo) {
  p::NotificationContent in;
  in.title = "Saved";
  UNMutableNotificationContent* content = makeContent(in);
  EXPECT_EQ(content.userInfo.count, 0u);
  EXPECT_TRUE(contentFrom(content).userInfo.is_null());
}

TEST(NotificationCategories, ActionAndCategoryOptionsRoundTrip) {
  const std::vector<p::NotificationCategory> in = {
      {"vela.meeting.1", {{"vela.act:start", "Start recording", true, false}}, false},
      {"vela.silence-warning", {{"vela.silence:ignore", "Ignore for this call", true, false}}, false},
      {"x.custom", {{"open", "Open", false, true}}, true},
  };
  EXPECT_EQ(categoriesFrom(makeCategories(in)), in);
}

TEST(NotificationIdentifiers, AreThePlatformsOwn) {
  EXPECT_TRUE([UNNotificationDefaultActionIdentifier isEqualToString:@(p::kDefaultActionIdentifier)]);
  EXPECT_TRUE([UNNotificationDismissActionIdentifier isEqualToString:@(p::kDismissActionIdentifier)]);
}

TEST(OpenCommand, ItemsFirstThenTheApplicationsArgumentsAfterArgs) {
  using Args = std::vector<std::string>;
  const struct {
    Args args;
    Args expected;
  } table[] = {
      {{"--tab", "recordings"}, {"-a", "/A/Vela.app", "--args", "--tab", "recordings"}},
      {{"vela://open-note?marker=M"}, {"-a", "/A/Vela.app", "vela://open-note?marker=M"}},
      {{"x", "--y", "z"}, {"-a", "/A/Vela.app", "x", "--args", "--y", "z"}},
      {{}, {"-a", "/A/Vela.app"}},
  };
  for (const auto& row : table) EXPECT_EQ(openArguments("/A/Vela.app", row.args), row.expected);
}

}  // namespace
