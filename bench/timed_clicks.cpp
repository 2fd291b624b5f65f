#include "bench/timed_clicks.h"

#include <pulse/simple.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <optional>

#include "support/dispatch.h"

namespace ac::bench {
namespace {

constexpr int kRate = 48000;
constexpr int kBlockFrames = kRate / 400;  // 2.5 ms
constexpr double kTargetLatencySeconds = 0.010;
constexpr double kClickHz = 3000, kClickSeconds = 0.002;
constexpr double kMinGapSeconds = 0.03, kMaxGapSeconds = 0.07;
constexpr float kClickAmplitude = 0.8f;

int64_t framesOf(double seconds) { return static_cast<int64_t>(seconds * kRate); }

}  // namespace

TimedClicks::TimedClicks(const std::string& sink) {
  const pa_sample_spec spec{PA_SAMPLE_FLOAT32LE, kRate, 1};
  pa_buffer_attr attr;
  attr.maxlength = uint32_t(-1);
  attr.tlength = static_cast<uint32_t>(framesOf(kTargetLatencySeconds) * sizeof(float));
  attr.prebuf = uint32_t(-1);
  attr.minreq = uint32_t(-1);
  attr.fragsize = uint32_t(-1);
  int error = 0;
  stream_ = pa_simple_new(nullptr, "armed-bench", PA_STREAM_PLAYBACK, sink.c_str(), "timed clicks", &spec, nullptr,
                          &attr, &error);
  if (stream_) feeder_ = std::thread([this] { feed(); });
}

TimedClicks::~TimedClicks() {
  quit_ = true;
  if (feeder_.joinable()) feeder_.join();
  if (stream_) pa_simple_free(stream_);
}

void TimedClicks::start(uint32_t seed) {
  std::lock_guard lock(mutex_);
  clicking_ = true;
  random_ = seed;
  nextClickFrame_ = written_;
  playedAt_.clear();
}

void TimedClicks::stop() {
  std::lock_guard lock(mutex_);
  clicking_ = false;
}

std::vector<double> TimedClicks::playedAt() const {
  std::lock_guard lock(mutex_);
  return playedAt_;
}

void TimedClicks::feed() {
  const int64_t clickFrames = framesOf(kClickSeconds);
  std::vector<float> block(kBlockFrames);
  while (!quit_) {
    std::fill(block.begin(), block.end(), 0.0f);
    std::vector<int64_t> clicksHere;  // frames, from the stream's start
    {
      std::lock_guard lock(mutex_);
      // A click starts in this block only if it also ends in it.
      while (clicking_ && nextClickFrame_ + clickFrames <= written_ + kBlockFrames) {
        clicksHere.push_back(std::max(nextClickFrame_, written_));
        random_ = random_ * 1664525u + 1013904223u;
        nextClickFrame_ += framesOf(kMinGapSeconds + (kMaxGapSeconds - kMinGapSeconds) * double(random_ >> 8) / double(1u << 24));
      }
    }
    for (int64_t start : clicksHere) {
      for (int64_t i = 0; i < clickFrames && start - written_ + i < kBlockFrames; ++i) {
        const double hann = 0.5 - 0.5 * std::cos(2 * std::numbers::pi * double(i) / double(clickFrames));
        block[size_t(start - written_ + i)] =
            kClickAmplitude * float(hann * std::sin(2 * std::numbers::pi * kClickHz * double(i) / kRate));
      }
    }
    int error = 0;
    if (pa_simple_write(stream_, block.data(), block.size() * sizeof(float), &error) < 0) return;
    const double now = monotonicSeconds();
    const pa_usec_t latency = pa_simple_get_latency(stream_, &error);
    std::lock_guard lock(mutex_);
    written_ += kBlockFrames;
    // The last frame written plays `latency` from now; each click's centre
    // plays that much earlier than the end as it sits before it.
    for (int64_t start : clicksHere)
      playedAt_.push_back(now + double(latency) / 1e6 - double(written_ - start) / kRate + kClickSeconds / 2);
  }
}

std::optional<TrackOrigin> trackOrigin(const std::vector<double>& found, const std::vector<double>& played,
                                       double tolerance, size_t minMatches) {
  std::optional<TrackOrigin> best;
  if (found.empty()) return best;
  auto agreeing = [&](double origin, std::vector<double>* offsets) {
    size_t n = 0;
    for (double t : found) {
      auto it = std::lower_bound(played.begin(), played.end(), origin + t - tolerance);
      if (it == played.end() || *it > origin + t + tolerance) continue;
      ++n;
      if (offsets) offsets->push_back(*it - t);
    }
    return n;
  };
  // The first click found is one of those played; try each.
  for (double p : played) {
    const size_t n = agreeing(p - found.front(), nullptr);
    if (n >= minMatches && (!best || n > best->matched)) best = TrackOrigin{p - found.front(), n};
  }
  if (!best) return best;
  std::vector<double> offsets;
  agreeing(best->monotonicSeconds, &offsets);
  std::nth_element(offsets.begin(), offsets.begin() + long(offsets.size() / 2), offsets.end());
  best->monotonicSeconds = offsets[offsets.size() / 2];
  return best;
}

}  // namespace ac::bench
