// What the recovery tests do to the private sound server of
// scripts/with-pulse.sh beyond playing into it: move its defaults, freeze it
// for a moment to hold a recorder inside a call to it, and restart it.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "e2e_recording/e2e_harness.h"

namespace ac::e2e {

// pactl's standard output; empty when it failed.
std::string pactl(const test::Scratch& scratch, const std::vector<std::string>& args);
bool setDefaultSink(const test::Scratch& scratch, const std::string& sink);
bool setDefaultSource(const test::Scratch& scratch, const std::string& source);

// Puts back the server's own defaults (sink "speaker", source "mic") when it
// goes, whatever the test moved them to.
class DefaultsRestored {
 public:
  explicit DefaultsRestored(const test::Scratch& scratch) : scratch_(scratch) {}
  ~DefaultsRestored();

 private:
  const test::Scratch& scratch_;
};

// Sound that stays on `sink` whatever the default does. The server moves a
// client's stream from the old default sink to the new one, tones included;
// this one plays into a private null sink looped back into `sink` by a
// loopback that may not move.
class PinnedTone {
 public:
  PinnedTone(const test::Scratch& scratch, const std::string& sink, const Pcm& pcm);
  bool ok() const { return feed_.ok() && loopback_.ok() && live_ && live_->ok() && player_; }

 private:
  LoadedModule feed_, loopback_;
  std::unique_ptr<LiveSinks> live_;
  std::unique_ptr<test::RunningExe> player_;
};

// Why the server cannot be frozen or restarted (not one with-pulse.sh
// started); nothing when it can.
std::optional<std::string> privateServerUncontrolled();
// Kills the server (start false), or brings it back with the same socket,
// devices and defaults, returning once they answer (start true).
bool restartServer(const test::Scratch& scratch, bool start);

// The process serving PULSE_SERVER, stopped (SIGSTOP) for the object's
// lifetime: every client call to it waits until it resumes. Keep it short:
// clients give up on the server after 5 s.
class FrozenServer {
 public:
  FrozenServer();
  ~FrozenServer();
  void thaw();

 private:
  std::optional<pid_t> pid_;
};

}  // namespace ac::e2e
