// Microphone loss mid-recording: rebuild in place, restart, or end the mic
// track early with one notice.
#include <gtest/gtest.h>

#include "recorder/failure_notices.h"
#include "recorder_harness.h"

namespace ac::test {
namespace {

const Notice micNotice{"Microphone disconnected", micDisconnectedBody, "Basso"};

TEST_F(RecorderTest, DisconnectOfAnotherDeviceIsIgnoredOneNamingNoneRebuilds) {
  p.micSim.addDevice("usb", "USB Mic");
  started(false, true);
  p.micSim.disconnect("usb");
  EXPECT_TRUE(logs.matching("mic disconnect: ").empty());

  p.micSim.reconnect("usb");
  p.micSim.disconnect("builtin", false);
  p.micSim.defaultUID.set("usb");
  LogCapture recovery;
  p.micSim.postDeviceDisconnected(nullptr);
  EXPECT_EQ(recovery.lines(),
            (std::vector<std::string>{"mic disconnect: mic device disconnected: unknown — attempting mic input rebuild",
                                      "mic rebuild: swapped in USB Mic [usb]", "mic input rebuilt successfully"}));
  auto inputs = p.micSim.lastSession.get()->inputs.get();
  ASSERT_EQ(inputs.size(), 1u);
  EXPECT_EQ(inputs[0]->device()->uniqueID(), "usb");
  EXPECT_TRUE(p.micSim.lastSession.get()->isRunning());
}

TEST_F(RecorderTest, RuntimeErrorsRebuildOnDeviceLossAndOtherwiseRestart) {
  started(false, true);
  auto session = p.micSim.lastSession.get();
  p.micSim.postRuntimeError(session, Error{"NSOSStatusErrorDomain", -50, "foreign"});
  EXPECT_TRUE(
      logs.has("mic disconnect: capture session runtime error (device loss): foreign — attempting mic input "
               "rebuild"));
  EXPECT_TRUE(logs.has("mic rebuild: swapped in Built-in Mic [builtin]"));

  p.micSim.postRuntimeError(session, Error{platform::kCaptureErrorDomain, -11800, "hiccup"});
  EXPECT_TRUE(logs.has("mic: capture session runtime error (non-device): hiccup — session still running, no action"));
  session->stopRunning();
  session->failStarts.set(1);
  p.micSim.postRuntimeError(session, Error{platform::kCaptureErrorDomain, -11800, "hiccup"});
  EXPECT_TRUE(
      logs.has("mic: capture session runtime error (non-device): hiccup — restarting session (input left in "
               "place)"));
  EXPECT_TRUE(
      logs.has("mic: session did not restart after non-device error — leaving as-is (buffers may resume "
               "when the error clears)"));
  EXPECT_TRUE(notices.get().empty());
}

TEST_F(RecorderTest, AbsentPinnedMicEndsTheTrackEarlyWithOneNotice) {
  p.micSim.addDevice("pinned", "Desk Mic");
  started(false, true, "pinned");
  p.micSim.disconnect("pinned");
  const std::string refusal = "mic rebuild: pinned mic pinned not available — not falling back to a different device";
  EXPECT_EQ(logs.count(refusal), 2u);
  EXPECT_TRUE(logs.has("mic input rebuild retry also failed — 'me' track ended early (system audio still recording)"));
  EXPECT_EQ(notices.get(), (std::vector<Notice>{micNotice}));

  p.micSim.postDeviceDisconnected(nullptr);  // the track already ended
  EXPECT_EQ(logs.matching("mic disconnect: ").size(), 1u);
  EXPECT_EQ(notices.get().size(), 1u);
  stopAndWait();
  EXPECT_NE(logs.matching("stats: ").at(0).find("micEndedEarly=true"), std::string::npos);
}

TEST_F(RecorderTest, ADisconnectHandledAfterStopBeganDoesNothing) {
  p.micSim.addDevice("pinned", "Desk Mic");
  started(false, true, "pinned");
  p.micSim.disconnect("pinned", false);
  p.micSim.postDeviceDisconnected(nullptr, false);
  ASSERT_TRUE(eventually([&] { return logs.has("mic input rebuild attempt 1 failed — retrying in 500ms"); }));
  p.micSim.postDeviceDisconnected(nullptr, false);  // queued behind the first, runs after stop began
  p.micSim.reconnect("pinned");
  EXPECT_EQ(stopAndWait(), 1);  // waits for the rebuild in progress, then tears down
  EXPECT_TRUE(logs.has("mic input rebuilt successfully on retry"));
  EXPECT_EQ(logs.matching("mic disconnect: ").size(), 1u);
  EXPECT_EQ(p.micSim.observerCount(), 0u);
}

}  // namespace
}  // namespace ac::test
