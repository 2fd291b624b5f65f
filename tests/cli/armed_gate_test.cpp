#include "cli/armed_gate.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <string>

namespace ac {
namespace {

using ArmedGate::Decision;
using ArmedGate::readLine;

// A pipe whose write end the test feeds; closed ends are -1.
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
  // Bytes still in the pipe, without consuming them.
  int unread() const {
    int n = 0;
    ::ioctl(r, FIONREAD, &n);
    return n;
  }
};

TEST(ArmedGateDecide, ExactMatchesOnly) {
  struct Case {
    std::string line;
    Decision decision;
  } cases[] = {
      {"go", Decision::go()},
      {"quit", Decision::release("quit")},
      {"", Decision::release("bad-line")},
      {"go\r", Decision::release("bad-line")},
      {" go", Decision::release("bad-line")},
      {"Go", Decision::release("bad-line")},
      {"QUIT", Decision::release("bad-line")},
      {"gogo", Decision::release("bad-line")},
      {std::string(256, 'g'), Decision::release("bad-line")},
  };
  for (const auto& c : cases) EXPECT_EQ(ArmedGate::decide(c.line), c.decision) << "'" << c.line << "'";
}

TEST(ArmedGateLines, StatusLineBytes) {
  EXPECT_EQ(ArmedGate::armedLine(4242), "armed, pid=4242\n");
  EXPECT_EQ(ArmedGate::readyLine(4242), "ready, pid=4242\n");
  EXPECT_EQ(ArmedGate::releasedLine(ArmedGate::reasonStartFailed), "released start-failed\n");
  EXPECT_EQ(ArmedGate::releasedLine(ArmedGate::reasonSigterm), "released sigterm\n");
}

TEST(ArmedGateReadLine, TwoLinesInOneWriteAreTakenOnePerCallWithoutOverReading) {
  Pipe p;
  p.write("go\nquit\n");
  EXPECT_EQ(readLine(p.r), "go");
  // One byte at a time: the second line is still in the pipe.
  EXPECT_EQ(p.unread(), 5);
  p.write("tail");
  EXPECT_EQ(readLine(p.r), "quit");
  EXPECT_EQ(p.unread(), 4);
}

TEST(ArmedGateReadLine, PartialLinesJoinAcrossWrites) {
  Pipe p;
  p.write("g");
  p.write("o");
  p.write("\n\n");
  EXPECT_EQ(readLine(p.r), "go");
  EXPECT_EQ(readLine(p.r), "");
  p.closeWrite();
  EXPECT_EQ(readLine(p.r), std::nullopt);
}

TEST(ArmedGateReadLine, OverlongInputIsCutAt256Bytes) {
  Pipe p;
  p.write(std::string(300, 'x') + "\n");
  auto first = readLine(p.r);
  ASSERT_TRUE(first);
  EXPECT_EQ(*first, std::string(256, 'x'));
  EXPECT_EQ(ArmedGate::decide(*first), Decision::release("bad-line"));
  EXPECT_EQ(p.unread(), 45);
  EXPECT_EQ(readLine(p.r), std::string(44, 'x'));
  // 255 bytes and a newline is still a line of its own.
  p.write(std::string(255, 'y') + "\ngo\n");
  EXPECT_EQ(readLine(p.r), std::string(255, 'y'));
  EXPECT_EQ(readLine(p.r), "go");
}

TEST(ArmedGateReadLine, EndOfFileDropsAPartialLine) {
  {
    Pipe p;
    p.write("go");
    p.closeWrite();
    EXPECT_EQ(readLine(p.r), std::nullopt);
  }
  Pipe other;
  other.write("\n");
  EXPECT_EQ(readLine(other.r), "") << "a partial line leaked into a later read";
}

TEST(ArmedGateReadLine, InvalidUTF8IsReplacedNotRefused) {
  Pipe p;
  p.write("g\xffo\n");
  EXPECT_EQ(readLine(p.r), "g\xef\xbf\xbdo");
}

TEST(ArmedGateReadLine, ReadErrorIsEndOfInput) { EXPECT_EQ(readLine(-1), std::nullopt); }

TEST(ArmedGateStatus, WritesWholeLinesOnlyWhileOpen) {
  ArmedGate::setStatusFD(-1);
  EXPECT_FALSE(ArmedGate::writeStatusLine("armed, pid=1\n"));

  Pipe p;
  ArmedGate::setStatusFD(p.w);
  EXPECT_TRUE(ArmedGate::writeStatusLine("ready, pid=7\n"));
  char buf[64] = {};
  ASSERT_EQ(::read(p.r, buf, sizeof buf), 13);
  EXPECT_STREQ(buf, "ready, pid=7\n");

  // No reader: the write fails (EPIPE with SIGPIPE ignored) and says so.
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

TEST(ArmedGateRequireFIFODeathTest, RefusesAnythingButAFIFOWithStatus74) {
  char path[] = "/tmp/ac-gate-test-XXXXXX";
  int fd = ::mkstemp(path);
  ASSERT_GE(fd, 0);
  auto discard = [] { ::write(2, "discarded\n", 10); };
  EXPECT_EXIT(ArmedGate::requireFIFO(fd, path, "go", discard), testing::ExitedWithCode(74),
              std::string("armed: go path ") + path + " is not a FIFO — refusing to arm\n(.|\n)*discarded");
  EXPECT_EXIT(ArmedGate::requireFIFO(-1, "/x", "status", discard), testing::ExitedWithCode(74),
              "armed: cannot fstat the status path /x \\(errno=9\\) — refusing to arm\n(.|\n)*discarded");
  ::close(fd);
  ::unlink(path);

  Pipe p;
  bool discarded = false;
  ArmedGate::requireFIFO(p.r, "/fifo", "go", [&] { discarded = true; });
  EXPECT_FALSE(discarded);
}

}  // namespace
}  // namespace ac
