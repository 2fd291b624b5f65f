// The PulseAudio hardware seam against a live server: device queries, the
// tap and its aggregate, IOProcs and listeners.
#include <gtest/gtest.h>

#include <pthread.h>

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
    uint64_t hostTime, calledAt;
    double sampleTime;
    uint32_t frames, buffers, channels;
    float peak;
  };
  std::mutex mutex;
  std::vector<Chunk> chunks;
  std::string threadName;
  std::atomic<int> calls{0};

  IOBlock block(AudioHardware& hw) {
    return [this, &hw](const AudioBufferList* list, const AudioTimeStamp* time) {
      uint64_t now = hw.hostTimeNow();
      const AudioBuffer& b = list->buffers[0];
      char name[16] = {};
      pthread_getname_np(pthread_self(), name, sizeof name);
      std::lock_guard<std::mutex> g(mutex);
      threadName = name;
      chunks.push_back({time->hostTime, now, time->sampleTime, b.dataByteSize / 8, list->numberBuffers,
                        b.numberChannels, ac::testing::peak(static_cast<const float*>(b.data), b.dataByteSize / 4)});
      ++calls;
    };
  }
  std::vector<Chunk> copy() {
    std::lock_guard<std::mutex> g(mutex);
    return chunks;
  }
};

class PulseAudioHardwareTest : public ac::testing::PulseServerTest {
 protected:
  AudioObjectID idOf(const std::string& uid) {
    AudioObjectID id = 0;
    EXPECT_EQ(hw.translateUIDToDevice(uid, id), 0) << uid;
    return id;
  }
  std::string name(AudioObjectID id) {
    std::optional<std::string> n;
    EXPECT_EQ(hw.objectName(id, n), 0);
    return n.value_or("<none>");
  }
  // Channel counts of a device's stream configuration in one scope.
  std::vector<uint32_t> configuration(AudioObjectID id, Scope scope) {
    uint32_t size = 0;
    EXPECT_EQ(hw.streamConfigurationByteSize(id, scope, size), 0);
    std::vector<uint8_t> room(std::max<uint32_t>(size, 24), 0);
    uint32_t io = size;
    EXPECT_EQ(hw.streamConfiguration(id, scope, room.data(), io), 0);
    EXPECT_EQ(io, size);
    auto* list = reinterpret_cast<AudioBufferList*>(room.data());
    std::vector<uint32_t> channels;
    for (uint32_t i = 0; i < list->numberBuffers; ++i) channels.push_back(list->buffers[i].numberChannels);
    return channels;
  }
  AudioObjectID makeTap() {
    AudioObjectID tap = 0;
    EXPECT_EQ(hw.createProcessTap(TapDescription{}, tap), 0);
    return tap;
  }
  AudioObjectID makeAggregate(const std::string& master, AudioObjectID tap) {
    std::optional<std::string> uid;
    EXPECT_EQ(hw.tapUID(tap, uid), 0);
    nlohmann::json d = {{"name", "audio-capture system tap"}, {"uid", "agg-" + master}, {"master", master},
                        {"taps", {{{"uid", uid.value_or("")}, {"drift", 1}}}}};
    AudioObjectID agg = 0;
    EXPECT_EQ(hw.createAggregateDevice(d, agg), 0);
    return agg;
  }

  PulseAudioHardware hw{PulseConnection::shared()};
  SerialQueue queue{"c1.listeners"};
};

TEST_F(PulseAudioHardwareTest, SinksAndInputSourcesAreDevicesWithNamesAndStreams) {
  std::string out = uniqueName("out"), mic = uniqueName("mic");
  addSink(out, "C1-Output");
  addMicOn(out, mic, "C1-Mic");
  AudioObjectID outID = idOf(out), micID = idOf(mic);
  ASSERT_NE(outID, micID);

  uint32_t bytes = 0;
  ASSERT_EQ(hw.deviceListByteSize(bytes), 0);
  std::vector<AudioObjectID> ids(bytes / 4, 0);
  ASSERT_EQ(hw.deviceList(ids), 0);
  EXPECT_NE(std::find(ids.begin(), ids.end(), outID), ids.end());
  EXPECT_NE(std::find(ids.begin(), ids.end(), micID), ids.end());
  AudioObjectID monitor = 7;  // monitors are no devices
  EXPECT_NE(hw.translateUIDToDevice(out + ".monitor", monitor), 0);
  EXPECT_EQ(monitor, 0u);

  std::optional<std::string> uid;
  EXPECT_EQ(hw.deviceUID(outID, uid), 0);
  EXPECT_EQ(uid, out);
  EXPECT_EQ(name(outID), "C1-Output");
  EXPECT_EQ(name(micID), "C1-Mic");
  struct Case {
    AudioObjectID id;
    Scope scope;
    std::vector<uint32_t> channels;
  } cases[] = {{outID, Scope::output, {2}}, {outID, Scope::input, {}}, {micID, Scope::input, {2}}, {micID, Scope::output, {}}};
  for (const auto& c : cases) {
    uint32_t streams = 99;
    EXPECT_EQ(hw.streamsByteSize(c.id, c.scope, streams), 0);
    EXPECT_EQ(streams, 4 * c.channels.size()) << c.id << " scope " << int(c.scope);
    EXPECT_EQ(configuration(c.id, c.scope), c.channels) << c.id << " scope " << int(c.scope);
  }
}

