#include <sys/stat.h>

#include <filesystem>
#include <functional>

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

// Whatever sits at the journal's path, a read never blocks on it and a
// post costs one line, never the process: the next write replaces it where
// a rename can, and a write that fails is reported, not recorded.
TEST_F(ClickJournalFile, AJournalThatIsNoUsableFileReadsAsEmptyAndIsReplaced) {
  const std::string unusable = "notify: journal " + path + " is not a regular file of at most 1 MiB — ";
  struct Row {
    const char* kind;
    std::function<void()> plant;
    bool recorded;
    std::string recordLine;
  };
  const Row rows[] = {
      {"directory", [&] { std::filesystem::create_directory(path); }, false, "notify: journal write failed: Is a directory\n"},
      {"fifo", [&] { ::mkfifo(path.c_str(), 0600); }, true, unusable + "replaced it\n"},
      {"over the cap", [&] { test::ScratchDir::write(path, std::string((1 << 20) + 1, ' ')); }, true, unusable + "replaced it\n"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.kind);
    row.plant();
    CaptureStderr();
    EXPECT_TRUE(J::read(path).empty());
    EXPECT_EQ(GetCapturedStderr(), unusable + "reading it as empty\n");
    CaptureStderr();
    EXPECT_EQ(J::record("N1", "/a.md", IDs{}, 5, std::nullopt, path), row.recorded);
    EXPECT_EQ(GetCapturedStderr(), row.recordLine);
    EXPECT_EQ(J::read(path).size(), row.recorded ? 1u : 0u);
    std::filesystem::remove_all(path);
  }
}

}  // namespace
}  // namespace ac::notify
