// track_offsets FILE [WINDOW_SECONDS]
// track_offsets --clicks SECONDS OUT.f32
//
// For a recording of one click train on both tracks (see
// e2e_recording/track_analysis.h), prints how much later the second track's
// clicks come than the first's over the first and the last WINDOW_SECONDS
// (default 20) of the file, and the drift between the two. With --clicks,
// writes such a train instead (mono 48 kHz float32le, as pacat plays it).
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "e2e_recording/e2e_harness.h"

using namespace ac::e2e;

// The clicks of `times` inside [from, to).
static std::vector<double> within(const std::vector<double>& times, double from, double to) {
  std::vector<double> out;
  for (double t : times)
    if (t >= from && t < to) out.push_back(t);
  return out;
}

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s FILE [WINDOW_SECONDS] | --clicks SECONDS OUT.f32\n", argv[0]);
    return 64;
  }
  if (std::string(argv[1]) == "--clicks" && argc == 4) {
    std::ofstream(argv[3], std::ios::binary) << floatBytes(clickTrain(48000, std::atof(argv[2]), 7));
    return 0;
  }
  const std::string file = argv[1];
  const double window = argc > 2 ? std::atof(argv[2]) : 20;
  Scratch scratch;
  std::vector<Pcm> tracks = decodeTracks(scratch, file);
  if (tracks.size() != 2) {
    std::fprintf(stderr, "%s: %zu audio tracks, expected 2\n", file.c_str(), tracks.size());
    return 1;
  }
  const std::vector<double> first = clickTimes(tracks[0]), second = clickTimes(tracks[1]);
  const double end = std::min(tracks[0].seconds(), tracks[1].seconds());
  std::printf("%s: %.3f s and %.3f s, %zu and %zu clicks\n", file.c_str(), tracks[0].seconds(), tracks[1].seconds(),
              first.size(), second.size());
  std::optional<Lag> lags[2];
  const double from[2] = {0, end - window};
  const char* names[2] = {"start", "end"};
  for (int k = 0; k < 2; ++k) {
    lags[k] = medianLag(within(first, from[k], from[k] + window), second, 1.0);
    if (!lags[k]) {
      std::printf("  offset at the %s: no matching clicks\n", names[k]);
      return 1;
    }
    std::printf("  offset at the %s (%.0f-%.0f s): %+.3f ms over %zu clicks\n", names[k], from[k], from[k] + window,
                lags[k]->seconds * 1000, lags[k]->matched);
  }
  std::printf("  drift: %+.3f ms\n", (lags[1]->seconds - lags[0]->seconds) * 1000);
  return 0;
}
