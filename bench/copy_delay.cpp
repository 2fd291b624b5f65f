// copy_delay MONITOR COPY RATE SECONDS
//
// How much later a copy source (a remap of MONITOR) hands the same audio to
// its clients than MONITOR itself does. Both are read for SECONDS as mono
// float at RATE with 10 ms fragments, like audio-capture's streams; for each
// click of a playing click train, the arrival times of the chunks holding
// its first loud sample are compared. A remap source passes each block on
// one sink block later than the monitor and reports almost none of that as
// latency, so this is part of any offset measured between a monitor track
// and a track of its copy, whatever the recorder does.
#include <pulse/pulseaudio.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

namespace {

constexpr float kLoud = 0.3f;
constexpr double kQuietSeconds = 0.09;  // clicks are further apart than this

double monotonicSeconds() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return double(ts.tv_sec) + double(ts.tv_nsec) / 1e9;
}

struct Reader {
  std::string source;
  int rate = 0;
  pa_stream* stream = nullptr;
  uint64_t frames = 0, lastLoudFrame = 0;
  bool heardLoud = false;
  std::vector<double> clickArrivals;

  void onChunk(const float* samples, size_t count) {
    const double now = monotonicSeconds();
    for (size_t i = 0; i < count; ++i) {
      if (std::fabs(samples[i]) < kLoud) continue;
      const uint64_t frame = frames + i;
      if (!heardLoud || double(frame - lastLoudFrame) / rate > kQuietSeconds) clickArrivals.push_back(now);
      heardLoud = true;
      lastLoudFrame = frame;
    }
    frames += count;
  }
};

void onRead(pa_stream* s, size_t, void* userdata) {
  auto* reader = static_cast<Reader*>(userdata);
  const void* data = nullptr;
  size_t bytes = 0;
  while (pa_stream_peek(s, &data, &bytes) == 0 && bytes > 0) {
    if (data) reader->onChunk(static_cast<const float*>(data), bytes / sizeof(float));
    pa_stream_drop(s);
  }
}

void connect(pa_context* context, Reader& reader) {
  const pa_sample_spec spec{PA_SAMPLE_FLOAT32LE, static_cast<uint32_t>(reader.rate), 1};
  reader.stream = pa_stream_new(context, "copy_delay", &spec, nullptr);
  pa_stream_set_read_callback(reader.stream, onRead, &reader);
  pa_buffer_attr attr;
  attr.maxlength = attr.tlength = attr.prebuf = attr.minreq = static_cast<uint32_t>(-1);
  attr.fragsize = static_cast<uint32_t>(pa_usec_to_bytes(10 * PA_USEC_PER_MSEC, &spec));
  pa_stream_connect_record(reader.stream, reader.source.c_str(), &attr, PA_STREAM_ADJUST_LATENCY);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) {
    std::fprintf(stderr, "usage: %s MONITOR COPY RATE SECONDS\n", argv[0]);
    return 64;
  }
  Reader readers[2];
  readers[0].source = argv[1];
  readers[1].source = argv[2];
  readers[0].rate = readers[1].rate = std::atoi(argv[3]);
  const double seconds = std::atof(argv[4]);

  pa_mainloop* loop = pa_mainloop_new();
  pa_context* context = pa_context_new(pa_mainloop_get_api(loop), "copy_delay");
  if (pa_context_connect(context, nullptr, PA_CONTEXT_NOFLAGS, nullptr) < 0) {
    std::fprintf(stderr, "copy_delay: no sound server\n");
    return 1;
  }
  bool connected = false;
  const double end = monotonicSeconds() + seconds;
  while (monotonicSeconds() < end) {
    if (pa_mainloop_iterate(loop, 1, nullptr) < 0) break;
    const pa_context_state_t state = pa_context_get_state(context);
    if (!PA_CONTEXT_IS_GOOD(state)) {
      std::fprintf(stderr, "copy_delay: the sound server connection failed\n");
      return 1;
    }
    if (state == PA_CONTEXT_READY && !connected) {
      for (Reader& r : readers) connect(context, r);
      connected = true;
    }
  }
  // Pair each click of the monitor with the copy's nearest.
  std::vector<double> delays;
  const std::vector<double>& copy = readers[1].clickArrivals;
  for (double t : readers[0].clickArrivals) {
    auto it = std::lower_bound(copy.begin(), copy.end(), t - 0.05);
    if (it != copy.end() && *it < t + 0.05) delays.push_back(*it - t);
  }
  if (delays.empty()) {
    std::fprintf(stderr, "copy_delay: no click heard on both sources\n");
    return 1;
  }
  std::sort(delays.begin(), delays.end());
  std::printf("%s reaches its clients %.3f ms after %s (median of %zu clicks, %.3f to %.3f ms)\n", argv[2],
              delays[delays.size() / 2] * 1000, argv[1], delays.size(), delays.front() * 1000,
              delays.back() * 1000);
  for (Reader& r : readers) pa_stream_unref(r.stream);
  pa_context_disconnect(context);
  pa_context_unref(context);
  pa_mainloop_free(loop);
  return 0;
}
