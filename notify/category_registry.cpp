#include "notify/category_registry.h"

#include <algorithm>
#include <map>

#include "notify/awaited_answer.h"
#include "notify/cold_route.h"
#include "notify/silence_warning.h"
#include "notify/state_dir.h"
#include "support/dispatch.h"
#include "support/log.h"
#include "support/state_file.h"

namespace ac::notify {
namespace {

using platform::NotificationCategory;

std::optional<std::vector<NotificationCategory>> readCategories(platform::NotificationCenter& center) {
  using List = std::vector<NotificationCategory>;
  return awaitAnswer<List>(categoryQueryTimeoutSeconds,
                           [&](std::function<void(List)> done) { center.getCategories(std::move(done)); });
}

// Runs change on the centre's categories under the lock; the failure lines
// name what the banner loses ("posting without actions", ...).
bool rebuildCategories(platform::NotificationCenter& center, const std::string& unreadableLine,
                       const std::function<std::vector<NotificationCategory>(std::vector<NotificationCategory>)>& change) {
  bool registered = false;
  bool ran = withNotifyCategoryLock([&] {
    auto existing = readCategories(center);
    if (!existing) {
      writeStderr(unreadableLine);
      return;
    }
    center.setCategories(change(std::move(*existing)));
    registered = true;
  });
  if (!ran) writeStderr("notify: category registry lock busy — posting without actions\n");
  return registered;
}

}  // namespace

bool withNotifyCategoryLock(const std::function<void()>& body) {
  std::string dir = notifAuthStateDir();
  secureStateDir(dir);
  FileLock lock = tryLockFile(dir + "/" + notifyCategoryLockFileName, 0600);
  if (lock.outcome != FileLock::Outcome::held) return false;
  body();
  return true;
}

bool registerCategory(platform::NotificationCenter& center, const std::string& identifier,
                      const std::vector<MeetingBanner::MenuItem>& items) {
  auto category = MeetingBanner::makeCategory(identifier, items);
  if (!category) return false;
  return rebuildCategories(
      center, "notify: could not read the category registry — posting without actions\n",
      [&](std::vector<NotificationCategory> existing) {
        std::optional<std::vector<std::string>> stillDelivered;
        if (auto rows = deliveredNotificationRows(center)) {
          stillDelivered.emplace();
          for (const auto& r : *rows)
            if (!r.category.empty()) stillDelivered->push_back(r.category);
        }
        std::map<std::string, NotificationCategory> byID;
        std::vector<std::string> ids;
        for (auto& c : existing) {
          ids.push_back(c.identifier);
          byID[c.identifier] = std::move(c);
        }
        byID[identifier] = *category;
        std::vector<NotificationCategory> kept;
        for (const auto& id : MeetingBanner::categoriesToKeep(ids, stillDelivered, identifier, wallSeconds()))
          if (auto it = byID.find(id); it != byID.end()) kept.push_back(it->second);
        return kept;
      });
}

bool registerSilenceCategory(platform::NotificationCenter& center) {
  return rebuildCategories(
      center, "notify: could not read the category registry — posting the silence warning without its action\n",
      [](std::vector<NotificationCategory> existing) {
        auto category = SilenceWarningBanner::makeCategory();
        std::erase_if(existing, [&](const NotificationCategory& c) { return c.identifier == category.identifier; });
        existing.push_back(std::move(category));
        return existing;
      });
}

}  // namespace ac::notify
