#include "cli/armed_gate.h"

#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace ac {
namespace {

using ArmedGate::Decision;
using ArmedGate::readLine;

struct Pipe {
  int r = -1, w = -1;
  Pipe() {
    int fds[2];
    EXPECT_EQ(::pipe(fds), 0);
    r = fds[0];
    w = fds[1];
  }
  ~Pipe() {
    closeWrite();
    if (r >= 0) ::close(r);
  }
  void write(const std::string& s) { ASSERT_EQ(::write(w, s.data(), s.size()), ssize_t(s.size())); }
  void closeWrite() {
    if (w >= 0) ::close(w);
    w = -1;
  }
  int unread() const {  // bytes still in the pipe
    int n = 0;
    ::ioctl(r, FIONREAD, &n);
    return n;
  }
};

TEST(ArmedGate, DecisionsAreExactMatches) {
  EXPECT_EQ(ArmedGate::decide("go"), Decision::go());
  EXPECT_EQ(ArmedGate::decide("quit"), Decision::release("quit"));
  for (std::string line : {"", "go\r", " go", "Go", "QUIT", "gogo"})
    EXPECT_EQ(ArmedGate::decide(line), Decision::release("bad-line")) << "'" << line << "'";
  EXPECT_EQ(ArmedGate::armedLine(4242), "armed, pid=4242\n");
  EXPECT_EQ(ArmedGate::readyLine(4242), "ready, pid=4242\n");
  EXPECT_EQ(ArmedGate::releasedLine(ArmedGate::reasonStartFailed), "released start-failed\n");
}

TEST(ArmedGate, TwoLinesInOneWriteAreTakenOnePerCallWithoutOverReading) {
  Pipe p;
  p.write("go\nquit\n");
  EXPECT_EQ(readLine(p.r), "go");
  EXPECT_EQ(p.unread(), 5);
  p.write("tail");
  EXPECT_EQ(readLine(p.r), "quit");
  EXPECT_EQ(p.unread(), 4);
}

TEST(ArmedGate, PartialLinesJoinAndInvalidUTF8IsReplaced) {
  Pipe p;
  p.write("g");
  p.write("\xffo\n\n");
  EXPECT_EQ(readLine(p.r), "g\xef\xbf\xbdo");
  EXPECT_EQ(readLine(p.r), "");
}

TEST(ArmedGate, OverlongInputIsCutAt256Bytes) {
  Pipe p;
  p.write(std::string(300, 'x') + "\n" + std::string(255, 'y') + "\n");
  EXPECT_EQ(readLine(p.r), std::string(256, 'x'));
  EXPECT_EQ(p.unread(), 45 + 256);
  EXPECT_EQ(readLine(p.r), std::string(44, 'x'));
  EXPECT_EQ(readLine(p.r), std::string(255, 'y'));
}

TEST(ArmedGate, EndOfInputDropsAPartialLine) {
  {
    Pipe p;
    p.write("go");
    p.closeWrite();
    EXPECT_EQ(readLine(p.r), std::nullopt);
  }
  Pipe other;
  other.write("\n");
  EXPECT_EQ(readLine(other.r), "") << "a partial line leaked into a later read";
  EXPECT_EQ(readLine(-1), std::nullopt);
}

TEST(ArmedGate, StatusLinesAreWrittenWholeOnlyWhileOpen) {
  ArmedGate::setStatusFD(-1);
  EXPECT_FALSE(ArmedGate::writeStatusLine("armed, pid=1\n"));
  Pipe p;
  ArmedGate::setStatusFD(p.w);
  EXPECT_TRUE(ArmedGate::writeStatusLine("ready, pid=7\n"));
  EXPECT_EQ(p.unread(), 13);

  ::signal(SIGPIPE, SIG_IGN);
  ::close(p.r);
  p.r = -1;
  testing::internal::CaptureStderr();
  EXPECT_FALSE(ArmedGate::writeStatusLine("released quit\n"));
  std::string err = testing::internal::GetCapturedStderr();
  EXPECT_NE(err.find("] armed: status write 'released quit' incomplete (-1 of 14 bytes, errno=32)\n"),
            std::string::npos)
      << err;
  ArmedGate::setStatusFD(-1);
}

}  // namespace
}  // namespace ac
