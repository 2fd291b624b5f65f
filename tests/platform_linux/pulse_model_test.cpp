// The PulseAudio backends' pure decisions: stream time stamps, stream
// configurations, the tap's sink and IDs. No server needed. (Which streams
// a device shows, and the microphone's format, are what the executable's
// suites record and list through.)
#include <gtest/gtest.h>

#include <set>

#include "platform/linux/pulse_device_model.h"
#include "platform/linux/pulse_object_ids.h"
#include "platform/linux/pulse_status.h"
#include "platform/linux/pulse_stream_clock.h"

namespace ac::platform::linux_backend {
namespace {

constexpr int64_t kMs = 1'000'000;
constexpr int64_t kChunk = 480;           // frames: 10 ms at 48 kHz
constexpr int64_t kChunkNs = 10 * kMs;

// Feeds a clock chunks arriving every 10 ms from t0, with reports that put
// the chunk's first frame at `truth(i) + reportError(i)`, taken at arrival.
struct ClockRun {
  StreamClock clock{48000};
  int64_t t0 = 1'000 * kMs;
  std::vector<int64_t> stamps;

  void chunks(int from, int to, const std::function<std::optional<int64_t>(int)>& reportError,
              int64_t arrivalDelay = 2 * kMs) {
    for (int i = from; i < to; ++i) {
      int64_t truth = t0 + i * kChunkNs;
      int64_t now = truth + kChunkNs + arrivalDelay;
      clock.noteData(now);
      clock.takeReportRequest();
      std::optional<TimingReport> r;
      if (auto e = reportError(i)) r = TimingReport{now - kMs, truth + *e};
      stamps.push_back(clock.stampChunk(now, r, kChunk));
    }
  }
  int64_t errorAt(int i) const { return stamps[size_t(i)] - (t0 + i * kChunkNs); }
};

std::optional<int64_t> exact(int) { return 0; }
std::optional<int64_t> none(int) { return std::nullopt; }

TEST(StreamClock, StampsAdvanceByFramesAndFollowReportsAsymmetrically) {
  struct Case {
    const char* name;
    std::function<std::optional<int64_t>(int)> report;
    int64_t firstError, lastError;  // of chunk 0 and chunk 99, ± 1 µs
  } cases[] = {
      {"exact reports", exact, 0, 0},
      // Arrival 2 ms after the chunk ended: provisional, late by the delay.
      {"no report: arrival bound", none, 2 * kMs, 2 * kMs},
      // Late by 4 ms, then exact: capped by the arrival, then pulled back
      // at 0.5 ms per chunk.
      {"late first report", [](int i) -> std::optional<int64_t> { return i == 0 ? 4 * kMs : 0; }, 2 * kMs, 0},
      // Block-wise reports late by 0 or 4 ms: the stamps keep to the earliest.
      {"sawtooth reports", [](int i) -> std::optional<int64_t> { return (i % 3) ? 4 * kMs : 0; }, 0, 0},
  };
  for (const auto& c : cases) {
    ClockRun run;
    run.chunks(0, 100, c.report);
    EXPECT_NEAR(run.errorAt(0), c.firstError, 1000) << c.name;
    EXPECT_NEAR(run.errorAt(99), c.lastError, 70'000) << c.name;  // later-slew drift stays tiny
    for (int i = 1; i < 100; ++i) {
      int64_t step = run.stamps[size_t(i)] - run.stamps[size_t(i - 1)];
      EXPECT_LE(std::llabs(step - kChunkNs), StreamClock::kMaxEarlierSlewNs) << c.name << " chunk " << i;
    }
    EXPECT_EQ(run.clock.framePosition(), uint64_t(100 * kChunk));
  }
}

TEST(StreamClock, FollowsADriftingDeviceClockWithinAMillisecond) {
  ClockRun run;  // the device runs 200 ppm slow: each chunk takes 2 µs longer
  run.chunks(0, 1000, [](int i) -> std::optional<int64_t> { return int64_t(i) * 2'000; });
  for (int i = 100; i < 1000; ++i) EXPECT_NEAR(run.errorAt(i), int64_t(i) * 2'000, kMs) << i;
}

TEST(StreamClock, ReanchorsOnFarReportsAndDiscontinuitiesAndWaitsForFreshReports) {
  ClockRun run;
  run.chunks(0, 10, exact);

  // A report 30 ms off: the count lost track.
  run.chunks(10, 11, [](int) -> std::optional<int64_t> { return -30 * kMs; });
  EXPECT_EQ(run.errorAt(10), -30 * kMs);

  // Lost data: the next chunk takes the report as it is.
  run.clock.markDiscontinuity(run.t0 + 11 * kChunkNs);
  EXPECT_TRUE(run.clock.takeReportRequest());
  run.chunks(11, 12, exact);
  EXPECT_EQ(run.errorAt(11), 0);

  // After a pause, reports taken before it are stale: wait for a fresh one,
  // but not for ever.
  int64_t resume = run.t0 + 500 * kChunkNs;
  run.clock.noteData(resume);
  EXPECT_TRUE(run.clock.takeReportRequest());
  TimingReport stale{resume - 100 * kMs, resume - 20 * kMs};
  TimingReport fresh{resume + kMs, resume - 20 * kMs};
  EXPECT_TRUE(run.clock.shouldWait(stale, resume + 10 * kMs));
  EXPECT_TRUE(run.clock.shouldWait(std::nullopt, resume + 10 * kMs));
  EXPECT_FALSE(run.clock.shouldWait(fresh, resume + 10 * kMs));
  EXPECT_FALSE(run.clock.shouldWait(stale, resume + StreamClock::kReportWaitNs + kMs));
  EXPECT_EQ(run.clock.stampChunk(resume + 2 * kMs, fresh, kChunk), resume - 20 * kMs);
}

TEST(PulseDeviceModel, StreamConfigurationWritesWhatFitsAndNamesEveryBuffer) {
  struct Case {
    std::vector<uint32_t> channels;
    uint32_t room, written;
    OSStatus status;
  } cases[] = {{{2}, 24, 24, 0}, {{}, 8, 8, 0}, {{1, 1, 2}, 56, 56, 0}, {{1, 1, 2}, 40, 40, 0}, {{2}, 7, 7, kBadPropertySizeErr}};
  for (const auto& c : cases) {
    std::vector<uint8_t> data(64, 0xEE);
    uint32_t io = c.room;
    EXPECT_EQ(writeStreamConfiguration(c.channels, data.data(), io), c.status);
    EXPECT_EQ(io, c.written);
    if (c.status) continue;
    auto* list = reinterpret_cast<AudioBufferList*>(data.data());
    EXPECT_EQ(list->numberBuffers, c.channels.size());
    for (uint32_t i = 0; 8 + 16 * (i + 1) <= c.written; ++i) {
      EXPECT_EQ(list->buffers[i].numberChannels, c.channels[i]);
      EXPECT_EQ(list->buffers[i].dataByteSize, 0u);
    }
    EXPECT_EQ(data[c.written], 0xEE) << "nothing written past the room";
  }
}

TEST(PulseDeviceModel, TapRecordsItsAggregatesSinkElseTheLastElseTheDefault) {
  Snapshot snap;
  snap.defaultSink = "def";
  for (const char* n : {"def", "agg", "last"}) snap.sinks.push_back({n, n, std::string(n) + ".monitor", {}});
  EXPECT_EQ(tapSinkName(std::string("agg"), "last", snap), "agg");
  EXPECT_EQ(tapSinkName(std::string("gone"), "last", snap), "last");
  EXPECT_EQ(tapSinkName(std::nullopt, "gone", snap), "def");
  EXPECT_EQ(tapSinkName(std::nullopt, "", snap), "def");
  snap.defaultSink.clear();
  EXPECT_EQ(tapSinkName(std::nullopt, "gone", snap), "");
}

TEST(PulseObjectIds, OneIdPerNameForEverNeverReused) {
  ObjectIds ids;
  AudioObjectID spk = ids.idFor(ObjectKind::sink, "spk");
  EXPECT_EQ(ids.idFor(ObjectKind::sink, "spk"), spk);
  AudioObjectID src = ids.idFor(ObjectKind::source, "spk"), tap = ids.fresh(ObjectKind::tap);
  const std::set<AudioObjectID> all{kAudioObjectSystemObject, spk, src, tap, ids.fresh(ObjectKind::tap)};
  EXPECT_EQ(all.size(), 5u) << "the same name of another kind and every tap get IDs of their own";
  EXPECT_EQ(ids.lookup(src)->second, "spk");
  EXPECT_EQ(ids.lookup(tap)->first, ObjectKind::tap);
  EXPECT_FALSE(ids.lookup(kAudioObjectSystemObject));
}

}  // namespace
}  // namespace ac::platform::linux_backend
