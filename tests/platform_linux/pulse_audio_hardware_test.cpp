// The PulseAudio hardware seam against a live server, for what the
// executable's suites cannot see: the tap following its aggregate's sink,
// IOProc stamps and stop, and listener removal. Device lists, names, the
// default output and queries without a server are proven through the
// executable (tests/main); the default-output listener moving capture, the
// stream shape and the stamps of both tracks against each other end to end
// (tests/e2e_*).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "platform/linux/pulse_audio_hardware.h"
#include "platform/linux/pulse_connection.h"
#include "platform_linux/pulse_test_server.h"

namespace ac::platform::linux_backend {
namespace {

using ac::testing::eventually;
using ac::testing::pactl;

// What an IOProc block saw, chunk by chunk.
struct Capture {
  struct Chunk {
    uint64_t hostTime;
    double sampleTime;
    uint32_t frames;
  };
  std::mutex mutex;
  std::vector<Chunk> chunks;
  std::atomic<bool> heardTone{false};

  IOBlock block() {
    return [this](const AudioBufferList* list, const AudioTimeStamp* time) {
      const AudioBuffer& b = list->buffers[0];
      for (uint32_t i = 0; i < b.dataByteSize / 4; ++i)
        if (std::fabs(static_cast<const float*>(b.data)[i]) > 0.5f) heardTone = true;
      std::lock_guard<std::mutex> g(mutex);
      chunks.push_back({time->hostTime, time->sampleTime, b.dataByteSize / 8});
    };
  }
  std::vector<Chunk> copy() {
    std::lock_guard<std::mutex> g(mutex);
    return chunks;
  }
};

class PulseAudioHardwareTest : public ac::testing::PulseServerTest {
 protected:
  AudioObjectID makeAggregate(const std::string& master, AudioObjectID tap) {
    std::optional<std::string> uid;
    EXPECT_EQ(hw.tapUID(tap, uid), 0);
    nlohmann::json d = {{"uid", "agg-" + master}, {"master", master}, {"taps", {{{"uid", uid.value_or("")}}}}};
    AudioObjectID agg = 0;
    EXPECT_EQ(hw.createAggregateDevice(d, agg), 0);
    return agg;
  }

  PulseAudioHardware hw{PulseConnection::shared()};
  SerialQueue queue{"c1.listeners"};
};

TEST_F(PulseAudioHardwareTest, TapFollowsTheSinkItRecordsAndTellsItsListenerUntilRemoved) {
  std::string a = uniqueName("a"), b = uniqueName("b");
  addSink(a, "C1-A", 48000);
  addSink(b, "C1-B", 44100);
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
  EXPECT_EQ(hw.destroyAggregateDevice(agg), 0);

  // The sink under capture changes rate: an idle PulseAudio sink takes the
  // rate of a stream that arrives at its alternate rate, 48 kHz (PipeWire
  // never moves an idle sink's rate).
  if (!ac::testing::onPipeWire()) {
    std::string c = uniqueName("c");
    loadModule("module-null-sink rate=44100 sink_name=" + c);
    AudioObjectID aggC = makeAggregate(c, tap);
    int before = fired;
    ac::testing::SimpleStream reader(c + ".monitor", {}, 48000);
    pactl("suspend-sink " + c + " 1");  // restarted, it serves the reader at once
    pactl("suspend-sink " + c + " 0");
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

TEST_F(PulseAudioHardwareTest, IOProcDeliversThePlayedMixWithSteadyHostTimesAndNothingAfterStop) {
  std::string s = uniqueName("spk");
  addSink(s, "C1-Speaker");
  AudioObjectID tap = 0;
  ASSERT_EQ(hw.createProcessTap(TapDescription{}, tap), 0);
  AudioObjectID agg = makeAggregate(s, tap);
  Capture cap;
  IOProcID proc = 0;
  ASSERT_EQ(hw.createIOProc(agg, "audio-capture.ioproc", cap.block(), proc), 0);
  ASSERT_EQ(hw.startDevice(agg, proc), 0);
  ac::testing::SimpleStream player(s, ac::testing::tone(2.0));
  ASSERT_TRUE(eventually([&] { return cap.heardTone.load(); }));
  usleep(200000);
  ASSERT_EQ(hw.stopDevice(agg, proc), 0);
  const size_t chunksAtStop = cap.copy().size();
  usleep(100000);
  EXPECT_EQ(cap.copy().size(), chunksAtStop);

  auto chunks = cap.copy();
  ASSERT_GT(chunks.size(), 10u);
  double worstStep = 0;
  for (size_t i = 0; i < chunks.size(); ++i) {
    const auto& c = chunks[i];
    if (i == 0) continue;
    const auto& p = chunks[i - 1];
    EXPECT_EQ(c.sampleTime, p.sampleTime + p.frames);
    worstStep = std::max(worstStep, std::fabs(double(int64_t(c.hostTime - p.hostTime)) - p.frames * 1e9 / 48000));
  }
  EXPECT_LT(worstStep, 1e6) << "stamps advance by frames/rate";
  EXPECT_EQ(hw.destroyIOProc(agg, proc), 0);
  EXPECT_EQ(hw.destroyAggregateDevice(agg), 0);
  EXPECT_EQ(hw.destroyProcessTap(tap), 0);
}

}  // namespace
}  // namespace ac::platform::linux_backend
