// Set-up, the shared time line, teardown and finalization.
#include <gtest/gtest.h>

#include "recorder/failure_notices.h"
#include "recorder_harness.h"

namespace ac::test {
namespace {

using platform::MediaTime;

TEST_F(RecorderTest, MicOnlyRecordingHasOneTrackAndSkipsTheSystemTeardown) {
  started(false, true);
  EXPECT_EQ(writer()->path, path);
  EXPECT_EQ(writer()->fragmentInterval, MediaTime::make(3000, 600));
  ASSERT_EQ(writer()->inputs.get().size(), 1u);
  EXPECT_EQ(track(0)->settings(), (platform::AudioOutputSettings{platform::kAudioFormatMPEG4AAC, 48000, 1, 64000}));
  EXPECT_EQ(writer()->sessionStart.get()->value, 0);
  EXPECT_EQ(p.micSim.lastOutput.get()->audioSettings().sampleRate, 48000);
  EXPECT_TRUE(p.micSim.lastOutput.get()->audioSettings().isFloat);
  EXPECT_TRUE(p.micSim.lastSession.get()->isRunning());
  EXPECT_EQ(p.hw.latestIOProc(), nullptr);
  EXPECT_TRUE(logs.has("mic device format: sr=48000.0 ch=1 id=1819304813 flags=0x9 bpf=4 bits=32 layout=0/0"));

  mic(1'000'000'000);
  EXPECT_EQ(stopAndWait(), 1);
  EXPECT_TRUE(track(0)->finished.get());
  EXPECT_TRUE(logs.has("teardown: stopping mic session") && logs.has("teardown: mic session stopped"));
  EXPECT_FALSE(logs.has("teardown: stopping sys device"));
  EXPECT_TRUE(logs.has("finalize-ok call.m4a" + pidSuffix()));

  // A repeated stop neither tears down again nor calls its completion.
  std::atomic<int> again{0};
  rec->stop([&] { ++again; });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(again, 0);
  EXPECT_EQ(logs.count("stopping"), 1u);
  EXPECT_EQ(writer()->finishCalls.get(), 1);
}

TEST_F(RecorderTest, FirstMicSampleAnchorsZeroAndSystemSitsAtItsHostDistance) {
  started(true, true);
  ASSERT_EQ(writer()->inputs.get().size(), 2u);
  EXPECT_EQ(track(0)->name, "System audio");  // system first
  EXPECT_EQ(track(0)->settings(), (platform::AudioOutputSettings{platform::kAudioFormatMPEG4AAC, 48000, 2, 128000}));
  EXPECT_EQ(track(1)->name, "Microphone");
  EXPECT_TRUE(logs.has("sys aac: source sr=48000.0 ch=2 → encode sr=48000.0 ch=2 (native)"));
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
    bool noMic, rejectInputs, startFails, createFails, system;
    int64_t code;
    const char* text;
  } cases[] = {{true, false, false, false, false, -2, "no mic device"},
               {false, true, false, false, false, -6, "writer rejected mic input"},
               {false, true, false, false, true, -5, "writer rejected system input"},
               {false, false, true, false, false, -11, "startWriting failed"},
               {false, false, false, true, false, 2, "nope"}};
  for (const auto& c : cases) {
    SimPlatform fresh;
    addDevices(fresh);
    if (c.noMic) fresh.micSim.defaultUID.set(std::nullopt);
    fresh.writerSim.script->canAddInputs = !c.rejectInputs;
    fresh.writerSim.script->startWritingSucceeds = !c.startFails;
    if (c.createFails) fresh.writerSim.script->createError = Error{platform::kPOSIXErrorDomain, 2, "nope"};
    Recorder r(fresh, path, c.system, !c.system, std::nullopt, nullptr);
    try {
      r.setup();
      ADD_FAILURE() << c.text << ": no throw";
    } catch (const CaptureError& e) {
      EXPECT_EQ(e.code(), c.code);
      EXPECT_STREQ(e.what(), c.text);
    }
  }
}

TEST_F(RecorderTest, FailedFinalizeWithoutAnErrorStillNotifiesAndCompletesOnce) {
  p.writerSim.script->finishStatus = platform::WriterStatus::failed;
  started(false, true);
  EXPECT_EQ(stopAndWait(), 1);
  EXPECT_TRUE(logs.has("writer failed: status=3 ?"));
  EXPECT_EQ(notices.get(), (std::vector<Notice>{{"Audio write failed", diskFullAdvice, "Basso"}}));
}

}  // namespace
}  // namespace ac::test
