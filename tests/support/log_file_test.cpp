#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <fstream>
#include <regex>

#include "notify/temp_dir.h"
#include "support/log.h"

namespace ac {
namespace {

using notify::testing::TempDir;

const std::regex kStamp(R"(\[\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ\] )");

class LogFileTest : public ::testing::Test {
 protected:
  void TearDown() override {
    if (int fd = logFileDescriptor(); fd >= 0) ::close(fd);
    setLogFileDescriptor(-1);
  }
  notify::testing::TempDir tmp_;
};

TEST_F(LogFileTest, OpeningTruncatesAndLinesMatchStandardError) {
  const std::string path = tmp_.file("capture.log");
  std::ofstream(path) << "previous recording's log\n";
  ASSERT_TRUE(openLogFile(path));
  testing::internal::CaptureStderr();
  log("first");
  log("second — with an em dash");
  std::string err = testing::internal::GetCapturedStderr();
  std::string file = TempDir::contents(path);
  EXPECT_EQ(file, err);
  EXPECT_EQ(std::regex_replace(file, kStamp, ""), "first\nsecond — with an em dash\n");

  struct stat st {};
  ASSERT_EQ(::stat(path.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0644u);
  EXPECT_TRUE(::fcntl(logFileDescriptor(), F_GETFL) & O_APPEND);
}

TEST_F(LogFileTest, UnopenableFileFallsBackToStandardErrorOnly) {
  const std::string path = tmp_.file("missing/capture.log");
  testing::internal::CaptureStderr();
  EXPECT_FALSE(openLogFile(path));
  log("after");
  std::string err = testing::internal::GetCapturedStderr();
  EXPECT_EQ(logFileDescriptor(), -1);
  EXPECT_EQ(std::regex_replace(err, kStamp, ""),
            "log file unavailable (No such file or directory) — logging to stderr only: " + path + "\nafter\n");
}

}  // namespace
}  // namespace ac
