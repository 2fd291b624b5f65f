// Device queries of the PulseAudio hardware seam against a live server.
#include <gtest/gtest.h>

#include <cstring>

#include "platform/linux/pulse_audio_hardware.h"
#include "platform/linux/pulse_connection.h"
#include "platform/linux/pulse_status.h"
#include "platform_linux/pulse_test_server.h"

namespace ac::platform::linux_backend {
namespace {

using ac::testing::pactl;

class PulseDeviceQueries : public ac::testing::PulseServerTest {
 protected:
  std::vector<AudioObjectID> devices() {
    uint32_t bytes = 0;
    EXPECT_EQ(hw.deviceListByteSize(bytes), 0);
    std::vector<AudioObjectID> ids(bytes / 4, 0);
    EXPECT_EQ(hw.deviceList(ids), 0);
    return ids;
  }
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
  uint32_t streams(AudioObjectID id, Scope scope) {
    uint32_t bytes = 99;
    EXPECT_EQ(hw.streamsByteSize(id, scope, bytes), 0);
    return bytes;
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

  PulseAudioHardware hw{PulseConnection::shared()};
};

TEST_F(PulseDeviceQueries, SinksAndInputSourcesAreDevicesWithTheirNamesAndStreams) {
  std::string out = uniqueName("out"), mic = uniqueName("mic");
  addSink(out, "C1-Output");
  addMicOn(out, mic, "C1-Mic");

  AudioObjectID outID = idOf(out), micID = idOf(mic);
  ASSERT_NE(outID, 0u);
  ASSERT_NE(micID, 0u);
  EXPECT_NE(outID, micID);
  auto ids = devices();
  EXPECT_NE(std::find(ids.begin(), ids.end(), outID), ids.end());
  EXPECT_NE(std::find(ids.begin(), ids.end(), micID), ids.end());
  // Monitors are no devices: their names never translate.
  AudioObjectID monitor = 7;
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
    uint32_t bytes;
    std::vector<uint32_t> channels;
  } cases[] = {
      {outID, Scope::output, 4, {2}}, {outID, Scope::input, 0, {}},
      {micID, Scope::input, 4, {2}},  {micID, Scope::output, 0, {}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(streams(c.id, c.scope), c.bytes) << c.id << " scope " << int(c.scope);
    EXPECT_EQ(configuration(c.id, c.scope), c.channels) << c.id << " scope " << int(c.scope);
  }
}

TEST_F(PulseDeviceQueries, DefaultOutputFollowsTheServerAndIDsAreStableByName) {
  std::string a = uniqueName("a"), b = uniqueName("b");
  addSink(a, "C1-A");
  std::string moduleB = addSink(b, "C1-B");
  AudioObjectID idB = idOf(b);

  pactl("set-default-sink " + b);
  AudioObjectID def = 0;
  ASSERT_EQ(hw.defaultOutputDevice(def), 0);
  EXPECT_EQ(def, idB);
  pactl("set-default-sink " + a);
  ASSERT_EQ(hw.defaultOutputDevice(def), 0);
  EXPECT_EQ(def, idOf(a));

  // A device that goes away is unknown until it returns, with the same ID.
  unloadModule(moduleB);
  std::optional<std::string> n;
  EXPECT_NE(hw.objectName(idB, n), 0);
  AudioObjectID gone = 1;
  EXPECT_NE(hw.translateUIDToDevice(b, gone), 0);
  EXPECT_EQ(gone, 0u);
  addSink(b, "C1-B-again");
  EXPECT_EQ(idOf(b), idB);
  EXPECT_EQ(name(idB), "C1-B-again");
}

TEST(PulseUnreachableServer, EveryQueryFailsWithAStatus) {
  auto dead = std::make_shared<PulseConnection>("c1-dead", "unix:/nonexistent/pulse.sock");
  PulseAudioHardware hw(dead);
  AudioObjectID id = 0;
  uint32_t bytes = 0;
  std::optional<std::string> s;
  std::vector<AudioObjectID> ids(4, 0);
  EXPECT_NE(hw.defaultOutputDevice(id), 0);
  EXPECT_NE(hw.deviceListByteSize(bytes), 0);
  EXPECT_NE(hw.deviceList(ids), 0);
  EXPECT_NE(hw.translateUIDToDevice("anything", id), 0);
  EXPECT_NE(hw.objectName(2, s), 0);
  StreamFormat f;
  TapDescription tap;
  EXPECT_NE(hw.createProcessTap(tap, id), 0);
}

}  // namespace
}  // namespace ac::platform::linux_backend
