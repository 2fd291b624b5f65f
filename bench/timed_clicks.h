// A click train played into one sink through a low-latency stream, with the
// monotonic time at which each click reaches the sink: what a capture of
// that sink is then measured against.
//
// Silence plays from construction on (it also keeps the sink rendering in
// short blocks); start() begins the clicks at irregular gaps, so that a run
// of them found in a recording matches the schedule at one offset only.
// The feeding thread is the object's own; every method is for one other
// thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

struct pa_simple;

namespace ac::bench {

class TimedClicks {
 public:
  explicit TimedClicks(const std::string& sink);
  ~TimedClicks();
  bool ok() const { return stream_ != nullptr; }

  // Clicks from the next block on; any earlier clicks are forgotten.
  void start(uint32_t seed);
  void stop();
  // When each click's centre played, in monotonic seconds (support's
  // monotonicSeconds()), so far.
  std::vector<double> playedAt() const;

 private:
  void feed();

  pa_simple* stream_ = nullptr;
  std::thread feeder_;
  std::atomic<bool> quit_{false};
  mutable std::mutex mutex_;
  bool clicking_ = false;
  uint32_t random_ = 0;
  int64_t nextClickFrame_ = 0;
  int64_t written_ = 0;  // frames written since the stream opened
  std::vector<double> playedAt_;
};

// The offset that puts `found` (seconds into a recording) onto `played`
// (monotonic seconds) with the most clicks within `tolerance`: the monotonic
// time of the recording's first sample, and how many clicks agree. Nothing
// when fewer than `minMatches` do.
struct TrackOrigin {
  double monotonicSeconds = 0;
  size_t matched = 0;
};
std::optional<TrackOrigin> trackOrigin(const std::vector<double>& found, const std::vector<double>& played,
                                       double tolerance, size_t minMatches);

}  // namespace ac::bench
