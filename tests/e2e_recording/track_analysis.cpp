#include "e2e_recording/track_analysis.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>

namespace ac::e2e {
namespace {

constexpr double kClickHz = 3000;
constexpr double kClickSeconds = 0.002;
constexpr float kClickAmplitude = 0.8f;
constexpr double kMinGapSeconds = 0.18, kMaxGapSeconds = 0.42;

// The frame at `seconds`, clamped to the track.
size_t frameAt(const Pcm& pcm, double seconds) {
  return std::min(pcm.samples.size(), static_cast<size_t>(std::max(0.0, seconds) * pcm.rate));
}

}  // namespace

Pcm sineWave(int rate, double hz, double seconds, float amplitude) {
  Pcm pcm{rate, std::vector<float>(static_cast<size_t>(seconds * rate))};
  for (size_t i = 0; i < pcm.samples.size(); ++i)
    pcm.samples[i] = amplitude * static_cast<float>(std::sin(2 * std::numbers::pi * hz * double(i) / rate));
  return pcm;
}

Pcm clickTrain(int rate, double seconds, uint32_t seed) {
  Pcm pcm{rate, std::vector<float>(static_cast<size_t>(seconds * rate))};
  const auto burst = static_cast<size_t>(kClickSeconds * rate);
  uint32_t state = seed;
  double at = kMinGapSeconds;
  while (true) {
    const auto start = static_cast<size_t>(at * rate);
    if (start + burst > pcm.samples.size()) break;
    for (size_t i = 0; i < burst; ++i) {
      const double hann = 0.5 - 0.5 * std::cos(2 * std::numbers::pi * double(i) / double(burst));
      pcm.samples[start + i] =
          kClickAmplitude * static_cast<float>(hann * std::sin(2 * std::numbers::pi * kClickHz * double(i) / rate));
    }
    state = state * 1664525u + 1013904223u;  // any spread of gaps will do
    at += kMinGapSeconds + (kMaxGapSeconds - kMinGapSeconds) * double(state >> 8) / double(1u << 24);
  }
  return pcm;
}

std::string floatBytes(const Pcm& pcm) {
  return std::string(reinterpret_cast<const char*>(pcm.samples.data()), pcm.samples.size() * sizeof(float));
}

Pcm pcmFromFloatBytes(int rate, const std::string& bytes) {
  Pcm pcm{rate, std::vector<float>(bytes.size() / sizeof(float))};
  if (!pcm.samples.empty()) std::memcpy(pcm.samples.data(), bytes.data(), pcm.samples.size() * sizeof(float));
  return pcm;
}

double toneAmplitude(const Pcm& pcm, double hz, double fromSeconds, double toSeconds) {
  const size_t from = frameAt(pcm, fromSeconds), to = std::max(from, frameAt(pcm, toSeconds));
  if (from == to) return 0;
  const double coeff = 2 * std::cos(2 * std::numbers::pi * hz / pcm.rate);
  double s1 = 0, s2 = 0;
  for (size_t i = from; i < to; ++i) {
    const double s = pcm.samples[i] + coeff * s1 - s2;
    s2 = s1;
    s1 = s;
  }
  const double power = std::max(0.0, s1 * s1 + s2 * s2 - coeff * s1 * s2);
  return 2 * std::sqrt(power) / double(to - from);
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

std::vector<double> clickTimes(const Pcm& pcm) {
  std::vector<double> times;
  float loudest = 0;
  for (float x : pcm.samples) loudest = std::max(loudest, std::fabs(x));
  if (loudest == 0) return times;
  const float threshold = loudest / 3;
  // The burst and the codec's smear around it, from its first loud sample.
  const auto before = static_cast<size_t>(0.002 * pcm.rate), after = static_cast<size_t>(0.006 * pcm.rate);
  const auto refractory = static_cast<size_t>(kMinGapSeconds / 2 * pcm.rate);
  const size_t n = pcm.samples.size();
  for (size_t i = 0; i < n; ++i) {
    if (std::fabs(pcm.samples[i]) < threshold) continue;
    double energy = 0, moment = 0;
    for (size_t j = i > before ? i - before : 0; j < std::min(n, i + after); ++j) {
      const double e = double(pcm.samples[j]) * pcm.samples[j];
      energy += e;
      moment += e * double(j);
    }
    times.push_back(moment / energy / pcm.rate);
    i += refractory;
  }
  return times;
}

std::optional<Lag> medianLag(const std::vector<double>& a, const std::vector<double>& b, double maxLag) {
  // Two clicks of one sound land within this of each other once shifted.
  constexpr double kTolerance = 0.005;
  auto lagsAt = [&](double shift) {
    std::vector<double> lags;
    for (double t : a) {
      auto it = std::lower_bound(b.begin(), b.end(), t + shift - kTolerance);
      if (it != b.end() && *it <= t + shift + kTolerance) lags.push_back(*it - t);
    }
    return lags;
  };
  // The shift that pairs up the most clicks: with irregular gaps any other
  // pairs only a few by chance.
  std::vector<double> best;
  for (double t : a)
    for (auto it = std::lower_bound(b.begin(), b.end(), t - maxLag); it != b.end() && *it <= t + maxLag; ++it)
      if (std::vector<double> lags = lagsAt(*it - t); lags.size() > best.size()) best = std::move(lags);
  if (best.empty()) return std::nullopt;
  std::nth_element(best.begin(), best.begin() + best.size() / 2, best.end());
  return Lag{best[best.size() / 2], best.size()};
}

}  // namespace ac::e2e
