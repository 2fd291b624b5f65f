#include "main/exe_runner.h"

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

#include "support/spawn.h"

extern char** environ;

namespace ac::test {

std::string ExeResult::errLines() const {
  static const std::regex stamp(R"((^|\n)\[\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ\] )");
  return std::regex_replace(err, stamp, "$1");
}

bool Scratch::exists(const std::string& name) const { return std::filesystem::exists(path(name)); }

namespace {

std::vector<std::string> environmentFor(const Scratch& scratch, EnvChanges changes) {
  changes.emplace("HOME", scratch.path("home"));
  std::vector<std::string> env;
  for (char** e = environ; e && *e; ++e) {
    std::string entry(*e);
    if (!changes.count(entry.substr(0, entry.find('=')))) env.push_back(entry);
  }
  for (const auto& [name, value] : changes)
    if (value) env.push_back(name + "=" + *value);
  return env;
}

int gRunCounter = 0;

}  // namespace

RunningExe::RunningExe(const Scratch& scratch, const std::string& exe, const std::vector<std::string>& args,
                       const EnvChanges& env)
    : scratch_(scratch) {
  std::filesystem::create_directories(scratch.path("home"));
  const std::string n = std::to_string(++gRunCounter);
  outPath_ = scratch.path(".stdout." + n);
  errPath_ = scratch.path(".stderr." + n);
  int out = ::open(outPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  int err = ::open(errPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  SpawnResult spawned = spawnProcess({exe, args, environmentFor(scratch, env), -1, out, err});
  ::close(out);
  ::close(err);
  if (spawned.child) pid_ = spawned.child->pid();
}

RunningExe::~RunningExe() {
  if (!finished_) finish(0);
}

ExeResult RunningExe::finish(double timeoutSeconds) {
  finished_ = true;
  ExeResult r;
  r.pid = pid_;
  if (pid_ > 0) {
    ChildProcess child(pid_);
    std::optional<ExitStatus> st = child.waitFor(timeoutSeconds);
    if (!st) st = child.terminate(5);
    if (st) {
      r.exited = st->exited;
      r.status = st->code;
    }
  }
  r.out = notify::testing::TempDir::contents(outPath_);
  r.err = notify::testing::TempDir::contents(errPath_);
  std::filesystem::remove(outPath_);
  std::filesystem::remove(errPath_);
  return r;
}

namespace {

ExeResult run(const Scratch& scratch, const std::string& exe, const std::vector<std::string>& args,
              const EnvChanges& env, double timeoutSeconds) {
  return RunningExe(scratch, exe, args, env).finish(timeoutSeconds);
}

}  // namespace

ExeResult runExe(const Scratch& scratch, const std::vector<std::string>& args, const EnvChanges& env,
                 double timeoutSeconds) {
  return run(scratch, AC_EXE, args, env, timeoutSeconds);
}

ExeResult runTool(const Scratch& scratch, const std::string& tool, const std::vector<std::string>& args,
                  double timeoutSeconds) {
  return run(scratch, tool, args, {}, timeoutSeconds);
}

std::optional<std::string> privatePulseServerMissing(const Scratch& scratch) {
  if (runTool(scratch, "/usr/bin/pactl", {"info"}).status != 0)
    return "no PulseAudio server answers; run under scripts/with-pulse.sh";
  std::string sinks = runTool(scratch, "/usr/bin/pactl", {"list", "short", "sinks"}).out;
  for (const char* sink : {"\theadset\t", "\tspeaker\t", "\tmicfeed\t"})
    if (sinks.find(sink) == std::string::npos)
      return std::string("not the private server of scripts/with-pulse.sh (no sink ") + sink + ")";
  return std::nullopt;
}

}  // namespace ac::test
