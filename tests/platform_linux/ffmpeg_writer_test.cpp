// The FFmpeg writer against real files, inspected with ffprobe and ffmpeg.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cmath>

#include "e2e_recording/e2e_harness.h"
#include "platform/linux/backends.h"
#include "platform/linux/ffmpeg_pcm_format.h"
#include "platform/linux/ffmpeg_track_timeline.h"

namespace ac::platform::linux_backend {
namespace {

struct Source {
  int rate;
  int channels;
  double hz;
  uint32_t flags = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked;
  int bits = 32;
};

// `frames` of a sine at source rate, starting at frame `start`, presenting
// at `pts` seconds (nanosecond timescale, as the core retimes buffers).
SampleBuffer sine(const Source& s, int64_t start, int64_t frames, double pts) {
  SampleBuffer b;
  StreamFormat& f = b.format.asbd;
  const bool planar = s.flags & kAudioFormatFlagIsNonInterleaved;
  f = {double(s.rate), kAudioFormatLinearPCM, s.flags, 0, 1, 0, uint32_t(s.channels), uint32_t(s.bits), 0};
  f.bytesPerFrame = f.bytesPerPacket = s.bits / 8 * (planar ? 1 : s.channels);
  b.numSamples = frames;
  b.timing.push_back({MediaTime::make(1, s.rate), MediaTime::make(std::llround(pts * 1e9), 1000000000), {}});
  const int planes = planar ? s.channels : 1;
  b.buffers.assign(planes, std::vector<uint8_t>(frames * f.bytesPerFrame));
  for (int64_t i = 0; i < frames; ++i) {
    const double v = 0.5 * std::sin(2 * M_PI * s.hz * double(start + i) / s.rate);
    for (int c = 0; c < s.channels; ++c) {
      uint8_t* at = planar ? &b.buffers[c][i * f.bytesPerFrame] : &b.buffers[0][(i * s.channels + c) * (s.bits / 8)];
      if (s.bits == 32) {
        const float x = float(v);
        std::memcpy(at, &x, 4);
      } else {
        const int16_t x = int16_t(v * 32767);
        std::memcpy(at, &x, 2);
      }
    }
  }
  b.dataReady = true;
  return b;
}

// Appends `seconds` of `s` in 10 ms buffers with contiguous timestamps.
void feed(WriterInput& in, const Source& s, double fromSeconds, double seconds, int64_t& frame) {
  const int64_t chunk = s.rate / 100, end = frame + std::llround(seconds * s.rate);
  for (; frame < end; frame += chunk) {
    ASSERT_TRUE(in.append(sine(s, frame, std::min(chunk, end - frame), fromSeconds + double(frame) / s.rate)));
  }
}

class FFmpegWriterTest : public ::testing::Test {
 protected:
  std::unique_ptr<AssetWriter> open(const std::string& name, double fragmentSeconds = 5) {
    Error error;
    auto w = factory_->makeMPEG4Writer(path(name), MediaTime::make(std::llround(fragmentSeconds * 600), 600), error);
    EXPECT_TRUE(w) << error.description;
    return w;
  }
  std::shared_ptr<WriterInput> add(AssetWriter& w, double rate, int channels) {
    auto in = w.makeInput({kAudioFormatMPEG4AAC, rate, channels, 64000}, "t");
    EXPECT_TRUE(w.canAddInput(in));
    w.addInput(in);
    return in;
  }
  static void finish(AssetWriter& w) {
    int calls = 0;
    w.finishWriting([&] { ++calls; });
    EXPECT_EQ(calls, 1);
  }
  std::string path(const std::string& name) const { return scratch_.path(name); }

