#include "sim_audio_hardware.h"

#include <algorithm>
#include <cstring>

#include "support/dispatch.h"

namespace ac::sim {

using platform::ListenedProperty;

size_t SimAudioHardware::listenerCount(ListenedProperty property) const {
  std::lock_guard lock(mutex_);
  return std::count_if(listeners_.begin(), listeners_.end(),
                       [&](const auto& entry) { return entry.second.property == property; });
}

void SimAudioHardware::fire(AudioObjectID object, ListenedProperty property) {
  // Posted under the lock so a listener being removed cannot lose its queue
  // between the look-up and the post; the post itself never waits.
  std::lock_guard lock(mutex_);
  for (const auto& [id, l] : listeners_) {
    if (l.object != object || l.property != property) continue;
    ++pendingListenerCalls_;
    l.queue->async([this, block = l.block] {
      block();
      std::lock_guard done(mutex_);
      if (--pendingListenerCalls_ == 0) idle_.notify_all();
    });
  }
}

OSStatus SimAudioHardware::streamConfiguration(AudioObjectID device, Scope scope, void* data, uint32_t& ioBytes) {
  return answerFor("StreamConfiguration", devices_, device, [&](const SimDevice& d) {
    const std::vector<uint32_t> channels = d.buffers(scope);
    // The whole list, of which only what fits the caller's room is written:
    // the header keeps declaring every buffer.
    std::vector<uint8_t> full(8 + 16 * channels.size(), 0);
    const uint32_t count = uint32_t(channels.size());
    std::memcpy(full.data(), &count, 4);
    for (size_t i = 0; i < channels.size(); ++i) std::memcpy(full.data() + 8 + 16 * i, &channels[i], 4);
    ioBytes = uint32_t(std::min<size_t>(ioBytes, full.size()));
    std::memcpy(data, full.data(), ioBytes);
    return 0;
  });
}

OSStatus SimAudioHardware::createAggregateDevice(const nlohmann::json& description, AudioObjectID& out) {
  aggregateDescriptions.push_back(description);  // refused requests too
  return answer("AudioHardwareCreateAggregateDevice", [&]() -> OSStatus {
    const SimDevice* master = nullptr;
    const Tap* tap = nullptr;
    for (const auto& [id, d] : devices_)
      if (d.uid == description.at("master") && !d.aggregate) master = &d;
    for (const auto& [id, t] : taps_)
      if (t.uid == description.at("taps").at(0).at("uid")) tap = &t;
    if (!master || !tap) return kBadDeviceErr;
    // The master's input streams, then the tap's: one buffer when
    // interleaved, one mono buffer per channel otherwise.
    SimDevice agg{{description.value("uid", ""), description.value("name", ""), 0, master->outputStreams,
                   master->inputChannels, 0},
                  true};
    const platform::StreamFormat& f = tap->format;
    if (f.formatFlags & platform::kAudioFormatFlagIsNonInterleaved)
      agg.inputChannels.insert(agg.inputChannels.end(), f.channelsPerFrame, 1);
    else
      agg.inputChannels.push_back(f.channelsPerFrame);
    out = nextID_++;
    devices_[out] = std::move(agg);
    return 0;
  });
}

OSStatus SimAudioHardware::changeProc(const char* call, AudioObjectID device, platform::IOProcID proc, bool running,
                                      bool destroyed) {
  return answer(call, [&] {
    for (auto& p : procs_) {
      if (p->id != proc || p->destroyed) continue;
      if (p->device != device) return kBadDeviceErr;
      p->running = running;
      p->destroyed = destroyed;
      return 0;
    }
    return kBadObjectErr;
  });
}

}  // namespace ac::sim
