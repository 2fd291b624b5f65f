#include "support/spawn.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>

#include "support/dispatch.h"
#include "support/paths.h"

extern char** environ;

namespace ac {
namespace {

std::optional<ExitStatus> decode(int raw) {
  if (WIFEXITED(raw)) return ExitStatus{true, WEXITSTATUS(raw)};
  if (WIFSIGNALED(raw)) return ExitStatus{false, WTERMSIG(raw)};
  return std::nullopt;
}

std::vector<char*> cStrings(const std::vector<std::string>& strings) {
  std::vector<char*> out;
  out.reserve(strings.size() + 1);
  for (const auto& s : strings) out.push_back(const_cast<char*>(s.c_str()));
  out.push_back(nullptr);
  return out;
}

void routeStream(posix_spawn_file_actions_t* actions, int fromFD, int childFD, bool writable) {
  if (fromFD >= 0) {
    posix_spawn_file_actions_adddup2(actions, fromFD, childFD);
  } else {
    posix_spawn_file_actions_addopen(actions, childFD, "/dev/null", writable ? O_WRONLY : O_RDONLY, 0);
  }
}

}  // namespace

std::optional<ExitStatus> ChildProcess::waitFor(double timeoutSeconds) {
  if (status_) return status_;
  // Polling waitpid keeps this free of SIGCHLD handlers, which would fight
  // with any other part of the process that spawns children.
  double deadline = monotonicSeconds() + std::max(0.0, timeoutSeconds);
  auto nap = std::chrono::milliseconds(1);
  for (;;) {
    int raw = 0;
    pid_t r = ::waitpid(pid_, &raw, WNOHANG);
    if (r == pid_) {
      status_ = decode(raw);
      if (status_) return status_;
    } else if (r < 0 && errno != EINTR) {
      // Reaped elsewhere or not our child: it is gone, status unknown.
      status_ = ExitStatus{false, 0};
      return status_;
    }
    if (monotonicSeconds() >= deadline) return std::nullopt;
    std::this_thread::sleep_for(nap);
    nap = std::min(nap * 2, std::chrono::milliseconds(20));
  }
}

std::optional<ExitStatus> ChildProcess::terminate(double graceSeconds) {
  if (status_) return status_;
  ::kill(pid_, SIGTERM);
  if (auto s = waitFor(graceSeconds)) return s;
  ::kill(pid_, SIGKILL);
  return waitFor(graceSeconds);
}

void ChildProcess::reapInBackground() {
  if (status_) return;
  pid_t pid = pid_;
  std::thread([pid] {
    int raw = 0;
    while (::waitpid(pid, &raw, 0) < 0 && errno == EINTR) {
    }
  }).detach();
}

SpawnResult spawnProcess(const SpawnRequest& request) {
  // Checked up front: where posix_spawn cannot report a failed exec, the
  // child would otherwise just exit 127 and look like a script's refusal.
  if (::access(request.executable.c_str(), X_OK) != 0) {
    int err = errno;
    return {std::nullopt, Error{"posix", err, errnoText(err)}};
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  routeStream(&actions, request.stdinFD, 0, false);
  routeStream(&actions, request.stdoutFD, 1, true);
  routeStream(&actions, request.stderrFD, 2, true);

  // The child starts with default dispositions and an empty mask, whatever
  // this process ignores or blocks for its own signal handling.
  posix_spawnattr_t attr;
  posix_spawnattr_init(&attr);
  sigset_t defaults;
  sigemptyset(&defaults);
  for (int s : {SIGTERM, SIGINT, SIGPIPE, SIGHUP, SIGCHLD}) sigaddset(&defaults, s);
  sigset_t empty;
  sigemptyset(&empty);
  posix_spawnattr_setsigdefault(&attr, &defaults);
  posix_spawnattr_setsigmask(&attr, &empty);
  posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);

  std::vector<std::string> argvStrings;
  argvStrings.reserve(request.args.size() + 1);
  argvStrings.push_back(request.executable);
  argvStrings.insert(argvStrings.end(), request.args.begin(), request.args.end());
  auto argv = cStrings(argvStrings);
  std::vector<char*> envp;
  if (request.environment) envp = cStrings(*request.environment);

  pid_t pid = -1;
  int err = ::posix_spawn(&pid, request.executable.c_str(), &actions, &attr, argv.data(),
                          request.environment ? envp.data() : environ);
  posix_spawnattr_destroy(&attr);
  posix_spawn_file_actions_destroy(&actions);
  if (err != 0) return {std::nullopt, Error{"posix", err, errnoText(err)}};
  return {ChildProcess(pid), std::nullopt};
}

std::vector<std::string> environmentWith(const std::string& name, const std::optional<std::string>& value) {
  std::vector<std::string> env;
  std::string prefix = name + "=";
  for (char** e = environ; e && *e; ++e) {
    std::string entry(*e);
    if (entry.compare(0, prefix.size(), prefix) != 0) env.push_back(std::move(entry));
  }
  if (value) env.push_back(prefix + *value);
  return env;
}

bool isExecutableFile(const std::string& path) {
  struct stat st {};
  if (path.empty() || ::stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return false;
  return ::access(path.c_str(), X_OK) == 0;
}

}  // namespace ac
