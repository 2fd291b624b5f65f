#include "capture/tap_buffer_selection.h"

#include <algorithm>
#include <cstring>
#include <numeric>

#include "support/error.h"
#include "support/log.h"

namespace ac::capture {

const char* rawValue(TapBufferSelect select) {
  switch (select) {
    case TapBufferSelect::probe: return "probe";
    case TapBufferSelect::channelMatch: return "channel-match";
    case TapBufferSelect::undetermined: return "undetermined";
    case TapBufferSelect::scratchCap: return "scratch-cap";
    case TapBufferSelect::empty: return "empty";
  }
  return "undetermined";
}

bool tapBufferRunVerifies(uint64_t channelSum, int64_t bufferCount, bool allBuffersMono, uint32_t tapChannels,
                          bool interleaved) {
  if (bufferCount < 1 || tapChannels == 0 || channelSum != tapChannels) return false;
  if (interleaved) return bufferCount == 1;
  return allBuffersMono && uint64_t(bufferCount) == channelSum;
}

bool tapBufferRangeVerifies(std::span<const uint32_t> counts, uint32_t tapChannels, bool interleaved) {
  uint64_t sum = std::accumulate(counts.begin(), counts.end(), uint64_t{0});
  bool mono = std::all_of(counts.begin(), counts.end(), [](uint32_t c) { return c == 1; });
  return tapBufferRunVerifies(sum, int64_t(counts.size()), mono, tapChannels, interleaved);
}

TapBufferRange tapBufferRange(std::span<const uint32_t> counts, std::optional<int64_t> sub, uint32_t tapChannels,
                              bool interleaved) {
  const int64_t n = int64_t(counts.size());
  if (n == 0) return {0, 0, TapBufferSelect::empty};
  if (sub) {
    // A sub-device count that cannot index the list, or leaves nothing for
    // the tap, proves nothing about where the tap is.
    if (*sub < 0 || *sub >= n) return {0, 0, TapBufferSelect::undetermined};
    if (tapBufferRangeVerifies(counts.subspan(size_t(*sub)), tapChannels, interleaved))
      return {*sub, n - *sub, TapBufferSelect::probe};
  }
  for (int64_t start = n - 1; start >= 0; --start) {
    if (tapBufferRangeVerifies(counts.subspan(size_t(start)), tapChannels, interleaved))
      return {start, n - start, TapBufferSelect::channelMatch};
  }
  return {0, 0, TapBufferSelect::undetermined};
}

bool tapSelectionIsCurrent(int64_t index, int64_t count, int64_t probedBufferCount, int64_t arrivedBufferCount) {
  return index >= 0 && count >= 1 && index + count <= arrivedBufferCount && probedBufferCount == arrivedBufferCount;
}

std::vector<uint32_t> inputStreamChannelCounts(platform::AudioHardware& hw, platform::AudioObjectID device) {
  using platform::Scope;
  if (device == 0) throw CaptureError(-9, "stream-config: invalid device id");

  uint32_t size = 0;
  platform::OSStatus st = hw.streamConfigurationByteSize(device, Scope::input, size);
  if (st != 0) throw CaptureError(st, "stream-config size query failed");

  // An 8-byte header and 16 bytes per buffer.
  constexpr uint64_t bound = uint64_t(maxStreamConfigBuffers) * 16 + 24;
  if (size > bound)
    throw CaptureError(-10, "stream-config reported an implausible size (" + std::to_string(size) +
                                " bytes, max " + std::to_string(bound) + ") for device " + std::to_string(device));

  std::vector<uint8_t> bytes(std::max<size_t>(size, 24), 0);
  uint32_t read = size;
  st = hw.streamConfiguration(device, Scope::input, bytes.data(), read);
  if (st != 0) throw CaptureError(st, "stream-config read failed");

  const size_t returned = std::min<size_t>(bytes.size(), read);
  const size_t room = returned > 8 ? (returned - 8) / 16 : 0;
  uint32_t declared = 0;
  std::memcpy(&declared, bytes.data(), sizeof declared);
  size_t buffers = declared;
  if (declared > room) {
    log("stream-config: device " + std::to_string(device) + " declared " + std::to_string(declared) +
        " input buffers in " + std::to_string(returned) + " bytes returned (room for " + std::to_string(room) +
        "; " + std::to_string(size) + " predicted) \u2014 clamping");
    buffers = room;
  }

  std::vector<uint32_t> channels(buffers);
  for (size_t i = 0; i < buffers; ++i) {
    const uint8_t* entry = bytes.data() + offsetof(platform::AudioBufferList, buffers) + i * sizeof(platform::AudioBuffer);
    std::memcpy(&channels[i], entry + offsetof(platform::AudioBuffer, numberChannels), sizeof(uint32_t));
  }
  return channels;
}

}  // namespace ac::capture
