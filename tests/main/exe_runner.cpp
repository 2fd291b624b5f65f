#include "main/exe_runner.h"

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <regex>

#include "support/spawn.h"

extern char** environ;

namespace ac::test {

std::string ExeResult::errLines() const {
  static const std::regex stamp(R"((^|\n)\[\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ\] )");
  return std::regex_replace(err, stamp, "$1");
}

RunningExe::RunningExe(const Scratch& scratch, const std::string& exe, const std::vector<std::string>& args,
                       const EnvChanges& env) {
  static int runs = 0;
  std::filesystem::create_directories(scratch.path("home"));
  EnvChanges changes = env;
  changes.emplace("HOME", scratch.path("home"));
  std::vector<std::string> environment;
  for (char** e = environ; *e; ++e)
    if (std::string entry(*e); !changes.count(entry.substr(0, entry.find('=')))) environment.push_back(entry);
  for (const auto& [name, value] : changes)
    if (value) environment.push_back(name + "=" + *value);

  outPath_ = scratch.path(".stdout." + std::to_string(++runs));
  errPath_ = scratch.path(".stderr." + std::to_string(runs));
  int out = ::open(outPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  int err = ::open(errPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  SpawnResult spawned = spawnProcess({exe, args, environment, -1, out, err});
  ::close(out);
  ::close(err);
  if (spawned.child) pid_ = spawned.child->pid();
}

ExeResult RunningExe::finish(double timeoutSeconds) {
  ExeResult r;
  if (outPath_.empty()) return r;
  r.pid = pid_;
  if (pid_ > 0) {
    ChildProcess child(pid_);
    std::optional<ExitStatus> st = child.waitFor(timeoutSeconds);
    if (!st) st = child.terminate(5);
    if (st) r.exited = st->exited, r.status = st->code;
  }
  r.out = Scratch::contents(outPath_);
  r.err = Scratch::contents(errPath_);
  std::filesystem::remove(outPath_);
  std::filesystem::remove(errPath_);
  outPath_.clear();
  return r;
}

ExeResult runExe(const Scratch& scratch, const std::vector<std::string>& args, const EnvChanges& env) {
  return RunningExe(scratch, AC_EXE, args, env).finish();
}

std::optional<std::string> privatePulseServerMissing(const Scratch& scratch) {
  ExeResult sinks = RunningExe(scratch, "/usr/bin/pactl", {"list", "short", "sinks"}).finish();
  if (sinks.status != 0) return "no PulseAudio server answers; run under scripts/with-pulse.sh";
  for (const char* sink : {"\theadset\t", "\tspeaker\t", "\tmicfeed\t"})
    if (sinks.out.find(sink) == std::string::npos)
      return std::string("not the private server of scripts/with-pulse.sh (no sink ") + sink + ")";
  return std::nullopt;
}

}  // namespace ac::test
