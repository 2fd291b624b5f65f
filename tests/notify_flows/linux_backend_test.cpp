// The pure parts of the Linux notification backend: what each kind of banner
// asks of the service, desktop-entry command lines, signal names, registry
// files and the text the bus accepts.
#include <gtest/gtest.h>

#include "notify/notify_command.h"
#include "platform/linux/dbus_notification_center.h"
#include "platform/linux/dbus_notification_registry.h"
#include "platform/linux/dbus_session.h"
#include "platform/linux/linux_workspace.h"
#include "support/text.h"

namespace ac::platform::linux_backend {
namespace {

// A plain banner, Basso and a prompt's whole lifetime are seen on the bus by
// the end-to-end test.
TEST(BannerOnTheBus, EachKindGetsItsLabelLifetimeAndSound) {
  const double now = 1'800'000'000;
  struct Case {
    std::optional<std::string> token, sound;
    std::optional<double> expiresAt;
    const char* label;
    int32_t expireMs;
    const char* freedesktopSound;
  };
  const Case cases[] = {
      {"/tmp/a.md", "Glass", std::nullopt, "Open note", 0, "message-new-instant"},
      {"vela-app:recordings", "", std::nullopt, "Open Recordings", 0, "message-new-instant"},
      {"vela-app:record-start", std::nullopt, now - 5, "Start recording", 1000, "message-new-instant"},
      {"vela-app:ignore-silence:TRANSCRIPT_PENDING_1792530208_4242", "dialog-information", std::nullopt, "", 0,
       "dialog-information"},
  };
  for (const auto& c : cases) {
    auto content = notify::makeNotifyContent("T", "B", c.sound, c.token, c.expiresAt, std::nullopt);
    EXPECT_EQ(content.defaultActionTitle, c.label) << c.token.value_or("<none>");
    EXPECT_EQ(content.resident, c.token.has_value());
    EXPECT_EQ(expireTimeoutMilliseconds(content, now), c.expireMs) << c.token.value_or("<none>");
    EXPECT_EQ(freedesktopSoundName(content.soundName), c.freedesktopSound);
  }
}

TEST(DesktopEntry, ExecLineSplitsUnquotesAndDropsFieldCodes) {
  struct Case {
    const char* text;
    std::optional<std::vector<std::string>> args;
  };
  const Case cases[] = {
      {"[Desktop Entry]\nName=Vela\nExec=vela %U\n", std::vector<std::string>{"vela"}},
      {"[Desktop Entry]\nExec=\"/opt/My App/vela\" --from %k --name=%c 100%%\n",
       std::vector<std::string>{"/opt/My App/vela", "--from", "/x.desktop", "--name=", "100%"}},
      {"[Desktop Entry]\nExec=sh -c \"echo \\\\\"hi\\\\\" \\\\$HOME\"\n",
       std::vector<std::string>{"sh", "-c", "echo \"hi\" $HOME"}},
      {"[Desktop Action new]\nExec=wrong\n[Desktop Entry]\nExec=right\\sside\n",
       std::vector<std::string>{"right", "side"}},
      {"[Desktop Entry]\nName=No command\n", std::nullopt},
  };
  for (const auto& c : cases) EXPECT_EQ(desktopEntryCommand(c.text, "/x.desktop"), c.args) << c.text;
}

TEST(Registry, RowsAndCategoriesRoundTripAndBadRowsAreSkipped) {
  NotificationContent content{"T", "B & <b>", "Glass", nlohmann::json{{"vela_click_v", 1}}, "cat", false, "", 0};
  std::vector<RegistryRow> rows = {{"REQ", ":1.5", 7, content, 12.5}, {"PLAIN", ":1.5", 8, {}, 13}};
  EXPECT_EQ(decodeRegistryRows(encodeRegistryRows(rows)), rows);
  EXPECT_EQ(decodeRegistryRows(R"({"v":1,"rows":[{"id":"","server":":1","server_id":1},7,
                                   {"id":"OK","server":":1","server_id":3}]})")
                .size(),
            1u);
  EXPECT_TRUE(decodeRegistryRows(R"({"v":2,"rows":[]})").empty());
  EXPECT_TRUE(decodeRegistryRows("not json").empty());

  std::vector<NotificationCategory> categories = {{"c1", {{"a", "A", true, false}, {"b", "B", false, true}}, true}};
  EXPECT_EQ(decodeCategories(encodeCategories(categories)), categories);
}

TEST(BusText, MarkupIsEscapedAndInvalidUTF8Repaired) {
  EXPECT_EQ(escapeBodyMarkup("a & <b> c"), "a &amp; &lt;b&gt; c");
  EXPECT_EQ(repairedUTF8("ok é ✓"), "ok é ✓");
  EXPECT_EQ(repairedUTF8("a\xff" "b"), "a\xEF\xBF\xBD" "b");
  EXPECT_EQ(repairedUTF8("\xC0\xAF"), "\xEF\xBF\xBD\xEF\xBF\xBD");      // overlong
  EXPECT_EQ(repairedUTF8("\xED\xA0\x80"), "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");  // surrogate
  EXPECT_EQ(repairedUTF8("cut \xE2\x9C"), "cut \xEF\xBF\xBD");  // one for the whole cut sequence
}

}  // namespace
}  // namespace ac::platform::linux_backend
