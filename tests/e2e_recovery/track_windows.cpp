#include "e2e_recovery/track_windows.h"

#include <algorithm>
#include <cmath>

namespace ac::e2e {
namespace {

size_t frameAt(const Pcm& pcm, double seconds) {
  return std::min(pcm.samples.size(), static_cast<size_t>(std::max(0.0, seconds) * pcm.rate));
}

}  // namespace

Pcm slice(const Pcm& pcm, double fromSeconds, double toSeconds) {
  const size_t from = frameAt(pcm, fromSeconds), to = std::max(from, frameAt(pcm, toSeconds));
  return Pcm{pcm.rate, std::vector<float>(pcm.samples.begin() + long(from), pcm.samples.begin() + long(to))};
}

double toneBetween(const Pcm& pcm, double hz, double fromSeconds, double toSeconds) {
  return toneAmplitude(slice(pcm, fromSeconds, toSeconds), hz);
}

Silence longestSilentRun(const Pcm& pcm, double fromSeconds, double toSeconds, double windowSeconds, float floor) {
  const size_t window = std::max<size_t>(1, static_cast<size_t>(windowSeconds * pcm.rate));
  const size_t from = frameAt(pcm, fromSeconds), to = frameAt(pcm, toSeconds);
  Silence longest;
  size_t runStart = from, runFrames = 0;
  for (size_t at = from; at + window <= to; at += window) {
    float peak = 0;
    for (size_t i = at; i < at + window; ++i) peak = std::max(peak, std::fabs(pcm.samples[i]));
    if (peak >= floor) {
      runFrames = 0;
      continue;
    }
    if (runFrames == 0) runStart = at;
    runFrames += window;
    if (double(runFrames) / pcm.rate > longest.seconds)
      longest = Silence{double(runStart) / pcm.rate, double(runFrames) / pcm.rate};
  }
  return longest;
}

}  // namespace ac::e2e