TEST_F(PulseAudioHardwareTest, DefaultOutputFollowsTheServerAndIDsAreStableByName) {
  std::string a = uniqueName("a"), b = uniqueName("b");
  addSink(a, "C1-A");
  std::string moduleB = addSink(b, "C1-B");
  AudioObjectID idB = idOf(b), def = 0;
  pactl("set-default-sink " + b);
  ASSERT_EQ(hw.defaultOutputDevice(def), 0);
  EXPECT_EQ(def, idB);
  pactl("set-default-sink " + a);
  ASSERT_EQ(hw.defaultOutputDevice(def), 0);
  EXPECT_EQ(def, idOf(a));

  // A device that goes away is unknown until it returns, with the same ID.
  unloadModule(moduleB);
  std::optional<std::string> n;
  EXPECT_NE(hw.objectName(idB, n), 0);
  addSink(b, "C1-B-again");
  EXPECT_EQ(idOf(b), idB);
  EXPECT_EQ(name(idB), "C1-B-again");
}

TEST(PulseUnreachableServer, EveryQueryFailsWithAStatus) {
  PulseAudioHardware hw(std::make_shared<PulseConnection>("c1-dead", "unix:/nonexistent/pulse.sock"));
  AudioObjectID id = 0;
  uint32_t bytes = 0;
  std::optional<std::string> s;
  std::vector<AudioObjectID> ids(4, 0);
  EXPECT_NE(hw.defaultOutputDevice(id), 0);
  EXPECT_NE(hw.deviceListByteSize(bytes), 0);
  EXPECT_NE(hw.deviceList(ids), 0);
  EXPECT_NE(hw.translateUIDToDevice("anything", id), 0);
  EXPECT_NE(hw.objectName(2, s), 0);
  EXPECT_NE(hw.createProcessTap(TapDescription{}, id), 0);
}

TEST_F(PulseAudioHardwareTest, TapFollowsTheSinkItRecordsAndTheAggregateShowsOnlyTheTap) {
  std::string a = uniqueName("a"), b = uniqueName("b");
  addSink(a, "C1-A", 48000);
  addSink(b, "C1-B", 44100);
  pactl("set-default-sink " + a);
  AudioObjectID tap = makeTap();
  std::optional<std::string> uid;
  ASSERT_EQ(hw.tapUID(tap, uid), 0);
  EXPECT_EQ(uid.value_or("").rfind("pulse-tap-", 0), 0u);
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
  EXPECT_EQ(configuration(agg, Scope::input), std::vector<uint32_t>{2});
  EXPECT_EQ(idOf("agg-" + b), agg);
  for (const nlohmann::json& d : {nlohmann::json{{"master", b}, {"taps", {{{"uid", "no-such-tap"}}}}},
                                  nlohmann::json{{"master", "no-such-sink"}, {"taps", {{{"uid", *uid}}}}},
                                  nlohmann::json{{"taps", {{{"uid", *uid}}}}}}) {
    AudioObjectID none = 0;
    EXPECT_NE(hw.createAggregateDevice(d, none), 0) << d.dump();
  }
  EXPECT_EQ(hw.destroyAggregateDevice(agg), 0);

  // The sink under capture changes rate: an idle PulseAudio sink takes the
  // rate of a stream that arrives at its alternate rate, 48 kHz.
  if (ac::testing::onPipeWire()) return;
  std::string c = uniqueName("c");
  loadModule("module-null-sink rate=44100 sink_name=" + c);
  AudioObjectID aggC = makeAggregate(c, tap);
  ASSERT_EQ(hw.tapFormat(tap, f), 0);
  EXPECT_EQ(f.sampleRate, 44100);
  int before = fired;
  ac::testing::SimpleStream reader(c + ".monitor", {}, 48000);
  pactl("suspend-sink " + c + " 1");  // restarted, it serves the reader at once
  pactl("suspend-sink " + c + " 0");
  EXPECT_TRUE(eventually([&] { return fired > before; }));
  ASSERT_EQ(hw.tapFormat(tap, f), 0);
  EXPECT_EQ(f.sampleRate, 48000);
  EXPECT_EQ(hw.destroyAggregateDevice(aggC), 0);
  EXPECT_EQ(hw.removePropertyListener(tap, ListenedProperty::tapFormat, listener), 0);
  EXPECT_EQ(hw.destroyProcessTap(tap), 0);
}

