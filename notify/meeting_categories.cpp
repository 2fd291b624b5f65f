// Meeting-prompt categories: minting dated identifiers, pruning old ones, and
// choosing which delivered prompts to take back.
#include <uuid/uuid.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <set>

#include "notify/click_payload.h"
#include "notify/meeting_banner.h"

namespace ac::notify::MeetingBanner {
namespace {

constexpr double maxCategoryStamp = 9999999999.0;

}  // namespace

std::string categoryID(double now) {
  double stamp = std::isfinite(now) ? std::clamp(std::trunc(now), 0.0, maxCategoryStamp) : 0.0;
  uuid_t uuid;
  uuid_generate_random(uuid);
  char text[37];
  uuid_unparse_upper(uuid, text);
  return std::string(categoryPrefix) + std::to_string(static_cast<int64_t>(stamp)) + "." + text;
}

bool isOurCategory(std::string_view identifier) { return identifier.starts_with(categoryPrefix); }

std::optional<double> categoryPostedAt(std::string_view identifier) {
  if (!isOurCategory(identifier)) return std::nullopt;
  std::string_view rest = identifier.substr(categoryPrefix.size());
  std::string_view stamp = rest.substr(0, rest.find('.'));
  double value = 0;
  auto [end, ec] = std::from_chars(stamp.data(), stamp.data() + stamp.size(), value);
  // An infinite stamp would forge an age that is never pruned.
  if (stamp.empty() || ec != std::errc() || end != stamp.data() + stamp.size() || !std::isfinite(value)) {
    return std::nullopt;
  }
  return value;
}

std::vector<std::string> categoriesToKeep(const std::vector<std::string>& existing,
                                          const std::optional<std::vector<std::string>>& stillDelivered,
                                          const std::string& newID, double now, std::size_t cap) {
  std::set<std::string> foreign;
  std::set<std::string> ours;
  std::set<std::string> onScreen;
  if (stillDelivered) onScreen.insert(stillDelivered->begin(), stillDelivered->end());
  for (const auto& id : existing) {
    if (id == newID) continue;
    if (!isOurCategory(id)) {
      foreign.insert(id);
      continue;
    }
    bool keep = !stillDelivered || onScreen.contains(id);
    if (!keep) {
      auto stamp = categoryPostedAt(id);
      keep = stamp && *stamp <= now && now - *stamp < categoryDeliveryGrace;
    }
    if (keep) ours.insert(id);
  }

  std::vector<std::string> kept{newID};
  kept.insert(kept.end(), foreign.begin(), foreign.end());
  std::size_t room = cap > 0 ? cap - 1 : 0;
  for (auto it = ours.begin(); it != ours.end() && room > 0; ++it, --room) kept.push_back(*it);
  return kept;
}

std::optional<platform::NotificationCategory> makeCategory(const std::string& identifier,
                                                           const std::vector<MenuItem>& items) {
  if (items.empty()) return std::nullopt;
  platform::NotificationCategory category;
  category.identifier = identifier;
  for (const auto& item : items) {
    category.actions.push_back({item.identifier, item.title, /*authenticationRequired=*/true, /*foreground=*/false});
  }
  category.customDismissAction = false;
  return category;
}

bool shouldWithdraw(std::string_view category, const std::optional<std::string>& token, double deliveredAt,
                    std::optional<double> before) {
  bool isPrompt = isOurCategory(category) || (category.empty() && token == recordStartToken);
  if (!isPrompt) return false;
  if (!before) return true;
  // A delayed delivery does not make an old prompt new: the stamp wins.
  double postedAt = categoryPostedAt(category).value_or(deliveredAt);
  return postedAt < *before;
}

}  // namespace ac::notify::MeetingBanner
