// ArmedPhase: decides which of the parties racing to end an armed launch
// wins — the main thread (go, quit, bad line, end of file), the signal
// queue, the input watch and, after go, the owner watch.
//
// Thread-safe: every method takes the phase's own lock for a few reads and
// writes and does nothing else under it.
#pragma once

#include <mutex>

namespace ac {

class ArmedPhase {
 public:
  enum class State { armed, starting, running, releasing };
  enum class SignalAction { release, deferUntilRunning, stopNow, ignore };

  // armed → starting; false when the phase already left armed.
  bool tryBeginStart();
  // armed → releasing; false when the phase already left armed.
  bool tryBeginRelease();
  // → running; returns whether a stop arrived while starting (and clears it).
  bool markRunning();
  // What a SIGTERM/SIGINT (or the owner leaving) means now: armed releases
  // (and moves to releasing), starting defers the stop until running,
  // running stops, releasing ignores.
  SignalAction signalAction();

  State state() const;
  bool stopPending() const;

 private:
  mutable std::mutex lock_;
  State state_ = State::armed;
  bool stopPending_ = false;
};

}  // namespace ac
