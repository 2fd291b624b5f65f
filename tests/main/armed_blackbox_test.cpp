// Armed quick-note launches driven through real FIFOs, as the owning
// application drives them, against the private PulseAudio server and
// without the microphone.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <functional>
#include <regex>

#include "main/exe_runner.h"
#include "support/dispatch.h"

namespace ac::test {
namespace {

// The owner's ends of the pipes, close-on-exec so the recorder never
// inherits a writer of its own go pipe.
class Owner {
 public:
  explicit Owner(const Scratch& s) : goPath(s.path("go")), statusPath(s.path("status")) {
    ::mkfifo(goPath.c_str(), 0600);
    ::mkfifo(statusPath.c_str(), 0600);
    statusFD_ = ::open(statusPath.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    goFD_ = ::open(goPath.c_str(), O_RDWR | O_CLOEXEC);  // needs no reader yet
  }
  ~Owner() {
    closeGo();
    ::close(statusFD_);
    ::unlink(goPath.c_str());
    ::unlink(statusPath.c_str());
  }
  void send(const std::string& bytes) { (void)!::write(goFD_, bytes.data(), bytes.size()); }
  void closeGo() {
    if (goFD_ >= 0) ::close(goFD_);
    goFD_ = -1;
  }
  std::optional<std::string> nextLine(double timeoutSeconds = 15) {
    for (const double deadline = monotonicSeconds() + timeoutSeconds;;) {
      if (size_t nl = buffer_.find('\n'); nl != std::string::npos) {
        std::string line = buffer_.substr(0, nl);
        buffer_.erase(0, nl + 1);
        return line;
      }
      if (monotonicSeconds() >= deadline) return std::nullopt;
      struct pollfd p {statusFD_, POLLIN, 0};
      ::poll(&p, 1, 50);
      char chunk[256];
      ssize_t n = ::read(statusFD_, chunk, sizeof chunk);
      if (n > 0) buffer_.append(chunk, size_t(n));
      if (n == 0) ::usleep(20000);  // no writer at the moment
    }
  }
  const std::string goPath, statusPath;

 private:
  int goFD_ = -1, statusFD_ = -1;
  std::string buffer_;
};

class ArmedLaunch : public ::testing::Test {
 protected:
  void SetUp() override {
    if (auto missing = privatePulseServerMissing(s_)) GTEST_SKIP() << *missing;
  }
  std::vector<std::string> args(const std::string& go, const std::string& status) {
    return {"-o", s_.path("q.m4a"), "--no-mic", "--armed", "--go-fifo", go, "--status-fifo", status};
  }
  std::unique_ptr<RunningExe> launchArmed(Owner& owner) {
    auto exe = std::make_unique<RunningExe>(s_, AC_EXE, args(owner.goPath, owner.statusPath));
    EXPECT_EQ(owner.nextLine(), "armed, pid=" + std::to_string(exe->pid()));
    return exe;
  }
  Scratch s_;
};

TEST_F(ArmedLaunch, EveryReleaseWritesOneLineRemovesTheOutputAndExitsZero) {
  struct Case {
    const char* reason;
    std::function<void(Owner&, int pid)> act;
  } cases[] = {
      {"quit", [](Owner& o, int) { o.send("quit\n"); }},
      {"bad-line", [](Owner& o, int) { o.send("go\r\n"); }},
      {"eof", [](Owner& o, int) { o.send("go"), o.closeGo(); }},
      {"sigterm", [](Owner&, int pid) { ::kill(pid, SIGTERM); }},
      {"sigterm", [](Owner&, int pid) { ::kill(pid, SIGINT); }},
      {"sigterm", [](Owner&, int pid) { ::kill(pid, SIGHUP); }},
  };
  for (const auto& c : cases) {
    Owner owner(s_);
    auto exe = launchArmed(owner);
    c.act(owner, exe->pid());
    EXPECT_EQ(owner.nextLine(), std::string("released ") + c.reason);
    ExeResult r = exe->finish();
    EXPECT_EQ(r.out + std::to_string(r.status), "0") << c.reason;
    EXPECT_TRUE(contains(r.errLines(), std::string("\narmed: released (") + c.reason + ")\n")) << r.err;
    EXPECT_FALSE(s_.exists("q.m4a")) << c.reason;
    EXPECT_EQ(owner.nextLine(0.2), std::nullopt) << "one status line per release";
  }
}

// The owner leaving after go is run end to end with real sound (e2e_recovery).
TEST_F(ArmedLaunch, GoRecordsUntilASignalWithTheOwnerStillThere) {
  Owner owner(s_);
  auto exe = launchArmed(owner);
  const std::string pid = std::to_string(exe->pid());
  owner.send("go\n");
  EXPECT_EQ(owner.nextLine(), "ready, pid=" + pid);
  ::usleep(300000);
  ::kill(exe->pid(), SIGTERM);
  ExeResult r = exe->finish();
  EXPECT_EQ(r.out + std::to_string(r.status), "pid=" + pid + "\n0");
  const std::string lines = r.errLines();
  EXPECT_FALSE(contains(lines, "armed: owner gone")) << lines;
  EXPECT_TRUE(std::regex_search(lines, std::regex("\nready, pid=" + pid + "\n(.|\n)*signal received\n(.|\n)*exit\n$")))
      << lines;
  EXPECT_TRUE(s_.exists("q.m4a"));
}

TEST_F(ArmedLaunch, PipeProblemsRefuseToArm) {
  const std::string fifo = s_.path("fifo"), file = s_.path("file"), link = s_.path("link");
  ::mkfifo(fifo.c_str(), 0600);
  Scratch::write(file, "");
  ::symlink(fifo.c_str(), link.c_str());
  // Nobody reads the status FIFO yet: the owner is gone before we armed.
  ExeResult gone = RunningExe(s_, AC_EXE, args(fifo, fifo)).finish();
  EXPECT_EQ(gone.status, 0);
  EXPECT_TRUE(contains(gone.errLines(), "\narmed: status pipe has no reader — owner gone\narmed: released (eof)\n"));

  int statusReader = ::open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  struct Case {
    std::string go, status, line;
  } cases[] = {
      {fifo, file, "armed: status path " + file + " is not a FIFO — refusing to arm"},
      {fifo, link, "armed: cannot open the status path " + link + " (errno=40) — refusing to arm"},
      {s_.path("none"), fifo, "armed: cannot open the go path " + s_.path("none") + " (errno=2) — refusing to arm"},
      {file, fifo, "armed: go path " + file + " is not a FIFO — refusing to arm"},
  };
  for (const auto& c : cases) {
    ExeResult r = RunningExe(s_, AC_EXE, args(c.go, c.status)).finish();
    EXPECT_EQ(r.status, 74) << r.err;
    EXPECT_TRUE(contains(r.errLines(), "\n" + c.line + "\n")) << r.err;
    EXPECT_FALSE(s_.exists("q.m4a"));
  }
  ::close(statusReader);
}

}  // namespace
}  // namespace ac::test
