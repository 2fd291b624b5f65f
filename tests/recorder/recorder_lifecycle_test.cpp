// Set-up, the shared time line, teardown and finalization.
#include <gtest/gtest.h>

#include "recorder/failure_notices.h"
#include "recorder_harness.h"

namespace ac::test {
namespace {

using platform::MediaTime;

// The lines among `all` that are in `wanted`, in log order.
std::vector<std::string> only(const std::vector<std::string>& all, const std::vector<std::string>& wanted) {
  std::vector<std::string> out;
  for (const auto& l : all)
    if (std::find(wanted.begin(), wanted.end(), l) != wanted.end() || l.rfind("stats: ", 0) == 0) out.push_back(l);
  return out;
}

TEST_F(RecorderTest, MicOnlyRecordingHasOneTrackAndSkipsTheSystemTeardown) {
  started(false, true);
  EXPECT_EQ(writer()->path(), path);
  EXPECT_EQ(writer()->fragmentInterval().seconds(), 5.0);
  EXPECT_EQ(writer()->fragmentInterval().timescale, 600);
  ASSERT_EQ(writer()->inputs().size(), 1u);
  EXPECT_EQ(track(0)->settings(), (platform::AudioOutputSettings{platform::kAudioFormatMPEG4AAC, 48000, 1, 64000}));
  EXPECT_EQ(writer()->sessionStart()->value, 0);
  auto out = p.micSim.lastOutput();
  EXPECT_EQ(out->queueLabel(), "audio-capture.write.mic");
  EXPECT_EQ(out->audioSettings().sampleRate, 48000);
  EXPECT_TRUE(out->audioSettings().isFloat);
  EXPECT_TRUE(p.micSim.lastSession()->isRunning());
  EXPECT_EQ(p.hw.latestIOProc(), nullptr);
  EXPECT_TRUE(logs.has("mic device: Built-in Mic (builtin)"));
  EXPECT_TRUE(logs.has("mic device format: sr=48000.0 ch=1 id=1819304813 flags=0x9 bpf=4 bits=32 layout=0/0"));
  EXPECT_TRUE(logs.has("writer started → " + path));

  mic(1'000'000'000);
  EXPECT_EQ(stopAndWait(), 1);
  EXPECT_TRUE(track(0)->finished());
  const std::string stats =
      "stats: ioproc=0 sysAppended=0 sysFail=0 micAppended=1 micFail=0 sysMaxAbs=0.0 micMaxAbs=0.25 "
      "micEndedEarly=false sysDataFail=0 sysFmtRate=0.0 sysFmtCh=0 sysFmtChanges=0 sysAacRate=0.0 "
      "sysAacClamped=false sysTapBuf=0/1 micFmtRate=48000.0 micFmtCh=1 micFmtChanges=0";
  EXPECT_EQ(
      only(logs.lines(), {"stopping", "teardown: stopping sys device", "teardown: stopping mic session",
                          "teardown: mic session stopped", "finalizing", "writer done status=2",
                          "finalize-ok call.m4a" + pidSuffix()}),
      (std::vector<std::string>{"stopping", "teardown: stopping mic session", "teardown: mic session stopped", stats,
                                "finalizing", "writer done status=2", "finalize-ok call.m4a" + pidSuffix()}));

  // A repeated stop neither tears down again nor calls its completion.
  std::atomic<int> again{0};
  rec->stop([&] { ++again; });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(again, 0);
  EXPECT_EQ(logs.count("stopping"), 1u);
  EXPECT_EQ(writer()->finishCalls(), 1);
}

TEST_F(RecorderTest, SystemOnlyRecordingHasOneTrackAndNoMicSession) {
  started(true, false);
  ASSERT_EQ(writer()->inputs().size(), 1u);
  EXPECT_EQ(track(0)->settings(), (platform::AudioOutputSettings{platform::kAudioFormatMPEG4AAC, 48000, 2, 128000}));
  EXPECT_EQ(p.micSim.lastSession(), nullptr);
  EXPECT_TRUE(logs.has("sys aac: source sr=48000.0 ch=2 → encode sr=48000.0 ch=2 (native)"));
  sys(5'000'000'000);
  waitAttempts(0, 1);
  EXPECT_EQ(stopAndWait(), 1);
  EXPECT_TRUE(logs.has("teardown: stopping sys device"));
  EXPECT_FALSE(logs.has("teardown: stopping mic session"));
  ASSERT_EQ(logs.matching("stats: ").size(), 1u);
  EXPECT_NE(logs.matching("stats: ")[0].find("sysAppended=1 sysFail=0 micAppended=0"), std::string::npos);
  EXPECT_NE(logs.matching("stats: ")[0].find("sysAacRate=48000.0 sysAacClamped=false sysTapBuf=0/1"),
            std::string::npos);
}

TEST_F(RecorderTest, FirstMicSampleAnchorsZeroAndSystemSitsAtItsHostDistance) {
  started(true, true);
  ASSERT_EQ(writer()->inputs().size(), 2u);
  EXPECT_EQ(track(0)->name + "/" + std::to_string(track(0)->settings().channels), "System audio/2");  // system first
  EXPECT_EQ(track(1)->name + "/" + std::to_string(track(1)->settings().channels), "Microphone/1");
  mic(1'000'000'000);
  sys(1'250'000'000);
  waitAttempts(0, 1);
  mic(1'010'000'000);
  EXPECT_EQ(track(1)->appendedPTS(),
            (std::vector<MediaTime>{MediaTime::make(0, 1'000'000'000), MediaTime::make(10'000'000, 1'000'000'000)}));
  EXPECT_EQ(track(0)->appendedPTS(), (std::vector<MediaTime>{MediaTime::make(250'000'000, 1'000'000'000)}));
  EXPECT_FALSE(track(0)->appended()[0].timing[0].decodeTime.valid);
}

TEST_F(RecorderTest, SetupFailuresCarryTheirTexts) {
  const struct {
    std::function<void(SimPlatform&)> arrange;
    bool system, mic;
    int64_t code;
    const char* text;
  } cases[] = {
      {[](SimPlatform& s) { s.micSim.setDefaultDevice(std::nullopt); }, false, true, -2, "no mic device"},
      {[](SimPlatform& s) { s.writerSim.script().canAddInputs = false; }, false, true, -6, "writer rejected mic input"},
      {[](SimPlatform& s) { s.writerSim.script().canAddInputs = false; }, true, false, -5,
       "writer rejected system input"},
      {[](SimPlatform& s) { s.writerSim.script().startWritingSucceeds = false; }, false, true, -11,
       "startWriting failed"},
      {[](SimPlatform& s) {
         s.writerSim.script().createError = Error{platform::kPOSIXErrorDomain, 2, "nope"};
       },
       false, true, 2, "nope"},
  };
  for (const auto& c : cases) {
    SimPlatform fresh;
    addDevices(fresh);
    c.arrange(fresh);
    Recorder r(fresh, path, c.system, c.mic, std::nullopt, nullptr);
    try {
      r.setup();
      ADD_FAILURE() << c.text << ": no throw";
    } catch (const CaptureError& e) {
      EXPECT_EQ(e.code(), c.code);
      EXPECT_STREQ(e.what(), c.text);
    }
  }
}

TEST_F(RecorderTest, TenMicFailuresThenAFailedFinalizePostOneNoticeAndCompleteOnce) {
  const Error full{platform::kPOSIXErrorDomain, 28, "No space left on device"};
  p.writerSim.script().finishStatus = platform::WriterStatus::failed;
  started(false, true);
  track(0)->failNextAppends(12, full);
  for (int i = 0; i < 12; ++i) mic(1'000'000'000 + i * 10'000'000);
  EXPECT_EQ(stopAndWait(), 1);
  EXPECT_TRUE(logs.has("writer failed: status=3 No space left on device"));
  EXPECT_TRUE(logs.has("finalize-failed call.m4a" + pidSuffix()));
  EXPECT_EQ(notices(), (std::vector<Notice>{{"Disk full", diskFullAdvice, "Basso"}}));
  EXPECT_EQ(logs.count("user notify: Disk full. Audio may be lost. Free up space and stop the recording."), 1u);
}

TEST_F(RecorderTest, FailedFinalizeWithoutAnErrorStillNotifiesAndCompletesOnce) {
  p.writerSim.script().finishStatus = platform::WriterStatus::failed;
  started(false, true);
  EXPECT_EQ(stopAndWait(), 1);
  EXPECT_TRUE(logs.has("writer failed: status=3 ?"));
  EXPECT_EQ(notices(), (std::vector<Notice>{{"Audio write failed", diskFullAdvice, "Basso"}}));
}

}  // namespace
}  // namespace ac::test
