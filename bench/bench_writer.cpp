// bench_writer [minutes] [scratch dir]
//
// Encodes `minutes` of synthetic call audio (48 kHz stereo system track at
// 128 kb/s, 48 kHz mono microphone track at 64 kb/s, both in 10 ms buffers)
// through the FFmpeg writer, then has the ffmpeg command line encode the same
// audio from raw PCM files into the same kind of file, and prints CPU seconds
// per minute of audio and peak resident memory for both.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/linux/backends.h"

using namespace ac::platform;

namespace {

constexpr int kRate = 48000;
constexpr int kBufferFrames = kRate / 100;

struct Track {
  int channels;
  int bitRate;
  std::vector<float> second;  // one second of interleaved audio, repeated
};

// A tone with some noise so the encoder has real work; whole cycles per
// second, so the second loops without a click.
Track makeTrack(int channels, int bitRate, double hz, uint32_t seed) {
  Track t{channels, bitRate, std::vector<float>(size_t(kRate) * channels)};
  for (int i = 0; i < kRate; ++i) {
    for (int c = 0; c < channels; ++c) {
      seed = seed * 1664525u + 1013904223u;
      const double noise = (seed >> 8) / double(1 << 24) - 0.5;
      t.second[size_t(i) * channels + c] = float(0.4 * std::sin(2 * M_PI * hz * i / kRate) + 0.05 * noise);
    }
  }
  return t;
}

SampleBuffer bufferAt(const Track& t, int64_t frame) {
  SampleBuffer b;
  b.format.asbd = floatPCMFormat(kRate, t.channels);
  b.numSamples = kBufferFrames;
  b.timing.push_back({MediaTime::make(1, kRate), MediaTime::make(frame * 1000000000 / kRate, 1000000000), {}});
  const float* from = t.second.data() + size_t(frame % kRate) * t.channels;
  const auto* bytes = reinterpret_cast<const uint8_t*>(from);
  b.buffers.emplace_back(bytes, bytes + sizeof(float) * kBufferFrames * t.channels);
  b.dataReady = true;
  return b;
}

double cpuSeconds(const rusage& u) {
  return u.ru_utime.tv_sec + u.ru_utime.tv_usec / 1e6 + u.ru_stime.tv_sec + u.ru_stime.tv_usec / 1e6;
}

double wallSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

bool writeWithWriter(const std::string& path, const std::vector<Track>& tracks, int minutes) {
  ac::Error error;
  auto writer = linux_backend::makeFFmpegWriterFactory()->makeMPEG4Writer(path, MediaTime::make(3000, 600), error);
  if (!writer) {
    std::fprintf(stderr, "bench_writer: %s\n", error.description.c_str());
    return false;
  }
  std::vector<std::shared_ptr<WriterInput>> inputs;
  for (const Track& t : tracks) {
    inputs.push_back(writer->makeInput({kAudioFormatMPEG4AAC, kRate, t.channels, t.bitRate}, "t"));
    writer->addInput(inputs.back());
  }
  if (!writer->startWriting()) return false;
  writer->startSession(MediaTime::make(0, 1));
  const int64_t frames = int64_t(minutes) * 60 * kRate;
  for (int64_t frame = 0; frame < frames; frame += kBufferFrames) {
    for (size_t i = 0; i < tracks.size(); ++i) {
      if (!inputs[i]->append(bufferAt(tracks[i], frame))) return false;
    }
  }
  for (auto& in : inputs) in->markAsFinished();
  writer->finishWriting([] {});
  return writer->status() == WriterStatus::completed;
}

bool writeRaw(const std::string& path, const Track& t, int minutes) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return false;
  for (int s = 0; s < minutes * 60; ++s) std::fwrite(t.second.data(), sizeof(float), t.second.size(), f);
  return std::fclose(f) == 0;
}

// Runs argv to completion; its CPU time and peak RSS land in `usage`.
bool runChild(std::vector<std::string> args, rusage& usage) {
  std::vector<char*> argv;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    execvp(argv[0], argv.data());
    _exit(127);
  }
  int status = 0;
  return pid > 0 && wait4(pid, &status, 0, &usage) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

void report(const char* who, double cpu, double wall, long maxRssKiB, int minutes, const std::string& path) {
  std::error_code ec;
  const auto bytes = std::filesystem::file_size(path, ec);
  std::printf("%-7s %.3f CPU s per audio minute (%.2f s CPU, %.2f s wall), peak RSS %.1f MiB, file %.2f MiB\n", who,
              cpu / minutes, cpu, wall, maxRssKiB / 1024.0, ec ? 0.0 : bytes / 1048576.0);
}

}  // namespace

int main(int argc, char** argv) {
  const int minutes = argc > 1 ? std::max(1, std::atoi(argv[1])) : 1;
  const std::filesystem::path dir = argc > 2 ? argv[2] : std::filesystem::temp_directory_path();
  const std::string tag = "bench-writer-" + std::to_string(getpid());
  const std::string ours = dir / (tag + ".m4a"), theirs = dir / (tag + "-ffmpeg.m4a");
  const std::string sysRaw = dir / (tag + "-sys.f32"), micRaw = dir / (tag + "-mic.f32");
  const std::vector<Track> tracks = {makeTrack(2, 128000, 440, 1), makeTrack(1, 64000, 1000, 2)};
  std::printf("%d min of 48 kHz stereo (128 kb/s) + mono (64 kb/s) audio, 10 ms buffers, 5 s fragments\n", minutes);

  rusage before{}, after{};
  getrusage(RUSAGE_SELF, &before);
  auto start = std::chrono::steady_clock::now();
  const bool wrote = writeWithWriter(ours, tracks, minutes);
  const double wall = wallSince(start);
  getrusage(RUSAGE_SELF, &after);
  if (!wrote) {
    std::fprintf(stderr, "bench_writer: the writer failed\n");
    return 1;
  }
  report("writer", cpuSeconds(after) - cpuSeconds(before), wall, after.ru_maxrss, minutes, ours);

  int rc = 0;
  if (writeRaw(sysRaw, tracks[0], minutes) && writeRaw(micRaw, tracks[1], minutes)) {
    rusage child{};
    start = std::chrono::steady_clock::now();
    const bool ran = runChild({"ffmpeg", "-nostdin", "-v", "error", "-y", "-f", "f32le", "-ar", "48000", "-ac", "2", "-i",
                               sysRaw, "-f", "f32le", "-ar", "48000", "-ac", "1", "-i", micRaw, "-map", "0:a", "-map",
                               "1:a", "-c:a", "aac", "-b:a:0", "128k", "-b:a:1", "64k", "-movflags",
                               "+empty_moov+default_base_moof", "-frag_duration", "5000000", theirs},
                              child);
    if (ran) {
      report("ffmpeg", cpuSeconds(child), wallSince(start), child.ru_maxrss, minutes, theirs);
    } else {
      std::fprintf(stderr, "bench_writer: ffmpeg failed\n");
      rc = 1;
    }
  } else {
    std::fprintf(stderr, "bench_writer: cannot write the raw input for ffmpeg\n");
    rc = 1;
  }
  for (const auto& p : {ours, theirs, sysRaw, micRaw}) std::filesystem::remove(p);
  return rc;
}
