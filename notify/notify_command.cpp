#include "notify/notify_command.h"

#include <memory>
#include <mutex>
#include <vector>

#include "notify/awaited_answer.h"
#include "notify/banner_presentation.h"
#include "notify/category_registry.h"
#include "notify/click_handling.h"
#include "notify/click_journal.h"
#include "notify/click_payload.h"
#include "notify/cold_route.h"
#include "notify/meeting_banner.h"
#include "notify/notif_auth.h"
#include "notify/notify_modes.h"
#include "notify/silence_warning.h"
#include "platform/platform.h"
#include "support/dispatch.h"
#include "support/log.h"
#include "support/process_exit.h"
#include "support/uuid.h"

namespace ac::notify {

bool notificationCenterUsable() { return platform::current().workspace().bundleIdentifier().has_value(); }

std::string notificationSound(const std::optional<std::string>& name) { return name.value_or(""); }

platform::NotificationContent makeNotifyContent(const std::string& title, const std::string& body,
                                                const std::optional<std::string>& soundName,
                                                const std::optional<std::string>& clickToken,
                                                std::optional<double> expiresAt,
                                                const std::optional<std::string>& categoryID) {
  platform::NotificationContent content;
  content.title = title;
  content.body = body;
  content.soundName = notificationSound(soundName);
  if (clickToken) content.userInfo = NotifyClickPayload::make(*clickToken, expiresAt);
  if (categoryID) content.categoryIdentifier = *categoryID;
  auto presentation = bannerPresentation(clickToken);
  content.resident = presentation.resident;
  content.defaultActionTitle = presentation.defaultActionTitle;
  content.expiresAt = expiresAt.value_or(0);
  return content;
}

NotifyDelegate::NotifyDelegate(std::function<void()> done, std::function<bool()> claim, std::function<void()> closed)
    : done_(done ? std::move(done) : [] {}), claim_(std::move(claim)), closed_(std::move(closed)) {}

void NotifyDelegate::willPresent(std::function<void(bool, bool)> completion) { completion(true, true); }

void NotifyDelegate::didReceive(const platform::NotificationResponse& response, std::function<void()> completion) {
  dispatchMain([response, completion = std::move(completion), done = done_, claim = claim_] {
    handleResponse(response, completion, done, claim);
  });
}

void NotifyDelegate::didClose(const std::string&) {
  if (closed_) dispatchMain(closed_);
}

void NotifyDelegate::didActivate(const std::string& requestIdentifier, const std::string& actionIdentifier) {
  dispatchMain([requestIdentifier, actionIdentifier, done = done_, claim = claim_] {
    routeActivatedClick(requestIdentifier, actionIdentifier, done, claim);
  });
}

NotifyDelegate& installNotifyDelegate(std::function<void()> done, std::function<bool()> claim,
                                      std::function<void()> closed) {
  // The centre keeps a bare pointer: every delegate ever installed lives as
  // long as the process.
  static std::mutex mutex;
  static std::vector<std::unique_ptr<NotifyDelegate>> delegates;
  std::lock_guard lock(mutex);
  delegates.push_back(std::make_unique<NotifyDelegate>(std::move(done), std::move(claim), std::move(closed)));
  platform::current().notifications().setDelegate(delegates.back().get());
  return *delegates.back();
}

void installRecordingNotifyDelegate() { installNotifyDelegate(); }

namespace {

// Reads the authorization, records it, and asks once when allowed and
// undecided; the status the post is judged by.
std::optional<platform::NotificationAuthorizationStatus> authorizationForPost(bool allowAuthRequest) {
  auto status = currentNotifAuthStatus(notifAuthQueryTimeoutSeconds);
  writeNotifAuthStatus(notifAuthStatusName(status));
  if (notifAuthStatusName(status) == "notDetermined" && allowAuthRequest) {
    (void)requestNotifAuthorization(notifyAuthRequestTimeoutSeconds);
    status = currentNotifAuthStatus(notifyAuthRecheckTimeoutSeconds);
    writeNotifAuthStatus(notifAuthStatusName(status));
  }
  return status;
}

// Adds the request; whether the add completed without an error in time.
bool addRequest(const std::string& identifier, const platform::NotificationContent& content) {
  auto& center = platform::current().notifications();
  auto result = awaitAnswer<std::optional<Error>>(notifyAddTimeoutSeconds,
                                                  [&](std::function<void(std::optional<Error>)> done) {
                                                    center.add(identifier, content, std::move(done));
                                                  });
  if (!result) {
    writeStderr("notify: add failed: the notification centre did not answer\n");
    return false;
  }
  if (*result) {
    writeStderr("notify: add failed: " + (*result)->description + "\n");
    return false;
  }
  return true;
}

}  // namespace

std::optional<double> postNotifyBanner(const NotifyRequest& request) {
  if (!notificationCenterUsable()) {
    writeStderr("notify: unbundled process — skipping post\n");
    return std::nullopt;
  }
  // Once its click has been handled, or its banner has left the screen, a
  // warm poster has nothing left to wait for; the exit check still honours
  // any handler in flight.
  installNotifyDelegate([] { notifyExitAfter(notifyAfterClickLingerSeconds); }, nullptr, [] { notifyExitAfter(0); });

  const auto status = authorizationForPost(request.allowAuthRequest);
  const std::string auth = notifAuthStatusName(status);
  if (!notifAuthDelivers(auth)) {
    writeStderr("notify: skipped (auth=" + auth + ")\n");
    // The short linger keeps the delegate up for a click on an earlier
    // banner that the centre hands to this running process. A centre that
    // said it is not there (no bus, no service) hands over nothing: end now.
    if (status == platform::kNotificationAuthorizationUnavailable) return std::nullopt;
    return notifyPlainLingerSeconds;
  }

  auto& center = platform::current().notifications();
  const std::string token = request.clickToken.value_or("");
  double now = wallSeconds();
  std::optional<double> expiresAt;
  std::optional<std::string> category;
  if (request.meetingPrompt && token == recordStartToken) {
    auto items = MeetingBanner::menu(MeetingBanner::roster());
    expiresAt = now + MeetingBanner::ttl;
    std::string id = MeetingBanner::categoryID(now);
    if (registerCategory(center, id, items)) category = id;
    writeStderr("notify: meeting prompt — " + std::to_string(items.size()) +
                " action(s), category=" + category.value_or("<none>") + "\n");
  } else if (token.starts_with(SilenceWarningBanner::tokenPrefix)) {
    if (registerSilenceCategory(center)) category = std::string(SilenceWarningBanner::categoryID);
  }

  std::optional<std::string> clickToken;
  if (!token.empty()) clickToken = token;
  auto content = makeNotifyContent(request.title, request.body, request.soundName, clickToken, expiresAt, category);
  std::string identifier = newUUIDString();
  bool added = addRequest(identifier, content);

  auto delivered = deliveredNotificationIDs(center);
  NotifyClickJournal::recordPosted(identifier, token, added, delivered, wallSeconds(), expiresAt);
  // Where a click reaches the program through a fresh activation, the
  // poster has nothing to wait for.
  bool waitsForClick = clickToken && !center.clicksArriveByActivation();
  return waitsForClick ? notifyClickableLingerSeconds : notifyPlainLingerSeconds;
}

void runNotifyMainLoop() {
  for (;;) platform::current().runMainLoopFor(3600);
}

void runNotify(const std::string& title, const std::string& body, const std::optional<std::string>& clickToken,
               const std::optional<std::string>& soundName, bool allowAuthRequest, bool meetingPrompt) {
  auto linger = postNotifyBanner({title, body, clickToken, soundName, allowAuthRequest, meetingPrompt});
  if (!linger) exitProcess(0);
  notifyExitAfter(*linger);
  runNotifyMainLoop();
}

void postNotification(const std::string& title, const std::string& body, const std::string& soundName,
                      std::function<void()> then) {
  dispatchGlobal([title, body, soundName, then = std::move(then)] {
    auto finish = [&] {
      if (then) then();
    };
    // Best effort: the poster may be a recording, which nothing here may end.
    try {
      if (!notificationCenterUsable()) return finish();
      std::string auth = notifAuthStatusName(currentNotifAuthStatus(notifAuthQueryTimeoutSeconds));
      writeNotifAuthStatus(auth);
      if (!notifAuthDelivers(auth)) {
        writeStderr("notify: skipped (auth=" + auth + ")\n");
        return finish();
      }
      std::string identifier = newUUIDString();
      if (addRequest(identifier, makeNotifyContent(title, body, soundName, std::nullopt, std::nullopt, std::nullopt))) {
        // Journalled as tokenless: a later cold launch counts it as ours and
        // routes nothing through it.
        NotifyClickJournal::record(identifier, std::nullopt, deliveredNotificationIDs(platform::current().notifications()),
                                   wallSeconds());
      }
    } catch (const std::exception& e) {
      writeStderr(std::string("notify: notice not posted: ") + e.what() + "\n");
    }
    finish();
  });
}

}  // namespace ac::notify
