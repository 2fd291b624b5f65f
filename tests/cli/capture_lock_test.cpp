#include "cli/capture_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "notify/temp_dir.h"

namespace ac {
namespace {

namespace fs = std::filesystem;

class CaptureLockTest : public ::testing::Test {
 protected:
  std::string path(const std::string& name) const { return tmp_.file(name); }

  // flock conflicts between two open file descriptions even in one process,
  // so holding the lock here looks to the code like another capture.
  int holdLock(const std::string& p) {
    int fd = ::open(p.c_str(), O_RDWR | O_CREAT, 0644);
    EXPECT_EQ(::flock(fd, LOCK_EX | LOCK_NB), 0);
    return fd;
  }

  notify::testing::TempDir tmp_;
};

TEST_F(CaptureLockTest, ProbeReportsFreeHeldAndError) {
  const std::string lock = path("capture.lock");
  EXPECT_EQ(captureLockState(lock), CaptureLockState::free);
  ASSERT_TRUE(fs::exists(lock));
  EXPECT_EQ(fs::file_size(lock), 0u);
  EXPECT_EQ(fs::status(lock).permissions() & fs::perms::all,
            fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read | fs::perms::others_read);
  // The probe released its own lock.
  EXPECT_EQ(captureLockState(lock), CaptureLockState::free);

  int holder = holdLock(lock);
  EXPECT_EQ(captureLockState(lock), CaptureLockState::held);
  ::close(holder);
  EXPECT_EQ(captureLockState(lock), CaptureLockState::free);

  EXPECT_EQ(captureLockState(path("missing/capture.lock")), CaptureLockState::error);
}

TEST_F(CaptureLockTest, CaptureActiveStatuses) {
  EXPECT_EQ(captureActiveExitStatus(CaptureLockState::held), 0);
  EXPECT_EQ(captureActiveExitStatus(CaptureLockState::free), 1);
  EXPECT_EQ(captureActiveExitStatus(CaptureLockState::error), 2);
}

TEST_F(CaptureLockTest, AcquisitionHoldsUntilClosedAndReportsContention) {
  const std::string lock = path("capture.lock");
  CaptureLockAcquisition first = acquireCaptureLock(lock);
  ASSERT_GE(first.fd, 0);
  EXPECT_EQ(first.exitStatus, 0);
  EXPECT_EQ(first.logLine, "capture-lock: acquired " + lock);
  EXPECT_EQ(captureLockState(lock), CaptureLockState::held);

  CaptureLockAcquisition second = acquireCaptureLock(lock);
  EXPECT_EQ(second.fd, -1);
  EXPECT_EQ(second.exitStatus, 75);
  EXPECT_EQ(second.logLine, "capture-lock: another capture is already active — exiting without recording");

  ::close(first.fd);
  EXPECT_EQ(captureLockState(lock), CaptureLockState::free);
}

TEST_F(CaptureLockTest, UnusableLockFileIs74) {
  const std::string missing = path("no/such/dir/capture.lock");
  CaptureLockAcquisition a = acquireCaptureLock(missing);
  EXPECT_EQ(a.exitStatus, 74);
  EXPECT_EQ(a.logLine, "capture-lock: open(" + missing + ") failed errno=2 — refusing to record without a lock");
}

TEST_F(CaptureLockTest, PidFileIsDecimalPidAndNewline) {
  const std::string pid = path("capture.pid");
  std::ofstream(pid) << "stale contents that are longer\n";
  ASSERT_TRUE(writePidFile(pid, 4242));
  std::stringstream ss;
  ss << std::ifstream(pid).rdbuf();
  EXPECT_EQ(ss.str(), "4242\n");
  // Nothing but the pid file is left behind.
  EXPECT_EQ(std::distance(fs::directory_iterator(path("")), fs::directory_iterator()), 1);
  EXPECT_FALSE(writePidFile(path("missing/capture.pid"), 1));
}

}  // namespace
}  // namespace ac
