#include "recorder/aac_settings.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "recorder_harness.h"
#include "support/error.h"

namespace ac {
namespace {

using test::LogCapture;

TEST(AACSettings, SnapsRatesAndChannelsOntoWhatTheEncoderTakes) {
  const struct {
    double in, out;
  } rates[] = {{96000, 48000}, {45000, 44100}, {22050, 22050}, {7000, 8000}, {-44100, 48000}, {std::nan(""), 48000}};
  for (const auto& c : rates) EXPECT_EQ(aacSampleRate(c.in), c.out) << c.in;
  const struct {
    uint32_t in;
    int out;
  } channels[] = {{6, 2}, {1, 1}, {0, 1}};
  for (const auto& c : channels) EXPECT_EQ(aacChannelCount(c.in), c.out) << c.in;

  const platform::AudioOutputSettings s = aacOutputSettings(96000, 6, 128000);
  EXPECT_EQ(s, (platform::AudioOutputSettings{platform::fourCC("aac "), 48000, 2, 128000}));
}

TEST(AACSettings, CandidatesDescendToTheFloorThenTheStereoBackstop) {
  using C = AACCandidate;
  EXPECT_EQ(
      aacSettingsCandidates(48000, 2),
      (std::vector<C>{
          {48000, 2}, {44100, 2}, {32000, 2}, {24000, 2}, {22050, 2}, {16000, 2}, {12000, 2}, {11025, 2}, {8000, 2}}));
  EXPECT_EQ(
      aacSettingsCandidates(44100, 1),
      (std::vector<C>{
          {44100, 1}, {32000, 1}, {24000, 1}, {22050, 1}, {16000, 1}, {12000, 1}, {11025, 1}, {8000, 1}, {48000, 2}}));
  EXPECT_EQ(aacSettingsCandidates(7000, 2), (std::vector<C>{{8000, 2}, {48000, 2}}));
}

struct BuildCase {
  double rate;
  uint32_t channels;
  double wantRate;
  int wantChannels;
  bool clamped;
};

TEST(AACWriterInput, BuildsRealTimeInputsAndFlagsClamping) {
  const BuildCase cases[] = {
      {45000, 2, 44100, 2, true}, {48000, 6, 48000, 2, true}, {48000, 2, 48000, 2, false}, {44100, 2, 44100, 2, false}};
  for (const auto& c : cases) {
    auto writer =
        std::make_shared<sim::SimAssetWriter>("x", platform::MediaTime{}, std::make_shared<sim::SimWriterScript>());
    AACWriterInput r = makeAACWriterInput(*writer, c.rate, c.channels, 128000, "sys", true);
    EXPECT_EQ(r.rate, c.wantRate) << c.rate;
    EXPECT_EQ(r.channels, c.wantChannels) << c.rate;
    EXPECT_EQ(r.clamped, c.clamped) << c.rate << "/" << c.channels;
    auto input = std::static_pointer_cast<sim::SimWriterInput>(r.input);
    EXPECT_TRUE(input->expectsRealTime());
    EXPECT_EQ(input->settings().formatID, platform::kAudioFormatMPEG4AAC);
  }
}

TEST(AACWriterInput, StepsDownPastRefusalsWithOneLinePerStep) {
  LogCapture logs;
  auto script = std::make_shared<sim::SimWriterScript>();
  script->accepts = [](const platform::AudioOutputSettings& s) { return s.sampleRate <= 32000; };
  auto writer = std::make_shared<sim::SimAssetWriter>("x", platform::MediaTime{}, script);
  AACWriterInput r = makeAACWriterInput(*writer, 96000, 2, 128000, "sys", true);
  EXPECT_EQ(r.rate, 32000);
  EXPECT_EQ(logs.lines(),
            (std::vector<std::string>{"sys aac: encoder rejected sr=48000.0 ch=2 — stepping down",
                                      "sys aac: encoder rejected sr=44100.0 ch=2 — stepping down",
                                      "sys aac: source sr=96000.0 ch=2 → encode sr=32000.0 ch=2 (clamped)"}));

  LogCapture micLogs;
  makeAACWriterInput(
      *std::make_shared<sim::SimAssetWriter>("x", platform::MediaTime{}, std::make_shared<sim::SimWriterScript>()),
      48000, 1, 64000, "mic", false);
  EXPECT_EQ(micLogs.lines().back(), "mic aac: requested PCM sr=48000.0 ch=1 → encode sr=48000.0 ch=1 (fixed)");
}

TEST(AACWriterInput, EveryCandidateRefusedThrowsMinusSeven) {
  LogCapture logs;
  auto script = std::make_shared<sim::SimWriterScript>();
  script->accepts = [](const platform::AudioOutputSettings&) { return false; };
  auto writer = std::make_shared<sim::SimAssetWriter>("x", platform::MediaTime{}, script);
  try {
    makeAACWriterInput(*writer, 44100, 1, 64000, "mic", false);
    FAIL() << "no throw";
  } catch (const CaptureError& e) {
    EXPECT_EQ(e.code(), -7);
    EXPECT_EQ(e.error().domain, "audio-capture");
    EXPECT_STREQ(e.what(), "no supported AAC settings for mic (source sr=44100.0 ch=1)");
  }
  EXPECT_EQ(writer->settingsAsked().size(), 9u);
  EXPECT_EQ(logs.matching("mic aac: encoder rejected").size(), 9u);
}

}  // namespace
}  // namespace ac
