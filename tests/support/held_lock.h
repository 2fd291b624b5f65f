// An exclusive flock held on a file until destroyed, as another process
// holding one of the program's lock files would hold it.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

#include <string>

namespace ac::test {

class HeldLock {
 public:
  explicit HeldLock(const std::string& path) : fd_(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
    EXPECT_EQ(::flock(fd_, LOCK_EX | LOCK_NB), 0) << path;
  }
  ~HeldLock() { ::close(fd_); }
  HeldLock(const HeldLock&) = delete;
  HeldLock& operator=(const HeldLock&) = delete;

 private:
  int fd_;
};

}  // namespace ac::test
