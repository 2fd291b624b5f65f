#include "capture/process_tap.h"

#include <gtest/gtest.h>

#include <regex>

#include "capture_fixture.h"
#include "support/error.h"

namespace ac::capture {
namespace {

using platform::AudioObjectID;

TEST(ProcessTap, EveryFailureLeavesNoTapBehind) {
  struct Case {
    const char* call;
    platform::OSStatus status;
    platform::StreamFormat format;
    std::string error;
  } cases[] = {
      {"AudioHardwareCreateProcessTap", -1, platform::floatPCMFormat(48000, 2),
       "-1 AudioHardwareCreateProcessTap failed"},
      {"TapUID", -2, platform::floatPCMFormat(48000, 2), "-2 Get tap UID failed"},
      {"TapFormat", -3, platform::floatPCMFormat(48000, 2), "-3 Get tap format failed"},
      {nullptr, 0, platform::floatPCMFormat(7999, 2), "-8 tap reported an unusable format (sr=7999.0 ch=2 bpf=8)"},
  };
  for (const auto& c : cases) {
    sim::SimAudioHardware hw;
    hw.nextTapFormat.set(c.format);
    if (c.call) hw.failNext(c.call, c.status);
    std::string error = "no error";
    try {
      createProcessTap(hw);
    } catch (const CaptureError& e) {
      error = std::to_string(e.code()) + " " + e.what();
    }
    EXPECT_EQ(error, c.error);
    EXPECT_TRUE(hw.liveTaps().empty()) << c.error;
  }
}

TEST(ProcessTap, APrivateUnmutedGlobalStereoTapInAnAggregateOfExactlySevenKeys) {
  sim::SimAudioHardware hw;
  hw.addDevice({"spk", "Speakers", 0, 1, {}});
  ProcessTap tap = createProcessTap(hw);
  EXPECT_EQ(tap.uid, "sim-tap-" + std::to_string(tap.tapID));
  EXPECT_EQ(tap.format.sampleRate, 48000);
  auto t = hw.lastTapDescription.get();
  ASSERT_TRUE(t);
  EXPECT_TRUE(t->stereoGlobal && t->isPrivate && !t->muted && t->excludedProcesses.empty());
  AudioObjectID agg = createAggregate(hw, tap.uid, "spk");
  EXPECT_NE(agg, 0u);
  createAggregate(hw, tap.uid, "spk");

  auto descriptions = hw.aggregateDescriptions.get();
  ASSERT_EQ(descriptions.size(), 2u);
  nlohmann::json d = descriptions[0];
  const std::string uid = d["uid"];
  EXPECT_TRUE(std::regex_match(uid, std::regex("audio-capture-tap-[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}")))
      << uid;
  EXPECT_NE(descriptions[1]["uid"], uid);  // fresh for every aggregate
  nlohmann::json expected = {
      {"name", "audio-capture system tap"},
      {"uid", uid},
      {"master", "spk"},
      {"private", 1},
      {"stacked", 0},
      {"taps", {{{"uid", tap.uid}, {"drift", 1}}}},
      {"subdevices", {{{"uid", "spk"}}}},
  };
  EXPECT_EQ(d, expected);
}

}  // namespace
}  // namespace ac::capture
