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
  if (anchored_) ++reanchors_;
  anchored_ = false;
  needFreshReport(nowNs);
}

bool StreamClock::takeReportRequest() { return std::exchange(reportRequested_, false); }

int64_t StreamClock::stampChunk(int64_t nowNs, std::optional<TimingReport> report, uint64_t frames) {
  if (report && report->takenNs < freshAfterNs_) report.reset();
  if (report) wantReport_ = false;

  bool reanchor = !anchored_ || (provisional_ && report);
  if (!reanchor && report) {
    const int64_t error = report->captureNs - (anchorNs_ + offsetOf(framesSinceAnchor_));
    if (error > kDiscontinuityNs || error < -kDiscontinuityNs) {
      reanchor = true;
      ++reanchors_;
    } else {
      anchorNs_ += std::clamp(error / kSlewDivisor, -kMaxSlewNs, kMaxSlewNs);
    }
  }
  if (reanchor) {
    anchored_ = true;
    provisional_ = !report;
    // Without a report: the chunk has just arrived, so it began frames ago.
    anchorNs_ = report ? report->captureNs : nowNs - offsetOf(frames);
    framesSinceAnchor_ = 0;
  }
  const int64_t stamp = anchorNs_ + offsetOf(framesSinceAnchor_);
  framesSinceAnchor_ += frames;
  position_ += frames;
  return stamp;
}

}  // namespace ac::platform::linux_backend
