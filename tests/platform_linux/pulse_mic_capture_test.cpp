// The PulseAudio microphone seam against a live server, for what the
// executable's suites cannot see: a monitor is never a microphone.
// Recording, what a vanished source reports to the recorder (one device loss,
// its stream's end no second one), swapping in a new source after a loss and
// the tracks' common time line are proven end to end (tests/e2e_recording,
// tests/e2e_recovery).
#include <gtest/gtest.h>

#include "e2e_recording/e2e_fixture.h"
#include "platform/linux/pulse_connection.h"
#include "platform/linux/pulse_mic_capture.h"

namespace ac::platform::linux_backend {
namespace {

// The private server's "mic" is a microphone; "speaker.monitor" a sink's
// monitor.
class PulseMicCaptureTest : public e2e::E2E {
 protected:
  void SetUp() override { keepLive({}); }
  PulseMicCapture mic{PulseConnection::shared()};
};

TEST_F(PulseMicCaptureTest, AMonitorIsNoMicrophoneNotEvenAsTheDefault) {
  EXPECT_FALSE(mic.deviceWithUniqueID("speaker.monitor"));
  ASSERT_TRUE(setDefault("source", "speaker.monitor"));
  EXPECT_FALSE(mic.defaultAudioDevice());
  ASSERT_TRUE(setDefault("source", "mic"));
  auto def = mic.defaultAudioDevice();
  ASSERT_TRUE(def);
  EXPECT_EQ(def->uniqueID(), "mic");
}

}  // namespace
}  // namespace ac::platform::linux_backend
