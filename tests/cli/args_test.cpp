#include "cli/args.h"

#include <gtest/gtest.h>

namespace ac {
namespace {

using V = std::vector<std::string>;

// The defaults with some fields changed.
template <class F>
Args with(F change) {
  Args a;
  change(a);
  return a;
}

TEST(ParseArgs, WalkThenWholeLineChecks) {
  struct Case {
    V args;
    ParsedArgs expected;
  } cases[] = {
      {{}, ArgsError{"--output is required"}},
      {{"--output", ""}, ArgsError{"--output is required"}},
      {{"-o"}, ArgsError{"-o requires a value"}},
      {{"-o", "a", "--mic-uid"}, ArgsError{"--mic-uid requires a value"}},
      {{"-o", "a", "--output=b"}, ArgsError{"unknown arg: --output=b"}},
      {{"--bogus", "--help"}, ArgsError{"unknown arg: --bogus"}},
      {{"--help", "--bogus"}, UsageRequest{}},
      {{"-o", "a", "-h", "--log"}, UsageRequest{}},
      // The walk finishes before the whole-line checks, which run in order.
      {{"--go-fifo", "g"}, ArgsError{"--output is required"}},
      {{"-o", "a", "--armed", "--status-fifo", "s"}, ArgsError{"--armed requires --go-fifo and --status-fifo"}},
      {{"-o", "a", "--armed", "--go-fifo", "g", "--status-fifo", "s", "--lockfile", "l"},
       ArgsError{"--armed is quick-note-only: refuse --lockfile/--pidfile"}},
      {{"-o", "a", "--status-fifo", "s"}, ArgsError{"--go-fifo/--status-fifo require --armed"}},
      // Values are taken verbatim, the last one wins.
      {{"--output", "a.m4a", "-o", "--no-mic"}, with([](Args& a) { a.output = "--no-mic"; })},
      {{"-o", "~/x", "--no-mic", "--no-system", "--mic-uid", "U1", "--mic-uid", "U2", "--level-file", "~/l"},
       with([](Args& a) {
         a.output = "~/x", a.micUID = "U2", a.includeMic = false, a.includeSystem = false, a.levelPath = "~/l";
       })},
      {{"-o", "a", "--log", "l", "--pidfile", "p", "--lockfile", "k"},
       with([](Args& a) { a.output = "a", a.logPath = "l", a.pidPath = "p", a.lockPath = "k"; })},
      {{"--armed", "--status-fifo", "s", "--go-fifo", "g", "-o", "a"},
       with([](Args& a) { a.output = "a", a.armed = true, a.goFIFOPath = "g", a.statusFIFOPath = "s"; })},
  };
  for (const auto& c : cases) {
    std::string shown;
    for (const auto& a : c.args) shown += "'" + a + "' ";
    EXPECT_EQ(parseArgs(c.args), c.expected) << shown;
  }
}

}  // namespace
}  // namespace ac
