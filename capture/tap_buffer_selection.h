// Which buffers of the aggregate's input list belong to the tap. The
// aggregate puts its sub-device's input streams ahead of the tap's, so the
// tap is a contiguous run at the end of the list; these decisions never pick
// a run that does not verify as the tap.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/audio_hardware.h"

namespace ac::capture {

enum class TapBufferSelect { probe, channelMatch, undetermined, scratchCap, empty };

// "probe", "channel-match", "undetermined", "scratch-cap", "empty".
const char* rawValue(TapBufferSelect select);

struct TapBufferRange {
  int64_t index = 0;
  int64_t count = 0;
  TapBufferSelect select = TapBufferSelect::undetermined;
  bool operator==(const TapBufferRange&) const = default;
};

// A stream configuration larger than this many buffers is not believed.
inline constexpr int64_t maxStreamConfigBuffers = 4096;

// A run is the tap when its channels add up to the tap's: one buffer for an
// interleaved tap, one mono buffer per channel for a non-interleaved one.
bool tapBufferRunVerifies(uint64_t channelSum, int64_t bufferCount, bool allBuffersMono, uint32_t tapChannels,
                          bool interleaved);
bool tapBufferRangeVerifies(std::span<const uint32_t> counts, uint32_t tapChannels, bool interleaved);

// The tap's run given the channel count of every buffer and, when measured,
// how many of them the sub-device contributes. The shortest verifying
// trailing run wins the search.
TapBufferRange tapBufferRange(std::span<const uint32_t> aggregateChannelsPerBuffer,
                              std::optional<int64_t> subDeviceBufferCount, uint32_t tapChannels, bool interleaved);

// A stored selection applies to an arriving list only if the list has the
// shape it had when the selection was made.
bool tapSelectionIsCurrent(int64_t index, int64_t count, int64_t probedBufferCount, int64_t arrivedBufferCount);

// Channel count of each input stream of a device, in list order. Throws
// CaptureError (-9 for device 0, -10 for an implausible size, else status).
std::vector<uint32_t> inputStreamChannelCounts(platform::AudioHardware& hw, platform::AudioObjectID device);

}  // namespace ac::capture
