#include "platform/linux/pulse_stream_clock.h"

#include <algorithm>
#include <utility>

namespace ac::platform::linux_backend {

int64_t StreamClock::offsetOf(uint64_t frames) const {
  if (rate_ == 0) return 0;
  return static_cast<int64_t>(static_cast<__int128>(frames) * 1'000'000'000 / rate_);
}

void StreamClock::needFreshReport(int64_t nowNs) {
  freshAfterNs_ = nowNs - kReportSlackNs;
  wantReport_ = reportRequested_ = true;
}

void StreamClock::noteData(int64_t nowNs) {
  if (!lastDataNs_ || nowNs - *lastDataNs_ > kPauseNs) needFreshReport(nowNs);
  lastDataNs_ = nowNs;
}

bool StreamClock::shouldWait(const std::optional<TimingReport>& report, int64_t nowNs) const {
  bool fresh = report && report->takenNs >= freshAfterNs_;
  return wantReport_ && !fresh && nowNs - freshAfterNs_ < kReportWaitNs + kReportSlackNs;
}

void StreamClock::markDiscontinuity(int64_t nowNs) {
  anchored_ = false;
  needFreshReport(nowNs);
}

bool StreamClock::takeReportRequest() { return std::exchange(reportRequested_, false); }

int64_t StreamClock::stampChunk(int64_t nowNs, std::optional<TimingReport> report, uint64_t frames) {
  if (report && report->takenNs < freshAfterNs_) report.reset();
  if (report) wantReport_ = false;
  // The whole chunk was captured before it arrived: no stamp may be later.
  const int64_t latest = nowNs - offsetOf(frames);
  std::optional<int64_t> evidence;
  if (report) evidence = std::min(report->captureNs, latest);

  bool reanchor = !anchored_ || (provisional_ && evidence);
  if (!reanchor) {
    const int64_t predicted = anchorNs_ + offsetOf(framesSinceAnchor_);
    if (!evidence && predicted > latest) evidence = latest;
    const int64_t error = evidence ? *evidence - predicted : 0;
    if (error > kDiscontinuityNs || error < -kDiscontinuityNs) {
      reanchor = true;
    } else if (error < 0) {
      anchorNs_ += std::max(error, -kMaxEarlierSlewNs);
    } else {
      anchorNs_ += std::min(error / kLaterSlewDivisor, kMaxLaterSlewNs);
    }
  }
  if (reanchor) {
    anchored_ = true;
    provisional_ = !report;
    anchorNs_ = evidence.value_or(latest);
    framesSinceAnchor_ = 0;
  }
  const int64_t stamp = anchorNs_ + offsetOf(framesSinceAnchor_);
  framesSinceAnchor_ += frames;
  position_ += frames;
  return stamp;
}

}  // namespace ac::platform::linux_backend
