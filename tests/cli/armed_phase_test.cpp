#include "cli/armed_phase.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace ac {
namespace {

using State = ArmedPhase::State;
using Action = ArmedPhase::SignalAction;

enum class Op { beginStart, beginRelease, markRunning, signal };

// Each step: the operation and what it must answer (for signal: the action;
// for the others: the bool), then the state and stop flag afterwards.
struct Step {
  Op op;
  int answer;  // bool, or the SignalAction's value
  State after;
  bool pendingAfter;
};

int run(ArmedPhase& phase, Op op) {
  switch (op) {
    case Op::beginStart:
      return phase.tryBeginStart();
    case Op::beginRelease:
      return phase.tryBeginRelease();
    case Op::markRunning:
      return phase.markRunning();
    case Op::signal:
      return static_cast<int>(phase.signalAction());
  }
  return -1;
}

constexpr int A(Action a) { return static_cast<int>(a); }

TEST(ArmedPhase, TransitionTable) {
  struct Case {
    const char* name;
    std::vector<Step> steps;
  } cases[] = {
      {"go then run then signal",
       {{Op::beginStart, true, State::starting, false},
        {Op::markRunning, false, State::running, false},
        {Op::signal, A(Action::stopNow), State::running, false},
        {Op::signal, A(Action::stopNow), State::running, false}}},
      {"signal while armed releases; go loses",
       {{Op::signal, A(Action::release), State::releasing, false},
        {Op::beginStart, false, State::releasing, false},
        {Op::beginRelease, false, State::releasing, false},
        {Op::signal, A(Action::ignore), State::releasing, false}}},
      {"signal while starting is honoured once running",
       {{Op::beginStart, true, State::starting, false},
        {Op::signal, A(Action::deferUntilRunning), State::starting, true},
        {Op::signal, A(Action::deferUntilRunning), State::starting, true},
        {Op::markRunning, true, State::running, false},
        {Op::signal, A(Action::stopNow), State::running, false}}},
      {"release from main wins; later signal ignored",
       {{Op::beginRelease, true, State::releasing, false},
        {Op::beginRelease, false, State::releasing, false},
        {Op::signal, A(Action::ignore), State::releasing, false}}},
      {"start happens once",
       {{Op::beginStart, true, State::starting, false},
        {Op::beginStart, false, State::starting, false},
        {Op::beginRelease, false, State::starting, false}}},
  };
  for (const auto& c : cases) {
    ArmedPhase phase;
    EXPECT_EQ(phase.state(), State::armed);
    for (size_t i = 0; i < c.steps.size(); ++i) {
      const Step& s = c.steps[i];
      EXPECT_EQ(run(phase, s.op), s.answer) << c.name << " step " << i;
      EXPECT_EQ(phase.state(), s.after) << c.name << " step " << i;
      EXPECT_EQ(phase.stopPending(), s.pendingAfter) << c.name << " step " << i;
    }
  }
}

TEST(ArmedPhase, ExactlyOneRacerLeavesArmed) {
  for (int round = 0; round < 200; ++round) {
    ArmedPhase phase;
    std::atomic<int> winners{0};
    std::vector<std::thread> racers;
    racers.emplace_back([&] { winners += phase.tryBeginStart(); });
    racers.emplace_back([&] { winners += phase.tryBeginRelease(); });
    racers.emplace_back([&] { winners += phase.signalAction() == Action::release; });
    for (auto& t : racers) t.join();
    ASSERT_EQ(winners.load(), 1) << "round " << round;
  }
}

}  // namespace
}  // namespace ac
