#include "e2e_recording/e2e_harness.h"

#include <signal.h>

#include <chrono>
#include <sstream>
#include <thread>

namespace ac::e2e {
namespace {

constexpr const char* kPactl = "/usr/bin/pactl";
constexpr double kPollSeconds = 0.01;

size_t sinkInputCount(const Scratch& scratch) {
  std::istringstream lines(runTool(scratch, kPactl, {"list", "short", "sink-inputs"}).out);
  size_t count = 0;
  for (std::string line; std::getline(lines, line);) count += !line.empty();
  return count;
}

template <class Done>
bool pollUntil(double timeoutSeconds, Done done) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(timeoutSeconds);
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::duration<double>(kPollSeconds));
  }
  return true;
}

}  // namespace

ExeResult runTool(const Scratch& scratch, const std::string& exe, const std::vector<std::string>& args,
                  double timeoutSeconds) {
  return RunningExe(scratch, exe, args).finish(timeoutSeconds);
}

LiveSinks::LiveSinks(const Scratch& scratch, const std::vector<std::string>& sinks) {
  const size_t before = sinkInputCount(scratch);
  for (const std::string& sink : sinks)
    streams_.push_back(std::make_unique<RunningExe>(
        scratch, "/usr/bin/pacat",
        std::vector<std::string>{"--playback", "--latency-msec=10", "--device=" + sink, "/dev/zero"}));
  ok_ = pollUntil(5, [&] { return sinkInputCount(scratch) >= before + sinks.size(); });
  // On PulseAudio a sink already inside a long block finishes it before it
  // heeds the new latency; suspending and resuming starts a fresh, short one.
  // PipeWire follows the new latency at once, and a suspend would leave its
  // remapped sources silent for good.
  if (onPipeWire(scratch)) return;
  for (const std::string& sink : sinks)
    for (const char* suspended : {"1", "0"}) ok_ = ok_ && runTool(scratch, kPactl, {"suspend-sink", sink, suspended}).status == 0;
}

bool onPipeWire(const Scratch& scratch) {
  static const bool pipewire = runTool(scratch, kPactl, {"info"}).out.find("on PipeWire") != std::string::npos;
  return pipewire;
}

LoadedModule::LoadedModule(const Scratch& scratch, const std::vector<std::string>& nameAndArgs) : scratch_(scratch) {
  std::vector<std::string> args{"load-module"};
  args.insert(args.end(), nameAndArgs.begin(), nameAndArgs.end());
  ExeResult r = runTool(scratch, kPactl, args);
  if (r.exited && r.status == 0) index_ = r.out.substr(0, r.out.find('\n'));
}

LoadedModule::~LoadedModule() {
  if (ok()) runTool(scratch_, kPactl, {"unload-module", index_});
}

std::unique_ptr<RunningExe> play(const Scratch& scratch, const std::string& sink, const Pcm& pcm,
                                 const std::string& name) {
  Scratch::write(scratch.path(name), wavFile(pcm));
  return std::make_unique<RunningExe>(scratch, "/usr/bin/paplay",
                                      std::vector<std::string>{"--device=" + sink, scratch.path(name)});
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

Recording::Recording(const Scratch& scratch, const std::vector<std::string>& extraArgs)
    : outputPath(scratch.path("call.m4a")),
      logPath(scratch.path("call.log")),
      exe_(scratch, AC_EXE, [&] {
        std::vector<std::string> args{"--output", scratch.path("call.m4a"), "--log", scratch.path("call.log")};
        args.insert(args.end(), extraArgs.begin(), extraArgs.end());
        return args;
      }()) {}

bool Recording::waitReady(double timeoutSeconds) {
  return pollUntil(timeoutSeconds, [&] { return log().find("] ready, pid=") != std::string::npos; });
}

ExeResult Recording::wait(double timeoutSeconds) { return exe_.finish(timeoutSeconds); }

ExeResult Recording::stop(int signal) {
  if (exe_.pid() > 0) ::kill(exe_.pid(), signal);
  return wait();
}

}  // namespace ac::e2e
