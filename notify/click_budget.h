// How long click handlers may hold a notify process open. Each handler that
// starts slow work (a script, a follow-up banner) gets its own deadline: one
// budget past its start, and never past a ceiling counted from process
// start. The process may exit once no deadline is still ahead.
//
// Pure value types and decisions: the clock is always passed in (monotonic
// seconds), and the caller owns the one table of its process and touches it
// from one queue only (the main queue).
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string_view>

namespace ac::notify {

inline constexpr double notifyClickHandlerGraceSeconds = 30.0;
inline constexpr double notifyClickHandlerAbsoluteCeilingSeconds = 600.0;
inline constexpr double notifyExitPollSeconds = 0.25;

using NotifyClickHandlerToken = int64_t;

// The handlers in flight: token -> deadline.
struct NotifyClickHandlers {
  // The monotonic time the process started.
  double processStart = 0;
  std::map<NotifyClickHandlerToken, double> deadlines;
  // The last token issued; the first handler gets 1.
  NotifyClickHandlerToken lastToken = 0;
};

// The earlier of begunAt + notifyClickHandlerGraceSeconds and the ceiling.
double notifyClickHandlerBudgetEnd(double begunAt, double absoluteCeiling);

// Drops handlers whose deadline is not later than `now`, then registers a new
// one with its own budget and returns its token.
NotifyClickHandlerToken notifyClickHandlerBegin(NotifyClickHandlers& handlers, double now);

// Retires a handler; an unknown or repeated token changes nothing.
void notifyClickHandlerEnd(NotifyClickHandlers& handlers, NotifyClickHandlerToken token);

// A settling click owns the exit only when no sibling handler is left.
bool notifyClickOwnsTheExit(std::size_t remainingHandlers);

enum class NotifyExitDecision { exit, wait };
std::string_view rawValue(NotifyExitDecision decision);

// "wait" while any deadline is still later than `now`, else "exit".
NotifyExitDecision notifyExitDecision(const std::map<NotifyClickHandlerToken, double>& handlerDeadlines, double now);

// Lets only the first of several answers to one click act (the delegate and
// the cold route may both see it). Safe from any thread.
class NotifyClickOnce {
 public:
  // True the first time, false ever after.
  bool take() { return !taken_.exchange(true); }

 private:
  std::atomic<bool> taken_{false};
};

}  // namespace ac::notify
