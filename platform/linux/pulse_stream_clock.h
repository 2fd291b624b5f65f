// Host times for a captured stream: when the first frame of each chunk was
// captured, in CLOCK_MONOTONIC nanoseconds.
//
// The server's timing reports are right on average but jitter, and one taken
// before the data started flowing (an idle monitor renders nothing) or
// before a gap is simply stale. Stamps therefore come from the running frame
// count at the stream's rate, anchored to a fresh report and then only
// slewed toward later ones by a few microseconds per chunk: consecutive
// stamps advance by frames/rate, yet the stream follows a device clock that
// drifts against the host's. A report too far from the count, or a marked
// discontinuity, re-anchors. When data starts flowing (or flows again) the
// caller is asked to fetch a fresh report and to hold the data until it
// arrives; if none comes in kReportWaitNs the stamps rest on the arrival
// time (provisional) until one does.
//
// Not thread-safe: used from the one thread that reads the stream.
#pragma once

#include <cstdint>
#include <optional>

namespace ac::platform::linux_backend {

// What the server's timing says about a chunk: when the report was taken
// and the capture time it implies for the chunk's first frame.
struct TimingReport {
  int64_t takenNs;
  int64_t captureNs;
};

class StreamClock {
 public:
  // Reports further than this from the count mean the count lost track.
  static constexpr int64_t kDiscontinuityNs = 20'000'000;
  // Each chunk moves the anchor at most this far toward the report.
  static constexpr int64_t kMaxSlewNs = 20'000;
  // The anchor moves this fraction (1/n) of the distance per chunk.
  static constexpr int64_t kSlewDivisor = 16;
  // No chunk for this long means the source paused: older reports are stale.
  static constexpr int64_t kPauseNs = 50'000'000;
  // Reports taken this long before a pause ended still count as fresh
  // (clock conversions jitter by microseconds).
  static constexpr int64_t kReportSlackNs = 1'000'000;
  // How long data is held back waiting for a fresh report.
  static constexpr int64_t kReportWaitNs = 30'000'000;

  explicit StreamClock(uint32_t rate) : rate_(rate) {}

  // Data is readable at nowNs; call before stamping what is readable.
  void noteData(int64_t nowNs);
  // True while the readable data should stay unread until a fresh report.
  bool shouldWait(const std::optional<TimingReport>& report, int64_t nowNs) const;
  // The stamp of the next chunk of `frames` frames, read at nowNs.
  int64_t stampChunk(int64_t nowNs, std::optional<TimingReport> report, uint64_t frames);
  // Data was lost or skipped at nowNs: the next chunk re-anchors.
  void markDiscontinuity(int64_t nowNs);
  // True once each time a fresh report is needed; the caller then asks the
  // server for one.
  bool takeReportRequest();

  // Frames stamped since the stream started.
  uint64_t framePosition() const { return position_; }
  // Re-anchorings forced by a disagreeing report or a discontinuity.
  int64_t reanchors() const { return reanchors_; }

 private:
  int64_t offsetOf(uint64_t frames) const;
  void needFreshReport(int64_t nowNs);

  uint32_t rate_;
  bool anchored_ = false;
  bool provisional_ = false;  // anchored on the arrival time, not a report
  int64_t anchorNs_ = 0;
  uint64_t framesSinceAnchor_ = 0;
  uint64_t position_ = 0;
  int64_t reanchors_ = 0;
  std::optional<int64_t> lastDataNs_;
  int64_t freshAfterNs_ = 0;  // reports taken earlier are stale
  bool wantReport_ = false;   // no fresh report used since the flow (re)started
  bool reportRequested_ = false;
};

}  // namespace ac::platform::linux_backend
