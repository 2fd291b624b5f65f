// Meeting-prompt categories: minting dated identifiers, pruning old ones, and
// choosing which delivered prompts to take back.
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <set>
#include <string>

#include "notify/click_payload.h"
#include "notify/meeting_banner.h"
#include "support/uuid.h"

namespace ac::notify::MeetingBanner {
namespace {

constexpr double maxCategoryStamp = 9999999999.0;

bool isDigits(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

// A stamp reads as a number of the form -?digits([eE][+-]?digits)?. The shape
// is checked first so that strtod reads nothing it alone would accept (blanks,
// "+", hexadecimal, "inf", "nan") and no decimal point, the one thing its
// locale changes. (Floating-point std::from_chars is missing from Apple's libc++.)
std::optional<double> readStamp(std::string_view text) {
  std::string_view mantissa = text.starts_with('-') ? text.substr(1) : text;
  if (auto e = mantissa.find_first_of("eE"); e != std::string_view::npos) {
    std::string_view exponent = mantissa.substr(e + 1);
    if (exponent.starts_with('+') || exponent.starts_with('-')) exponent.remove_prefix(1);
    if (!isDigits(exponent)) return std::nullopt;
    mantissa = mantissa.substr(0, e);
  }
  if (!isDigits(mantissa)) return std::nullopt;
  const std::string copy(text);
  char* end = nullptr;
  errno = 0;
  double value = std::strtod(copy.c_str(), &end);
  // Beyond the range of a double reads as no stamp (a subnormal one still
  // reads): an infinite stamp would forge an age that is never pruned.
  bool outOfRange = errno == ERANGE && (value == 0 || !std::isfinite(value));
  if (outOfRange || end != copy.c_str() + copy.size()) return std::nullopt;
  return value;
}

}  // namespace

std::string categoryID(double now) {
  double stamp = std::isfinite(now) ? std::clamp(std::trunc(now), 0.0, maxCategoryStamp) : 0.0;
  return std::string(categoryPrefix) + std::to_string(static_cast<int64_t>(stamp)) + "." + newUUIDString();
}

bool isOurCategory(std::string_view identifier) { return identifier.starts_with(categoryPrefix); }

std::optional<double> categoryPostedAt(std::string_view identifier) {
  if (!isOurCategory(identifier)) return std::nullopt;
  std::string_view rest = identifier.substr(categoryPrefix.size());
  return readStamp(rest.substr(0, rest.find('.')));
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
