// The one harness of the end-to-end suites (and the benchmarks): the built
// audio-capture driven against the private sound server of
// scripts/with-pulse.sh, PulseAudio or PipeWire. Sound played into its
// sinks, modules loaded for one test, the server restarted, recordings started and stopped by signal, their logs read
// and their tracks decoded by ffmpeg.
//
// Every object here owns what it started (a child process, a loaded module)
// and ends it in its destructor, so a failing assertion
// leaves nothing running on the server.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "e2e_recording/track_analysis.h"
#include "main/exe_runner.h"

namespace ac::e2e {

using test::ExeResult;
using test::RunningExe;
using test::Scratch;

inline void sleepSeconds(double s) { std::this_thread::sleep_for(std::chrono::duration<double>(s)); }
inline double secondsSince(std::chrono::steady_clock::time_point t) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t).count();
}

// Runs a program to its end (at most timeoutSeconds).
ExeResult runTool(const Scratch& scratch, const std::string& exe, const std::vector<std::string>& args,
                  double timeoutSeconds = 30);
ExeResult pactl(const Scratch& scratch, const std::vector<std::string>& args);
// How many client streams play into the server's sinks.
size_t sinkInputs(const Scratch& scratch);
// Whether the server is PipeWire's pulse server rather than PulseAudio.
bool onPipeWire(const Scratch& scratch);

// Keeps a low-latency stream of silence playing into each sink. An idle null
// sink renders in 2-second blocks, so a monitor stream that connects to it
// may wait that long for its first chunk; a playing stream keeps the blocks
// short (on PulseAudio once the sink has been suspended and resumed), and
// recordings then start the moment they are asked to.
class LiveSinks {
 public:
  LiveSinks(const Scratch& scratch, const std::vector<std::string>& sinks);
  bool ok() const { return ok_; }

 private:
  std::vector<std::unique_ptr<RunningExe>> streams_;
  bool ok_ = false;
};

// A module loaded for the lifetime of the object.
class LoadedModule {
 public:
  LoadedModule(const Scratch& scratch, const std::vector<std::string>& nameAndArgs);
  ~LoadedModule();
  bool ok() const { return !index_.empty(); }

 private:
  const Scratch& scratch_;
  std::string index_;
};

// Plays `pcm` into `sink` in the background; stopped by the destructor if
// still playing.
std::unique_ptr<RunningExe> play(const Scratch& scratch, const std::string& sink, const Pcm& pcm,
                                 const std::string& name);

// Every audio track of `file`, downmixed to mono at its own rate.
std::vector<Pcm> decodeTracks(const Scratch& scratch, const std::string& file);

// Sound that stays on `sink` whatever the default does. The server moves a
// client's stream from the old default sink to the new one, tones included;
// this one plays into a private null sink looped back into `sink` by a
// loopback that may not move.
class PinnedTone {
 public:
  PinnedTone(const Scratch& scratch, const std::string& sink, const Pcm& pcm);
  bool ok() const { return feed_.ok() && loopback_.ok() && live_ && live_->ok() && player_; }

 private:
  LoadedModule feed_, loopback_;
  std::unique_ptr<LiveSinks> live_;
  std::unique_ptr<RunningExe> player_;
};

// Why the server cannot be frozen or restarted (not one with-pulse.sh
// started); nothing when it can.
std::optional<std::string> privateServerUncontrolled();
// Kills the server (start false), or brings it back with the same socket,
// devices and defaults, returning once they answer (start true).
bool restartServer(const Scratch& scratch, bool start);

// One launch of audio-capture recording to scratch's "call.m4a" with a log
// file, plus `extraArgs`, in this environment changed by `env`.
class Recording {
 public:
  Recording(const Scratch& scratch, const std::vector<std::string>& extraArgs, const test::EnvChanges& env = {});
  // Waits until the log says the recorder runs; false when it does not
  // within timeoutSeconds.
  bool waitReady(double timeoutSeconds = 10);
  // Waits for the process to end (SIGTERM, then SIGKILL, after timeoutSeconds).
  ExeResult wait(double timeoutSeconds = 30);
  // Sends `signal`, then waits.
  ExeResult stop(int signal);
  int pid() const { return exe_.pid(); }
  std::string log() const { return Scratch::contents(logPath); }
  std::string err() const { return exe_.errSoFar(); }

  const std::string outputPath, logPath;

 private:
  RunningExe exe_;
};

// A recorder's log the way the tests check it: lines without their
// "[<time>] " stamps, counted exactly, waited for.
std::vector<std::string> logLines(const std::string& log);
// How many lines are exactly `line`.
size_t countLines(const std::string& log, const std::string& line);
// How many lines begin with `prefix`.
size_t countPrefixed(const std::string& log, const std::string& prefix);
// Waits until the recording's log holds `line` exactly; false on time-out.
bool waitForLine(const Recording& recording, const std::string& line, double timeoutSeconds = 10);
// Whether `lines` appear in the log in this order (others may come between).
bool inOrder(const std::string& log, const std::vector<std::string>& lines);

}  // namespace ac::e2e
