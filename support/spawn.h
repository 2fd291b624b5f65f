// Child processes without a shell: posix_spawn with an explicit argument
// vector, environment and standard streams, a wait with a time-out, and a
// SIGTERM-then-SIGKILL stop.
//
// Contracts:
// - Arguments reach the child exactly as given; nothing is ever interpreted
//   by a shell.
// - A ChildProcess is owned by one thread at a time; waitFor() may be called
//   again after a time-out. A child that is never waited for is reaped by
//   reapInBackground() or stays a zombie until this process exits.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "support/error.h"

namespace ac {

// How a child ended.
struct ExitStatus {
  bool exited = false;  // true: ended by exit(code); false: by signal
  int code = 0;         // the exit code, or the signal number
  // The code a caller reports as "status N": the exit code, or the signal.
  int terminationStatus() const { return code; }
  bool succeeded() const { return exited && code == 0; }
};

struct SpawnRequest {
  std::string executable;          // a path, never looked up in PATH
  std::vector<std::string> args;   // argv[1...]
  // "NAME=value" strings; absent: this process's environment.
  std::optional<std::vector<std::string>> environment;
  // Descriptors the child gets as fd 0, 1 and 2; -1 means the null device.
  int stdinFD = -1;
  int stdoutFD = -1;
  int stderrFD = -1;
};

class ChildProcess {
 public:
  explicit ChildProcess(pid_t pid) : pid_(pid) {}
  pid_t pid() const { return pid_; }
  // Waits at most timeoutSeconds; the status once the child has ended.
  std::optional<ExitStatus> waitFor(double timeoutSeconds);
  // SIGTERM, wait graceSeconds; SIGKILL, wait graceSeconds more.
  // The status when it ended within either wait.
  std::optional<ExitStatus> terminate(double graceSeconds);
  // Hands the child to a detached thread that reaps it whenever it ends.
  void reapInBackground();

 private:
  pid_t pid_;
  std::optional<ExitStatus> status_;
};

// Starts the child; an error (domain "posix", the errno) when it could not.
struct SpawnResult {
  std::optional<ChildProcess> child;
  std::optional<Error> error;
};
SpawnResult spawnProcess(const SpawnRequest& request);

// This process's environment with name set to value, or removed when value is
// absent.
std::vector<std::string> environmentWith(const std::string& name, const std::optional<std::string>& value);

// Whether path names a regular file this process may execute.
bool isExecutableFile(const std::string& path);

}  // namespace ac
