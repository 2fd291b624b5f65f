#include "notify/meeting_banner.h"

#include <gtest/gtest.h>

#include <regex>

#include "tests/support/scratch_dir.h"

namespace ac::notify {
namespace {

namespace M = MeetingBanner;
using IDs = std::vector<std::string>;

std::string rosterIDs(std::string_view json) {
  std::string out;
  for (const auto& e : M::parseRoster(json)) out += (out.empty() ? "" : ",") + e.id + "=" + e.name;
  return out;
}

std::string titles(const std::vector<M::MenuItem>& items) {
  std::string out;
  for (const auto& item : items) out += (out.empty() ? "" : "|") + item.title;
  return out;
}

TEST(MeetingRoster, ParsesInFileOrderAndDegradesToFewerTemplates) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {R"({"v":1,"shortcuts":[{"id":"t2","name":"B"},{"id":"t1","name":"A"}]})", "t2=B,t1=A"},
      {R"({"v":1,"shortcuts":[]})", ""},
      {R"({"v":99,"shortcuts":[{"id":"t1","name":"A"}]})", ""},
      {R"({"v":1,"shortcuts":[{"id":"a b","name":"X"},{"id":"t1","name":"A"}]})", "t1=A"},
      {R"({"v":1,"shortcuts":[{"id":"t1","name":"   "},{"id":"t2","name":" \n Standup\t"}]})", "t2=Standup"},
      {R"({"v":1,"shortcuts":[{"id":"t1","name":"A"},{"id":"t1","name":"B"}]})", ""},
      {R"({"v":1,"shortcuts":[{"id":"","name":"A"},{"id":7,"name":"B"},{"id":"t3"},{"id":"t4","name":4},5]})", ""},
      {R"({"v":1,"shortcuts":[{"id":"A.b-c_9","name":"ok"}]})", "A.b-c_9=ok"},
  };
  for (const auto& [json, expected] : cases) EXPECT_EQ(rosterIDs(json), expected) << json;
  // Ids are bounded to 64 ASCII characters; names are cut to 64 characters, not bytes.
  std::string longID(65, 'a');
  EXPECT_EQ(rosterIDs(R"({"v":1,"shortcuts":[{"id":")" + longID + R"(","name":"A"}]})"), "");
  std::string flags;
  for (int i = 0; i < 70; ++i) flags += "\U0001F1EB\U0001F1F7";  // one character, eight bytes
  auto roster = M::parseRoster(R"({"v":1,"shortcuts":[{"id":"t","name":")" + flags + R"("}]})");
  ASSERT_EQ(roster.size(), 1u);
  EXPECT_EQ(roster[0].name, flags.substr(0, 64 * 8));
}

TEST(MeetingRoster, ReadsABoundedFile) {
  test::ScratchDir dir;
  EXPECT_TRUE(M::roster(dir.path("missing.json")).empty());
  std::string path = dir.path("template-shortcuts.json");
  test::ScratchDir::write(path, R"({"v":1,"shortcuts":[{"id":"t1","name":"A"}]})");
  EXPECT_EQ(M::roster(path).size(), 1u);
  std::string big = R"({"v":1,"shortcuts":[{"id":"t1","name":"A"}]})" + std::string(M::maxRosterBytes, ' ');
  test::ScratchDir::write(path, big);
  EXPECT_TRUE(M::roster(path).empty());
}

TEST(MeetingMenu, StartFirstThenAtMostThreeTemplates) {
  std::vector<M::RosterEntry> four = {{"s", "Standup"}, {"o", "1:1"}, {"c", "Client"}, {"x", "Extra"}};
  EXPECT_EQ(titles(M::menu({})), "Start recording");
  EXPECT_EQ(titles(M::menu(four)), "Start recording|Standup|1:1|Client");
  EXPECT_EQ(M::menu({})[0].identifier, "vela.act:start");
  // The digest is the first half of SHA-256 over "id\nname".
  EXPECT_EQ(M::menu({{"t1", "Standup"}})[1].identifier, "vela.act:tpl:e49336a346b253ae168c3edd11ba83dc:t1");
}

TEST(MeetingMenu, TitlesCannotForgeRows) {
  EXPECT_EQ(M::displaySafeMenuTitle("Stand\nup\u2028 \x07"), "Standup");
  EXPECT_EQ(M::displaySafeMenuTitle("  A\u200Bb\u202E c "), "Ab c");
}

