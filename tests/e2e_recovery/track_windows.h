// Measurements on part of a decoded track: what plays between two times, and
// how long the track fell silent. Pure functions on mono samples, shared by
// the recovery tests and the armed benchmark.
#pragma once

#include "e2e_recording/track_analysis.h"

namespace ac::e2e {

// The samples of [fromSeconds, toSeconds), clamped to the track.
Pcm slice(const Pcm& pcm, double fromSeconds, double toSeconds);

// The amplitude of `hz` within [fromSeconds, toSeconds).
double toneBetween(const Pcm& pcm, double hz, double fromSeconds, double toSeconds);

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

}  // namespace ac::e2e
