// A bare launch after a click: the platform relaunches the program without
// saying which banner was clicked, so the journal is compared with the
// banners still delivered. Exactly one journalled banner gone is the click;
// two or more gone, or no answer from the centre, open Recordings; a note is
// never guessed.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "notify/click_budget.h"
#include "notify/click_journal.h"
#include "notify/click_payload.h"
#include "platform/notification_center.h"

namespace ac::notify {

inline constexpr double notifyColdRouteLingerSeconds = 5.0;
inline constexpr double deliveredQueryTimeoutSeconds = 2.0;

struct DeliveredNotificationRow {
  std::string id;
  std::string category;
  std::optional<std::string> token;  // only from a well-formed envelope
  double at = 0;                     // delivery time, seconds since 1970
  bool operator==(const DeliveredNotificationRow&) const = default;
};

// Absent when the centre did not answer within timeout (never an empty
// list in its place). They block the calling thread.
DeliveredIDs deliveredNotificationIDs(platform::NotificationCenter& center,
                                      double timeout = deliveredQueryTimeoutSeconds);
std::optional<std::vector<DeliveredNotificationRow>> deliveredNotificationRows(
    platform::NotificationCenter& center, double timeout = deliveredQueryTimeoutSeconds);

// The click token of an envelope that has the right version and a string
// target; nothing otherwise.
std::optional<std::string> envelopeToken(const nlohmann::json& userInfo);

// A journalled banner's target: expired stamps refuse, the token grammar
// decides, and a silence warning (meaningful only through its buttons) is
// refused as action-only.
NotifyClickResult resolveJournalledClick(const NotifyClickJournalEntry& entry, double now);

// Asks for the delivered banners off the main queue, then resolves, claims
// and performs on the main queue. `then` settles a performed click.
void routeColdClickFromJournal(platform::NotificationCenter& center, NotifyClickOnce& once,
                               const NotifyClickJournalEntries& journal,
                               const std::function<void()>& then = [] {});

// A click the desktop names (main queue): the banner's journal entry is
// claimed once across processes, then answered like a click delivered to
// its poster (expiry, action folding, the claim). A banner the journal does
// not hold, or one another launch claimed, routes nothing.
void routeActivatedClick(const std::string& requestIdentifier, const std::string& actionIdentifier,
                         const std::function<void()>& done, const std::function<bool()>& claim);

}  // namespace ac::notify
