#include "capture/system_ioproc.h"

#include <gtest/gtest.h>

#include "capture_fixture.h"

namespace ac::capture {
namespace {

using testing::Buffers;
using testing::LogCapture;

// A chain state fed straight to the callback, with a stored selection of
// (index, count) measured against `probed` buffers.
struct IOProcRig {
  sim::SimAudioHardware hw;
  testing::RecordingSink sink;
  SystemCapture::State state{hw, sink, nullptr};
  LogCapture logs;

  explicit IOProcRig(platform::StreamFormat format = platform::floatPCMFormat(48000, 2)) {
    state.systemFormat = format;
    sink.drain = [this] { drainSystemPeriods(state); };
    select(0, 1, -1);
  }
  void select(int64_t index, int64_t count, int64_t probed) {
    state.tapBufferIndex = index;
    state.tapBufferCount = count;
    state.tapProbedBufferCount = probed;
  }
  void call(const platform::AudioBufferList& list, uint64_t hostTime = 1000) {
    platform::AudioTimeStamp t;
    t.hostTime = hostTime;
    handleSystemBuffer(state, &list, &t);
  }
  size_t samples() { return sink.samples.get().size(); }
};

// One callback each; all but the first come after the periodic tick.
TEST(SystemIOProc, OneCallbackPassesOrDropsWithItsLine) {
  struct Case {
    const char* name;
    int64_t index, count, probed;
    std::vector<uint32_t> channels;
    size_t frames;
    void (*damage)(IOProcRig&, Buffers&);
    size_t samples;
    int64_t failures, streak;
    std::vector<std::string> lines;
  } cases[] = {
      {"unprobed interleaved stereo is taken whole", 0, 1, -1, {2}, 8, nullptr, 1, 0, 0,
       {"tap buffer range 0+1 (probed against -1) unusable against an ABL of 1 buffers (2 ch total, tap wants 2) "
        "\u2014 the whole list verifies as the tap, taking it (n=1)",
        "sys tick: bufs=1 tapbuf=0 bytes=64 bpf=8 frames=8 maxSampleAbs=0.5"}},
      {"half a frame is dropped silently", 0, 1, 1, {2}, 1,
       [](IOProcRig&, Buffers& b) { b.list().buffers[0].dataByteSize = 4; }, 0, 0, 0, {}},
      {"no data behind the bytes", 0, 1, 1, {2}, 8, [](IOProcRig&, Buffers& b) { b.list().buffers[0].data = nullptr; },
       0, 1, 1,
       {"CMSampleBufferSetDataBufferFromAudioBufferList failed: -12731 sysDataFail=1 bufs=1 tapbuf=0/1 bytes=64 "
        "frames=8"}},
      {"a period larger than a slot", 0, 1, 1, {2}, 20000, nullptr, 0, 1, 1,
       {"system capture: a period of 160000 bytes in 1 buffers does not fit the 131072-byte slot \u2014 dropping the "
        "callback (n=1)"}},
      {"a sub-range without a scratch list", 1, 1, 2, {1, 2}, 8, nullptr, 0, 1, 0,
       {"tap buffer selection 1+1 has no scratch list (capacity 0) \u2014 dropping the callback rather than passing "
        "the whole ABL (n=1)"}},
      {"no writer input only counts", 0, 1, 1, {2}, 8, [](IOProcRig& r, Buffers&) { r.sink.hasInput = false; }, 0, 0,
       0, {}},
  };
  bool first = true;
  for (auto& c : cases) {
    SCOPED_TRACE(c.name);
    IOProcRig rig;
    if (!std::exchange(first, false)) rig.state.ioProcCalls = 1;
    rig.select(c.index, c.count, c.probed);
    Buffers buf(c.channels, c.frames, {0.5f, 0.5f});
    if (c.damage) c.damage(rig, buf);
    rig.call(buf.list());
    EXPECT_EQ(rig.samples(), c.samples);
    EXPECT_EQ(rig.state.dataFailures.load(), c.failures);
    EXPECT_EQ(rig.state.dataFailureStreak.load(), c.streak);
    EXPECT_EQ(rig.logs.lines(), c.lines);
  }
}

TEST(SystemIOProc, ThirtyTwoChannelNonInterleavedTapNeedsNoScratch) {
  IOProcRig rig(platform::floatPCMFormat(48000, 32, false));
  Buffers bufs(std::vector<uint32_t>(32, 1));
  rig.call(bufs.list());
  ASSERT_EQ(rig.samples(), 1u);
  EXPECT_EQ(rig.sink.samples.get()[0].buffers.size(), 32u);
  EXPECT_EQ(rig.state.tapScratch, nullptr);
}

TEST(SystemIOProc, TenthConsecutiveDropAsksForOneNotice) {
  IOProcRig rig;
  rig.select(1, 1, 2);
  Buffers changed({2, 2, 2});  // a third stream appeared since the probe
  for (int i = 0; i < 9; ++i) rig.call(changed.list());
  Buffers good({2}, 8, {0.1f});
  rig.select(0, 1, 1);
  rig.call(good.list());  // resets the streak
  rig.select(1, 1, 2);
  for (int i = 0; i < 9; ++i) rig.call(changed.list());
  EXPECT_TRUE(rig.sink.notices.get().empty());
  for (int i = 0; i < 5; ++i) rig.call(changed.list());
  const std::pair<std::string, std::string> notice{
      "System audio not captured", "Some system audio may be missing from this recording. Stop and restart if you need it."};
  EXPECT_EQ(rig.sink.notices.get(), std::vector{notice});
  EXPECT_EQ(rig.state.dataFailures.load(), 23);
  EXPECT_TRUE(rig.logs.has("tap buffer range 1+1 (probed against 2) unusable against an ABL of 3 buffers (6 ch "
                           "total, tap wants 2) \u2014 cannot identify the tap, dropping the callback (n=1)"));
}

TEST(SystemIOProc, StampsHostTimeInNanoseconds) {
  IOProcRig rig;
  rig.state.timebaseNumer = 125;
  rig.state.timebaseDenom = 3;
  rig.select(0, 1, 1);
  Buffers buf({2}, 480, {0.1f});
  rig.call(buf.list(), 3'000'000);
  ASSERT_EQ(rig.samples(), 1u);
  const auto t = rig.sink.samples.get()[0].timing.at(0);
  EXPECT_EQ(t.presentationTime, platform::MediaTime::make(125'000'000, 1'000'000'000));
  EXPECT_EQ(t.duration, platform::MediaTime::make(1, 48000));
  EXPECT_FALSE(t.decodeTime.valid);
  EXPECT_EQ(rig.sink.samples.get()[0].numSamples, 480);

  EXPECT_DEATH(hostTimeToNanos(UINT64_MAX, 2, 1), "");
  EXPECT_DEATH(hostTimeToNanos(1, 1, 0), "");
  EXPECT_DEATH(hostTimeToNanos(UINT64_MAX, 1, 1), "");
}

TEST(TapScratch, SizedBetweenTwoAndTheCapAndCarriesOnlyTheTap) {
  IOProcRig rig;
  struct Case {
    uint32_t channels;
    int64_t minimum;
    int64_t capacity;
  } cases[] = {{1, 1, 2}, {8, 3, 8}, {2, 40, 40}, {200, 1, 64}};
  for (const auto& c : cases) {
    rig.state.tapScratch.reset();
    EXPECT_TRUE(ensureTapScratch(rig.state, c.channels, c.minimum));
    EXPECT_EQ(rig.state.tapScratchCapacity(), c.capacity) << c.channels << "/" << c.minimum;
  }
  EXPECT_FALSE(ensureTapScratch(rig.state, 2, 65));
  EXPECT_TRUE(rig.logs.has("tap scratch: a 65-buffer selection exceeds the 64-buffer cap \u2014 storing no "
                           "selection; the callback takes the whole list only if it verifies as the tap, else drops"));
  size_t logged = rig.logs.matching("tap scratch: 64").size();
  EXPECT_TRUE(ensureTapScratch(rig.state, 2, 3));  // big enough already: kept silently
  EXPECT_EQ(rig.state.tapScratchCapacity(), 64);
  EXPECT_EQ(rig.logs.matching("tap scratch: 64").size(), logged);

  rig.select(1, 1, 2);
  Buffers micAndTap({1, 2});
  rig.call(micAndTap.list());
  ASSERT_EQ(rig.samples(), 1u);
  const auto sample = rig.sink.samples.get()[0];
  ASSERT_EQ(sample.buffers.size(), 1u);
  EXPECT_EQ(sample.bufferChannels[0], 2u);
  EXPECT_EQ(sample.buffers[0].size(), 64u);  // only the tap's bytes
}

}  // namespace
}  // namespace ac::capture
