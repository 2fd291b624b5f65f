#include "e2e_recovery/sound_server.h"

#include <signal.h>

#include <cstdlib>

namespace ac::e2e {
namespace {

// The private server's directory and control script, which
// scripts/with-pulse.sh exports when it started the server itself.
std::optional<std::string> serverVariable(const char* name) {
  const char* value = std::getenv(name);
  return value && *value ? std::optional<std::string>(value) : std::nullopt;
}

// The process that answers PulseAudio clients: the daemon itself, or
// PipeWire's pulse server.
std::optional<pid_t> pulseServerPid() {
  std::optional<std::string> dir = serverVariable("AC_SOUND_SERVER_DIR");
  if (!dir) return std::nullopt;
  for (const char* name : {"/pulseaudio.pid", "/pipewire-pulse.pid"}) {
    const std::string pid = test::Scratch::contents(*dir + name);
    if (!pid.empty()) return static_cast<pid_t>(std::stol(pid));
  }
  return std::nullopt;
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

std::optional<std::string> privateServerUncontrolled() {
  if (!serverVariable("AC_SOUND_SERVER_CTL") || !pulseServerPid())
    return "the sound server is not one scripts/with-pulse.sh started (no AC_SOUND_SERVER_DIR)";
  return std::nullopt;
}

bool restartServer(const test::Scratch& scratch, bool start) {
  return runTool(scratch, *serverVariable("AC_SOUND_SERVER_CTL"), {start ? "--start" : "--stop"}).status == 0;
}

FrozenServer::FrozenServer() : pid_(pulseServerPid()) {
  if (pid_) ::kill(*pid_, SIGSTOP);
}

FrozenServer::~FrozenServer() { thaw(); }

void FrozenServer::thaw() {
  if (pid_) ::kill(*pid_, SIGCONT);
  pid_.reset();
}

}  // namespace ac::e2e
