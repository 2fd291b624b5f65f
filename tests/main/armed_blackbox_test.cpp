// Armed quick-note launches driven through real FIFOs, the way the owning
// application drives them. They need a recorder that sets up, so they run
// against the private PulseAudio server and without the microphone.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <functional>

#include "main/exe_runner.h"
#include "support/dispatch.h"

namespace ac::test {
namespace {

bool contains(const std::string& haystack, const std::string& needle) {
  return haystack.find(needle) != std::string::npos;
}

// The owner's ends of the two pipes. Both are close-on-exec so the recorder
// never inherits a writer of its own go pipe.
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
  }
  void send(const std::string& bytes) { ASSERT_EQ(::write(goFD_, bytes.data(), bytes.size()), ssize_t(bytes.size())); }
  void closeGo() {
    if (goFD_ >= 0) ::close(goFD_);
    goFD_ = -1;
  }
  // The next status line without its newline; nothing within the time.
  std::optional<std::string> nextLine(double timeoutSeconds = 15) {
    const double deadline = monotonicSeconds() + timeoutSeconds;
    for (;;) {
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
      else if (n == 0) ::usleep(20000);  // no writer at the moment
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
    if (auto missing = privatePulseServerMissing(scratch_)) GTEST_SKIP() << *missing;
  }
  std::vector<std::string> armedArgs(const std::string& go, const std::string& status) {
    return {"-o", scratch_.path("q.m4a"), "--no-mic", "--armed", "--go-fifo", go, "--status-fifo", status,
            "--log", scratch_.path("log")};
  }
  // Launches and waits for "armed"; false (with the test skipped) when this
  // machine's recorder cannot set up.
  bool launchArmed(Owner& owner, std::unique_ptr<RunningExe>& exe) {
    exe = std::make_unique<RunningExe>(scratch_, AC_EXE, armedArgs(owner.goPath, owner.statusPath));
    std::optional<std::string> first = owner.nextLine();
    if (!first && contains(scratch_.read("log"), "setup/start failed: ")) {
      ExeResult r = exe->finish(5);
      ADD_FAILURE() << "recorder set-up failed against the private server: " << r.err;
      return false;
    }
    EXPECT_EQ(first, "armed, pid=" + std::to_string(exe->pid()));
    return first.has_value();
  }
  Scratch scratch_;
};

TEST_F(ArmedLaunch, EveryReleaseWritesOneLineRemovesTheOutputAndExitsZero) {
  struct Case {
    const char* reason;
    std::function<void(Owner&, int pid)> act;
  } cases[] = {
      {"quit", [](Owner& o, int) { o.send("quit\n"); }},
      {"bad-line", [](Owner& o, int) { o.send("go\r\n"); }},
      {"eof", [](Owner& o, int) { o.closeGo(); }},
      {"eof", [](Owner& o, int) { o.send("go"); o.closeGo(); }},
      {"sigterm", [](Owner&, int pid) { ::kill(pid, SIGTERM); }},
      {"sigterm", [](Owner&, int pid) { ::kill(pid, SIGINT); }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.reason);
    Owner owner(scratch_);
    std::unique_ptr<RunningExe> exe;
    if (!launchArmed(owner, exe)) return;
    c.act(owner, exe->pid());
    EXPECT_EQ(owner.nextLine(), std::string("released ") + c.reason);
    ExeResult r = exe->finish();
    EXPECT_EQ(r.status, 0);
    EXPECT_TRUE(r.exited);
    EXPECT_EQ(r.out, "") << "a released recorder never reports a pid";
    EXPECT_TRUE(contains(r.errLines(), std::string("\narmed: released (") + c.reason + ")\n")) << r.err;
    EXPECT_FALSE(scratch_.exists("q.m4a"));
    EXPECT_EQ(owner.nextLine(0.2), std::nullopt) << "one status line per release";
    ::unlink(owner.goPath.c_str());
    ::unlink(owner.statusPath.c_str());
  }
}

TEST_F(ArmedLaunch, GoRecordsUntilTheOwnerLeavesOrASignal) {
  for (bool ownerLeaves : {true, false}) {
    SCOPED_TRACE(ownerLeaves ? "owner closes the go pipe" : "SIGTERM");
    Owner owner(scratch_);
    std::unique_ptr<RunningExe> exe;
    if (!launchArmed(owner, exe)) return;
    owner.send("go\n");
    const std::string pid = std::to_string(exe->pid());
    EXPECT_EQ(owner.nextLine(), "ready, pid=" + pid);
    ::usleep(300000);
    if (ownerLeaves)
      owner.closeGo();
    else
      ::kill(exe->pid(), SIGTERM);
    ExeResult r = exe->finish();
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "pid=" + pid + "\n");
    const std::string lines = r.errLines();
    EXPECT_TRUE(contains(lines, "\nready, pid=" + pid + "\n")) << lines;
    EXPECT_EQ(contains(lines, "\narmed: owner gone after go — finalizing\n"), ownerLeaves) << lines;
    EXPECT_TRUE(contains(lines, "\nsignal received\n")) << lines;
    EXPECT_EQ(lines.substr(lines.size() - 5), "exit\n");
    ASSERT_TRUE(scratch_.exists("q.m4a"));
    ::unlink(scratch_.path("q.m4a").c_str());
    ::unlink(owner.goPath.c_str());
    ::unlink(owner.statusPath.c_str());
  }
}

TEST_F(ArmedLaunch, PipeProblemsRefuseToArm) {
  const std::string fifo = scratch_.path("fifo"), file = scratch_.path("file"), link = scratch_.path("link");
  ::mkfifo(fifo.c_str(), 0600);
  ::close(::open(file.c_str(), O_WRONLY | O_CREAT, 0600));
  ::symlink(fifo.c_str(), link.c_str());
  // The status FIFO needs a reader for the launch to get as far as the go pipe.
  int statusReader = ::open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  struct Case {
    std::string go, status;
    int exitStatus;
    std::string line;
  } cases[] = {
      {fifo, file, 74, "armed: status path " + file + " is not a FIFO — refusing to arm"},
      {fifo, link, 74, "armed: cannot open the status path " + link + " (errno=40) — refusing to arm"},
      {scratch_.path("missing"), fifo, 74,
       "armed: cannot open the go path " + scratch_.path("missing") + " (errno=2) — refusing to arm"},
      {file, fifo, 74, "armed: go path " + file + " is not a FIFO — refusing to arm"},
  };
  for (const auto& c : cases) {
    ExeResult r = RunningExe(scratch_, AC_EXE, armedArgs(c.go, c.status)).finish();
    if (contains(r.err, "setup/start failed: ")) FAIL() << r.err;
    EXPECT_EQ(r.status, c.exitStatus) << c.line;
    EXPECT_TRUE(contains(r.errLines(), "\n" + c.line + "\n")) << r.err;
    EXPECT_FALSE(scratch_.exists("q.m4a"));
  }
  ::close(statusReader);

  // A status FIFO nobody reads: the owner is gone before we armed.
  ExeResult r = RunningExe(scratch_, AC_EXE, armedArgs(fifo, fifo)).finish();
  EXPECT_EQ(r.status, 0);
  EXPECT_TRUE(contains(r.errLines(), "\narmed: status pipe has no reader — owner gone\narmed: released (eof)\n"))
      << r.err;
}

}  // namespace
}  // namespace ac::test
