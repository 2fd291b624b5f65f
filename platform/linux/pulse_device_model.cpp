#include "platform/linux/pulse_device_model.h"

#include <cstring>

#include "platform/linux/pulse_status.h"

namespace ac::platform::linux_backend {

DeviceStreams streamsOfSink(const SinkInfo& sink) { return {{}, {sink.spec.channels}}; }

DeviceStreams streamsOfSource(const SourceInfo& source) { return {{source.spec.channels}, {}}; }

DeviceStreams streamsOfAggregate(uint32_t tapChannels, const SinkInfo* master) {
  DeviceStreams s{{tapChannels}, {}};
  if (master) s.output.push_back(master->spec.channels);
  return s;
}

std::vector<uint32_t> buffersInScope(const DeviceStreams& streams, Scope scope) {
  switch (scope) {
    case Scope::input: return streams.input;
    case Scope::output: return streams.output;
    case Scope::global: break;
  }
  std::vector<uint32_t> all = streams.output;
  all.insert(all.end(), streams.input.begin(), streams.input.end());
  return all;
}

uint32_t streamIDsByteSize(const DeviceStreams& streams, Scope scope) {
  return static_cast<uint32_t>(4 * buffersInScope(streams, scope).size());
}

OSStatus writeStreamConfiguration(const std::vector<uint32_t>& channelsPerBuffer, void* data, uint32_t& ioBytes) {
  if (!data || ioBytes < 8) return kBadPropertySizeErr;
  auto* bytes = static_cast<uint8_t*>(data);
  const uint32_t declared = static_cast<uint32_t>(channelsPerBuffer.size());
  std::memset(bytes, 0, 8);
  std::memcpy(bytes, &declared, 4);
  uint32_t written = 8;
  for (uint32_t channels : channelsPerBuffer) {
    if (written + 16 > ioBytes) break;
    AudioBuffer b{channels, 0, nullptr};
    std::memcpy(bytes + written, &b, sizeof b);
    written += 16;
  }
  ioBytes = written;
  return kNoErr;
}

std::string tapSinkName(const std::optional<std::string>& aggregateMaster, const std::string& lastCaptured,
                        const Snapshot& snapshot) {
  if (aggregateMaster && snapshot.sink(*aggregateMaster)) return *aggregateMaster;
  if (!lastCaptured.empty() && snapshot.sink(lastCaptured)) return lastCaptured;
  if (snapshot.sink(snapshot.defaultSink)) return snapshot.defaultSink;
  return {};
}

std::optional<TapShape> tapShapeOf(const std::string& sinkName, const Snapshot& snapshot) {
  const SinkInfo* sink = snapshot.sink(sinkName);
  if (!sink) return std::nullopt;
  return TapShape{sink->spec.rate, sink->spec.channels};
}

StreamFormat tapFormatAt(uint32_t rate) { return floatPCMFormat(rate, kTapChannels); }

}  // namespace ac::platform::linux_backend
