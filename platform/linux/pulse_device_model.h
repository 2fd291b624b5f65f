// How PulseAudio's objects look through the hardware seam. Pure functions of
// a snapshot and the backend's own tap and aggregate records, so the shapes
// the core measures can be checked without a server.
//
// - A sink is an output device with one interleaved output stream. Its
//   monitor is not an input stream of the device: a sink has no inputs.
// - A source (not a monitor) is an input-only device with one input stream.
// - An aggregate's input is the tap alone: one interleaved buffer of the
//   tap's channels, captured from its main sink's monitor. Its output is the
//   main sink's stream.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/audio_hardware.h"
#include "platform/linux/pulse_snapshot.h"

namespace ac::platform::linux_backend {

// Channels per stream buffer, in list order, for each direction.
struct DeviceStreams {
  std::vector<uint32_t> input;
  std::vector<uint32_t> output;
};

DeviceStreams streamsOfSink(const SinkInfo& sink);
DeviceStreams streamsOfSource(const SourceInfo& source);
// master is null when the aggregate's main sink has gone away.
DeviceStreams streamsOfAggregate(uint32_t tapChannels, const SinkInfo* master);

// The buffers a scope sees: global is output then input.
std::vector<uint32_t> buffersInScope(const DeviceStreams& streams, Scope scope);
// Bytes of the stream-ID list (4 per stream; one stream per buffer here).
uint32_t streamIDsByteSize(const DeviceStreams& streams, Scope scope);

// Bytes a buffer list of n buffers takes: an 8-byte header, 16 per buffer.
inline uint32_t bufferListLayoutBytes(size_t buffers) { return static_cast<uint32_t>(8 + 16 * buffers); }
// Writes a stream-configuration list (channel counts, no data) into data.
// ioBytes: room on entry, bytes written on return. The header always names
// every buffer; when the room holds fewer, only those are written, which
// callers detect by comparing. Less room than the header is an error.
OSStatus writeStreamConfiguration(const std::vector<uint32_t>& channelsPerBuffer, void* data, uint32_t& ioBytes);

// The sink a tap records: the main sink of its aggregate while that sink
// exists, else the sink it recorded last while that one exists, else the
// server's default sink. Empty when there is none.
std::string tapSinkName(const std::optional<std::string>& aggregateMaster, const std::string& lastCaptured,
                        const Snapshot& snapshot);

// The tap's rate and channel count as its listeners watch them.
struct TapShape {
  uint32_t rate = 0;
  uint32_t channels = 0;
  bool operator==(const TapShape&) const = default;
};
// The shape of the sink a tap records; absent when the sink is unknown.
std::optional<TapShape> tapShapeOf(const std::string& sinkName, const Snapshot& snapshot);

// The tap always delivers the stereo float mix of what the sink plays, at
// the sink's rate.
inline constexpr uint32_t kTapChannels = 2;
StreamFormat tapFormatAt(uint32_t rate);

}  // namespace ac::platform::linux_backend
