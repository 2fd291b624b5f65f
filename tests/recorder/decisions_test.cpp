// The recorder's pure decisions and texts.
#include <gtest/gtest.h>

#include <cstring>

#include "platform/asset_writer.h"
#include "platform/mic_capture.h"
#include "recorder/failure_notices.h"
#include "recorder/mic_buffers.h"
#include "recorder/mic_recovery.h"
#include "simulated/sim_mic_capture.h"

namespace ac {
namespace {

using platform::kCaptureErrorDomain;
using platform::kCocoaErrorDomain;
using platform::kPOSIXErrorDomain;

TEST(AppendFailureReason, DiskFullFromEitherDomainElseTheDescription) {
  const struct {
    std::optional<Error> error;
    const char* title;
  } cases[] = {{std::nullopt, "Audio write failed"},
               {Error{kCocoaErrorDomain, 640, "out of space"}, "Disk full"},
               {Error{kPOSIXErrorDomain, 28, "No space left on device"}, "Disk full"},
               {Error{kPOSIXErrorDomain, 640, "x"}, "Audio write failed (x)"},
               {Error{kPOSIXErrorDomain, 5, "Input/output error"}, "Audio write failed (Input/output error)"}};
  for (const auto& c : cases) EXPECT_EQ(appendFailureReason(c.error), c.title);
}

TEST(FailureNotices, EachKindPostsOncePerRecordingWithItsOwnFlag) {
  std::vector<std::string> posted;
  FailureNotices notices([&](const std::string& title, const std::string& body, const std::string& sound) {
    posted.push_back(title + "|" + body + "|" + sound);
  });
  notices.notifyAppendFailureOnce("System audio not captured", "Some system audio may be missing.");
  notices.notifyAppendFailureOnce("Disk full", diskFullAdvice);
  notices.notifyMicDisconnectOnce();
  notices.notifyMicDisconnectOnce();
  EXPECT_EQ(posted,
            (std::vector<std::string>{"System audio not captured|Some system audio may be missing.|Basso",
                                      std::string("Microphone disconnected|") + micDisconnectedBody + "|Basso"}));
}

TEST(RuntimeErrorIsDeviceLoss, ClassifiesByDomainAndCode) {
  const struct {
    std::optional<Error> error;
    bool loss;
  } cases[] = {{std::nullopt, true},
               {Error{"NSOSStatusErrorDomain", -11800, "x"}, true},
               {Error{kCaptureErrorDomain, -11819, "reset"}, true},
               {Error{kCaptureErrorDomain, -11808, "x"}, true},
               {Error{kCaptureErrorDomain, -11800, "unknown"}, false},
               {Error{kCaptureErrorDomain, -11818, "x"}, false},
               {platform::micStopError(platform::MicStopKind::transient, "x"), false},
               {platform::micStopError(platform::MicStopKind::serviceReset, "x"), true},
               {platform::micStopError(platform::MicStopKind::deviceLost, "x"), true}};
  for (const auto& c : cases) EXPECT_EQ(runtimeErrorIsDeviceLoss(c.error), c.loss) << (c.error ? c.error->code : 0);
  EXPECT_TRUE(disconnectConcernsBoundDevice(std::nullopt, std::nullopt));
  EXPECT_TRUE(disconnectConcernsBoundDevice(std::nullopt, "a"));
  EXPECT_TRUE(disconnectConcernsBoundDevice("a", "a"));
  EXPECT_FALSE(disconnectConcernsBoundDevice("b", "a"));
  EXPECT_FALSE(disconnectConcernsBoundDevice("a", std::nullopt));
}

platform::SampleBuffer int16Buffer(std::vector<int16_t> samples) {
  platform::SampleBuffer sb;
  sb.format.asbd.formatFlags = platform::kAudioFormatFlagIsSignedInteger;
  sb.buffers.emplace_back(samples.size() * 2);
  std::memcpy(sb.buffers[0].data(), samples.data(), samples.size() * 2);
  sb.dataReady = true;
  return sb;
}

TEST(MicPeakAmplitude, ReadsTheFirstBufferOnlyAndAtMost1024Samples) {
  EXPECT_EQ(micPeakAmplitude(int16Buffer({0, -32768, 100})), 1.0f);
  EXPECT_EQ(micPeakAmplitude(sim::micSampleBuffer(0, 480, -0.75f)), 0.75f);
  EXPECT_EQ(micPeakAmplitude(platform::SampleBuffer{}), 0.0f);

  platform::SampleBuffer late = sim::micSampleBuffer(0, 2048, 0.1f);
  const float loud = 0.9f;
  std::memcpy(late.buffers[0].data() + 1024 * 4, &loud, 4);  // sample 1025: beyond the meter's window
  EXPECT_EQ(micPeakAmplitude(late), 0.1f);
  late.buffers[0].clear();
  EXPECT_EQ(micPeakAmplitude(late), 0.0f);
}

TEST(Retime, MovesEveryEntryKeepsDurationsAndRefusesAnInvalidTime) {
  platform::SampleBuffer sb = sim::micSampleBuffer(5'000'000'000);
  sb.timing.push_back(sb.timing.front());
  sb.timing[0].decodeTime = platform::MediaTime::make(7, 1);
  const auto t = platform::MediaTime::make(42, 1000);
  EXPECT_FALSE(retime(sb, platform::MediaTime::invalid()));
  ASSERT_TRUE(retime(sb, t));
  for (const auto& e : sb.timing) {
    EXPECT_EQ(e.presentationTime, t);
    EXPECT_FALSE(e.decodeTime.valid);
    EXPECT_EQ(e.duration, platform::MediaTime::make(1, 48000));
  }
}

}  // namespace
}  // namespace ac