TEST(MeetingAction, ParseAcceptsOnlyOurExactIdentifiers) {
  const std::string d = "0123456789abcdef0123456789abcdef";
  EXPECT_EQ(M::parse("vela.act:start"), M::Pick(M::PlainPick{}));
  EXPECT_EQ(M::parse("vela.act:tpl:" + d + ":t1"), M::Pick(M::TemplatePick{"t1", d}));
  const std::vector<std::string> refused = {
      "vela.act:tpl:abc:t1",
      "vela.act:tpl:0123456789ABCDEF0123456789abcdef:t1",
      "vela.act:tpl:" + d + ":t1:x",
      "vela.act:tpl:" + d + ":" + std::string(65, 'a'),
      "other.act:tpl:" + d + ":t1",
      "vela.act:start ",
      "com.apple.UNNotificationDefaultActionIdentifier",
      "",
  };
  for (const auto& id : refused) {
    EXPECT_EQ(M::parse(id), std::nullopt) << id;
  }
}

TEST(MeetingCategory, IdentifierCarriesAReadableStamp) {
  std::string id = M::categoryID(1792530208.9);
  const std::regex stampThenUUID(R"(vela\.meeting\.1792530208\.[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12})");
  EXPECT_TRUE(std::regex_match(id, stampThenUUID)) << id;
  EXPECT_NE(M::categoryID(5), M::categoryID(5));
  EXPECT_EQ(M::categoryPostedAt(id), 1792530208.0);
  EXPECT_EQ(M::categoryPostedAt(M::categoryID(-5)), 0.0);
  EXPECT_EQ(M::categoryPostedAt(M::categoryID(1e12)), 9999999999.0);
  for (const char* none : {"vela.meeting.legacy-build", "vela.meeting.inf.X", "vela.meeting..X", "other.1792530208.X"}) {
    EXPECT_EQ(M::categoryPostedAt(none), std::nullopt) << none;
  }
}

TEST(MeetingCategory, KeepsNewForeignDeliveredAndJustRegistered) {
  const double now = 1000;
  const std::string fresh = "vela.meeting.990.F", old = "vela.meeting.500.O", shown = "vela.meeting.400.S";
  const std::string future = "vela.meeting.2000.U", legacy = "vela.meeting.legacy", boundary = "vela.meeting.940.B";
  IDs existing = {old, "vela.silence-warning", shown, fresh, future, legacy, boundary, "zz.other"};
  EXPECT_EQ(M::categoriesToKeep(existing, IDs{shown}, "vela.meeting.1000.N", now),
            (IDs{"vela.meeting.1000.N", "vela.silence-warning", "zz.other", shown, fresh}));
  IDs unanswered = M::categoriesToKeep(existing, std::nullopt, "vela.meeting.1000.N", now);
  EXPECT_EQ(unanswered.size(), 9u);  // the new one, two foreign, all six of ours
  // The cap counts ours only: the new one plus seven, ascending.
  IDs many;
  for (int i = 10; i < 30; ++i) many.push_back("vela.meeting." + std::to_string(i) + ".X");
  IDs kept = M::categoriesToKeep(many, std::nullopt, "vela.meeting.99.N", now);
  EXPECT_EQ(kept, (IDs{"vela.meeting.99.N", "vela.meeting.10.X", "vela.meeting.11.X", "vela.meeting.12.X",
                       "vela.meeting.13.X", "vela.meeting.14.X", "vela.meeting.15.X", "vela.meeting.16.X"}));
}

TEST(MeetingWithdraw, SelectsPromptsPostedBeforeTheBound) {
  struct Case {
    std::string category;
    std::optional<std::string> token;
    double deliveredAt;
    std::optional<double> before;
    bool withdraw;
  };
  const std::vector<Case> cases = {
      {"", std::nullopt, 100, std::nullopt, false},
      {"vela.silence-warning", "vela-app:record-start", 100, std::nullopt, false},
      {"vela.meeting.100.X", std::nullopt, 500, 200.0, true},   // the stamp wins over a late delivery
      {"vela.meeting.legacy", std::nullopt, 100, 200.0, true},  // no stamp: delivery time
      {"", "vela-app:record-start", 200, 200.0, false},
      {"", "vela-app:record-start", 199, 200.0, true},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(M::shouldWithdraw(c.category, c.token, c.deliveredAt, c.before), c.withdraw) << c.category << " " << c.deliveredAt;
  }
}

}  // namespace
}  // namespace ac::notify
