#include "recorder/aac_settings.h"

#include <gtest/gtest.h>

#include <cmath>

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
      aacSettingsCandidates(44100, 1),
      (std::vector<C>{
          {44100, 1}, {32000, 1}, {24000, 1}, {22050, 1}, {16000, 1}, {12000, 1}, {11025, 1}, {8000, 1}, {48000, 2}}));
  EXPECT_EQ(aacSettingsCandidates(7000, 2), (std::vector<C>{{8000, 2}, {48000, 2}}));
}

TEST(AACWriterInput, StepsDownPastRefusalsWithOneLinePerStepAndThrowsMinusSevenWhenAllAreRefused) {
  LogCapture logs;
  auto script = std::make_shared<sim::SimWriterScript>();
  script->accepts = [](const platform::AudioOutputSettings& s) { return s.sampleRate <= 32000; };
  sim::SimAssetWriter writer(script);
  const AACWriterInput r = makeAACWriterInput(writer, 96000, 2, 128000, "sys", true);
  EXPECT_EQ(std::tuple(r.rate, r.channels, r.clamped), std::tuple(32000.0, 2, true));
  auto input = std::static_pointer_cast<sim::SimWriterInput>(r.input);
  EXPECT_TRUE(input->realTime.get());
  EXPECT_EQ(input->settings().formatID, platform::kAudioFormatMPEG4AAC);
  EXPECT_EQ(logs.lines(),
            (std::vector<std::string>{"sys aac: encoder rejected sr=48000.0 ch=2 — stepping down",
                                      "sys aac: encoder rejected sr=44100.0 ch=2 — stepping down",
                                      "sys aac: source sr=96000.0 ch=2 → encode sr=32000.0 ch=2 (clamped)"}));

  script->accepts = [](const platform::AudioOutputSettings&) { return false; };
  try {
    makeAACWriterInput(writer, 44100, 1, 64000, "mic", false);
    FAIL() << "no throw";
  } catch (const CaptureError& e) {
    EXPECT_EQ(e.code(), -7);
    EXPECT_EQ(e.error().domain, "audio-capture");
    EXPECT_STREQ(e.what(), "no supported AAC settings for mic (source sr=44100.0 ch=1)");
  }
  EXPECT_EQ(logs.matching("mic aac: encoder rejected").size(), 9u);

  script->accepts = nullptr;
  EXPECT_FALSE(makeAACWriterInput(writer, 48000, 1, 64000, "mic", false).clamped);
  EXPECT_EQ(logs.lines().back(), "mic aac: requested PCM sr=48000.0 ch=1 → encode sr=48000.0 ch=1 (fixed)");
  EXPECT_TRUE(makeAACWriterInput(writer, 48000, 6, 128000, "sys", true).clamped);  // the channels alone
}

}  // namespace
}  // namespace ac
