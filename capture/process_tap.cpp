#include "capture/process_tap.h"

#include "capture/tap_format.h"
#include "support/error.h"
#include "support/log.h"
#include "support/uuid.h"

namespace ac::capture {

using platform::AudioObjectID;
using platform::OSStatus;

ProcessTap createProcessTap(platform::AudioHardware& hw) {
  platform::TapDescription description;  // stereo mix of every process, unmuted, private
  AudioObjectID tapID = 0;
  OSStatus st = hw.createProcessTap(description, tapID);
  if (st != 0) throw CaptureError(st, "AudioHardwareCreateProcessTap failed");

  std::optional<std::string> uid;
  st = hw.tapUID(tapID, uid);
  if (st != 0 || !uid) {
    hw.destroyProcessTap(tapID);
    throw CaptureError(st, "Get tap UID failed");
  }

  platform::StreamFormat format;
  try {
    format = tapStreamFormat(hw, tapID);
  } catch (const CaptureError&) {
    hw.destroyProcessTap(tapID);
    throw;
  }
  if (!isUsableTapFormat(format)) {
    hw.destroyProcessTap(tapID);
    throw CaptureError(-8, "tap reported an unusable format (" + formatFragment(format) + ")");
  }
  return {tapID, format, *uid};
}

platform::StreamFormat tapStreamFormat(platform::AudioHardware& hw, AudioObjectID tapID) {
  platform::StreamFormat format{};
  OSStatus st = hw.tapFormat(tapID, format);
  if (st != 0) throw CaptureError(st, "Get tap format failed");
  return format;
}

std::string newAggregateUID() { return "audio-capture-tap-" + newUUIDString(); }

nlohmann::json aggregateDescription(const std::string& aggregateUID, const std::string& tapUID,
                                    const std::string& outputUID) {
  // No auto-start key: the IOProc decides when the device runs.
  return nlohmann::json{
      {"name", "audio-capture system tap"},
      {"uid", aggregateUID},
      {"master", outputUID},
      {"private", 1},
      {"stacked", 0},
      {"taps", nlohmann::json::array({{{"uid", tapUID}, {"drift", 1}}})},
      {"subdevices", nlohmann::json::array({{{"uid", outputUID}}})},
  };
}

AudioObjectID createAggregate(platform::AudioHardware& hw, const std::string& tapUID,
                              const std::string& outputUID) {
  AudioObjectID id = 0;
  OSStatus st = hw.createAggregateDevice(aggregateDescription(newAggregateUID(), tapUID, outputUID), id);
  if (st != 0) throw CaptureError(st, "AudioHardwareCreateAggregateDevice failed");
  return id;
}

AudioObjectID deviceIDForUID(platform::AudioHardware& hw, const std::string& uid) {
  AudioObjectID id = 0;
  OSStatus st = hw.translateUIDToDevice(uid, id);
  if (st != 0 || id == platform::kAudioObjectUnknown)
    throw CaptureError(st, "UID\u2192device lookup failed for " + uid);
  return id;
}

}  // namespace ac::capture
