// The template roster, the meeting-prompt menu and its action identifiers.
#include "notify/meeting_banner.h"

#include <algorithm>
#include <set>

#include <nlohmann/json.hpp>

#include "notify/click_payload.h"
#include "notify/unicode_text.h"
#include "support/paths.h"
#include "support/sha256.h"
#include "support/state_file.h"
#include "support/text.h"

namespace ac::notify::MeetingBanner {
namespace {

constexpr std::string_view templateActionPrefix = "vela.act:tpl:";

}  // namespace

std::string rosterPath() { return homeDirectory() + "/.config/vela/template-shortcuts.json"; }

std::vector<RosterEntry> roster(const std::string& path) {
  // The companion app writes the roster; a link to it (a managed dotfile) is followed.
  auto data = readBoundedFile(path, maxRosterBytes, FollowLinks::yes);
  if (!data) return {};
  return parseRoster(*data);
}

std::vector<RosterEntry> parseRoster(std::string_view json) {
  auto parsed = parseBoundedJSON(json);
  if (!parsed || !parsed->is_object()) return {};
  const nlohmann::json& doc = *parsed;
  auto v = doc.find("v");
  if (v == doc.end() || !v->is_number_integer() || v->get<int64_t>() != 1) return {};
  auto shortcuts = doc.find("shortcuts");
  if (shortcuts == doc.end() || !shortcuts->is_array()) return {};

  std::vector<RosterEntry> entries;
  std::set<std::string> seenIDs;
  for (const auto& item : *shortcuts) {
    if (!item.is_object()) continue;
    auto id = item.find("id");
    if (id == item.end() || !id->is_string() || !isValidTemplateID(id->get_ref<const std::string&>())) continue;
    // Two templates under one id cannot be told apart by a pick: poison all.
    if (!seenIDs.insert(id->get<std::string>()).second) return {};
    auto name = item.find("name");
    if (name == item.end() || !name->is_string()) continue;
    std::string shown = text::firstCharacters(text::trimmed(name->get_ref<const std::string&>()), maxNameCharacters);
    if (shown.empty()) continue;
    entries.push_back({id->get<std::string>(), std::move(shown)});
  }
  return entries;
}

std::vector<MenuItem> menu(const std::vector<RosterEntry>& roster) {
  std::vector<MenuItem> items{{std::string(startActionID), std::string(startActionTitle)}};
  for (std::size_t i = 0; i < roster.size() && i < templateSlots; ++i) {
    const auto& entry = roster[i];
    items.push_back({templateActionID(entry.id, digest(entry.id, entry.name)), displaySafeMenuTitle(entry.name)});
  }
  return items;
}

std::string digest(std::string_view id, std::string_view name) {
  const auto hash = sha256(std::string(id) + "\n" + std::string(name));
  static constexpr char hex[] = "0123456789abcdef";
  std::string out;
  for (std::size_t i = 0; i < digestLength / 2; ++i) {
    out.push_back(hex[hash[i] >> 4]);
    out.push_back(hex[hash[i] & 0xF]);
  }
  return out;
}

std::string templateActionID(std::string_view id, std::string_view digestText) {
  return std::string(templateActionPrefix) + std::string(digestText) + ":" + std::string(id);
}

bool isValidTemplateID(std::string_view id) {
  return !id.empty() && id.size() <= maxTemplateIDLength && std::all_of(id.begin(), id.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '-' ||
           c == '_';
  });
}

std::optional<Pick> parse(std::string_view actionIdentifier) {
  if (actionIdentifier == startActionID) return PlainPick{};
  auto fields = splitKeepingEmpty(actionIdentifier, ':');
  if (fields.size() != 4 || fields[0] != actionPrefix || fields[1] != "tpl") return std::nullopt;
  if (!isLowercaseHex(fields[2], digestLength) || !isValidTemplateID(fields[3])) return std::nullopt;
  return TemplatePick{std::string(fields[3]), std::string(fields[2])};
}

Resolution resolve(const Pick& pick, const std::vector<RosterEntry>& roster) {
  const auto* chosen = std::get_if<TemplatePick>(&pick);
  if (!chosen) return Resolution::start(std::nullopt);
  const RosterEntry* match = nullptr;
  for (const auto& entry : roster) {
    if (entry.id != chosen->id) continue;
    if (match) return Resolution::refuse();
    match = &entry;
  }
  if (!match || digest(match->id, match->name) != chosen->digest) return Resolution::refuse();
  return Resolution::start(chosen->id);
}

std::string displaySafeMenuTitle(std::string_view name) {
  std::u32string kept;
  for (char32_t c : text::scalars(name)) {
    if (!text::isControl(c) && !text::isNewline(c)) kept.push_back(c);
  }
  return text::firstCharacters(text::trimmed(text::utf8(kept)), maxNameCharacters);
}

}  // namespace ac::notify::MeetingBanner