TEST_F(PulseAudioHardwareTest, IOProcDeliversThePlayedMixWithSteadyHostTimesAndNothingAfterStop) {
  std::string s = uniqueName("spk"), t = uniqueName("hdmi");
  addSink(s, "C1-Speaker");
  addSink(t, "C1-HDMI");
  pactl("set-default-sink " + s);
  AudioObjectID tap = makeTap(), agg = makeAggregate(s, tap);
  Capture cap;
  IOProcID proc = 0;
  ASSERT_EQ(hw.createIOProc(agg, "audio-capture.ioproc", cap.block(hw), proc), 0);
  ASSERT_EQ(hw.startDevice(agg, proc), 0);
  ac::testing::TonePlayer player(s, ac::testing::leadThenTone(0.1, 2.0));
  ASSERT_TRUE(eventually([&] {
    auto c = cap.copy();
    return std::any_of(c.begin(), c.end(), [](const Capture::Chunk& k) { return k.peak > 0.5f; });
  }));
  usleep(200000);
  ASSERT_EQ(hw.stopDevice(agg, proc), 0);
  int callsAtStop = cap.calls;
  usleep(100000);
  EXPECT_EQ(cap.calls, callsAtStop);

  auto chunks = cap.copy();
  ASSERT_GT(chunks.size(), 10u);
  EXPECT_EQ(cap.threadName, "audio-capture.i");  // the queue label, cut to the kernel's 15 bytes
  double worstStep = 0;
  for (size_t i = 0; i < chunks.size(); ++i) {
    const auto& c = chunks[i];
    EXPECT_EQ(c.buffers, 1u);
    EXPECT_EQ(c.channels, 2u);
    // Captured before the block ran (give or take the server's block-wise
    // timing reports, which the stamps catch up with in a few chunks).
    int64_t lag = int64_t(c.calledAt - c.hostTime);
    EXPECT_GT(lag, -5'000'000);
    EXPECT_LT(lag, 150'000'000);
    if (i == 0) continue;
    const auto& p = chunks[i - 1];
    EXPECT_EQ(c.sampleTime, p.sampleTime + p.frames);
    worstStep = std::max(worstStep, std::fabs(double(int64_t(c.hostTime - p.hostTime)) - p.frames * 1e9 / 48000));
  }
  EXPECT_LT(worstStep, 1e6) << "stamps advance by frames/rate";

  // A rebuild on another sink while the tap lives on.
  ASSERT_EQ(hw.destroyIOProc(agg, proc), 0);
  ASSERT_EQ(hw.destroyAggregateDevice(agg), 0);
  AudioObjectID agg2 = makeAggregate(t, tap);
  ac::testing::TonePlayer player2(t, ac::testing::leadThenTone(0, 2.0));
  Capture cap2;
  IOProcID proc2 = 0;
  ASSERT_EQ(hw.createIOProc(agg2, "audio-capture.ioproc", cap2.block(hw), proc2), 0);
  ASSERT_EQ(hw.startDevice(agg2, proc2), 0);
  EXPECT_TRUE(eventually([&] { return cap2.calls > 5; }));
  // Destroying the aggregate stops its IOProc too.
  ASSERT_EQ(hw.destroyAggregateDevice(agg2), 0);
  int calls2 = cap2.calls;
  usleep(50000);
  EXPECT_EQ(cap2.calls, calls2);
  EXPECT_NE(hw.destroyIOProc(agg2, proc2), 0);
  EXPECT_EQ(hw.destroyProcessTap(tap), 0);
}

TEST_F(PulseAudioHardwareTest, DefaultDeviceListenersFireOnTheirQueueUntilRemoved) {
  std::string a = uniqueName("a"), b = uniqueName("b"), mic1 = uniqueName("mic"), mic2 = uniqueName("mic");
  addSink(a, "C1-A");
  addSink(b, "C1-B");
  addMicOn(a, mic1, "C1-Mic-1");
  addMicOn(a, mic2, "C1-Mic-2");
  pactl("set-default-sink " + a);
  pactl("set-default-source " + mic1);

  std::atomic<int> outputs{0}, inputs{0};
  std::atomic<bool> onQueue{true};
  ListenerID out = 0, in = 0;
  ASSERT_EQ(hw.addPropertyListener(kAudioObjectSystemObject, ListenedProperty::defaultOutputDevice, queue,
                                   [&] { onQueue = onQueue && queue.isCurrent(), ++outputs; }, out),
            0);
  ASSERT_EQ(hw.addPropertyListener(kAudioObjectSystemObject, ListenedProperty::defaultInputDevice, queue,
                                   [&] { ++inputs; }, in),
            0);
  pactl("set-default-sink " + b);
  EXPECT_TRUE(eventually([&] { return outputs == 1; }));
  EXPECT_TRUE(onQueue);
  pactl("set-default-source " + mic2);
  EXPECT_TRUE(eventually([&] { return inputs == 1; }));
  EXPECT_EQ(outputs, 1);

  ASSERT_EQ(hw.removePropertyListener(kAudioObjectSystemObject, ListenedProperty::defaultOutputDevice, out), 0);
  pactl("set-default-sink " + a);
  usleep(200000);
  queue.sync([] {});
  EXPECT_EQ(outputs, 1);
  EXPECT_EQ(hw.removePropertyListener(kAudioObjectSystemObject, ListenedProperty::defaultInputDevice, in), 0);
  EXPECT_NE(hw.removePropertyListener(kAudioObjectSystemObject, ListenedProperty::defaultInputDevice, in), 0);
}

}  // namespace
}  // namespace ac::platform::linux_backend
