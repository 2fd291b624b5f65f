#include "platform/linux/dbus_notification_registry.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include <nlohmann/json.hpp>

#include "support/dispatch.h"
#include "support/paths.h"

namespace ac::platform::linux_backend {
namespace {

using nlohmann::json;

constexpr const char* kRowsFile = "linux-notifications.json";
constexpr const char* kRowsLock = ".linux-notifications.lock";
constexpr const char* kCategoriesFile = "linux-categories.json";
constexpr const char* kCategoriesLock = ".linux-categories.lock";

std::string readWhole(const std::string& path) {
  std::string out;
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return out;
  char buf[65536];
  for (;;) {
    ssize_t n = ::read(fd, buf, sizeof buf);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    out.append(buf, static_cast<size_t>(n));
  }
  ::close(fd);
  return out;
}

std::optional<json> parseVersioned(std::string_view text, const char* listKey) {
  json doc = json::parse(text, nullptr, /*allow_exceptions=*/false);
  if (!doc.is_object() || doc.value("v", 0) != 1 || !doc.contains(listKey) || !doc[listKey].is_array())
    return std::nullopt;
  return doc[listKey];
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
  return decodeRegistryRows(readWhole(directory_ + "/" + kRowsFile));
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
  return decodeCategories(readWhole(directory_ + "/" + kCategoriesFile));
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
  int fd = ::open((directory_ + "/" + lock).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0) return false;
  // The critical section is a small read and rename, so a bounded retry of
  // the non-blocking lock loses nothing that many posters racing at once
  // would otherwise drop; it never waits on a holder that is stuck.
  double deadline = monotonicSeconds() + registryLockPatienceSeconds;
  while (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
    if (monotonicSeconds() >= deadline) {
      ::close(fd);
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(3));
  }
  std::string path = directory_ + "/" + file;
  std::optional<std::string> next = change(readWhole(path));
  bool ok = !next || writeFileAtomically(path, *next, 0600) == 0;
  ::close(fd);
  return ok;
}

}  // namespace ac::platform::linux_backend
