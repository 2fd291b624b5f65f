// Runs the built audio-capture in a scratch directory and captures what it
// says: standard output, standard error and how it ended.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "notify/temp_dir.h"

namespace ac::test {

struct ExeResult {
  int pid = -1;
  bool exited = false;  // false: killed by a signal or timed out
  int status = -1;      // exit status, or the signal number
  std::string out, err;
  // Standard error with every line's "[<timestamp>] " prefix removed.
  std::string errLines() const;
};

class Scratch {
 public:
  std::string path(const std::string& name) const { return dir_.file(name); }
  std::string read(const std::string& name) const { return notify::testing::TempDir::contents(path(name)); }
  bool exists(const std::string& name) const;

 private:
  notify::testing::TempDir dir_;
};

// Environment changes for one run: a value sets the variable, nullopt
// removes it. HOME always points into the scratch directory.
using EnvChanges = std::map<std::string, std::optional<std::string>>;

// A launch the test talks to while it runs.
class RunningExe {
 public:
  RunningExe(const Scratch& scratch, const std::string& exe, const std::vector<std::string>& args,
             const EnvChanges& env = {});
  ~RunningExe();  // kills the process if finish() was not called
  RunningExe(const RunningExe&) = delete;
  RunningExe& operator=(const RunningExe&) = delete;
  int pid() const { return pid_; }
  // Waits at most timeoutSeconds, then SIGTERM, then SIGKILL.
  ExeResult finish(double timeoutSeconds = 30);

 private:
  const Scratch& scratch_;
  std::string outPath_, errPath_;
  int pid_ = -1;
  bool finished_ = false;
};

// Runs audio-capture to its end (see RunningExe::finish).
ExeResult runExe(const Scratch& scratch, const std::vector<std::string>& args, const EnvChanges& env = {},
                 double timeoutSeconds = 30);

// A helper program (absolute path), same capture.
ExeResult runTool(const Scratch& scratch, const std::string& tool, const std::vector<std::string>& args,
                  double timeoutSeconds = 30);

// Why the private PulseAudio server of scripts/with-pulse.sh cannot be used
// from here (no server answers, or it is some other server); nothing when it
// can.
std::optional<std::string> privatePulseServerMissing(const Scratch& scratch);

}  // namespace ac::test
