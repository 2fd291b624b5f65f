#include "e2e_recovery/sound_server.h"

#include <dirent.h>
#include <signal.h>

#include <cstdlib>

namespace ac::e2e {
namespace {

// The socket path in PULSE_SERVER ("unix:/path"), which scripts/with-pulse.sh
// also passes to its daemon on the command line.
std::optional<std::string> serverSocket() {
  const char* server = std::getenv("PULSE_SERVER");
  if (!server || std::string(server).rfind("unix:", 0) != 0) return std::nullopt;
  return std::string(server + 5);
}

// The pulseaudio process whose command line names `socket`.
std::optional<pid_t> daemonServing(const std::string& socket) {
  DIR* proc = ::opendir("/proc");
  if (!proc) return std::nullopt;
  std::optional<pid_t> found;
  while (dirent* entry = ::readdir(proc)) {
    const std::string name = entry->d_name;
    if (name.find_first_not_of("0123456789") != std::string::npos) continue;
    const std::string cmdline = test::Scratch::contents("/proc/" + name + "/cmdline");
    if (cmdline.rfind("pulseaudio", 0) == 0 && cmdline.find("socket=" + socket) != std::string::npos) {
      found = static_cast<pid_t>(std::stol(name));
      break;
    }
  }
  ::closedir(proc);
  return found;
}

}  // namespace

std::string pactl(const test::Scratch& scratch, const std::vector<std::string>& args) {
  test::ExeResult r = runTool(scratch, "/usr/bin/pactl", args);
  return r.exited && r.status == 0 ? r.out : std::string();
}

bool setDefaultSink(const test::Scratch& scratch, const std::string& sink) {
  return runTool(scratch, "/usr/bin/pactl", {"set-default-sink", sink}).status == 0;
}

bool setDefaultSource(const test::Scratch& scratch, const std::string& source) {
  return runTool(scratch, "/usr/bin/pactl", {"set-default-source", source}).status == 0;
}

std::string defaultSource(const test::Scratch& scratch) {
  std::string name = pactl(scratch, {"get-default-source"});
  while (!name.empty() && name.back() == '\n') name.pop_back();
  return name;
}

DefaultsRestored::~DefaultsRestored() {
  setDefaultSink(scratch_, "speaker");
  setDefaultSource(scratch_, "mic");
}

PinnedTone::PinnedTone(const test::Scratch& scratch, const std::string& sink, const Pcm& pcm)
    : feed_(scratch, {"module-null-sink", "sink_name=" + sink + "-pinned-feed"}),
      loopback_(scratch, {"module-loopback", "source=" + sink + "-pinned-feed.monitor", "sink=" + sink,
                          "sink_dont_move=true", "latency_msec=10"}) {
  if (!feed_.ok() || !loopback_.ok()) return;
  live_ = std::make_unique<LiveSinks>(scratch, std::vector<std::string>{sink + "-pinned-feed"});
  player_ = play(scratch, sink + "-pinned-feed", pcm, sink + "-pinned.wav");
}

std::optional<std::string> FrozenServer::unavailable() {
  std::optional<std::string> socket = serverSocket();
  if (!socket) return "PULSE_SERVER names no unix socket of a private server";
  if (!daemonServing(*socket)) return "no pulseaudio process of ours serves " + *socket;
  return std::nullopt;
}

FrozenServer::FrozenServer() {
  if (std::optional<std::string> socket = serverSocket()) pid_ = daemonServing(*socket);
  if (pid_) ::kill(*pid_, SIGSTOP);
}

FrozenServer::~FrozenServer() { thaw(); }

void FrozenServer::thaw() {
  if (pid_) ::kill(*pid_, SIGCONT);
  pid_.reset();
}

}  // namespace ac::e2e
