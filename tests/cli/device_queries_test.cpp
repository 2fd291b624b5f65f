#include "cli/device_queries.h"

#include <gtest/gtest.h>

#include "simulated/sim_audio_hardware.h"

namespace ac {
namespace {

using sim::SimAudioHardware;

TEST(ListOutputs, SkipsInputOnlyAndUnnamedDevicesThenSortsCaseInsensitivelyAndStably) {
  SimAudioHardware hw;
  hw.addDevice({"spk", "speaker", 0, 1, {}});
  hw.addDevice({"mic", "Microphone", 0, 0, {1}});
  hw.addDevice({"hs1", "Headset", 0, 2, {}});
  hw.addDevice({"noname", std::nullopt, 0, 1, {}});
  hw.addDevice({"badname", "Hidden", -50, 1, {}});
  hw.addDevice({"empty", "", 0, 1, {}});
  hw.addDevice({"hs2", "headset", 0, 1, {}});
  hw.addDevice({"ecout", "Écouteurs", 0, 1, {}});
  hw.addDevice({"hs3", "HEADSET", 0, 1, {}});
  DeviceQueryOutcome o = listOutputsQuery(hw);
  EXPECT_EQ(o.out, "Écouteurs\nHeadset\nheadset\nHEADSET\nspeaker\n");
  EXPECT_EQ(o.err + std::to_string(o.exitStatus), "0");

  SimAudioHardware inputsOnly;
  inputsOnly.addDevice({"mic", "Mic", 0, 0, {1}});
  EXPECT_EQ(listOutputsQuery(inputsOnly).out + std::to_string(listOutputsQuery(inputsOnly).exitStatus), "0");
}

TEST(DeviceQueries, FailuresNameTheLookupAndStatus) {
  struct Case {
    const char* call;
    platform::OSStatus status;
    std::string listErr, currentErr;
  } cases[] = {
      {"DeviceListSize", -4, "list-outputs failed: device-list size lookup failed (status -4)\n", ""},
      {"DeviceList", -3, "list-outputs failed: device-list lookup failed (status -3)\n", ""},
      {"DefaultOutputDevice", -4, "", "current-output lookup failed: default output device lookup failed (status -4)\n"},
      {"ObjectName", 0, "", "current-output lookup failed: device name lookup failed (status 0)\n"},
  };
  for (const auto& c : cases) {
    SimAudioHardware hw;
    hw.setDefaultOutput(hw.addDevice({"spk", "speaker", 0, 1, {}}));
    hw.failAlways(c.call, c.status);
    DeviceQueryOutcome list = listOutputsQuery(hw), current = currentOutputQuery(hw);
    EXPECT_EQ(list.err, c.listErr) << c.call;
    EXPECT_EQ(list.exitStatus, c.listErr.empty() ? 0 : 1) << c.call;
    EXPECT_EQ(current.err, c.currentErr) << c.call;
    EXPECT_EQ(current.out, c.currentErr.empty() ? "speaker\n" : "") << c.call;
    EXPECT_EQ(current.exitStatus, c.currentErr.empty() ? 0 : 1) << c.call;
  }
}

}  // namespace
}  // namespace ac
