#include "notify/note_links.h"

#include <gtest/gtest.h>

#include "notify/click_payload.h"

namespace ac::notify {
namespace {

const std::string store = "6C6DA3A0-1C0B-4C4E-9C1E-1F7E5B2A9D31";
const std::string noteId = "x-coredata://" + store + "/ICNote/p42";
const std::string canonicalNotes = "vela-applenotes://show?note_id=" + noteId + "&store_uuid=" + store;

std::string refusal(const std::string& token) {
  auto r = clickRejection(resolveNotifyClickTarget(token));
  return r ? std::string(rawValue(*r)) : "accepted";
}

TEST(AppleNotesLink, AcceptsTheExactShapeAndRebuildsIt) {
  EXPECT_EQ(appleNotesNotifyURL(canonicalNotes), canonicalNotes);
  EXPECT_EQ(appleNotesNotifyURL("vela-applenotes://show/?store_uuid=" + store + "&note_id=" + noteId), canonicalNotes);
  // Escapes inside a value are decoded, then re-encoded so they cannot split the query.
  std::string oddKey = "x-coredata://" + store + "/ICNote/p%26q";
  EXPECT_EQ(appleNotesNotifyURL("vela-applenotes://show?note_id=" + oddKey + "&store_uuid=" + store),
            "vela-applenotes://show?note_id=" + oddKey + "&store_uuid=" + store);
  auto resolved = resolveNotifyClickTarget(canonicalNotes);
  auto target = clickTarget(resolved);
  ASSERT_NE(target, nullptr);
  EXPECT_EQ(std::get<ClickURL>(*target).url, canonicalNotes);
}

TEST(AppleNotesLink, RefusesEverythingElse) {
  const std::string lower = "6c6da3a0-1c0b-4c4e-9c1e-1f7e5b2a9d31";
  const std::string other = "7C6DA3A0-1C0B-4C4E-9C1E-1F7E5B2A9D31";
  const std::string q = "?note_id=" + noteId + "&store_uuid=" + store;
  const std::vector<std::string> refused = {
      "vela-applenotes://open" + q,
      "vela-applenotes://user@show" + q,
      "vela-applenotes://show" + q + "#frag",
      "vela-applenotes://show?note_id=" + noteId,
      "vela-applenotes://show" + q + "&extra=1",
      "vela-applenotes://show?note_id=" + noteId + "&store_uuid=not-a-uuid",
      "vela-applenotes://show?note_id=" + noteId + "&store_uuid=" + other,
      "vela-applenotes://show?note_id=" + noteId + "&store_uuid=" + lower,
      "vela-applenotes://show?note_id=x-coredata://" + store + "/ICFolder/p42&store_uuid=" + store,
      "vela-applenotes://show" + q + "%",
  };
  for (const auto& token : refused) {
    EXPECT_EQ(appleNotesNotifyURL(token), std::nullopt) << token;
    EXPECT_EQ(refusal(token), "malformed-apple-notes-target") << token;
  }
}

TEST(NotionLink, AcceptsCanonicalPagesAndBlocks) {
  const std::string page = "https://www.notion.so/0123456789abcdef0123456789abcdef";
  EXPECT_EQ(notionNotifyURL(page), page);
  EXPECT_EQ(notionNotifyURL(page + "#fedcba9876543210fedcba9876543210"), page + "#fedcba9876543210fedcba9876543210");
}

TEST(NotionLink, RefusesNearMisses) {
  const std::string hex = "0123456789abcdef0123456789abcdef";
  struct Case {
    std::string token;
    std::string rawValue;  // what the token grammar answers
  };
  const std::vector<Case> cases = {
      {"https://www.notion.so/", "malformed-notion-target"},
      {"https://www.notion.so/0123456789ABCDEF0123456789abcdef", "malformed-notion-target"},
      {"https://www.notion.so/Meeting-" + hex, "malformed-notion-target"},
      {"https://www.notion.so/" + hex + "/", "malformed-notion-target"},
      {"https://www.notion.so/" + hex + "?pvs=4", "malformed-notion-target"},
      {"https://www.notion.so/" + hex + "#", "malformed-notion-target"},
      {"https://www.notion.so/%30123456789abcdef0123456789abcdef", "malformed-notion-target"},
      {"https://www.notion.so/" + hex + "0", "malformed-notion-target"},
      {"https://notion.so/" + hex, "not-an-absolute-path"},
      {"https://www.notion.so.evil.example/" + hex, "not-an-absolute-path"},
      {"https://www.notion.so:443/" + hex, "not-an-absolute-path"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(notionNotifyURL(c.token), std::nullopt) << c.token;
    EXPECT_EQ(refusal(c.token), c.rawValue) << c.token;
  }
}

TEST(NotePathEncoding, EscapesAllButLettersDigitsAndFourMarks) {
  EXPECT_EQ(percentEncodeNotePath("/a b?c&d#e-f.g_h~i%j+k"), "%2Fa%20b%3Fc%26d%23e-f.g_h~i%25j%2Bk");
  EXPECT_EQ(percentEncodeNotePath("/\u00e9\u0301\u0663"), "%2F\u00e9\u0301\u0663");  // letter, mark, digit
  EXPECT_EQ(percentEncodeNotePath("/\u00a0\u2028\U0001F600"), "%2F%C2%A0%E2%80%A8%F0%9F%98%80");
  EXPECT_EQ(percentEncodeNotePath(std::string("/a\0b", 4)), "%2Fa%00b");
  EXPECT_EQ(percentEncodeNotePath("/\xc3"), std::nullopt);
}

}  // namespace
}  // namespace ac::notify
