#include "notify/click_journal.h"

#include <gtest/gtest.h>

namespace ac::notify {
namespace {

namespace J = NotifyClickJournal;
using Entries = NotifyClickJournalEntries;
using IDs = std::vector<std::string>;

NotifyClickJournalEntry entry(std::string id, std::optional<std::string> token, double at = 0,
                              std::optional<double> expiresAt = std::nullopt) {
  return {std::move(id), std::move(token), at, expiresAt};
}

IDs ids(const Entries& entries) {
  IDs out;
  for (const auto& e : entries) out.push_back(e.id);
  return out;
}

TEST(ClickJournalCodec, RoundTripsTokensVerbatimAndTokenlessAsTokenless) {
  Entries entries = {entry("N1", "/Users/x/My \"Note\".md", 1.25, 99.5), entry("N2", std::nullopt, 2)};
  auto data = J::encode(entries);
  ASSERT_TRUE(data);
  EXPECT_EQ(J::decode(*data), entries);
  EXPECT_NE(data->find(R"("token":"")"), std::string::npos);
  EXPECT_EQ(J::decode(R"({"v":1,"entries":[{"id":"N1","token":"","at":1}]})"), Entries{entry("N1", std::nullopt, 1)});
  EXPECT_EQ(J::encode({entry("N1", std::string("\xff"))}), std::nullopt);
}

TEST(ClickJournalCodec, RefusesForeignFilesAndSkipsBadEntries) {
  for (const char* file : {"", "[]", "nonsense", R"({"v":99,"entries":[]})", R"({"v":"1","entries":[]})",
                           R"({"v":1.0,"entries":[]})", R"({"entries":[]})", R"({"v":1,"entries":{}})"}) {
    EXPECT_EQ(J::decode(file), std::nullopt) << file;
  }
  auto decoded = J::decode(R"({"v":1,"entries":[7,{"id":"","token":"a","at":1},{"token":"a","at":1},
      {"id":3,"token":"a","at":1},{"id":"N1","at":1},{"id":"N2","token":5,"at":1},{"id":"N3","token":"a"},
      {"id":"N4","token":"a","at":"1"},{"id":"N9","token":"t","at":4},
      {"id":"N10","token":"t","at":5,"expires_at":"soon"},{"id":"N11","token":"t","at":6,"expires_at":null}]})");
  ASSERT_TRUE(decoded);
  EXPECT_EQ(*decoded, (Entries{entry("N9", "t", 4), entry("N10", "t", 5, 0.0), entry("N11", "t", 6, 0.0)}));
}

TEST(ClickJournalList, PruneKeepsDeliveredAndJustPostedBanners) {
  const double now = 1000;
  Entries journal = {entry("gone", "a", 100), entry("shown", "b", 100), entry("fresh", "c", 950),
                     entry("edge", "d", 940)};
  EXPECT_EQ(ids(J::prune(journal, IDs{"shown"}, now)), (IDs{"shown", "fresh"}));
  EXPECT_EQ(J::prune(journal, std::nullopt, now), journal);
}

TEST(ClickJournalList, CapEvictsOnlyDepartedBannersOldestFirst) {
  const double now = 10000;
  Entries journal;
  IDs delivered;
  for (int i = 0; i < 205; ++i) {
    std::string id = "N" + std::to_string(i);
    journal.push_back(entry(id, "t", i < 200 ? 100 + i : now - 1));  // the last five are just posted
    if (i % 2 == 0) delivered.push_back(id);
  }
  Entries kept = J::capped(journal, delivered, now);
  ASSERT_EQ(kept.size(), 200u);
  // The five oldest departed banners (odd numbers) go; delivered and just-posted ones stay.
  IDs dropped = {"N1", "N3", "N5", "N7", "N9"};
  IDs keptIDs = ids(kept);
  for (const auto& id : dropped) EXPECT_EQ(std::count(keptIDs.begin(), keptIDs.end(), id), 0) << id;
  EXPECT_EQ(kept.back().id, "N204");
  // Without an answer from the centre: the newest 200 by position.
  EXPECT_EQ(J::capped(journal, std::nullopt, now).front().id, "N5");
  // Everything delivered: still bounded, newest kept.
  IDs all = ids(journal);
  EXPECT_EQ(J::capped(journal, all, now).size(), 200u);
  EXPECT_EQ(J::capped(Entries(journal.begin(), journal.begin() + 200), IDs{}, now).size(), 200u);
}

TEST(ClickJournalList, SettleRemovesWhatTheClickAccountedFor) {
  Entries snapshot = {entry("A", "a", 1), entry("B", "b", 2), entry("C", "c", 3)};
  Entries current = snapshot;
  current.push_back(entry("D", "d", 4));  // recorded after the snapshot
  EXPECT_EQ(ids(J::settle(current, snapshot, IDs{"B"})), (IDs{"B", "D"}));
  EXPECT_EQ(J::settle(current, snapshot, std::nullopt), current);
}

}  // namespace
}  // namespace ac::notify
