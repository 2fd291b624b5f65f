#include "cli/armed_phase.h"

#include <gtest/gtest.h>

namespace ac {
namespace {

using State = ArmedPhase::State;
using Action = ArmedPhase::SignalAction;

// One operation and its answer (a bool, or the SignalAction), then the state
// and the stop flag it leaves.
using Op = int (*)(ArmedPhase&);
const Op start = [](ArmedPhase& p) { return int(p.tryBeginStart()); };
const Op release = [](ArmedPhase& p) { return int(p.tryBeginRelease()); };
const Op running = [](ArmedPhase& p) { return int(p.markRunning()); };
const Op stopSignal = [](ArmedPhase& p) { return int(p.signalAction()); };
struct Step {
  Op op;
  int answer;
  State after;
  bool pendingAfter = false;
};
constexpr int A(Action a) { return static_cast<int>(a); }

TEST(ArmedPhase, TransitionTable) {
  const std::vector<std::vector<Step>> cases = {
      // go, run, then every signal stops
      {{start, true, State::starting}, {running, false, State::running},
       {stopSignal, A(Action::stopNow), State::running}, {stopSignal, A(Action::stopNow), State::running}},
      // a signal while armed releases; nobody else can start or release
      {{stopSignal, A(Action::release), State::releasing}, {start, false, State::releasing},
       {release, false, State::releasing}, {stopSignal, A(Action::ignore), State::releasing}},
      // signals while starting are held until running
      {{start, true, State::starting}, {stopSignal, A(Action::deferUntilRunning), State::starting, true},
       {stopSignal, A(Action::deferUntilRunning), State::starting, true}, {running, true, State::running},
       {stopSignal, A(Action::stopNow), State::running}},
      // a release from main wins once
      {{release, true, State::releasing}, {release, false, State::releasing},
       {stopSignal, A(Action::ignore), State::releasing}},
      // start happens once and blocks a release
      {{start, true, State::starting}, {start, false, State::starting}, {release, false, State::starting}},
  };
  for (size_t c = 0; c < cases.size(); ++c) {
    ArmedPhase phase;
    for (size_t i = 0; i < cases[c].size(); ++i) {
      const Step& s = cases[c][i];
      EXPECT_EQ(s.op(phase), s.answer) << "case " << c << " step " << i;
      EXPECT_EQ(phase.state(), s.after) << "case " << c << " step " << i;
      EXPECT_EQ(phase.stopPending(), s.pendingAfter) << "case " << c << " step " << i;
    }
  }
}

}  // namespace
}  // namespace ac
