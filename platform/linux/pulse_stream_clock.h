// Host times for a captured stream: when the first frame of each chunk was
// captured, in CLOCK_MONOTONIC nanoseconds.
//
// Stamps come from the running frame count at the stream's rate, anchored
// to the server's timing reports, so consecutive stamps advance by exactly
// frames/rate. The reports are late by a varying amount, never early: a
// server that renders in blocks reports the last block's write position
// with the current time, and an arrival time is always after the capture.
// So a report earlier than the count pulls the anchor back quickly (a
// half millisecond per chunk at most), and a later one only nudges it
// forward, enough to follow a device clock that drifts against the host's.
// The arrival time caps every stamp: a chunk was captured before it came.
// A report further than kDiscontinuityNs from the count, or a marked
// discontinuity, re-anchors.
//
// A report taken before the data started flowing (an idle monitor renders
// nothing) or before a pause is stale. When data starts or resumes, the
// caller is asked to fetch a fresh report and to hold the data until it
// arrives; if none comes within kReportWaitNs the stamps rest on the arrival
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
  // Per chunk, the anchor moves at most this far back toward an earlier
  // report: well under a millisecond, so the writer absorbs each step.
  static constexpr int64_t kMaxEarlierSlewNs = 500'000;
  // Toward a later report it moves 1/kLaterSlewDivisor of the distance, at
  // most kMaxLaterSlewNs: 0.5 ms per second at 10 ms chunks, far above any
  // real clock drift, far below the reports' jitter.
  static constexpr int64_t kLaterSlewDivisor = 64;
  static constexpr int64_t kMaxLaterSlewNs = 5'000;
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

 private:
  int64_t offsetOf(uint64_t frames) const;
  void needFreshReport(int64_t nowNs);

  uint32_t rate_;
  bool anchored_ = false;
  bool provisional_ = false;  // anchored on the arrival time, not a report
  int64_t anchorNs_ = 0;
  uint64_t framesSinceAnchor_ = 0;
  uint64_t position_ = 0;
  std::optional<int64_t> lastDataNs_;
  int64_t freshAfterNs_ = 0;  // reports taken earlier are stale
  bool wantReport_ = false;   // no fresh report used since the flow (re)started
  bool reportRequested_ = false;
};

}  // namespace ac::platform::linux_backend
