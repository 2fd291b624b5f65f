#include "notify/click_payload.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace ac::notify {
namespace {

using nlohmann::json;

std::string describe(const NotifyClickResult& r) {
  if (auto rej = clickRejection(r)) return "refused:" + std::string(rawValue(*rej));
  return std::visit(
      [](const auto& t) -> std::string {
        using T = std::decay_t<decltype(t)>;
        if constexpr (std::is_same_v<T, ClickURL>) return "url:" + t.url;
        if constexpr (std::is_same_v<T, ClickOpenNote>) return "openNote:" + t.marker;
        if constexpr (std::is_same_v<T, ClickStartRecording>) return "startRecording:" + t.templateID.value_or("-");
        if constexpr (std::is_same_v<T, ClickIgnoreSilence>) return "ignoreSilence:" + t.marker;
        if constexpr (std::is_same_v<T, ClickSnoozeSilence>) return "snooze:" + t.marker;
        return "recordings";
      },
      *clickTarget(r));
}

struct TokenCase {
  std::string token;
  std::string expected;
};

TEST(ClickTokenGrammar, ResolvesEveryFormOrRefusesWithItsReason) {
  const std::string marker = "TRANSCRIPT_PENDING_1792530208_4242";
  const std::vector<TokenCase> cases = {
      {"", "refused:no-target"},
      {"vela-app:recordings", "recordings"},
      {"vela-app:record-start", "startRecording:-"},
      {"vela-app:ignore-silence:" + marker, "ignoreSilence:" + marker},
      {"vela-app:open-note:" + marker, "openNote:" + marker},
      {"vela-app:open-note:TRANSCRIPT_PENDING_JOINED_1792530208_4242",
       "openNote:TRANSCRIPT_PENDING_JOINED_1792530208_4242"},
      {"/Users/x/Vault/My Note.md", "url:obsidian://open?path=%2FUsers%2Fx%2FVault%2FMy%20Note.md"},
      {"/tmp/a?b&c#d.md", "url:obsidian://open?path=%2Ftmp%2Fa%3Fb%26c%23d.md"},
      {"/tmp/\xff.md", "refused:unbuildable-url"},
      {"Vault/My Note.md", "refused:not-an-absolute-path"},
      {"javascript:alert(1)", "refused:not-an-absolute-path"},
      {"VELA-APP:recordings", "refused:not-an-absolute-path"},
      {"vela-app:open-note", "refused:not-an-absolute-path"},
      {"vela-app:open-note:", "refused:malformed-open-note-target"},
      {"vela-app:open-note:" + marker + " ", "refused:malformed-open-note-target"},
      {"vela-app:open-note:TRANSCRIPT_PENDING_1792530208123_4242", "refused:malformed-open-note-target"},
      {"vela-app:open-note:TRANSCRIPT_PENDING_JOINED_JOINED_1792530208_4242", "refused:malformed-open-note-target"},
      // Silence markers of the wrong shape; a snooze length cannot ride along.
      {"vela-app:ignore-silence:hello", "refused:malformed-ignore-silence-target"},
      {"vela-app:ignore-silence:TRANSCRIPT_PENDING_\u0661_2", "refused:malformed-ignore-silence-target"},
      {"vela-app:ignore-silence:5:" + marker, "refused:malformed-ignore-silence-target"},
      {"vela-app:ignore-silence:TRANSCRIPT_PENDING_JOINED_1_2", "refused:malformed-ignore-silence-target"},
      // Marker bounds are inclusive; non-ASCII letters stay readable in note paths.
      {"vela-app:ignore-silence:TRANSCRIPT_PENDING_123456789012_1234567890",
       "ignoreSilence:TRANSCRIPT_PENDING_123456789012_1234567890"},
      {"vela-app:ignore-silence:TRANSCRIPT_PENDING__1", "refused:malformed-ignore-silence-target"},
      {"/Notes/Café 会議.md", "url:obsidian://open?path=%2FNotes%2FCafé%20会議.md"},
  };
  for (const auto& c : cases) EXPECT_EQ(describe(resolveNotifyClickTarget(c.token)), c.expected) << c.token;
}

TEST(ClickEnvelope, ChecksRunInOrderAndFirstFailureWins) {
  const double now = 1000;
  const std::vector<std::pair<json, std::string>> cases = {
      {json(nullptr), "refused:no-vela-payload"},
      // The version is judged before the target is looked at.
      {json{{"vela_click_v", "1"}}, "refused:unsupported-payload-version"},
      {json{{"vela_click_v", 1.0}, {"vela_click_target", "vela-app:recordings"}}, "refused:unsupported-payload-version"},
      {json{{"vela_click_v", 1}}, "refused:malformed-payload"},
      {json{{"vela_click_v", 1}, {"vela_click_target", 7}}, "refused:malformed-payload"},
      // A malformed target is reported before an expired stamp is.
      {json{{"vela_click_v", 1}, {"vela_click_target", 7}, {"vela_click_expires_at", 1}}, "refused:malformed-payload"},
      {json{{"vela_click_v", 1}, {"vela_click_target", "javascript:x"}, {"vela_click_expires_at", 999}},
       "refused:expired"},
      {json{{"vela_click_v", 1}, {"vela_click_target", "vela-app:recordings"}, {"vela_click_expires_at", "soon"}},
       "refused:expired"},
      {json{{"vela_click_v", 1}, {"vela_click_target", "javascript:x"}}, "refused:not-an-absolute-path"},
      {json{{"vela_click_v", 1}, {"vela_click_target", "vela-app:recordings"}, {"vela_click_expires_at", 1001}},
       "recordings"},
      {NotifyClickPayload::make("vela-app:record-start"), "startRecording:-"},
      {NotifyClickPayload::make("vela-app:record-start", 1000), "refused:expired"},
  };
  for (const auto& [info, expected] : cases) EXPECT_EQ(describe(resolveNotifyClickTarget(info, now)), expected) << info;
}

TEST(ClickFreshness, UnreadableStampsFailClosed) {
  const double inf = std::numeric_limits<double>::infinity();
  const json future = 11.0, past = 9.0, equal = 10.0, text = "soon", boolean = true;
  const json infinity = inf, nan = std::nan("");
  const std::vector<std::pair<const json*, std::string_view>> cases = {
      {nullptr, "no-stamp"}, {&future, "fresh"},    {&past, "expired"},   {&equal, "expired"},
      {&text, "expired"},    {&boolean, "expired"}, {&infinity, "expired"}, {&nan, "expired"},
  };
  for (const auto& [stamp, expected] : cases) EXPECT_EQ(rawValue(notifyClickFreshness(stamp, 10.0)), expected);
  EXPECT_EQ(notifyClickFreshness(std::optional<double>(-inf), 10.0), NotifyClickFreshness::expired);
}

}  // namespace
}  // namespace ac::notify
