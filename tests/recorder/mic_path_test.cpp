// The per-buffer paths of both tracks: failures, format tracking, readiness,
// peaks and the level file.
#include <gtest/gtest.h>

#include "recorder/failure_notices.h"
#include "recorder/level_file.h"
#include "recorder_harness.h"

namespace ac::test {
namespace {

TEST_F(RecorderTest, TheTenthMicFailureNotifiesOnceForTheWholeRecordingAndTheFirstLogsTheWriterError) {
  p.writerSim.script->finishStatus = platform::WriterStatus::failed;
  started(false, true);
  track(0)->failNextAppends(11, Error{platform::kPOSIXErrorDomain, 5, "Input/output error"});
  for (int i = 1; i <= 11; ++i) {
    mic(1'000'000'000 + i * 10'000'000);
    EXPECT_EQ(notices.get().size(), i < 10 ? 0u : 1u) << "after failure " << i;
  }
  EXPECT_EQ(logs.count("mic writer error: Error Domain=NSPOSIXErrorDomain Code=5 \"Input/output error\""), 1u);
  EXPECT_EQ(logs.count("mic append failed: Input/output error"), 11u);
  EXPECT_EQ(stopAndWait(), 1);  // a failed finalize after them adds no notice
  EXPECT_TRUE(logs.has("writer failed: status=3 Input/output error"));
  EXPECT_TRUE(logs.has("finalize-failed call.m4a" + pidSuffix()));
  EXPECT_EQ(notices.get(), (std::vector<Notice>{{"Audio write failed (Input/output error)", diskFullAdvice, "Basso"}}));
  EXPECT_EQ(logs.count("user notify: Audio write failed (Input/output error). " + std::string(diskFullAdvice)), 1u);
}

TEST_F(RecorderTest, SystemAppendFailuresLogEachAndNotifyAtTheTenth) {
  started(true, false);
  track(0)->failNextAppends(10, Error{platform::kCocoaErrorDomain, 640, "out of space"});
  for (int i = 1; i <= 10; ++i) sys(1'000'000'000 + i * 10'000'000);
  waitAttempts(0, 10);
  ASSERT_TRUE(eventually([&] { return notices.get().size() == 1; }));
  EXPECT_EQ(notices.get()[0].title, "Disk full");
  EXPECT_EQ(logs.count("system append failed: out of space"), 10u);
}

TEST_F(RecorderTest, FormatChangeCountsOnceAndNotReadyBuffersDropUncounted) {
  started(false, true);
  const auto other = sim::micFloatFormat(44100, 1);
  mic(1'000'000'000);
  mic(1'010'000'000);
  mic(1'020'000'000, 0.25f, other);
  mic(1'030'000'000, 0.25f, other);
  EXPECT_EQ(logs.matching("mic format: "),
            (std::vector<std::string>{
                "mic format: sr=48000.0 ch=1 id=1819304813 flags=0x9 bpf=4 bits=32 layout=0/0 changes=0",
                "mic format: sr=44100.0 ch=1 id=1819304813 flags=0x9 bpf=4 bits=32 layout=0/0 changes=1"}));
  track(0)->ready.set(false);
  mic(1'040'000'000, 0.25f, other);
  EXPECT_EQ(track(0)->appendAttempts(), 4);
  stopAndWait();
  const std::string stats = logs.matching("stats: ").at(0);
  EXPECT_NE(stats.find("micAppended=4 micFail=0"), std::string::npos) << stats;
  EXPECT_NE(stats.find("micFmtRate=44100.0 micFmtCh=1 micFmtChanges=1"), std::string::npos) << stats;
}

TEST_F(RecorderTest, PeakIsSampledEveryFiftiethBufferWithoutALevelFile) {
  started(false, true);
  for (int i = 1; i <= 101; ++i) mic(1'000'000'000 + i * 10'000'000, float(i) / 128);
  EXPECT_EQ(logs.matching("mic tick: "), (std::vector<std::string>{"mic tick: appended=1 maxSampleAbs=0.0078125",
                                                                   "mic tick: appended=51 maxSampleAbs=0.3984375",
                                                                   "mic tick: appended=101 maxSampleAbs=0.7890625"}));
  stopAndWait();
  EXPECT_NE(logs.matching("stats: ").at(0).find("micMaxAbs=0.7890625"), std::string::npos);
}

TEST_F(RecorderTest, EveryAppendedBufferIsOfferedToTheLevelFile) {
  const std::string levelPath = path + ".level";
  make(false, true).setup();
  rec->setLevelFile(MicLevelFile::open(levelPath, 0));
  rec->start();
  mic(1'000'000'000, 0.5f);
  mic(1'010'000'000, 0.125f);  // not a tick: published only because a meter is listening
  EXPECT_EQ(ScratchDir::contents(levelPath), MicLevelFile::record(0.125f));
}

}  // namespace
}  // namespace ac::test
