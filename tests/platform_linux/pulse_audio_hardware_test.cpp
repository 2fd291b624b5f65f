// The PulseAudio hardware seam against a live server, for what the
// executable's suites cannot see: the tap following its aggregate's sink
// and that sink's rate, an IOProc's stop and listener removal. Device
// lists, names, the default output and queries without a server are proven
// through the executable (tests/main); the default-output listener moving
// capture, the stream shape, and the stamps (whose rule the model test's
// clock table proves) in the length and agreement of both tracks end to
// end (tests/e2e_*).
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstring>

#include "e2e_recording/e2e_fixture.h"
#include "platform/linux/pulse_audio_hardware.h"
#include "platform/linux/pulse_connection.h"
#include "support/dispatch.h"

namespace ac::platform::linux_backend {
namespace {

using namespace ac::e2e;
using test::eventually;

class PulseAudioHardwareTest : public E2E {
 protected:
  // A null sink at `rate`, while the test runs.
  LoadedModule& addSink(const std::string& name, int rate) {
    return *sinks.emplace_back(std::make_unique<LoadedModule>(
        s, std::vector<std::string>{"module-null-sink", "sink_name=" + name, "rate=" + std::to_string(rate)}));
  }
  AudioObjectID makeAggregate(const std::string& master, AudioObjectID tap) {
    std::optional<std::string> uid;
    EXPECT_EQ(hw.tapUID(tap, uid), 0);
    nlohmann::json d = {{"uid", "agg-" + master}, {"master", master}, {"taps", {{{"uid", uid.value_or("")}}}}};
    AudioObjectID agg = 0;
    EXPECT_EQ(hw.createAggregateDevice(d, agg), 0);
    return agg;
  }

  std::vector<std::unique_ptr<LoadedModule>> sinks;
  PulseAudioHardware hw{PulseConnection::shared()};
  SerialQueue queue{"c1.listeners"};
};

TEST_F(PulseAudioHardwareTest, TheTapFollowsItsSinkFeedsItsIOProcAndTellsItsListenerUntilRemoved) {
  // Only b plays: a stream at another rate could move an idle sink's rate.
  if (auto missing = test::privatePulseServerMissing(s)) GTEST_SKIP() << *missing;
  const std::string a = "hw_a", b = "hw_b";
  ASSERT_TRUE(addSink(a, 48000).ok() && addSink(b, 44100).ok());
  keepLive({b});
  ASSERT_TRUE(setDefault("sink", a));
  AudioObjectID tap = 0;
  ASSERT_EQ(hw.createProcessTap(TapDescription{}, tap), 0);
  std::optional<std::string> uid;
  ASSERT_EQ(hw.tapUID(tap, uid), 0);
  StreamFormat f, stereo48k = floatPCMFormat(48000, 2);
  ASSERT_EQ(hw.tapFormat(tap, f), 0);
  EXPECT_EQ(std::memcmp(&f, &stereo48k, sizeof f), 0);

  std::atomic<int> fired{0};
  std::atomic<bool> onQueue{true};
  ListenerID listener = 0;
  ASSERT_EQ(hw.addPropertyListener(tap, ListenedProperty::tapFormat, queue,
                                   [&] { onQueue = onQueue && queue.isCurrent(), ++fired; }, listener),
            0);
  AudioObjectID agg = makeAggregate(b, tap);
  ASSERT_EQ(hw.tapFormat(tap, f), 0);
  EXPECT_EQ(f.sampleRate, 44100);
  EXPECT_TRUE(eventually([&] { return fired == 1; }));
  EXPECT_TRUE(onQueue);
  // A sink or tap gone by the time the aggregate is made.
  for (const nlohmann::json& d : {nlohmann::json{{"master", b}, {"taps", {{{"uid", "no-such-tap"}}}}},
                                  nlohmann::json{{"master", "no-such-sink"}, {"taps", {{{"uid", *uid}}}}}}) {
    AudioObjectID none = 0;
    EXPECT_NE(hw.createAggregateDevice(d, none), 0) << d.dump();
  }

  // Its IOProc delivers what plays into the sink, and nothing once stopped.
  std::atomic<int> calls{0};
  std::atomic<bool> heardTone{false};
  IOProcID proc = 0;
  auto block = [&](const AudioBufferList* list, const AudioTimeStamp*) {
    const AudioBuffer& buffer = list->buffers[0];
    for (uint32_t i = 0; i < buffer.dataByteSize / 4; ++i)
      if (std::fabs(static_cast<const float*>(buffer.data)[i]) > 0.5f) heardTone = true;
    ++calls;
  };
  ASSERT_EQ(hw.createIOProc(agg, "audio-capture.ioproc", block, proc), 0);
  ASSERT_EQ(hw.startDevice(agg, proc), 0);
  {
    auto player = tone(b, 1000, 2, 0.8f);
    ASSERT_TRUE(eventually([&] { return heardTone.load(); }));
  }
  ASSERT_EQ(hw.stopDevice(agg, proc), 0);
  const int callsAtStop = calls;
  usleep(100000);
  EXPECT_EQ(calls, callsAtStop);
  EXPECT_EQ(hw.destroyIOProc(agg, proc), 0);
  EXPECT_EQ(hw.destroyAggregateDevice(agg), 0);

  // The sink under capture changes rate: an idle PulseAudio sink takes the
  // rate of a stream that arrives at its alternate rate, 48 kHz (PipeWire
  // never moves an idle sink's rate).
  if (!onPipeWire(s)) {
    const std::string c = "hw_c";
    ASSERT_TRUE(addSink(c, 44100).ok());
    AudioObjectID aggC = makeAggregate(c, tap);
    int before = fired;
    auto readers = [&] { return std::ranges::count(pactl(s, {"list", "short", "source-outputs"}).out, '\n'); };
    const auto readersBefore = readers();
    RunningExe reader(s, "/usr/bin/pacat", {"--record", "--rate=48000", "--latency-msec=5", "--device=" + c + ".monitor", "/dev/null"});
    ASSERT_TRUE(eventually([&] { return readers() > readersBefore; }));
    pactl(s, {"suspend-sink", c, "1"});  // restarted, it serves the reader at once
    pactl(s, {"suspend-sink", c, "0"});
    EXPECT_TRUE(eventually([&] { return fired > before; }));
    ASSERT_EQ(hw.tapFormat(tap, f), 0);
    EXPECT_EQ(f.sampleRate, 48000);
    EXPECT_EQ(hw.destroyAggregateDevice(aggC), 0);
  }

  // Once its removal returns, the listener is never called again, though
  // the rate changes once more.
  ASSERT_EQ(hw.removePropertyListener(tap, ListenedProperty::tapFormat, listener), 0);
  EXPECT_NE(hw.removePropertyListener(tap, ListenedProperty::tapFormat, listener), 0);
  queue.sync([] {});
  const int atRemoval = fired;
  ASSERT_EQ(hw.tapFormat(tap, f), 0);
  const double rateBefore = f.sampleRate;
  AudioObjectID last = makeAggregate(rateBefore == 44100 ? a : b, tap);
  ASSERT_EQ(hw.tapFormat(tap, f), 0);
  EXPECT_NE(f.sampleRate, rateBefore);
  usleep(200000);
  queue.sync([] {});
  EXPECT_EQ(fired, atRemoval);
  EXPECT_EQ(hw.destroyAggregateDevice(last), 0);
  EXPECT_EQ(hw.destroyProcessTap(tap), 0);
}

}  // namespace
}  // namespace ac::platform::linux_backend
