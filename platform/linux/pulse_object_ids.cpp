#include "platform/linux/pulse_object_ids.h"

namespace ac::platform::linux_backend {

AudioObjectID ObjectIds::idFor(ObjectKind kind, const std::string& name) {
  std::lock_guard<std::mutex> guard(mutex_);
  auto key = std::make_pair(kind, name);
  auto it = byName_.find(key);
  if (it != byName_.end()) return it->second;
  AudioObjectID id = next_++;
  byName_.emplace(key, id);
  byId_.emplace(id, key);
  return id;
}

AudioObjectID ObjectIds::fresh(ObjectKind kind) {
  std::lock_guard<std::mutex> guard(mutex_);
  AudioObjectID id = next_++;
  byId_.emplace(id, std::make_pair(kind, std::string()));
  return id;
}

std::optional<std::pair<ObjectKind, std::string>> ObjectIds::lookup(AudioObjectID id) const {
  std::lock_guard<std::mutex> guard(mutex_);
  auto it = byId_.find(id);
  if (it == byId_.end()) return std::nullopt;
  return it->second;
}

}  // namespace ac::platform::linux_backend
