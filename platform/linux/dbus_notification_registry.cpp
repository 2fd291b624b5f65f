#include "platform/linux/dbus_notification_registry.h"

#include <sys/stat.h>

#include <filesystem>

#include <nlohmann/json.hpp>

#include "support/log.h"
#include "support/paths.h"
#include "support/state_file.h"

namespace ac::platform::linux_backend {
namespace {

using nlohmann::json;

constexpr const char* kRowsFile = "linux-notifications.json";
constexpr const char* kRowsLock = ".linux-notifications.lock";
constexpr const char* kCategoriesFile = "linux-categories.json";
constexpr const char* kCategoriesLock = ".linux-categories.lock";

// A registry that is not a usable file reads as empty; the next write
// replaces it.
std::string registryText(const std::string& path, const StateFileRead& file) {
  if (file.status == StateFileRead::Status::unusable)
    writeStderr("notify: " + path + " is not a regular file of at most 1 MiB — reading it as empty\n");
  return file.data;
}

std::string readRegistry(const std::string& path) { return registryText(path, readStateFile(path)); }

std::optional<json> parseVersioned(std::string_view text, const char* listKey) {
  auto doc = parseBoundedJSON(text);
  if (!doc || !doc->is_object() || doc->value("v", 0) != 1 || !doc->contains(listKey) || !(*doc)[listKey].is_array())
    return std::nullopt;
  return (*doc)[listKey];
}

template <class T>
T field(const json& o, const char* key, T fallback) {
  auto it = o.find(key);
  if (it == o.end()) return fallback;
  try {
    return it->get<T>();
  } catch (const json::exception&) {
    return fallback;
  }
}

}  // namespace

std::string registryDirectory() { return homeDirectory() + "/.local/state/vela"; }

std::string encodeRegistryRows(const std::vector<RegistryRow>& rows) {
  json list = json::array();
  for (const auto& r : rows) {
    list.push_back({{"id", r.requestIdentifier},
                    {"server", r.server},
                    {"server_id", r.serverID},
                    {"title", r.content.title},
                    {"body", r.content.body},
                    {"sound", r.content.soundName},
                    {"user_info", r.content.userInfo},
                    {"category", r.content.categoryIdentifier},
                    {"at", r.at}});
  }
  return json{{"v", 1}, {"rows", list}}.dump(-1, ' ', false, json::error_handler_t::replace);
}

std::vector<RegistryRow> decodeRegistryRows(std::string_view text) {
  std::vector<RegistryRow> rows;
  auto list = parseVersioned(text, "rows");
  if (!list) return rows;
  for (const auto& o : *list) {
    if (!o.is_object()) continue;
    RegistryRow r;
    r.requestIdentifier = field<std::string>(o, "id", "");
    r.server = field<std::string>(o, "server", "");
    r.serverID = field<uint32_t>(o, "server_id", 0);
    if (r.requestIdentifier.empty() || r.server.empty() || r.serverID == 0) continue;
    r.content.title = field<std::string>(o, "title", "");
    r.content.body = field<std::string>(o, "body", "");
    r.content.soundName = field<std::string>(o, "sound", "");
    r.content.userInfo = o.contains("user_info") ? o["user_info"] : json();
    r.content.categoryIdentifier = field<std::string>(o, "category", "");
    r.at = field<double>(o, "at", 0);
    rows.push_back(std::move(r));
  }
  return rows;
}

std::string encodeCategories(const std::vector<NotificationCategory>& categories) {
  json list = json::array();
  for (const auto& c : categories) {
    json actions = json::array();
    for (const auto& a : c.actions) {
      actions.push_back({{"id", a.identifier},
                         {"title", a.title},
                         {"auth", a.authenticationRequired},
                         {"foreground", a.foreground}});
    }
    list.push_back({{"id", c.identifier}, {"actions", actions}, {"custom_dismiss", c.customDismissAction}});
  }
  return json{{"v", 1}, {"categories", list}}.dump(-1, ' ', false, json::error_handler_t::replace);
}

std::vector<NotificationCategory> decodeCategories(std::string_view text) {
  std::vector<NotificationCategory> out;
  auto list = parseVersioned(text, "categories");
  if (!list) return out;
  for (const auto& o : *list) {
    if (!o.is_object()) continue;
    NotificationCategory c;
    c.identifier = field<std::string>(o, "id", "");
    if (c.identifier.empty()) continue;
    c.customDismissAction = field<bool>(o, "custom_dismiss", false);
    if (auto it = o.find("actions"); it != o.end() && it->is_array()) {
      for (const auto& a : *it) {
        if (!a.is_object()) continue;
        NotificationAction action{field<std::string>(a, "id", ""), field<std::string>(a, "title", ""),
                                  field<bool>(a, "auth", false), field<bool>(a, "foreground", false)};
        if (!action.identifier.empty()) c.actions.push_back(std::move(action));
      }
    }
    out.push_back(std::move(c));
  }
  return out;
}

NotificationRegistry::NotificationRegistry(std::string directory) : directory_(std::move(directory)) {}

std::vector<RegistryRow> NotificationRegistry::rows() const {
  return decodeRegistryRows(readRegistry(directory_ + "/" + kRowsFile));
}

bool NotificationRegistry::add(const RegistryRow& row) {
  return lockedRewrite(kRowsFile, kRowsLock, [&](const std::string& current) -> std::optional<std::string> {
    auto rows = decodeRegistryRows(current);
    std::erase_if(rows, [&](const RegistryRow& r) { return r.requestIdentifier == row.requestIdentifier; });
    rows.push_back(row);
    if (rows.size() > registryMaxRows) rows.erase(rows.begin(), rows.end() - registryMaxRows);
    return encodeRegistryRows(rows);
  });
}

std::optional<std::vector<RegistryRow>> NotificationRegistry::removeIf(
    const std::function<bool(const RegistryRow&)>& drop) {
  std::vector<RegistryRow> removed;
  bool ok = lockedRewrite(kRowsFile, kRowsLock, [&](const std::string& current) -> std::optional<std::string> {
    auto rows = decodeRegistryRows(current);
    std::vector<RegistryRow> kept;
    for (auto& r : rows) (drop(r) ? removed : kept).push_back(std::move(r));
    if (removed.empty()) return std::nullopt;
    return encodeRegistryRows(kept);
  });
  if (!ok) return std::nullopt;
  return removed;
}

std::vector<NotificationCategory> NotificationRegistry::categories() const {
  return decodeCategories(readRegistry(directory_ + "/" + kCategoriesFile));
}

bool NotificationRegistry::setCategories(const std::vector<NotificationCategory>& categories) {
  return lockedRewrite(kCategoriesFile, kCategoriesLock,
                       [&](const std::string&) -> std::optional<std::string> { return encodeCategories(categories); });
}

bool NotificationRegistry::lockedRewrite(
    const std::string& file, const std::string& lock,
    const std::function<std::optional<std::string>(const std::string& current)>& change) const {
  std::error_code ec;
  if (std::filesystem::create_directories(directory_, ec)) ::chmod(directory_.c_str(), 0700);
  // The critical section is a small read and rename, so a bounded retry of
  // the non-blocking lock loses nothing that many posters racing at once
  // would otherwise drop; it never waits on a holder that is stuck.
  const std::string path = directory_ + "/" + file;
  LockedRewrite result = rewriteLocked(
      directory_ + "/" + lock, path, 0600,
      [&](const StateFileRead& current) { return change(registryText(path, current)); }, registryLockPatienceSeconds);
  return result.outcome == LockedRewrite::Outcome::written || result.outcome == LockedRewrite::Outcome::unchanged;
}

}  // namespace ac::platform::linux_backend
