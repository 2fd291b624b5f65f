#include "cli/device_queries.h"

#include <gtest/gtest.h>

#include <unicode/locid.h>

#include <map>

namespace ac {
namespace {

using namespace platform;

// Devices by id: name (absent = the name lookup fails) and output stream
// bytes (0 = input-only). Everything the queries do not use is unimplemented.
class FakeHardware final : public AudioHardware {
 public:
  struct Device {
    std::optional<std::string> name;
    uint32_t outputStreamBytes = 8;
  };
  std::vector<std::pair<AudioObjectID, Device>> devices;
  AudioObjectID defaultOutput = 0;
  OSStatus listStatus = 0, listSizeStatus = 0, defaultStatus = 0;

  OSStatus defaultOutputDevice(AudioObjectID& out) override {
    out = defaultOutput;
    return defaultStatus;
  }
  OSStatus objectName(AudioObjectID id, std::optional<std::string>& out) override {
    for (auto& [did, d] : devices)
      if (did == id) {
        out = d.name;
        return d.name ? 0 : -50;
      }
    return -50;
  }
  OSStatus deviceListByteSize(uint32_t& bytes) override {
    bytes = uint32_t(devices.size() * 4);
    return listSizeStatus;
  }
  OSStatus deviceList(std::vector<AudioObjectID>& ids) override {
    for (size_t i = 0; i < ids.size() && i < devices.size(); ++i) ids[i] = devices[i].first;
    return listStatus;
  }
  OSStatus streamsByteSize(AudioObjectID id, Scope scope, uint32_t& bytes) override {
    if (scope != Scope::output) return -1;
    for (auto& [did, d] : devices)
      if (did == id) {
        bytes = d.outputStreamBytes;
        return 0;
      }
    return -50;
  }

