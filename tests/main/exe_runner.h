// Runs a program (by default the built audio-capture) with HOME in a
// scratch directory, capturing standard output, standard error and status.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/scratch_dir.h"

namespace ac::test {

struct ExeResult {
  int pid = -1;
  bool exited = false;  // false: killed by a signal, or never started
  int status = -1;      // exit status, or the signal number
  std::string out, err;
  // Standard error with every line's "[<timestamp>] " prefix removed.
  std::string errLines() const;
};

using Scratch = ScratchDir;

inline bool contains(const std::string& haystack, const std::string& needle) {
  return haystack.find(needle) != std::string::npos;
}

// A value sets the variable, nullopt removes it.
using EnvChanges = std::map<std::string, std::optional<std::string>>;

class RunningExe {
 public:
  RunningExe(const Scratch& scratch, const std::string& exe, const std::vector<std::string>& args,
             const EnvChanges& env = {});
  ~RunningExe() { finish(0); }
  int pid() const { return pid_; }
  // What it wrote to standard error so far.
  std::string errSoFar() const { return Scratch::contents(errPath_); }
  // Waits at most timeoutSeconds, then SIGTERM, then SIGKILL. Once only.
  ExeResult finish(double timeoutSeconds = 30);

 private:
  std::string outPath_, errPath_;
  int pid_ = -1;
};

ExeResult runExe(const Scratch& scratch, const std::vector<std::string>& args, const EnvChanges& env = {});

// Why the private server of scripts/with-pulse.sh cannot be used; nothing
// when it can.
std::optional<std::string> privatePulseServerMissing(const Scratch& scratch);

}  // namespace ac::test