  test::ScratchDir scratch_;
  std::unique_ptr<WriterFactory> factory_ = makeFFmpegWriterFactory();
};

// Gaps become silence, overlaps are trimmed, the format may change, and
// tracks at different rates, whose encoders prime by different durations
// (1024 samples at their own rates), present together.
TEST_F(FFmpegWriterTest, EveryTrackPresentsEachBufferAtItsTime) {
  const Source s{48000, 1, 1000}, s44{44100, 1, 1000};
  auto w = open("timeline.m4a");
  auto gap = add(*w, 48000, 1), overlap = add(*w, 48000, 1), change = add(*w, 48000, 1), gap44 = add(*w, 44100, 1);
  ASSERT_TRUE(w->startWriting());
  w->startSession(MediaTime::make(0, 1000000000));
  int64_t first = 0, second = 0, third = 0;
  feed(*change, {44100, 2, 440}, 0, 1.0, first);
  feed(*change, {48000, 1, 1000, kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked, 16}, 1.0, 1.0, second);
  feed(*change, {96000, 6, 300, kAudioFormatFlagIsFloat | kAudioFormatFlagIsNonInterleaved}, 2.0, 1.0, third);
  for (auto [in, source] : {std::pair{gap.get(), s}, std::pair{gap44.get(), s44}}) {
    int64_t frame = 0;
    feed(*in, source, 0, 1.0, frame);
    feed(*in, source, 1.0, 1.0, frame);  // presents 1.0 s after the audio it follows: 1 s of silence
  }
  int64_t frame = 0;
  feed(*overlap, s, 0, 1.0, frame);
  feed(*overlap, s, -0.5, 1.0, frame);  // half a second presents on top of the first
  ASSERT_TRUE(overlap->append(sine(s, 0, 4800, 0.2)));  // wholly covered: dropped
  finish(*w);
  ASSERT_EQ(w->status(), WriterStatus::completed);

  const double aacFrame = 1024 / 48000.0;  // tracks decode to whole frames
  const std::vector<e2e::Pcm> tracks = e2e::decodeTracks(scratch_, path("timeline.m4a"));
  ASSERT_EQ(tracks.size(), 4u);
  const e2e::Pcm &gapPcm = tracks[0], &changePcm = tracks[2];
  EXPECT_NEAR(gapPcm.seconds(), 3.0 + aacFrame, aacFrame);
  EXPECT_GT(e2e::toneAmplitude(gapPcm, 1000, 0.2, 0.9), 0.3);
  EXPECT_LT(e2e::toneAmplitude(gapPcm, 1000, 1.1, 1.95), 0.001);
  EXPECT_GT(e2e::toneAmplitude(gapPcm, 1000, 2.1, 2.9), 0.3);
  EXPECT_NEAR(tracks[1].seconds(), 1.5 + aacFrame, aacFrame);
  EXPECT_NEAR(changePcm.seconds(), 3.0 + aacFrame, aacFrame);
  EXPECT_GT(e2e::toneAmplitude(changePcm, 440, 0.2, 0.9), 0.3);
  EXPECT_GT(e2e::toneAmplitude(changePcm, 1000, 1.1, 1.9), 0.3);
  EXPECT_GT(e2e::toneAmplitude(changePcm, 300, 2.1, 2.9), 0.3);  // six planar channels mixed down
  auto onsetAfterGap = [](const e2e::Pcm& pcm) {
    const auto from = pcm.samples.begin() + long(1.5 * pcm.rate);
    return double(std::find_if(from, pcm.samples.end(), [](float x) { return std::fabs(x) > 0.1f; }) -
                  pcm.samples.begin()) / pcm.rate;
  };
  EXPECT_NEAR(onsetAfterGap(gapPcm), 2.0, 0.001);
  EXPECT_NEAR(onsetAfterGap(tracks[3]), onsetAfterGap(gapPcm), 0.0002);
}

TEST_F(FFmpegWriterTest, WriteAndCreateFailuresCarryTheirErrno) {
  Error error;
  EXPECT_FALSE(factory_->makeMPEG4Writer(path("missing/dir/x.m4a"), MediaTime::make(3000, 600), error));
  EXPECT_EQ(error, (Error{kPOSIXErrorDomain, ENOENT, "No such file or directory"}));

  auto full = factory_->makeMPEG4Writer("/dev/full", MediaTime::make(3000, 600), error);
  ASSERT_TRUE(full);
  add(*full, 48000, 1);
  EXPECT_FALSE(full->startWriting());
  finish(*full);
  EXPECT_EQ(full->status(), WriterStatus::failed);
  EXPECT_EQ(full->error(), (Error{kPOSIXErrorDomain, ENOSPC, "No space left on device"}));
}

TEST_F(FFmpegWriterTest, AFailedFragmentWriteFailsTheAppendWithItsErrno) {
  // A file-size limit makes a mid-recording write fail the way a full disk
  // does, with EFBIG instead of ENOSPC.
  auto w = open("limited.m4a", 0.5);
  auto in = add(*w, 48000, 1);
  ASSERT_TRUE(w->startWriting());
  w->startSession(MediaTime::make(0, 1000000000));
  rlimit saved{};
  getrlimit(RLIMIT_FSIZE, &saved);
  const rlimit tiny{8192, saved.rlim_max};
  auto previous = signal(SIGXFSZ, SIG_IGN);
  setrlimit(RLIMIT_FSIZE, &tiny);
  const Source s{48000, 1, 1000};
  bool refused = false;
  for (int64_t frame = 0; frame < 48000 * 5 && !refused; frame += 480) {
    refused = !in->append(sine(s, frame, 480, frame / 48000.0));
  }
  setrlimit(RLIMIT_FSIZE, &saved);
  signal(SIGXFSZ, previous);
  EXPECT_TRUE(refused);
  EXPECT_FALSE(in->isReadyForMoreMediaData());
  finish(*w);
  EXPECT_EQ(w->status(), WriterStatus::failed);
  EXPECT_EQ(w->error(), (Error{kPOSIXErrorDomain, EFBIG, "File too large"}));
}

TEST(TrackTimeline, PlacesBuffersByPresentationTime) {
  struct Step {
    std::optional<double> pts;
    int rate;
    int64_t frames;
    Placement expected;
  };
  const Step steps[] = {
      {0.0, 48000, 480, {0, 0, 480}},
      {0.0104, 48000, 480, {0, 0, 480}},  // 0.4 ms late: jitter, absorbed
      {0.0196, 48000, 480, {0, 0, 480}},  // 0.4 ms early: absorbed
      {0.05, 48000, 480, {960, 0, 480}},  // 20 ms late: silence (one wholly covered is dropped: see the file test)
      {0.055, 48000, 480, {0, 240, 240}}, // half overlapping: head trimmed
      {std::nullopt, 48000, 480, {0, 0, 480}},
      {0.085, 44100, 441, {441, 0, 441}},  // new rate: the gap is counted at it
  };
  TrackTimeline timeline;
  for (const Step& s : steps) {
    EXPECT_EQ(timeline.place(s.pts, s.rate, s.frames), s.expected) << (s.pts ? *s.pts : -1);
  }
  EXPECT_NEAR(timeline.endSeconds(), 0.095, 1e-12);
  EXPECT_EQ(TrackTimeline(-0.002).place(0.0, 48000, 10), (Placement{96, 0, 10}));
}

// What the writer converts (interleaved and planar float, 16-bit integers)
// is proven on a real file above.
TEST(PcmLayout, RefusesWhatFFmpegCannotConvertAndReadsNoFurtherThanTheBuffer) {
  const StreamFormat stereoFloat = floatPCMFormat(48000, 2);
  StreamFormat bigEndian = stereoFloat, int24 = stereoFloat, aac = stereoFloat;
  bigEndian.formatFlags |= kAudioFormatFlagIsBigEndian;
  int24.formatFlags = kAudioFormatFlagIsSignedInteger;
  int24.bitsPerChannel = 24;
  int24.bytesPerFrame = 6;
  aac.formatID = kAudioFormatMPEG4AAC;
  for (const StreamFormat& f : {bigEndian, int24, aac, floatPCMFormat(0, 2)})
    EXPECT_FALSE(pcmLayoutFor(f)) << f.formatID << " " << f.formatFlags << " " << f.sampleRate;
  // A buffer shorter than its sample count is read only as far as it goes.
  SampleBuffer short_;
  short_.numSamples = 100;
  short_.buffers = {std::vector<uint8_t>(8 * 60)};
  EXPECT_EQ(usableFrames(short_, *pcmLayoutFor(stereoFloat)), 60);
  EXPECT_EQ(usableFrames(short_, *pcmLayoutFor(floatPCMFormat(48000, 2, false))), 0);
}

}  // namespace
}  // namespace ac::platform::linux_backend
