#include "cli/armed_phase.h"

namespace ac {

bool ArmedPhase::tryBeginStart() {
  std::lock_guard<std::mutex> guard(lock_);
  if (state_ != State::armed) return false;
  state_ = State::starting;
  return true;
}

bool ArmedPhase::tryBeginRelease() {
  std::lock_guard<std::mutex> guard(lock_);
  if (state_ != State::armed) return false;
  state_ = State::releasing;
  return true;
}

bool ArmedPhase::markRunning() {
  std::lock_guard<std::mutex> guard(lock_);
  bool wasPending = stopPending_;
  state_ = State::running;
  stopPending_ = false;
  return wasPending;
}

ArmedPhase::SignalAction ArmedPhase::signalAction() {
  std::lock_guard<std::mutex> guard(lock_);
  switch (state_) {
    case State::armed:
      state_ = State::releasing;
      return SignalAction::release;
    case State::starting:
      stopPending_ = true;
      return SignalAction::deferUntilRunning;
    case State::running:
      return SignalAction::stopNow;
    case State::releasing:
      break;
  }
  return SignalAction::ignore;
}

ArmedPhase::State ArmedPhase::state() const {
  std::lock_guard<std::mutex> guard(lock_);
  return state_;
}

bool ArmedPhase::stopPending() const {
  std::lock_guard<std::mutex> guard(lock_);
  return stopPending_;
}

}  // namespace ac
