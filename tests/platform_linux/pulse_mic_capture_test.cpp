// The PulseAudio microphone seam against a live server, for what the
// executable's suites cannot see: a monitor is never a microphone, and what
// a vanished source reports to each observer. Recording, swapping in a new
// source after a loss and the tracks' common time line are proven end to end
// (tests/e2e_recording, tests/e2e_recovery).
#include <gtest/gtest.h>

#include <mutex>

#include "platform/linux/pulse_connection.h"
#include "platform/linux/pulse_mic_capture.h"
#include "platform_linux/pulse_test_server.h"
#include "support/dispatch.h"

namespace ac::platform::linux_backend {
namespace {

using ac::testing::eventually;
using ac::testing::pactl;

class PulseMicCaptureTest : public ac::testing::PulseServerTest {
 protected:
  PulseMicCapture mic{PulseConnection::shared()};
  SerialQueue queue{"c1.mic"};
};

TEST_F(PulseMicCaptureTest, AMonitorIsNoMicrophoneNotEvenAsTheDefault) {
  std::string out = uniqueName("out"), m = uniqueName("mic");
  addSink(out, "C1-Out");
  addMicOn(out, m, "C1-Mic");
  EXPECT_FALSE(mic.deviceWithUniqueID(out + ".monitor"));
  ASSERT_TRUE(setDefault("source", out + ".monitor"));
  EXPECT_FALSE(mic.defaultAudioDevice());
  ASSERT_TRUE(setDefault("source", m));
  auto def = mic.defaultAudioDevice();
  ASSERT_TRUE(def);
  EXPECT_EQ(def->uniqueID(), m);
}

TEST_F(PulseMicCaptureTest, RemovedSourceFiresEachObserverOnceAndStopsTheSession) {
  std::string out = uniqueName("out"), m = uniqueName("mic");
  addSink(out, "C1-Out");
  std::string module = addMicOn(out, m, "C1-Mic");
  auto device = mic.deviceWithUniqueID(m);
  Error error;
  auto input = mic.makeDeviceInput(device, error);
  ASSERT_TRUE(input) << error.description;
  auto output = mic.makeAudioDataOutput();
  output->setSampleBufferHandler([](const SampleBuffer&) {}, &queue);
  auto session = mic.makeSession();
  session->addInput(input);
  session->addOutput(output);
  session->startRunning();
  ASSERT_TRUE(session->isRunning());

  std::mutex mutex;
  std::vector<std::string> gone;
  std::vector<Error> errors;
  ObserverToken disconnect = mic.observeDeviceDisconnected(&queue, [&](std::shared_ptr<CaptureDevice> d) {
    std::lock_guard<std::mutex> g(mutex);
    gone.push_back(d ? d->uniqueID() : "<null>");
  });
  ObserverToken runtime = mic.observeRuntimeError(session, &queue, [&](std::optional<Error> e) {
    std::lock_guard<std::mutex> g(mutex);
    errors.push_back(e.value_or(Error{"none", 0, ""}));
  });
  unloadModule(module);
  EXPECT_TRUE(eventually([&] {
    std::lock_guard<std::mutex> g(mutex);
    return !gone.empty() && !errors.empty();
  }));
  {
    std::lock_guard<std::mutex> g(mutex);
    EXPECT_EQ(gone, std::vector<std::string>{m});
    ASSERT_EQ(errors.size(), 1u);
    // Transient: the recorder looks for the device again instead of
    // treating the session as lost.
    EXPECT_EQ(errors[0].domain, kMicStopDomain);
    EXPECT_EQ(errors[0].code, int64_t(MicStopKind::transient));
    EXPECT_FALSE(errors[0].description.empty());
  }
  EXPECT_FALSE(session->isRunning());
  EXPECT_FALSE(device->isConnected());
  EXPECT_FALSE(mic.makeDeviceInput(device, error));
  // Restarting on the vanished source fails quietly: no second runtime error.
  session->startRunning();
  EXPECT_FALSE(session->isRunning());
  mic.removeObserver(disconnect);
  mic.removeObserver(runtime);
  queue.sync([] {});
  std::lock_guard<std::mutex> g(mutex);
  EXPECT_EQ(errors.size(), 1u);
}

}  // namespace
}  // namespace ac::platform::linux_backend
