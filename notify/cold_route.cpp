#include "notify/cold_route.h"

#include <algorithm>

#include "notify/awaited_answer.h"
#include "notify/click_handling.h"
#include "notify/notify_command.h"
#include "notify/notify_modes.h"
#include "platform/platform.h"
#include "support/dispatch.h"
#include "support/log.h"
#include "support/process_exit.h"

namespace ac::notify {
namespace {

std::optional<std::vector<platform::DeliveredNotification>> askDelivered(platform::NotificationCenter& center,
                                                                          double timeout) {
  using List = std::vector<platform::DeliveredNotification>;
  return awaitAnswer<List>(timeout, [&](std::function<void(List)> done) { center.getDelivered(std::move(done)); });
}

void performRoutedEntry(const NotifyClickJournalEntry& entry, const std::function<void()>& then) {
  auto resolved = resolveJournalledClick(entry, wallSeconds());
  if (auto rejection = clickRejection(resolved)) {
    writeStderr("notify: journalled click carried no routable target (" + std::string(rawValue(*rejection)) + ")\n");
    return;
  }
  performNotifyClick(*clickTarget(resolved), then);
}

// Whether a claimed cold click goes on to route, saying why when it does not
// or when the claim could not be written down.
bool mayRoute(NotifyClickClaim claim) {
  switch (claim) {
    case NotifyClickClaim::lost:
      writeStderr("notify: cold click already claimed by another launch\n");
      return false;
    case NotifyClickClaim::unrecorded:
      writeStderr("notify: click claimed but the journal could not be updated — routing anyway\n");
      return true;
    case NotifyClickClaim::claimed:
      return true;
  }
  return false;
}

}  // namespace

DeliveredIDs deliveredNotificationIDs(platform::NotificationCenter& center, double timeout) {
  auto delivered = askDelivered(center, timeout);
  if (!delivered) return std::nullopt;
  std::vector<std::string> ids;
  for (const auto& d : *delivered) ids.push_back(d.requestIdentifier);
  return ids;
}

std::optional<std::string> envelopeToken(const nlohmann::json& userInfo) {
  if (!userInfo.is_object()) return std::nullopt;
  auto version = userInfo.find(NotifyClickPayload::versionKey);
  auto target = userInfo.find(NotifyClickPayload::targetKey);
  if (version == userInfo.end() || !version->is_number_integer() || *version != NotifyClickPayload::version)
    return std::nullopt;
  if (target == userInfo.end() || !target->is_string()) return std::nullopt;
  return target->get<std::string>();
}

std::optional<std::vector<DeliveredNotificationRow>> deliveredNotificationRows(platform::NotificationCenter& center,
                                                                               double timeout) {
  auto delivered = askDelivered(center, timeout);
  if (!delivered) return std::nullopt;
  std::vector<DeliveredNotificationRow> rows;
  for (const auto& d : *delivered)
    rows.push_back({d.requestIdentifier, d.content.categoryIdentifier, envelopeToken(d.content.userInfo), d.deliveryDate});
  return rows;
}

NotifyClickResult resolveJournalledClick(const NotifyClickJournalEntry& entry, double now) {
  if (notifyClickFreshness(entry.expiresAt, now) == NotifyClickFreshness::expired) return NotifyClickRejection::expired;
  auto resolved = resolveNotifyClickTarget(entry.token.value_or(""));
  if (auto* target = clickTarget(resolved); target && std::holds_alternative<ClickIgnoreSilence>(*target))
    return NotifyClickRejection::actionOnly;
  return resolved;
}

void routeColdClickFromJournal(platform::NotificationCenter& center, NotifyClickOnce& once,
                               const NotifyClickJournalEntries& journal, const std::function<void()>& then) {
  if (journal.empty()) {
    writeStderr("notify: cold route — journal=0, nothing outstanding\n");
    return;
  }
  NotifyClickOnce* onceRef = &once;
  platform::NotificationCenter* centerRef = &center;
  dispatchGlobal([centerRef, onceRef, journal, then] {
    DeliveredIDs delivered = deliveredNotificationIDs(*centerRef);
    dispatchMain([onceRef, journal, then, delivered] {
      auto resolution = NotifyClickJournal::resolve(journal, delivered);
      writeStderr("notify: cold route — journal=" + std::to_string(journal.size()) +
                  " delivered=" + (delivered ? std::to_string(delivered->size()) : std::string("no-answer")) +
                  " resolution=" + NotifyClickJournal::kind(resolution) + "\n");
      using Kind = NotifyColdClickResolution::Kind;
      if (resolution.kind == Kind::nothing) return;
      if (resolution.kind == Kind::recordings) {
        writeStderr("notify: cold click could not be attributed to one banner — opening Recordings\n");
        (void)NotifyClickJournal::claimSettle(std::nullopt, journal, delivered);
        openCompanionAppOnRecordings();
        return;
      }
      if (!mayRoute(NotifyClickJournal::claimSettle(resolution.entry, journal, delivered))) return;
      if (!onceRef->take()) return;
      performRoutedEntry(*resolution.entry, then);
    });
  });
}

void routeActivatedClick(const std::string& requestIdentifier, const std::string& actionIdentifier,
                         const std::function<void()>& done, const std::function<bool()>& claim) {
  NotifyClickJournalEntries journal = NotifyClickJournal::read();
  auto entry = std::find_if(journal.begin(), journal.end(),
                            [&](const NotifyClickJournalEntry& e) { return e.id == requestIdentifier; });
  if (entry == journal.end()) {
    writeStderr("notify: activated click names no journalled banner — nothing to route\n");
    return;
  }
  // Settled as no longer delivered: the claim removes exactly this entry.
  if (!mayRoute(NotifyClickJournal::claimSettle(*entry, {*entry}, std::vector<std::string>{}))) return;
  platform::NotificationResponse response{requestIdentifier, actionIdentifier, {}};
  if (entry->token) response.content.userInfo = NotifyClickPayload::make(*entry->token, entry->expiresAt);
  handleResponse(response, nullptr, done, claim);
}

void runNotifyColdRoute() {
  if (!notificationCenterUsable()) {
    writeStderr("notify: unbundled process — nothing to route\n");
    exitProcess(0);
  }
  auto& center = platform::current().notifications();
  static NotifyClickOnce once;
  installNotifyDelegate(nullptr, [] { return once.take(); });
  if (center.receiveActivations()) {
    // The desktop names the clicked banner: it arrives through the delegate.
    notifyExitAfter(notifyColdRouteLingerSeconds);
    runNotifyMainLoop();
  }
  if (!center.relaunchesProgramOnClick()) {
    // The journal is still kept by every post; only this relaunch path has
    // nothing to work from.
    writeStderr("notify: this notification service never relaunches on a click — nothing to route\n");
    exitProcess(0);
  }
  NotifyClickJournalEntries journal = NotifyClickJournal::read();
  routeColdClickFromJournal(center, once, journal);
  notifyExitAfter(notifyColdRouteLingerSeconds);
  runNotifyMainLoop();
}

}  // namespace ac::notify
