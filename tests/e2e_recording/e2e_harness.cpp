#include "e2e_recording/e2e_harness.h"

#include <signal.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>

#include "support/eventually.h"

namespace ac::e2e {

ExeResult runTool(const Scratch& scratch, const std::string& exe, const std::vector<std::string>& args,
                  double timeoutSeconds) {
  return RunningExe(scratch, exe, args).finish(timeoutSeconds);
}

ExeResult pactl(const Scratch& scratch, const std::vector<std::string>& args) {
  return runTool(scratch, "/usr/bin/pactl", args);
}

size_t sinkInputs(const Scratch& scratch) {
  return size_t(std::ranges::count(pactl(scratch, {"list", "short", "sink-inputs"}).out, '\n'));
}

bool onPipeWire(const Scratch& scratch) {
  static const bool pipewire = pactl(scratch, {"info"}).out.find("on PipeWire") != std::string::npos;
  return pipewire;
}

LiveSinks::LiveSinks(const Scratch& scratch, const std::vector<std::string>& sinks) {
  const size_t before = sinkInputs(scratch);
  for (const std::string& sink : sinks)
    streams_.push_back(std::make_unique<RunningExe>(
        scratch, "/usr/bin/pacat",
        std::vector<std::string>{"--playback", "--latency-msec=10", "--device=" + sink, "/dev/zero"}));
  ok_ = test::eventually([&] { return sinkInputs(scratch) >= before + sinks.size(); });
  // On PulseAudio a sink already inside a long block finishes it before it
  // heeds the new latency; suspending and resuming starts a fresh, short one.
  // PipeWire follows the new latency at once, and a suspend would leave its
  // remapped sources silent for good.
  if (onPipeWire(scratch)) return;
  for (const std::string& sink : sinks)
    for (const char* suspended : {"1", "0"}) ok_ = ok_ && pactl(scratch, {"suspend-sink", sink, suspended}).status == 0;
}

LoadedModule::LoadedModule(const Scratch& scratch, const std::vector<std::string>& nameAndArgs) : scratch_(scratch) {
  std::vector<std::string> args{"load-module"};
  args.insert(args.end(), nameAndArgs.begin(), nameAndArgs.end());
  ExeResult r = pactl(scratch, args);
  if (r.exited && r.status == 0) index_ = r.out.substr(0, r.out.find('\n'));
}

LoadedModule::~LoadedModule() {
  if (ok()) pactl(scratch_, {"unload-module", index_});
}

std::unique_ptr<RunningExe> play(const Scratch& scratch, const std::string& sink, const Pcm& pcm,
                                 const std::string& name) {
  Scratch::write(scratch.path(name), floatBytes(pcm));
  return std::make_unique<RunningExe>(scratch, "/usr/bin/pacat",
                                      std::vector<std::string>{"--playback", "--format=float32le", "--channels=1",
                                                               "--rate=" + std::to_string(pcm.rate), "--device=" + sink,
                                                               scratch.path(name)});
}

std::vector<Pcm> decodeTracks(const Scratch& scratch, const std::string& file) {
  std::istringstream rates(runTool(scratch, "/usr/bin/ffprobe",
                                   {"-v", "error", "-select_streams", "a", "-show_entries", "stream=sample_rate",
                                    "-of", "csv=p=0", file})
                               .out);
  std::vector<Pcm> tracks;
  for (std::string rate; std::getline(rates, rate);) {
    if (rate.empty()) continue;
    const std::string raw = scratch.path("track" + std::to_string(tracks.size()) + ".f32");
    // A killed recording ends in a partial fragment: decode what precedes it.
    runTool(scratch, "/usr/bin/ffmpeg",
            {"-v", "quiet", "-y", "-i", file, "-map", "0:a:" + std::to_string(tracks.size()), "-ac", "1", "-f",
             "f32le", raw});
    tracks.push_back(pcmFromFloatBytes(std::stoi(rate), Scratch::contents(raw)));
  }
  return tracks;
}

PinnedTone::PinnedTone(const Scratch& scratch, const std::string& sink, const Pcm& pcm)
    : feed_(scratch, {"module-null-sink", "sink_name=" + sink + "-pinned-feed"}),
      loopback_(scratch, {"module-loopback", "source=" + sink + "-pinned-feed.monitor", "sink=" + sink,
                          "sink_dont_move=true", "latency_msec=10"}) {
  if (!feed_.ok() || !loopback_.ok()) return;
  live_ = std::make_unique<LiveSinks>(scratch, std::vector<std::string>{sink + "-pinned-feed"});
  player_ = play(scratch, sink + "-pinned-feed", pcm, sink + "-pinned.f32");
}

// scripts/with-pulse.sh exports the private server's directory and control
// script when it started the server itself.
std::optional<std::string> privateServerUncontrolled() {
  if (!std::getenv("AC_SOUND_SERVER_CTL") || !std::getenv("AC_SOUND_SERVER_DIR"))
    return "the sound server is not one scripts/with-pulse.sh started (no AC_SOUND_SERVER_DIR)";
  return std::nullopt;
}

bool restartServer(const Scratch& scratch, bool start) {
  return runTool(scratch, std::getenv("AC_SOUND_SERVER_CTL"), {start ? "--start" : "--stop"}).status == 0;
}

Recording::Recording(const Scratch& scratch, const std::vector<std::string>& extraArgs, const test::EnvChanges& env)
    : outputPath(scratch.path("call.m4a")),
      logPath(scratch.path("call.log")),
      exe_(scratch, AC_EXE, [&] {
        std::vector<std::string> args{"--output", outputPath, "--log", logPath};
        args.insert(args.end(), extraArgs.begin(), extraArgs.end());
        return args;
      }(), env) {}

bool Recording::waitReady(double timeoutSeconds) {
  return test::eventually([&] { return log().find("] ready, pid=") != std::string::npos; }, timeoutSeconds);
}

ExeResult Recording::wait(double timeoutSeconds) { return exe_.finish(timeoutSeconds); }

ExeResult Recording::stop(int signal) {
  if (exe_.pid() > 0) ::kill(exe_.pid(), signal);
  return wait();
}

std::vector<std::string> logLines(const std::string& log) {
  std::vector<std::string> lines;
  std::istringstream in(log);
  for (std::string line; std::getline(in, line);) {
    const size_t close = line.find("] ");
    lines.push_back(line.rfind('[', 0) == 0 && close != std::string::npos ? line.substr(close + 2) : line);
  }
  return lines;
}

size_t countLines(const std::string& log, const std::string& line) {
  return size_t(std::ranges::count(logLines(log), line));
}

size_t countPrefixed(const std::string& log, const std::string& prefix) {
  return size_t(std::ranges::count_if(logLines(log), [&](const std::string& l) { return l.rfind(prefix, 0) == 0; }));
}

bool waitForLine(const Recording& recording, const std::string& line, double timeoutSeconds) {
  return test::eventually([&] { return countLines(recording.log(), line) > 0; }, timeoutSeconds);
}

bool inOrder(const std::string& log, const std::vector<std::string>& wanted) {
  const std::vector<std::string> lines = logLines(log);
  auto at = lines.begin();
  for (const std::string& w : wanted) {
    at = std::find(at, lines.end(), w);
    if (at == lines.end()) return false;
    ++at;
  }
  return true;
}

}  // namespace ac::e2e
