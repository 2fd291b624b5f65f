#include "sim_mic_capture.h"

#include <cstring>

#include "support/dispatch.h"

namespace ac::sim {

using platform::AudioFormatDescription;

AudioFormatDescription micFloatFormat(double rate, uint32_t channels) {
  AudioFormatDescription d;
  d.asbd = platform::floatPCMFormat(rate, channels);
  return d;
}

platform::SampleBuffer micSampleBuffer(int64_t ptsNanos, int64_t frames, float value,
                                       const AudioFormatDescription& format) {
  platform::SampleBuffer sb;
  sb.format = format;
  sb.numSamples = frames;
  sb.timing.push_back({platform::MediaTime::make(1, static_cast<int32_t>(format.asbd.sampleRate)),
                       platform::MediaTime::make(ptsNanos, 1000000000), platform::MediaTime::invalid()});
  const uint32_t channels = format.asbd.channelsPerFrame;
  std::vector<uint8_t> bytes(static_cast<size_t>(frames) * channels * sizeof(float));
  for (size_t i = 0; i < bytes.size() / sizeof(float); ++i) std::memcpy(&bytes[i * sizeof(float)], &value, 4);
  sb.buffers.push_back(std::move(bytes));
  sb.bufferChannels.push_back(channels);
  sb.dataReady = true;
  return sb;
}

bool SimAudioDataOutput::deliver(const platform::SampleBuffer& buffer) {
  auto [handler, queue] = handler_.get();
  if (!handler) return false;
  if (queue)
    queue->sync([&] { handler(buffer); });
  else
    handler(buffer);
  return true;
}

void SimMicCapture::notify(const std::function<std::function<void()>(const Observer&)>& callFor, bool wait) {
  // Queued under the lock, as removeObserver takes it: a removed observer's
  // queue is never touched. Observers without a queue (or on the calling
  // queue, when waiting) run inline once the lock is released.
  std::vector<std::function<void()>> inlineCalls;
  auto done = std::make_shared<Semaphore>();
  int queued = 0;
  {
    std::lock_guard lock(mutex_);
    for (const auto& [token, o] : observers_) {
      std::function<void()> call = callFor(o);
      if (!call) continue;
      if (!o.queue || (wait && o.queue->isCurrent())) {
        inlineCalls.push_back(std::move(call));
        continue;
      }
      o.queue->async([call, done] { call(), done->signal(); });
      ++queued;
    }
  }
  for (const auto& call : inlineCalls) call();
  if (wait)
    while (queued-- > 0) done->wait();
}

}  // namespace ac::sim
