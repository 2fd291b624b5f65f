#include "notify/click_payload.h"

#include "notify/note_links.h"

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
      // Note paths: all but letters, marks, digits and four ASCII marks are escaped.
      {"/a b?c&d#e-f.g_h~i%j+k", "url:obsidian://open?path=%2Fa%20b%3Fc%26d%23e-f.g_h~i%25j%2Bk"},
      {"/\u00e9\u0301\u0663", "url:obsidian://open?path=%2F\u00e9\u0301\u0663"},
      {"/\u00a0\u2028\U0001F600", "url:obsidian://open?path=%2F%C2%A0%E2%80%A8%F0%9F%98%80"},
  };
  for (const auto& c : cases) EXPECT_EQ(describe(resolveNotifyClickTarget(c.token)), c.expected) << c.token;
  EXPECT_EQ(percentEncodeNotePath(std::string("/a\0b", 4)), "%2Fa%00b");
  EXPECT_EQ(percentEncodeNotePath("/\xc3"), std::nullopt);
}

// Apple Notes and Notion links are accepted in their exact shape only, and
// rebuilt so that an escape inside a value cannot split the query.
TEST(ClickTokenGrammar, NoteLinksAreAcceptedInTheirExactShapeOnly) {
  const std::string store = "6C6DA3A0-1C0B-4C4E-9C1E-1F7E5B2A9D31", id = "x-coredata://" + store + "/ICNote/p42";
  const std::string notes = "vela-applenotes://show?note_id=" + id + "&store_uuid=" + store;
  const std::string odd = "vela-applenotes://show?note_id=x-coredata://" + store + "/ICNote/p%26q&store_uuid=" + store;
  const std::string hex = "0123456789abcdef0123456789abcdef", notion = "https://www.notion.so/" + hex;
  const std::string badNotes = "refused:malformed-apple-notes-target", badNotion = "refused:malformed-notion-target";
  const std::string q = "?note_id=" + id + "&store_uuid=";
  const std::vector<TokenCase> cases = {
      {notes, "url:" + notes},
      {"vela-applenotes://show/?store_uuid=" + store + "&note_id=" + id, "url:" + notes},
      {odd, "url:" + odd},
      {"vela-applenotes://open" + q + store, badNotes},
      {"vela-applenotes://user@show" + q + store, badNotes},
      {"vela-applenotes://show" + q + store + "#frag", badNotes},
      {"vela-applenotes://show?note_id=" + id, badNotes},
      {"vela-applenotes://show" + q + store + "&extra=1", badNotes},
      {"vela-applenotes://show" + q + "not-a-uuid", badNotes},
      {"vela-applenotes://show" + q + "7C6DA3A0-1C0B-4C4E-9C1E-1F7E5B2A9D31", badNotes},
      {"vela-applenotes://show" + q + "6c6da3a0-1c0b-4c4e-9c1e-1f7e5b2a9d31", badNotes},
      {"vela-applenotes://show?note_id=x-coredata://" + store + "/ICFolder/p42&store_uuid=" + store, badNotes},
      {"vela-applenotes://show" + q + store + "%", badNotes},
      {notion, "url:" + notion},
      {notion + "#fedcba9876543210fedcba9876543210", "url:" + notion + "#fedcba9876543210fedcba9876543210"},
      {"https://www.notion.so/", badNotion},
      {"https://www.notion.so/0123456789ABCDEF0123456789abcdef", badNotion},
      {"https://www.notion.so/Meeting-" + hex, badNotion},
      {notion + "/", badNotion},
      {notion + "?pvs=4", badNotion},
      {notion + "#", badNotion},
      {"https://www.notion.so/%30123456789abcdef0123456789abcdef", badNotion},
      {notion + "0", badNotion},
      {"https://notion.so/" + hex, "refused:not-an-absolute-path"},
      {"https://www.notion.so.evil.example/" + hex, "refused:not-an-absolute-path"},
      {"https://www.notion.so:443/" + hex, "refused:not-an-absolute-path"},
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
