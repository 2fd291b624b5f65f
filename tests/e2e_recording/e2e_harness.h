// Driving the built audio-capture against the private PulseAudio server of
// scripts/with-pulse.sh: sound played into its sinks, modules loaded for one
// test, recordings started and stopped by signal, tracks decoded by ffmpeg.
//
// Every object here owns what it started (a child process, a loaded module)
// and ends it in its destructor, so a failing assertion leaves nothing
// running on the server.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "e2e_recording/track_analysis.h"
#include "main/exe_runner.h"

namespace ac::e2e {

using test::ExeResult;
using test::RunningExe;
using test::Scratch;

// Runs a program to its end (at most timeoutSeconds).
ExeResult runTool(const Scratch& scratch, const std::string& exe, const std::vector<std::string>& args,
                  double timeoutSeconds = 30);

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

// One launch of audio-capture recording to scratch's "call.m4a" with a log
// file, plus `extraArgs`.
class Recording {
 public:
  Recording(const Scratch& scratch, const std::vector<std::string>& extraArgs);
  // Waits until the log says the recorder runs; false when it does not
  // within timeoutSeconds.
  bool waitReady(double timeoutSeconds = 10);
  // Waits for the process to end (SIGTERM, then SIGKILL, after timeoutSeconds).
  ExeResult wait(double timeoutSeconds = 30);
  // Sends `signal`, then waits.
  ExeResult stop(int signal);
  int pid() const { return exe_.pid(); }
  std::string log() const { return Scratch::contents(logPath); }

  const std::string outputPath, logPath;

 private:
  RunningExe exe_;
};

}  // namespace ac::e2e