  OSStatus deviceUID(AudioObjectID, std::optional<std::string>&) override { return kUnimplementedErr; }
  OSStatus translateUIDToDevice(const std::string&, AudioObjectID&) override { return kUnimplementedErr; }
  OSStatus streamConfigurationByteSize(AudioObjectID, Scope, uint32_t&) override { return kUnimplementedErr; }
  OSStatus streamConfiguration(AudioObjectID, Scope, void*, uint32_t&) override { return kUnimplementedErr; }
  OSStatus createProcessTap(const TapDescription&, AudioObjectID&) override { return kUnimplementedErr; }
  OSStatus destroyProcessTap(AudioObjectID) override { return kUnimplementedErr; }
  OSStatus tapUID(AudioObjectID, std::optional<std::string>&) override { return kUnimplementedErr; }
  OSStatus tapFormat(AudioObjectID, StreamFormat&) override { return kUnimplementedErr; }
  OSStatus createAggregateDevice(const nlohmann::json&, AudioObjectID&) override { return kUnimplementedErr; }
  OSStatus destroyAggregateDevice(AudioObjectID) override { return kUnimplementedErr; }
  OSStatus createIOProc(AudioObjectID, const std::string&, IOBlock, IOProcID&) override { return kUnimplementedErr; }
  OSStatus startDevice(AudioObjectID, IOProcID) override { return kUnimplementedErr; }
  OSStatus stopDevice(AudioObjectID, IOProcID) override { return kUnimplementedErr; }
  OSStatus destroyIOProc(AudioObjectID, IOProcID) override { return kUnimplementedErr; }
  OSStatus addPropertyListener(AudioObjectID, ListenedProperty, ::ac::SerialQueue&, ListenerBlock,
                               ListenerID&) override {
    return kUnimplementedErr;
  }
  OSStatus removePropertyListener(AudioObjectID, ListenedProperty, ListenerID) override { return kUnimplementedErr; }
  uint64_t hostTimeNow() override { return 0; }
  void hostTimebase(uint32_t& n, uint32_t& d) override { n = d = 1; }
};

TEST(ListOutputs, SkipsInputOnlyNamelessAndEmptyNamesThenSortsStably) {
  FakeHardware hw;
  hw.devices = {
      {10, {"speaker", 8}},      {11, {"Microphone", 0}}, {12, {"Headset", 16}}, {13, {std::nullopt, 8}},
      {14, {"", 8}},             {15, {"headset", 8}},    {16, {"Écouteurs", 8}}, {17, {"HEADSET", 8}},
      {18, {"built-in", 8}},
  };
  // Case-insensitive: the three headsets keep device order among themselves.
  std::vector<std::string> expected = {"built-in", "Écouteurs", "Headset", "headset", "HEADSET", "speaker"};
  EXPECT_EQ(listOutputDeviceNames(hw), expected);
  DeviceQueryOutcome o = listOutputsQuery(hw);
  EXPECT_EQ(o.out, "built-in\nÉcouteurs\nHeadset\nheadset\nHEADSET\nspeaker\n");
  EXPECT_EQ(o.err, "");
  EXPECT_EQ(o.exitStatus, 0);
}

TEST(ListOutputs, OnlyInputsOrNoDevicesListNothing) {
  FakeHardware hw;
  EXPECT_EQ(listOutputsQuery(hw).out, "");
  hw.devices = {{3, {"Mic", 0}}};
  DeviceQueryOutcome o = listOutputsQuery(hw);
  EXPECT_EQ(o.out, "");
  EXPECT_EQ(o.exitStatus, 0);
}

TEST(DeviceQueries, FailuresNameTheLookupAndStatus) {
  struct Case {
    OSStatus listSize, list, dflt;
    std::string listErr, currentErr;
  } cases[] = {
      {-4, 0, 0, "list-outputs failed: device-list size lookup failed (status -4)\n", ""},
      {0, -3, 0, "list-outputs failed: device-list lookup failed (status -3)\n", ""},
      {0, 0, -4, "", "current-output lookup failed: default output device lookup failed (status -4)\n"},
  };
  for (const auto& c : cases) {
    FakeHardware hw;
    hw.devices = {{7, {"speaker", 8}}};
    hw.defaultOutput = 7;
    hw.listSizeStatus = c.listSize;
    hw.listStatus = c.list;
    hw.defaultStatus = c.dflt;
    DeviceQueryOutcome list = listOutputsQuery(hw), current = currentOutputQuery(hw);
    EXPECT_EQ(list.err, c.listErr);
    EXPECT_EQ(list.exitStatus, c.listErr.empty() ? 0 : 1);
    EXPECT_EQ(current.err, c.currentErr);
    EXPECT_EQ(current.out, c.currentErr.empty() ? "speaker\n" : "");
    EXPECT_EQ(current.exitStatus, c.currentErr.empty() ? 0 : 1);
  }
}

TEST(DeviceQueries, CurrentOutputWithoutAReadableNameFails) {
  FakeHardware hw;
  hw.devices = {{7, {std::nullopt, 8}}};
  hw.defaultOutput = 7;
  DeviceQueryOutcome o = currentOutputQuery(hw);
  EXPECT_EQ(o.err, "current-output lookup failed: device name lookup failed (status -50)\n");
  EXPECT_EQ(o.exitStatus, 1);
}

}  // namespace
}  // namespace ac

namespace ac {
namespace {

TEST(SortDeviceNames, PosixDefaultLocaleStillSortsCaseInsensitively) {
  UErrorCode status = U_ZERO_ERROR;
  icu::Locale saved = icu::Locale::getDefault();
  for (const char* locale : {"en_US_POSIX", "en_US", "de_DE"}) {
    icu::Locale::setDefault(icu::Locale(locale), status);
    std::vector<std::string> names = {"b", "B", "a", "A", "c"};
    sortDeviceNames(names);
    EXPECT_EQ(names, (std::vector<std::string>{"a", "A", "b", "B", "c"})) << locale;
  }
  icu::Locale::setDefault(saved, status);
}

}  // namespace
}  // namespace ac
