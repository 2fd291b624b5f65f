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

Scratch::Scratch() {
  char tmpl[] = "/tmp/ac-blackbox-XXXXXX";
  dir_ = ::mkdtemp(tmpl);
}
Scratch::~Scratch() { std::filesystem::remove_all(dir_); }

std::string Scratch::read(const std::string& name) const {
  std::stringstream ss;
  ss << std::ifstream(path(name)).rdbuf();
  return ss.str();
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

ExeResult run(const Scratch& scratch, const std::string& exe, const std::vector<std::string>& args,
              const EnvChanges& env, double timeoutSeconds) {
  std::filesystem::create_directories(scratch.path("home"));
  const std::string outPath = scratch.path(".stdout"), errPath = scratch.path(".stderr");
  int out = ::open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  int err = ::open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  SpawnRequest req{exe, args, environmentFor(scratch, env), -1, out, err};
  SpawnResult spawned = spawnProcess(req);
  ::close(out);
  ::close(err);
  ExeResult r;
  if (spawned.child) {
    r.pid = spawned.child->pid();
    std::optional<ExitStatus> st = spawned.child->waitFor(timeoutSeconds);
    if (!st) st = spawned.child->terminate(5);
    if (st) {
      r.exited = st->exited;
      r.status = st->code;
    }
  }
  r.out = scratch.read(".stdout");
  r.err = scratch.read(".stderr");
  std::filesystem::remove(outPath);
  std::filesystem::remove(errPath);
  return r;
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

}  // namespace ac::test
