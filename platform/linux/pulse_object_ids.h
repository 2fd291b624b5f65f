// Audio object IDs for the PulseAudio backend.
//
// Sinks and sources are known by name, so each name gets one ID the first
// time it is seen and keeps it for the life of the process: a device that
// goes away and comes back has the same ID, and no ID ever names two things.
// Taps and aggregates get a fresh ID each. ID 1 is the system object.
// Thread-safe.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "platform/audio_types.h"

namespace ac::platform::linux_backend {

enum class ObjectKind { sink, source, tap, aggregate };

class ObjectIds {
 public:
  // The ID of a sink or source name, assigned on first sight.
  AudioObjectID idFor(ObjectKind kind, const std::string& name);
  // A new ID for a tap or an aggregate.
  AudioObjectID fresh(ObjectKind kind);
  // What an ID names; absent for IDs never handed out (and the system object).
  std::optional<std::pair<ObjectKind, std::string>> lookup(AudioObjectID id) const;

 private:
  mutable std::mutex mutex_;
  AudioObjectID next_ = kAudioObjectSystemObject + 1;
  std::map<std::pair<ObjectKind, std::string>, AudioObjectID> byName_;
  std::map<AudioObjectID, std::pair<ObjectKind, std::string>> byId_;
};

}  // namespace ac::platform::linux_backend
