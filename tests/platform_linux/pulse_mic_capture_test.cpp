// The PulseAudio microphone seam against a live server, for what the
// executable's suites cannot see: a monitor is never a microphone, and what
// a vanished source reports to each observer. Recording, swapping in a new
// source after a loss and the tracks' common time line are proven end to end
// (tests/e2e_recording, tests/e2e_recovery).
#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>

#include "e2e_recording/e2e_fixture.h"
#include "platform/linux/pulse_connection.h"
#include "platform/linux/pulse_mic_capture.h"
#include "support/dispatch.h"

namespace ac::platform::linux_backend {
namespace {

using namespace ac::e2e;
using test::eventually;

// The private server's "mic" hears its sink "micfeed"; "speaker.monitor" is
// a sink's monitor.
class PulseMicCaptureTest : public E2E {
 protected:
  void SetUp() override { keepLive({}); }
  PulseMicCapture mic{PulseConnection::shared()};
  SerialQueue queue{"c1.mic"};
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

TEST_F(PulseMicCaptureTest, RemovedSourceFiresEachObserverOnceAndStopsTheSession) {
  const std::string m = "lostmic";
  auto module = std::make_unique<LoadedModule>(
      s, std::vector<std::string>{"module-remap-source", "master=micfeed.monitor", "source_name=" + m});
  ASSERT_TRUE(module->ok());
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
  std::vector<std::string> events;
  auto note = [&](const std::string& event) {
    std::lock_guard<std::mutex> g(mutex);
    events.push_back(event);
  };
  ObserverToken disconnect = mic.observeDeviceDisconnected(
      &queue, [&](std::shared_ptr<CaptureDevice> d) { note("disconnected " + (d ? d->uniqueID() : "?")); });
  // Transient: the recorder looks for the device again instead of treating
  // the session as lost.
  ObserverToken runtime = mic.observeRuntimeError(session, &queue, [&](std::optional<Error> e) {
    note(e && !e->description.empty() ? "stopped " + e->domain + " " + std::to_string(e->code) : "undescribed");
  });
  const std::vector<std::string> expected = {"disconnected " + m, std::string("stopped ") + kMicStopDomain + " " +
                                                                       std::to_string(int64_t(MicStopKind::transient))};
  module.reset();
  EXPECT_TRUE(eventually([&] {
    std::lock_guard<std::mutex> g(mutex);
    return events.size() >= 2;
  }));
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
  std::sort(events.begin(), events.end());
  EXPECT_EQ(events, expected);
}

}  // namespace
}  // namespace ac::platform::linux_backend
