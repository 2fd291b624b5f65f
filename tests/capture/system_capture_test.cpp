#include "capture/system_capture.h"

#include <gtest/gtest.h>

#include "capture_fixture.h"
#include "support/error.h"

namespace ac::capture {
namespace {

using platform::AudioObjectID;

using testing::LogCapture;
using testing::Rig;

TEST(SystemCapture, RecordsTheTapBehindAHeadsetInputEndToEnd) {
  LogCapture logs;
  Rig rig;
  rig.hw.setDefaultOutput(rig.headset);
  rig.run();
  ASSERT_EQ(rig.hw.liveAggregates().size(), 1u);
  EXPECT_TRUE(logs.has("aggregate created id=" + std::to_string(rig.hw.liveAggregates()[0])));
  EXPECT_TRUE(logs.has("default-output listener installed") && logs.has("tap-format listener installed"));
  EXPECT_TRUE(logs.has("sys topology: reason=setup sr=48000.0\u219248000.0 ch=2 bpf=8 changed=false aggBufs=2 "
                       "aggCh=[1,2] subBufs=1 tapBuf=1 tapBufCount=1 select=probe"));

  auto proc = rig.hw.latestIOProc();
  ASSERT_TRUE(proc && proc->running);
  testing::Buffers micAndTap({1, 2}, 8, {0.9f, 0.25f});
  proc->deliver(micAndTap.list(), 5000);
  const auto samples = rig.sink.samples.get();
  ASSERT_EQ(samples.size(), 1u);
  EXPECT_EQ(samples[0].buffers.size(), 1u);
  EXPECT_EQ(samples[0].numSamples, 8);

  EXPECT_EQ(rig.capture.stats().maxSampleAbs, 0.25f);  // the mic's samples are not the tap's

  rig.capture.removeListeners();
  rig.capture.markStopped([] {});
  rig.capture.teardown();
  EXPECT_EQ(logs.matching("teardown: "),
            (std::vector<std::string>{"teardown: stopping sys device", "teardown: destroying ioproc",
                                      "teardown: destroying aggregate", "teardown: destroying tap"}));
  EXPECT_TRUE(rig.hw.liveTaps().empty());
  EXPECT_TRUE(rig.hw.liveAggregates().empty());
  EXPECT_TRUE(proc->destroyed);
  EXPECT_EQ(rig.hw.listenerCount(platform::ListenedProperty::defaultOutputDevice), 0u);
}

TEST(SystemCapture, SetupFailuresLeaveNothingBehind) {
  struct Case {
    const char* call;
    std::string error;
  } cases[] = {{"DeviceUID", "default output device UID failed"},
               {"AudioHardwareCreateAggregateDevice", "AudioHardwareCreateAggregateDevice failed"}};
  for (const auto& c : cases) {
    Rig rig;
    rig.hw.failNext(c.call, -5);
    try {
      rig.capture.setup();
      ADD_FAILURE() << c.call;
    } catch (const CaptureError& e) {
      EXPECT_EQ(e.what(), c.error);
      EXPECT_EQ(e.code(), -5);
    }
    EXPECT_TRUE(rig.hw.liveTaps().empty()) << c.call;
  }
}

TEST(SystemCapture, FailedStartKeepsTheProcForTeardown) {
  Rig rig;
  rig.capture.setup();
  rig.hw.failNext("AudioDeviceStart", -6);
  EXPECT_THROW(rig.capture.start(), CaptureError);
  auto proc = rig.hw.latestIOProc();
  rig.capture.teardown();
  EXPECT_TRUE(proc->destroyed);
}

TEST(SystemCapture, ScratchListIsLeakedOnlyWhenTheIOProcCannotBeProvenQuiesced) {
  struct Case {
    platform::OSStatus stop, destroy;
    bool leaked;
  } cases[] = {{0, 0, false}, {-1, 0, false}, {0, -2, false}, {-1, -2, true}};
  for (const auto& c : cases) {
    LogCapture logs;
    Rig rig;
    rig.run();
    if (c.stop) rig.hw.failNext("AudioDeviceStop", c.stop);
    if (c.destroy) rig.hw.failNext("AudioDeviceDestroyIOProcID", c.destroy);
    rig.capture.teardown();
    const std::string leak =
        "teardown: leaking the tap scratch buffer list \u2014 the IOProc could not be proven quiesced";
    EXPECT_EQ(logs.has(leak), c.leaked) << c.stop << "/" << c.destroy;
    EXPECT_EQ(logs.has("teardown: AudioDeviceStop=-1 AudioDeviceDestroyIOProcID=-2 \u2014 cannot prove the system "
                       "IOProc is quiesced"),
              c.leaked);
    EXPECT_TRUE(rig.hw.liveAggregates().empty());  // destroyed whatever the IOProc did
    EXPECT_TRUE(rig.hw.liveTaps().empty());
  }
}

}  // namespace
}  // namespace ac::capture
