// --list-outputs and --current-output against the private PulseAudio server
// of scripts/with-pulse.sh: sinks headset "studio", speaker "Studio"
// (default) and micfeed "aux-mic-feed", in that order.
#include <gtest/gtest.h>

#include "main/exe_runner.h"

namespace ac::test {
namespace {

class PulseDeviceQueries : public ::testing::Test {
 protected:
  void SetUp() override {
    if (auto missing = privatePulseServerMissing(scratch_)) GTEST_SKIP() << *missing;
    ExeResult probe = runExe(scratch_, {"--list-outputs"});
    if (probe.err.find("(status -4)") != std::string::npos)
      GTEST_SKIP() << "the PulseAudio backend is not built yet: " << probe.err;
  }
  Scratch scratch_;
};

TEST_F(PulseDeviceQueries, ListsOutputsCaseInsensitivelyWithTiesInDeviceOrder) {
  ExeResult r = runExe(scratch_, {"--list-outputs"});
  EXPECT_EQ(r.out, "aux-mic-feed\nstudio\nStudio\n");
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.status, 0);
  // The collation is the same under a C locale, which would otherwise sort
  // by code point.
  EXPECT_EQ(runExe(scratch_, {"--list-outputs"}, {{"LC_ALL", "C"}, {"LANG", "C"}}).out, r.out);
}

TEST_F(PulseDeviceQueries, CurrentOutputIsTheDefaultSinksDescription) {
  ExeResult r = runExe(scratch_, {"--current-output"});
  EXPECT_EQ(r.out, "Studio\n");
  EXPECT_EQ(r.status, 0);
}

TEST_F(PulseDeviceQueries, ListingOnARecordingCommandLineDoesNotRecord) {
  ExeResult r = runExe(scratch_, {"-o", scratch_.path("a.m4a"), "--lockfile", scratch_.path("l"), "--list-outputs"});
  EXPECT_EQ(r.out, "aux-mic-feed\nstudio\nStudio\n");
  EXPECT_EQ(r.status, 0);
  EXPECT_FALSE(scratch_.exists("a.m4a"));
  EXPECT_FALSE(scratch_.exists("l"));
}

}  // namespace
}  // namespace ac::test
