#include "cli/armed_phase.h"

#include <gtest/gtest.h>

namespace ac {
namespace {

using State = ArmedPhase::State;
using Action = ArmedPhase::SignalAction;

// One operation and its answer (a bool, or the SignalAction), then the state
// and the stop flag it leaves.
enum class Op { start, release, running, signal };
struct Step {
  Op op;
  int answer;
  State after;
  bool pendingAfter = false;
};
constexpr int A(Action a) { return static_cast<int>(a); }

int apply(ArmedPhase& phase, Op op) {
  switch (op) {
    case Op::start:
      return phase.tryBeginStart();
    case Op::release:
      return phase.tryBeginRelease();
    case Op::running:
      return phase.markRunning();
    case Op::signal:
      return A(phase.signalAction());
  }
  return -1;
}

TEST(ArmedPhase, TransitionTable) {
  const std::vector<std::vector<Step>> cases = {
      // go, run, then every signal stops
      {{Op::start, true, State::starting}, {Op::running, false, State::running},
       {Op::signal, A(Action::stopNow), State::running}, {Op::signal, A(Action::stopNow), State::running}},
      // a signal while armed releases; nobody else can start or release
      {{Op::signal, A(Action::release), State::releasing}, {Op::start, false, State::releasing},
       {Op::release, false, State::releasing}, {Op::signal, A(Action::ignore), State::releasing}},
      // signals while starting are held until running
      {{Op::start, true, State::starting}, {Op::signal, A(Action::deferUntilRunning), State::starting, true},
       {Op::signal, A(Action::deferUntilRunning), State::starting, true}, {Op::running, true, State::running},
       {Op::signal, A(Action::stopNow), State::running}},
      // a release from main wins once
      {{Op::release, true, State::releasing}, {Op::release, false, State::releasing},
       {Op::signal, A(Action::ignore), State::releasing}},
      // start happens once and blocks a release
      {{Op::start, true, State::starting}, {Op::start, false, State::starting}, {Op::release, false, State::starting}},
  };
  for (size_t c = 0; c < cases.size(); ++c) {
    ArmedPhase phase;
    for (size_t i = 0; i < cases[c].size(); ++i) {
      const Step& s = cases[c][i];
      EXPECT_EQ(apply(phase, s.op), s.answer) << "case " << c << " step " << i;
      EXPECT_EQ(phase.state(), s.after) << "case " << c << " step " << i;
      EXPECT_EQ(phase.stopPending(), s.pendingAfter) << "case " << c << " step " << i;
    }
  }
}

}  // namespace
}  // namespace ac
