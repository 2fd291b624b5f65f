// Signals to play into the sound server and measurements on decoded tracks:
// pure functions on mono float samples, shared by the end-to-end tests and
// the benchmarks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ac::e2e {

// Mono samples at one rate.
struct Pcm {
  int rate = 0;
  std::vector<float> samples;
  double seconds() const { return rate ? double(samples.size()) / rate : 0; }
};

Pcm sineWave(int rate, double hz, double seconds, float amplitude);

// Short tone bursts ("clicks") at irregular gaps, so that no shift by a
// whole gap can be mistaken for alignment. The same seed gives the same
// train.
Pcm clickTrain(int rate, double seconds, uint32_t seed);

// Native-endian 32-bit floats, as ffmpeg's "f32le" writes them here and
// pacat's "float32le" plays them.
std::string floatBytes(const Pcm& pcm);
Pcm pcmFromFloatBytes(int rate, const std::string& bytes);

// The amplitude of the `hz` component (Goertzel) within [fromSeconds,
// toSeconds), clamped to the signal: a full-scale sine of that frequency reads 1.
double toneAmplitude(const Pcm& pcm, double hz, double fromSeconds = 0, double toSeconds = 1e9);

// The longest run of consecutive windows of `windowSeconds` inside
// [fromSeconds, toSeconds) whose loudest sample stays under `floor`: where
// and how long the track fell silent there (start -1: never). Pick a window
// longer than the period of the tone played, so a window of sound always
// holds a peak.
struct Silence {
  double startSeconds = -1;
  double seconds = 0;
};
Silence longestSilentRun(const Pcm& pcm, double fromSeconds, double toSeconds, double windowSeconds, float floor);

// Where each click is, in seconds from the start: the energy centroid of
// each burst that rises above a third of the loudest sample.
std::vector<double> clickTimes(const Pcm& pcm);

// How much later the clicks of `b` come than those of `a`, at most `maxLag`
// seconds either way: the median over the clicks of `a` that pair up with
// one of `b` at the shift that pairs up the most.
struct Lag {
  double seconds = 0;
  size_t matched = 0;
};
std::optional<Lag> medianLag(const std::vector<double>& a, const std::vector<double>& b, double maxLag);

}  // namespace ac::e2e
