#include "cli/args.h"

#include <gtest/gtest.h>

namespace ac {
namespace {

using V = std::vector<std::string>;

ArgsError usageError(const std::string& message) { return ArgsError{message, 64}; }

TEST(ParseArgs, RefusalsInTheirOrder) {
  struct Case {
    V args;
    std::string message;
  } cases[] = {
      {{}, "--output is required"},
      {{"--no-mic"}, "--output is required"},
      {{"--output", ""}, "--output is required"},
      {{"-o", "a.m4a", "--mic-uid"}, "--mic-uid requires a value"},
      {{"-o", "a.m4a", "--log"}, "--log requires a value"},
      {{"-o"}, "-o requires a value"},
      {{"-o", "a.m4a", "--bogus"}, "unknown arg: --bogus"},
      {{"-o", "a.m4a", "--output=b.m4a"}, "unknown arg: --output=b.m4a"},
      {{"-o", "a.m4a", "-H"}, "unknown arg: -H"},
      {{"--bogus", "--help"}, "unknown arg: --bogus"},
      {{"--capture-active"}, "unknown arg: --capture-active"},
      // The walk finishes before the whole-line checks run.
      {{"--go-fifo", "g"}, "--output is required"},
      {{"-o", "a", "--armed", "--go-fifo", "g"}, "--armed requires --go-fifo and --status-fifo"},
      {{"-o", "a", "--armed", "--status-fifo", "s"}, "--armed requires --go-fifo and --status-fifo"},
      {{"-o", "a", "--armed", "--go-fifo", "g", "--status-fifo", "s", "--pidfile", "p"},
       "--armed is quick-note-only: refuse --lockfile/--pidfile"},
      {{"-o", "a", "--armed", "--go-fifo", "g", "--status-fifo", "s", "--lockfile", "l"},
       "--armed is quick-note-only: refuse --lockfile/--pidfile"},
      {{"-o", "a", "--go-fifo", "g"}, "--go-fifo/--status-fifo require --armed"},
      {{"-o", "a", "--status-fifo", "s"}, "--go-fifo/--status-fifo require --armed"},
  };
  for (const auto& c : cases) {
    ParsedArgs parsed = parseArgs(c.args);
    ASSERT_TRUE(std::holds_alternative<ArgsError>(parsed)) << c.message;
    EXPECT_EQ(std::get<ArgsError>(parsed), usageError(c.message));
  }
}

TEST(ParseArgs, HelpStopsTheWalk) {
  for (const V& args : {V{"--help"}, V{"-h"}, V{"--help", "--bogus"}, V{"-o", "a", "-h", "--log"}})
    EXPECT_TRUE(std::holds_alternative<UsageRequest>(parseArgs(args))) << args[0];
}

TEST(ParseArgs, ValuesAreTakenVerbatimAndTheLastWins) {
  struct Case {
    V args;
    Args expected;
  } cases[] = {
      {{"-o", "a.m4a"}, Args{.output = "a.m4a"}},
      {{"--output", "a.m4a", "--output", "b.m4a"}, Args{.output = "b.m4a"}},
      {{"--output", "--no-mic"}, Args{.output = "--no-mic"}},
      {{"-o", "~/x.m4a", "--level-file", "~/lvl"}, Args{.output = "~/x.m4a", .levelPath = "~/lvl"}},
      {{"-o", "a", "--no-mic", "--no-system", "--mic-uid", "U1", "--mic-uid", "U2"},
       Args{.output = "a", .micUID = "U2", .includeMic = false, .includeSystem = false}},
      {{"-o", "a", "--log", "l", "--pidfile", "p", "--lockfile", "k"},
       Args{.output = "a", .logPath = "l", .pidPath = "p", .lockPath = "k"}},
      {{"--armed", "--status-fifo", "s", "--go-fifo", "g", "-o", "a"},
       Args{.output = "a", .armed = true, .goFIFOPath = "g", .statusFIFOPath = "s"}},
  };
  for (const auto& c : cases) {
    ParsedArgs parsed = parseArgs(c.args);
    ASSERT_TRUE(std::holds_alternative<Args>(parsed)) << c.args[0];
    EXPECT_EQ(std::get<Args>(parsed), c.expected);
  }
}

}  // namespace
}  // namespace ac
