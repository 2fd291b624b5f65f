// What the desktop notification service cannot be asked, kept on disk in the
// private state directory ($HOME/.local/state/vela):
//
// "linux-notifications.json": one row per banner this program posted and has
//   not seen closed: request identifier, the service's id and the unique bus
//   name of the service instance that showed it, the content and the
//   delivery time. A row leaves when a process of ours sees the banner
//   close (NotificationClosed), when it is withdrawn, when the service that
//   showed it is no longer the one on the bus (a restarted service has
//   dropped its banners), or when the service lists it among its closed
//   banners (where it keeps such a history, as dunst does). A banner that
//   closed while no process of ours was listening, on a service without
//   such a history, is still listed: this registry never guesses that a
//   banner went away. It holds at most registryMaxRows rows, dropping the
//   oldest.
// "linux-categories.json": the registered categories and their actions.
//
// Every write is a read-modify-write under a flock of its own
// (".linux-notifications.lock", ".linux-categories.lock") taken without
// blocking and retried only for a bounded moment; the file is replaced by
// rename, so readers never see half a file and need no lock.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/notification_center.h"

namespace ac::platform::linux_backend {

inline constexpr size_t registryMaxRows = 256;
inline constexpr double registryLockPatienceSeconds = 1.0;

struct RegistryRow {
  std::string requestIdentifier;
  std::string server;     // unique bus name of the service that showed it
  uint32_t serverID = 0;  // the service's notification id
  NotificationContent content;
  double at = 0;  // seconds since 1970

  bool operator==(const RegistryRow&) const = default;
};

// File codecs; undecodable text decodes as empty, bad rows are skipped.
std::string encodeRegistryRows(const std::vector<RegistryRow>& rows);
std::vector<RegistryRow> decodeRegistryRows(std::string_view text);
std::string encodeCategories(const std::vector<NotificationCategory>& categories);
std::vector<NotificationCategory> decodeCategories(std::string_view text);

class NotificationRegistry {
 public:
  // directory: where the files live; created owner-only when missing.
  explicit NotificationRegistry(std::string directory);

  std::vector<RegistryRow> rows() const;
  // Appends (replacing a row with the same request identifier). False when
  // the lock stayed busy or the write failed.
  bool add(const RegistryRow& row);
  // Removes the rows matching `drop`; the removed rows, or nothing when the
  // lock stayed busy or the write failed.
  std::optional<std::vector<RegistryRow>> removeIf(const std::function<bool(const RegistryRow&)>& drop);

  std::vector<NotificationCategory> categories() const;
  bool setCategories(const std::vector<NotificationCategory>& categories);

 private:
  bool lockedRewrite(const std::string& file, const std::string& lock,
                     const std::function<std::optional<std::string>(const std::string& current)>& change) const;
  std::string directory_;
};

// $HOME/.local/state/vela
std::string registryDirectory();

}  // namespace ac::platform::linux_backend
