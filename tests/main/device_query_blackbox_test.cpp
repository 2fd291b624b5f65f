// --list-outputs and --current-output against the private PulseAudio server
// of scripts/with-pulse.sh: sinks headset "studio", speaker "Studio"
// (default) and micfeed "aux-mic-feed", in that order.
#include <gtest/gtest.h>

#include "main/exe_runner.h"

namespace ac::test {
namespace {

TEST(PulseDeviceQueries, ListCaseInsensitivelyWithTiesInDeviceOrderAndNameTheDefault) {
  Scratch s;
  if (auto missing = privatePulseServerMissing(s)) GTEST_SKIP() << *missing;
  ExeResult probe = runExe(s, {"--list-outputs"});
  const std::string listing = "aux-mic-feed\nstudio\nStudio\n";
  EXPECT_EQ(probe.out + probe.err + std::to_string(probe.status), listing + "0");
  // A C locale would sort by code point without the collation's fallback.
  EXPECT_EQ(runExe(s, {"--list-outputs"}, {{"LC_ALL", "C"}}).out, listing);
  ExeResult current = runExe(s, {"--current-output"});
  EXPECT_EQ(current.out + std::to_string(current.status), "Studio\n0");
}

}  // namespace
}  // namespace ac::test
