// The journal's pure list operations and its file codec.
#include "notify/click_journal.h"

#include <algorithm>
#include <cmath>
#include <unordered_set>

#include <nlohmann/json.hpp>

#include "notify/state_dir.h"
#include "support/state_file.h"

namespace ac::notify {

std::string_view rawValue(NotifyClickClaim claim) {
  switch (claim) {
    case NotifyClickClaim::claimed: return "claimed";
    case NotifyClickClaim::lost: return "lost";
    case NotifyClickClaim::unrecorded: return "unrecorded";
  }
  return "unrecorded";
}

namespace NotifyClickJournal {
namespace {

using IDSet = std::unordered_set<std::string>;

IDSet idSet(const std::vector<std::string>& ids) { return IDSet(ids.begin(), ids.end()); }

bool recentlyRecorded(const NotifyClickJournalEntry& e, double now) { return e.at > now - pruneGrace; }

NotifyClickJournalEntries newest(NotifyClickJournalEntries entries, std::size_t count) {
  if (entries.size() > count) entries.erase(entries.begin(), entries.end() - static_cast<std::ptrdiff_t>(count));
  return entries;
}

}  // namespace

std::string defaultURL() { return notifAuthStateDir() + "/" + fileName; }

NotifyClickJournalEntries capped(const NotifyClickJournalEntries& entries, const DeliveredIDs& delivered, double now) {
  if (entries.size() <= cap) return entries;
  if (!delivered) return newest(entries, cap);
  IDSet shown = idSet(*delivered);
  std::size_t excess = entries.size() - cap;
  NotifyClickJournalEntries kept;
  kept.reserve(entries.size());
  for (const auto& e : entries) {
    if (excess > 0 && !shown.contains(e.id) && !recentlyRecorded(e, now)) {
      --excess;
      continue;
    }
    kept.push_back(e);
  }
  return newest(std::move(kept), cap);
}

NotifyClickJournalEntries prune(const NotifyClickJournalEntries& entries, const DeliveredIDs& delivered, double now) {
  if (!delivered) return capped(entries, delivered, now);
  IDSet shown = idSet(*delivered);
  NotifyClickJournalEntries kept;
  std::copy_if(entries.begin(), entries.end(), std::back_inserter(kept),
               [&](const auto& e) { return shown.contains(e.id) || recentlyRecorded(e, now); });
  return capped(kept, delivered, now);
}

NotifyClickJournalEntries settle(const NotifyClickJournalEntries& entries,
                                 const NotifyClickJournalEntries& resolvedFrom, const DeliveredIDs& delivered) {
  if (!delivered) return capped(entries, delivered, 0);
  IDSet shown = idSet(*delivered);
  NotifyClickJournalEntries kept;
  for (const auto& e : entries) {
    bool accountedFor = !shown.contains(e.id) &&
                        std::find(resolvedFrom.begin(), resolvedFrom.end(), e) != resolvedFrom.end();
    if (!accountedFor) kept.push_back(e);
  }
  return kept;
}

NotifyClickJournalEntries adoptUnknown(const NotifyClickJournalEntries& entries, const DeliveredIDs& delivered,
                                       double now) {
  if (!delivered) return entries;
  NotifyClickJournalEntries out = entries;
  IDSet known;
  for (const auto& e : entries) known.insert(e.id);
  for (const auto& id : *delivered) {
    if (id.empty() || !known.insert(id).second) continue;
    out.push_back({id, std::nullopt, now, std::nullopt});
  }
  return out;
}

NotifyColdClickResolution resolve(const NotifyClickJournalEntries& journal, const DeliveredIDs& delivered) {
  if (journal.empty()) return NotifyColdClickResolution::nothing();
  if (!delivered) return NotifyColdClickResolution::recordings();
  IDSet shown = idSet(*delivered);
  const NotifyClickJournalEntry* gone = nullptr;
  std::size_t goneCount = 0;
  for (const auto& e : journal) {
    if (shown.contains(e.id)) continue;
    if (++goneCount == 1) gone = &e;
  }
  if (goneCount == 0) return NotifyColdClickResolution::nothing();
  if (goneCount > 1) return NotifyColdClickResolution::recordings();
  return gone->token ? NotifyColdClickResolution::route(*gone) : NotifyColdClickResolution::nothing();
}

std::string describe(const NotifyColdClickResolution& resolution) {
  if (resolution.kind != NotifyColdClickResolution::Kind::route) return kind(resolution);
  const auto& token = resolution.entry ? resolution.entry->token : std::nullopt;
  return "route:" + token.value_or("<none>");
}

std::string kind(const NotifyColdClickResolution& resolution) {
  switch (resolution.kind) {
    case NotifyColdClickResolution::Kind::route: return "route";
    case NotifyColdClickResolution::Kind::recordings: return "recordings";
    case NotifyColdClickResolution::Kind::nothing: return "nothing";
  }
  return "nothing";
}

std::optional<std::string> encode(const NotifyClickJournalEntries& entries) {
  nlohmann::json list = nlohmann::json::array();
  for (const auto& e : entries) {
    nlohmann::json row = {{"id", e.id}, {"token", e.token.value_or("")}, {"at", e.at}};
    if (e.expiresAt) row["expires_at"] = *e.expiresAt;
    list.push_back(std::move(row));
  }
  try {
    return nlohmann::json{{"v", version}, {"entries", std::move(list)}}.dump();
  } catch (const nlohmann::json::exception&) {
    return std::nullopt;  // a string that is not UTF-8
  }
}

std::optional<NotifyClickJournalEntries> decode(std::string_view data) {
  auto parsed = parseBoundedJSON(data);
  if (!parsed || !parsed->is_object()) return std::nullopt;
  const nlohmann::json& doc = *parsed;
  auto v = doc.find("v");
  if (v == doc.end() || !v->is_number_integer() || v->get<int64_t>() != version) return std::nullopt;
  auto list = doc.find("entries");
  if (list == doc.end() || !list->is_array()) return std::nullopt;

  NotifyClickJournalEntries entries;
  for (const auto& row : *list) {
    if (!row.is_object()) continue;
    auto id = row.find("id");
    auto token = row.find("token");
    auto at = row.find("at");
    if (id == row.end() || !id->is_string() || id->get_ref<const std::string&>().empty()) continue;
    if (token == row.end() || !token->is_string()) continue;
    if (at == row.end() || !at->is_number()) continue;

    NotifyClickJournalEntry e;
    e.id = id->get<std::string>();
    if (const auto& t = token->get_ref<const std::string&>(); !t.empty()) e.token = t;
    e.at = at->get<double>();
    if (auto stamp = row.find("expires_at"); stamp != row.end()) {
      // A stamp that cannot be read is 1970: already expired, never live.
      bool readable = stamp->is_number() && std::isfinite(stamp->get<double>());
      e.expiresAt = readable ? stamp->get<double>() : 0.0;
    }
    entries.push_back(std::move(e));
  }
  return entries;
}

}  // namespace NotifyClickJournal
}  // namespace ac::notify
