#include "notify/click_budget.h"

#include <algorithm>
#include <iterator>

namespace ac::notify {

double notifyClickHandlerBudgetEnd(double begunAt, double absoluteCeiling) {
  return std::min(begunAt + notifyClickHandlerGraceSeconds, absoluteCeiling);
}

NotifyClickHandlerToken notifyClickHandlerBegin(NotifyClickHandlers& handlers, double now) {
  std::erase_if(handlers.deadlines, [now](const auto& entry) { return entry.second <= now; });
  NotifyClickHandlerToken token = ++handlers.lastToken;
  handlers.deadlines[token] = notifyClickHandlerBudgetEnd(
      now, handlers.processStart + notifyClickHandlerAbsoluteCeilingSeconds);
  return token;
}

void notifyClickHandlerEnd(NotifyClickHandlers& handlers, NotifyClickHandlerToken token) {
  handlers.deadlines.erase(token);
}

bool notifyClickOwnsTheExit(std::size_t remainingHandlers) { return remainingHandlers == 0; }

std::string_view rawValue(NotifyExitDecision decision) {
  return decision == NotifyExitDecision::exit ? "exit" : "wait";
}

NotifyExitDecision notifyExitDecision(const std::map<NotifyClickHandlerToken, double>& handlerDeadlines, double now) {
  bool live = std::any_of(handlerDeadlines.begin(), handlerDeadlines.end(),
                          [now](const auto& entry) { return entry.second > now; });
  return live ? NotifyExitDecision::wait : NotifyExitDecision::exit;
}

}  // namespace ac::notify
