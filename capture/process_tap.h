// The process tap on every process's mixed output and the private aggregate
// device that carries it. Each failure throws CaptureError with the platform
// status (or a fixed negative code) and the description callers log; nothing
// half-built survives a throw.
#pragma once

#include <string>

#include <nlohmann/json.hpp>

#include "platform/audio_hardware.h"

namespace ac::capture {

struct ProcessTap {
  platform::AudioObjectID tapID = 0;
  platform::StreamFormat format;
  std::string uid;
};

// A private, unmuted stereo tap of every process, with a usable format.
ProcessTap createProcessTap(platform::AudioHardware& hw);

platform::StreamFormat tapStreamFormat(platform::AudioHardware& hw, platform::AudioObjectID tapID);

// "audio-capture-tap-" + a fresh upper-case UUID.
std::string newAggregateUID();

// The aggregate's description: the default output as clock master and only
// sub-device, the tap with drift compensation, invisible to other processes.
nlohmann::json aggregateDescription(const std::string& aggregateUID, const std::string& tapUID,
                                    const std::string& outputUID);

// Creates a private aggregate under a fresh UID; returns its object ID.
platform::AudioObjectID createAggregate(platform::AudioHardware& hw, const std::string& tapUID,
                                        const std::string& outputUID);

platform::AudioObjectID deviceIDForUID(platform::AudioHardware& hw, const std::string& uid);

}  // namespace ac::capture
