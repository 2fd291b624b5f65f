// The journal of banners this program posted ("notify-clicks.json" in the
// private state directory), which lets a cold relaunch after a click work out
// which banner was clicked by comparing it with the banners still delivered.
//
// The list operations are pure. The file operations are for short-lived
// processes that may run at the same moment: every change is a locked
// read-modify-write under ".notify-clicks.lock" (exclusive, non-blocking);
// a busy lock is skipped and said on standard error, never waited for.
// No in-process locking: each process uses the journal from one queue.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace ac::notify {

struct NotifyClickJournalEntry {
  std::string id;                    // the request identifier; never empty
  std::optional<std::string> token;  // absent: the banner routes nothing
  double at = 0;                     // when recorded, seconds since 1970
  std::optional<double> expiresAt;   // the envelope's stamp, if it had one

  bool operator==(const NotifyClickJournalEntry&) const = default;
};

using NotifyClickJournalEntries = std::vector<NotifyClickJournalEntry>;

// The identifiers the notification centre still shows, in its order; absent
// when the centre did not answer (which is not the same as none).
using DeliveredIDs = std::optional<std::vector<std::string>>;

enum class NotifyClickClaim { claimed, lost, unrecorded };
std::string_view rawValue(NotifyClickClaim claim);

struct NotifyColdClickResolution {
  enum class Kind { route, recordings, nothing };
  Kind kind = Kind::nothing;
  std::optional<NotifyClickJournalEntry> entry;  // set for route only

  static NotifyColdClickResolution route(NotifyClickJournalEntry e) { return {Kind::route, std::move(e)}; }
  static NotifyColdClickResolution recordings() { return {Kind::recordings, std::nullopt}; }
  static NotifyColdClickResolution nothing() { return {Kind::nothing, std::nullopt}; }
  bool operator==(const NotifyColdClickResolution&) const = default;
};

namespace NotifyClickJournal {

inline constexpr int version = 1;
inline constexpr std::size_t cap = 200;
// A banner recorded this recently may not be listed by the centre yet.
inline constexpr double pruneGrace = 60.0;
inline constexpr const char* fileName = "notify-clicks.json";
inline constexpr const char* lockFileName = ".notify-clicks.lock";

// "notify-clicks.json" in the private state directory.
std::string defaultURL();

// Keeps banners still delivered or recorded under pruneGrace ago, then caps.
// Without an answer from the centre only the cap applies.
NotifyClickJournalEntries prune(const NotifyClickJournalEntries& entries, const DeliveredIDs& delivered, double now);
// At most `cap` entries, evicting departed banners oldest first.
NotifyClickJournalEntries capped(const NotifyClickJournalEntries& entries, const DeliveredIDs& delivered, double now);
// Removes the entries of the snapshot a click was resolved from that are no
// longer delivered (what the click accounted for).
NotifyClickJournalEntries settle(const NotifyClickJournalEntries& entries,
                                 const NotifyClickJournalEntries& resolvedFrom, const DeliveredIDs& delivered);
// Appends a tokenless entry for each delivered banner the journal does not
// know, so it routes nothing if clicked.
NotifyClickJournalEntries adoptUnknown(const NotifyClickJournalEntries& entries, const DeliveredIDs& delivered,
                                       double now);
// Exactly one banner gone routes it (if it has a token); two or more gone, or
// no answer from the centre, open Recordings; an empty journal does nothing.
NotifyColdClickResolution resolve(const NotifyClickJournalEntries& journal, const DeliveredIDs& delivered);
// "route:<token>", "recordings" or "nothing"; may carry a note path.
std::string describe(const NotifyColdClickResolution& resolution);
// "route", "recordings" or "nothing": safe for logs.
std::string kind(const NotifyColdClickResolution& resolution);

// Compact JSON; nothing when an entry cannot be encoded (invalid UTF-8).
std::optional<std::string> encode(const NotifyClickJournalEntries& entries);
// Nothing for a file this build does not speak; bad entries are skipped.
std::optional<NotifyClickJournalEntries> decode(std::string_view data);

// The entries on disk; empty when missing or undecodable.
NotifyClickJournalEntries read(const std::string& path = defaultURL());

// Runs body holding the journal lock (creating the private directory and
// the lock file as needed). False, with "notify: journal lock busy — ..." on
// standard error, when another process holds it; body did not run.
bool withLock(const std::string& path, const std::function<void()>& body);

// The same for a body with a result: the result, or nothing when busy.
template <class Body>
  requires(!std::is_void_v<std::invoke_result_t<Body&>>)
auto withLock(const std::string& path, Body&& body) -> std::optional<std::invoke_result_t<Body&>> {
  std::optional<std::invoke_result_t<Body&>> result;
  withLock(path, std::function<void()>([&] { result = body(); }));
  return result;
}

// Locked read, change, and write when the result differs. True only when a
// changed journal was written.
bool update(const std::string& path, const std::function<NotifyClickJournalEntries(NotifyClickJournalEntries)>& change);

// Records a posted banner: adopts unknown delivered banners, replaces any
// row with this identifier by the new entry at the end, prunes, writes.
bool record(const std::string& id, const std::optional<std::string>& token, const DeliveredIDs& delivered,
            double now, std::optional<double> expiresAt = std::nullopt, const std::string& path = defaultURL());

// Only a banner whose add succeeded is journalled.
inline bool shouldRecord(bool addSucceeded) { return addSucceeded; }

// record() for a just-posted banner; an empty click token is tokenless.
bool recordPosted(const std::string& id, const std::string& clickToken, bool addSucceeded,
                  const DeliveredIDs& delivered, double now, std::optional<double> expiresAt = std::nullopt,
                  const std::string& path = defaultURL());

// Removes these identifiers under the lock; true when the purge landed
// (removing nothing counts), false when busy or the write failed.
bool forget(const std::vector<std::string>& ids, const std::string& path = defaultURL());

// Claims a cold click once across processes. No routing entry (the
// ambiguous arm) claims nothing and is `claimed`; an entry already gone from
// the journal was taken by another launch (`lost`); otherwise the snapshot
// is settled and written (`claimed`), or could not be (`unrecorded`).
NotifyClickClaim claimSettle(const std::optional<NotifyClickJournalEntry>& routing,
                             const NotifyClickJournalEntries& resolvedFrom, const DeliveredIDs& delivered,
                             const std::string& path = defaultURL());

}  // namespace NotifyClickJournal
}  // namespace ac::notify
