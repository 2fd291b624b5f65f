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

// What a writer sent (a close ends the input), then each answer of
// readLine with the bytes it left in the pipe: one line per call, never a
// byte past its newline, at most 256 bytes of it, broken UTF-8 replaced, a
// partial line dropped at the end of input and never seen by a later read.
TEST(ArmedGate, ReadLineTakesOneLinePerCallWithoutOverReading) {
  struct Read {
    std::optional<std::string> line;
    int unreadAfter;
  };
  const struct {
    std::string sent;
    bool closed;
    std::vector<Read> reads;
  } cases[] = {
      {"go\nquit\ntail", false, {{"go", 9}, {"quit", 4}}},
      {"g\xffo\n\n", false, {{"g\xef\xbf\xbdo", 1}, {"", 0}}},
      {std::string(300, 'x') + "\n" + std::string(255, 'y') + "\n", false,
       {{std::string(256, 'x'), 45 + 256}, {std::string(44, 'x'), 256}, {std::string(255, 'y'), 0}}},
      {"go", true, {{std::nullopt, 0}}},
      {"\n", false, {{"", 0}}},
  };
  for (const auto& c : cases) {
    Pipe p;
    p.write(c.sent);
    if (c.closed) p.closeWrite();
    for (const Read& read : c.reads) {
      EXPECT_EQ(readLine(p.r), read.line) << c.sent.substr(0, 8);
      EXPECT_EQ(p.unread(), read.unreadAfter) << c.sent.substr(0, 8);
    }
  }
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
