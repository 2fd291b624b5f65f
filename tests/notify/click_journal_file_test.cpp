#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>

#include <gtest/gtest.h>

#include "notify/click_journal.h"
#include "tests/support/held_lock.h"
#include "tests/support/scratch_dir.h"

namespace ac::notify {
namespace {

namespace J = NotifyClickJournal;
using IDs = std::vector<std::string>;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

class ClickJournalFile : public ::testing::Test {
 protected:
  test::ScratchDir dir;
  std::string path = dir.path("notify-clicks.json");
};

TEST_F(ClickJournalFile, RecordedClickSurvivesToTheNextReaderPrivately) {
  EXPECT_TRUE(J::read(path).empty());
  // The centre already lists the new banner and one the journal never heard of.
  ASSERT_TRUE(J::recordPosted("N1", "/a.md", true, IDs{"X", "N1"}, 1000, 8200, path));
  EXPECT_EQ(J::read(path), (NotifyClickJournalEntries{{"X", std::nullopt, 1000, std::nullopt}, {"N1", "/a.md", 1000, 8200}}));
  struct stat st {};
  ASSERT_EQ(::stat(path.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);

  EXPECT_FALSE(J::recordPosted("N2", "/b.md", false, IDs{"X", "N1"}, 1001, std::nullopt, path));
  ASSERT_TRUE(J::recordPosted("N3", "", true, IDs{"X", "N1"}, 1002, std::nullopt, path));
  EXPECT_EQ(J::read(path).back(), (NotifyClickJournalEntry{"N3", std::nullopt, 1002, std::nullopt}));
}

TEST_F(ClickJournalFile, BusyLockLeavesTheFileByteForByte) {
  test::ScratchDir::write(path, R"({"v":1,"entries":[{"id":"N1","token":"","at":1}]})");
  const std::string before = test::ScratchDir::contents(path);
  auto lock = std::make_optional<test::HeldLock>(dir.path(".notify-clicks.lock"));
  CaptureStderr();
  EXPECT_FALSE(J::record("N2", "/a.md", IDs{}, 5, std::nullopt, path));
  EXPECT_FALSE(J::forget({"N1"}, path));
  EXPECT_EQ(J::claimSettle(J::read(path).front(), J::read(path), IDs{}, path), NotifyClickClaim::unrecorded);
  EXPECT_EQ(J::withLock(path, [] { return 1; }), std::nullopt);
  const std::string busy = "notify: journal lock busy — leaving it to the holder\n";
  EXPECT_EQ(GetCapturedStderr(), busy + busy + busy + busy);
  EXPECT_EQ(test::ScratchDir::contents(path), before);
  lock.reset();
  EXPECT_EQ(J::withLock(path, [] { return 1; }), 1);
}

TEST_F(ClickJournalFile, ClaimIsTakenOnceAcrossLaunches) {
  ASSERT_TRUE(J::record("A", "/a.md", IDs{}, 1000, std::nullopt, path));
  ASSERT_TRUE(J::record("B", "/b.md", IDs{"A"}, 1001, std::nullopt, path));
  auto snapshot = J::read(path);
  IDs delivered{"B"};
  auto resolution = J::resolve(snapshot, delivered);
  ASSERT_EQ(J::describe(resolution), "route:/a.md");

  EXPECT_EQ(J::claimSettle(resolution.entry, snapshot, delivered, path), NotifyClickClaim::claimed);
  EXPECT_EQ(J::claimSettle(resolution.entry, snapshot, delivered, path), NotifyClickClaim::lost);
  EXPECT_EQ(J::read(path).size(), 1u);
  // The ambiguous arm claims nothing and always proceeds.
  EXPECT_EQ(J::claimSettle(std::nullopt, snapshot, std::nullopt, path), NotifyClickClaim::claimed);
}

TEST_F(ClickJournalFile, FailingWriteIsUnrecordedAndSaysWhy) {
  const std::string longPath = "/" + std::string(500, 'a') + ".md";
  ASSERT_TRUE(J::record("A", longPath, IDs{}, 1000, std::nullopt, path));
  ASSERT_TRUE(J::record("K", longPath, IDs{"A"}, 1000, std::nullopt, path));
  auto snapshot = J::read(path);
  // A file-size limit below the journal's size (but above the captured
  // diagnostics) makes the write fail even for root.
  auto previous = std::signal(SIGXFSZ, SIG_IGN);
  rlimit old{};
  ::getrlimit(RLIMIT_FSIZE, &old);
  rlimit tiny = old;
  tiny.rlim_cur = 200;
  ::setrlimit(RLIMIT_FSIZE, &tiny);
  CaptureStderr();
  NotifyClickClaim claim = J::claimSettle(snapshot.front(), snapshot, IDs{"K"}, path);
  bool recorded = J::record("B", longPath, IDs{"A", "K"}, 1001, std::nullopt, path);
  std::string err = GetCapturedStderr();
  ::setrlimit(RLIMIT_FSIZE, &old);
  std::signal(SIGXFSZ, previous);

  EXPECT_EQ(claim, NotifyClickClaim::unrecorded);
  EXPECT_FALSE(recorded);
  EXPECT_EQ(err.rfind("notify: journal write failed: File too large\n", 0), 0u) << err;
  EXPECT_EQ(J::read(path), snapshot);
}

TEST_F(ClickJournalFile, ForgetPurgesAndRemovingNothingStillLands) {
  ASSERT_TRUE(J::record("A", "/a.md", IDs{}, 1000, std::nullopt, path));
  ASSERT_TRUE(J::record("B", std::nullopt, IDs{"A"}, 1000, std::nullopt, path));
  EXPECT_TRUE(J::forget({"A", "missing"}, path));
  EXPECT_EQ(J::read(path).size(), 1u);
  EXPECT_TRUE(J::forget({"missing"}, path));
  EXPECT_FALSE(J::update(path, [](auto entries) { return entries; }));
}

}  // namespace
}  // namespace ac::notify
