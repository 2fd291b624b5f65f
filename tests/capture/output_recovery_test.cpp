#include "capture/output_recovery.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "capture_fixture.h"

namespace ac::capture {
namespace {

using platform::AudioObjectID;

using testing::LogCapture;
using testing::Rig;

struct RecoveryTest : ::testing::Test {
  LogCapture logs;
  Rig rig;
  void SetUp() override {
    rig.run();
    // A no-op event queued behind the chain's own first tap-format check:
    // once it ran, the check has too.
    rig.hw.setDefaultOutput(rig.speakers);
    rig.hw.waitForListeners();
  }
  AudioObjectID tap() { return rig.hw.liveTaps().at(0); }
  std::string lastMaster() { return rig.hw.aggregateDescriptions.get().back()["master"]; }
};

TEST_F(RecoveryTest, SameOutputOrAStoppedChainDoesNothing) {
  rig.hw.setDefaultOutput(rig.speakers);
  ASSERT_TRUE(rig.hw.waitForListeners());
  EXPECT_TRUE(logs.matching("default output changed").empty());
  bool ranLocked = false;
  rig.capture.markStopped([&] { ranLocked = true; });
  EXPECT_TRUE(ranLocked);
  rig.hw.setDefaultOutput(rig.headset);  // listeners still installed
  ASSERT_TRUE(rig.hw.waitForListeners());
  EXPECT_EQ(rig.hw.aggregateDescriptions.get().size(), 1u);
}

TEST_F(RecoveryTest, OneRetryAfterHalfASecondWithAFreshOutput) {
  rig.hw.failNext("AudioHardwareCreateAggregateDevice", -1);
  auto t0 = std::chrono::steady_clock::now();
  rig.hw.setDefaultOutput(rig.headset);
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  rig.hw.setDefaultOutput(rig.usb);  // changes again while the repair waits
  ASSERT_TRUE(rig.hw.waitForListeners());
  EXPECT_GE(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(500));
  EXPECT_TRUE(logs.has("rebuild: createAggregate failed: AudioHardwareCreateAggregateDevice failed"));
  EXPECT_TRUE(logs.has("aggregate rebuild attempt 1 failed \u2014 retrying in 500ms"));
  EXPECT_TRUE(logs.has("aggregate rebuilt successfully on retry (output=usb)"));
  EXPECT_TRUE(logs.has("sys topology: reason=rebuild sr=48000.0\u219248000.0 ch=2 bpf=8 changed=false aggBufs=3 "
                       "aggCh=[2,2,2] subBufs=2 tapBuf=2 tapBufCount=1 select=probe"));
  EXPECT_EQ(rig.hw.aggregateDescriptions.get().size(), 3u);  // set-up, failed, retry; the second event is a no-op
  EXPECT_EQ(lastMaster(), "usb");
  EXPECT_EQ(rig.posted.get().size(), 0u);
}

TEST_F(RecoveryTest, UndestroyableAggregateKeepsTheOldIOProcAndTwoDeadEndsPostOneNotice) {
  rig.hw.failAlways("AudioHardwareDestroyAggregateDevice", -9);
  rig.hw.failAlways("AudioDeviceDestroyIOProcID", -8);
  rig.hw.setDefaultOutput(rig.headset);
  ASSERT_TRUE(rig.hw.waitForListeners());
  EXPECT_EQ(logs.count("rebuild aborted: AudioHardwareDestroyAggregateDevice failed \u2014 refusing to orphan an "
                       "aggregate that still holds the tap"),
            2u);
  EXPECT_EQ(rig.hw.aggregateDescriptions.get().size(), 1u);
  rig.hw.setDefaultOutput(rig.usb);
  ASSERT_TRUE(rig.hw.waitForListeners());
  EXPECT_EQ(logs.count("aggregate rebuild retry also failed \u2014 system audio capture is dead until restart"), 2u);
  EXPECT_EQ(rig.posted.get(), std::vector<std::string>{"System audio stopped"});
  rig.hw.clearFailures();
  auto proc = rig.hw.latestIOProc();
  rig.capture.teardown();
  EXPECT_TRUE(logs.has("teardown: stopping sys device"));  // the handle was kept
  EXPECT_TRUE(proc->destroyed);
}

TEST_F(RecoveryTest, TapFormatChanges) {
  const AudioObjectID tapID = tap();
  platform::StreamFormat same = platform::floatPCMFormat(48000, 2);
  same.reserved = 3;
  size_t before = logs.lines().size();
  rig.hw.setTapFormat(tapID, same);
  ASSERT_TRUE(rig.hw.waitForListeners());
  EXPECT_EQ(logs.lines().size(), before);  // equivalent: silent

  rig.hw.setTapFormat(tapID, platform::floatPCMFormat(7999, 2));
  ASSERT_TRUE(rig.hw.waitForListeners());
  EXPECT_TRUE(logs.has("tap-format changed to an unusable format sr=7999.0 ch=2 bpf=8 \u2014 keeping sr=48000.0, "
                       "IOProc untouched"));
  EXPECT_EQ(rig.capture.systemFormat().sampleRate, 48000);

  auto oldProc = rig.hw.latestIOProc();
  rig.hw.setTapFormat(tapID, platform::floatPCMFormat(44100, 2));
  ASSERT_TRUE(rig.hw.waitForListeners());
  EXPECT_TRUE(logs.has("tap format changed (sr=48000.0\u219244100.0) \u2014 restarting IOProc to adopt it"));
  EXPECT_TRUE(logs.has("sys topology: reason=tap-format-changed sr=48000.0\u219244100.0 ch=2 bpf=8 changed=true "
                       "aggBufs=1 aggCh=[2] subBufs=0 tapBuf=0 tapBufCount=1 select=probe"));
  EXPECT_TRUE(logs.has("tap-format: IOProc restarted on aggregate " + std::to_string(rig.hw.liveAggregates()[0])));
  EXPECT_TRUE(oldProc->destroyed);
  EXPECT_EQ(rig.capture.stats().formatChanges, 1);
  EXPECT_EQ(rig.capture.systemFormat().sampleRate, 44100);
}

TEST_F(RecoveryTest, StopFailureLeavesTheIOProcAlone) {
  rig.hw.failNext("AudioDeviceStop", -4);
  rig.hw.setTapFormat(tap(), platform::floatPCMFormat(44100, 2));
  ASSERT_TRUE(rig.hw.waitForListeners());
  EXPECT_TRUE(logs.has("tap-format: AudioDeviceStop returned -4 \u2014 leaving the IOProc alone (cannot prove the "
                       "callback is quiesced)"));
  EXPECT_EQ(rig.capture.systemFormat().sampleRate, 48000);
  EXPECT_TRUE(rig.hw.latestIOProc()->running);
}

TEST_F(RecoveryTest, FailedRestartFallsBackToAFullRebuild) {
  rig.hw.failNext("AudioDeviceStart", -3);
  rig.hw.setTapFormat(tap(), platform::floatPCMFormat(44100, 2));
  ASSERT_TRUE(rig.hw.waitForListeners());
  EXPECT_TRUE(logs.has("startIOProc: AudioDeviceStart failed: -3"));
  EXPECT_TRUE(logs.has("tap-format: could not restart the IOProc \u2014 attempting a full aggregate rebuild"));
  EXPECT_TRUE(logs.has("tap-format: recovered via aggregate rebuild (output=spk)"));
  EXPECT_EQ(rig.hw.aggregateDescriptions.get().size(), 2u);
  EXPECT_TRUE(rig.hw.latestIOProc()->running);
  EXPECT_EQ(rig.posted.get().size(), 0u);
}

}  // namespace
}  // namespace ac::capture
