#include "notify/click_budget.h"

#include <gtest/gtest.h>

namespace ac::notify {
namespace {

TEST(ClickBudget, EachHandlerHoldsTheExitOnItsOwnClock) {
  NotifyClickHandlers handlers;
  handlers.processStart = 100;
  auto first = notifyClickHandlerBegin(handlers, 110);
  EXPECT_EQ(first, 1);
  EXPECT_EQ(handlers.deadlines.at(first), 140);
  EXPECT_EQ(notifyExitDecision(handlers.deadlines, 139.99), NotifyExitDecision::wait);
  EXPECT_EQ(notifyExitDecision(handlers.deadlines, 140), NotifyExitDecision::exit);  // overran: no longer holds

  auto second = notifyClickHandlerBegin(handlers, 130);
  EXPECT_EQ(second, 2);
  EXPECT_EQ(notifyExitDecision(handlers.deadlines, 150), NotifyExitDecision::wait);  // the younger one
  // Ending the first of two does not own the exit; the second does.
  notifyClickHandlerEnd(handlers, first);
  EXPECT_FALSE(notifyClickOwnsTheExit(handlers.deadlines.size()));
  notifyClickHandlerEnd(handlers, first);  // repeated: changes nothing
  EXPECT_EQ(handlers.deadlines.count(second), 1u);
  notifyClickHandlerEnd(handlers, second);
  EXPECT_TRUE(notifyClickOwnsTheExit(handlers.deadlines.size()));
  EXPECT_EQ(notifyExitDecision(handlers.deadlines, 131), NotifyExitDecision::exit);
}

TEST(ClickBudget, WedgedHandlersNeverOutliveTheirBudgetOrTheCeiling) {
  NotifyClickHandlers handlers;
  handlers.processStart = 0;
  auto wedged = notifyClickHandlerBegin(handlers, 10);
  // A stream of short handlers cannot extend the wedged one.
  for (double t = 11; t < 40; t += 5) notifyClickHandlerEnd(handlers, notifyClickHandlerBegin(handlers, t));
  EXPECT_EQ(handlers.deadlines.at(wedged), 40);
  // A begin after its deadline prunes it.
  notifyClickHandlerBegin(handlers, 41);
  EXPECT_EQ(handlers.deadlines.count(wedged), 0u);
  // Near the ceiling a budget is cut short by it.
  auto late = notifyClickHandlerBegin(handlers, 590);
  EXPECT_EQ(handlers.deadlines.at(late), 600);
  EXPECT_EQ(notifyExitDecision(handlers.deadlines, 600), NotifyExitDecision::exit);
  EXPECT_EQ(notifyClickHandlerBudgetEnd(700, 600), 600);
}

}  // namespace
}  // namespace ac::notify
