#include "notify/click_handling.h"

#include <sys/stat.h>

#include <cstdio>

#include "notify/click_journal.h"
#include "notify/notify_modes.h"
#include "notify/record_start_script.h"
#include "notify/silence_ignore_script.h"
#include "notify/silence_warning.h"
#include "platform/platform.h"
#include "support/dispatch.h"
#include "support/log.h"
#include "support/overloaded.h"
#include "support/process_exit.h"

namespace ac::notify {
namespace {

NotifyClickHandlers& handlerTable() {
  static NotifyClickHandlers table{monotonicSeconds(), {}, 0};
  return table;
}

std::function<void()>& exitAction() {
  static std::function<void()> action;
  return action;
}

// The settle step a performed click ends with.
std::function<void()> settleWith(const std::function<void()>& done) {
  return [done] { notifySettleClick(done); };
}

void reportLaunch(const std::optional<Error>& error) {
  if (error) writeStderr("notify: companion launch failed: " + error->description + "\n");
}

}  // namespace

// The handler table's clock starts with the process, not with the first
// click: the ceiling is counted from process start.
[[maybe_unused]] static const bool kTableStarted = (handlerTable(), true);

NotifyClickHandlerToken beginNotifyClickHandler() { return notifyClickHandlerBegin(handlerTable(), monotonicSeconds()); }

void endNotifyClickHandler(NotifyClickHandlerToken token) { notifyClickHandlerEnd(handlerTable(), token); }

const NotifyClickHandlers& notifyClickHandlers() { return handlerTable(); }

void notifySettleClick(const std::function<void()>& then) {
  if (notifyClickOwnsTheExit(handlerTable().deadlines.size()) && then) then();
}

void setNotifyExitAction(std::function<void()> action) { exitAction() = std::move(action); }

void scheduleNotifyExit(double delay) {
  dispatchMainAfter(delay, [] {
    if (notifyExitDecision(handlerTable().deadlines, monotonicSeconds()) == NotifyExitDecision::wait) {
      scheduleNotifyExit(notifyExitPollSeconds);
    } else if (exitAction()) {
      exitAction()();
    } else {
      exitProcess(0);
    }
  });
}

void notifyExitAfter(double delay) { scheduleNotifyExit(delay); }

std::string secondsText(double seconds) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%g", seconds);
  return buf;
}

NotifyClickActionResult foldNotifyClickAction(const NotifyClickTarget& target, const std::string& actionIdentifier,
                                              bool isCustomAction,
                                              const std::function<std::vector<MeetingBanner::RosterEntry>()>& roster) {
  if (auto* silence = std::get_if<ClickIgnoreSilence>(&target))
    return {SilenceWarningBanner::clickTarget(silence->marker, actionIdentifier, isCustomAction)};
  if (!isCustomAction) return {target};
  if (!std::holds_alternative<ClickStartRecording>(target)) return {};
  auto pick = MeetingBanner::parse(actionIdentifier);
  if (!pick) return {};
  // The plain start needs no roster: it is read only for a template pick.
  if (std::holds_alternative<MeetingBanner::PlainPick>(*pick)) return {ClickStartRecording{}};
  auto resolution = MeetingBanner::resolve(*pick, roster());
  if (resolution.kind == MeetingBanner::Resolution::Kind::refuse) return {std::nullopt, true};
  return {ClickStartRecording{resolution.templateID}};
}

void handleResponse(const platform::NotificationResponse& response, const std::function<void()>& completion,
                    const std::function<void()>& done, const std::function<bool()>& claim) {
  // Settled before the claim, so no later cold launch routes this banner
  // again even when this answer may not act.
  const std::string id = response.requestIdentifier;
  NotifyClickJournal::update(NotifyClickJournal::defaultURL(), [&](NotifyClickJournalEntries entries) {
    std::erase_if(entries, [&](const NotifyClickJournalEntry& e) { return e.id == id; });
    return entries;
  });
  auto finish = [&] {
    if (completion) completion();
  };
  if (claim && !claim()) {
    writeStderr("notify: click already answered by the journal fallback\n");
    return finish();
  }
  if (response.actionIdentifier == platform::kDismissActionIdentifier) return finish();

  auto resolved = resolveNotifyClickTarget(response.content.userInfo, wallSeconds());
  if (auto rejection = clickRejection(resolved)) {
    writeStderr("notify: click carried no routable target (" + std::string(rawValue(*rejection)) + ")\n");
    return finish();
  }
  bool isCustomAction = response.actionIdentifier != platform::kDefaultActionIdentifier;
  auto folded = foldNotifyClickAction(*clickTarget(resolved), response.actionIdentifier, isCustomAction,
                                      [] { return MeetingBanner::roster(); });
  if (!folded.target) {
    if (folded.templateRefused) reportMeetingTemplateRefusal(settleWith(done));
    return finish();
  }
  performNotifyClick(*folded.target, settleWith(done));
  finish();
}

void performNotifyClick(const NotifyClickTarget& target, const std::function<void()>& then) {
  std::visit(Overloaded{
                 [&](const ClickURL& t) {
                   if (!platform::current().workspace().openURL(t.url))
                     writeStderr("notify: the desktop refused to open the link\n");
                   then();
                 },
                 [&](const ClickOpenNote& t) {
                   openCompanionAppOnNote(t.marker);
                   then();
                 },
                 [&](const ClickRecordings&) {
                   openCompanionAppOnRecordings();
                   then();
                 },
                 [&](const ClickStartRecording& t) { startRecordingFromNotifyClick(t.templateID, then); },
                 [&](const ClickIgnoreSilence& t) { ignoreSilenceFromNotifyClick(t.marker, std::nullopt, then); },
                 [&](const ClickSnoozeSilence& t) { ignoreSilenceFromNotifyClick(t.marker, t.minutes, then); },
             },
             target);
}

void reportMeetingTemplateRefusal(const std::function<void()>& then) {
  writeStderr(
      "notify: meeting-prompt template pick refused (no longer on the roster as it was offered — deleted, renamed "
      "or duplicated since)\n");
  NotifyClickHandlerToken token = beginNotifyClickHandler();
  postNotification("That template has changed", "No recording started. Pick again from the menu bar.", "",
                   [token, then] {
                     dispatchMain([token, then] {
                       endNotifyClickHandler(token);
                       then();
                     });
                   });
}

std::optional<std::string> companionAppPath() {
  auto& workspace = platform::current().workspace();
  std::string bundle = workspace.bundlePath();
  std::string_view suffix = companionEmbeddedSuffix;
  if (bundle.size() > suffix.size() && bundle.ends_with(suffix)) {
    std::string app = bundle.substr(0, bundle.size() - suffix.size());
    struct stat st {};
    if (::stat(app.c_str(), &st) == 0) return app;
  }
  return workspace.applicationPath(companionBundleIdentifier);
}

std::string companionResourcesDirectory() {
  std::string path = platform::current().workspace().bundlePath();
  for (int i = 0; i < 2; ++i) {
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    size_t slash = path.rfind('/');
    path = slash == std::string::npos || slash == 0 ? "/" : path.substr(0, slash);
  }
  return path;
}

void openCompanionAppOnRecordings() {
  auto& workspace = platform::current().workspace();
  // A running companion switches tabs at once; the launch covers one that
  // is not running.
  workspace.postDistributedNotification(companionOpenTabNotification, "recordings");
  auto app = companionAppPath();
  if (!app) {
    writeStderr("notify: no companion app to open\n");
    return;
  }
  reportLaunch(workspace.openApplication(*app, {"--tab", "recordings"}));
}

void openCompanionAppOnNote(const std::string& marker) {
  auto link = OpenNoteClick::url(marker);
  if (!link) {
    writeStderr("notify: refused an open-note click with no recording marker\n");
    return;
  }
  auto app = companionAppPath();
  if (!app) {
    writeStderr("notify: no companion app to open the note\n");
    return;
  }
  reportLaunch(platform::current().workspace().openApplication(*app, {*link}));
}

}  // namespace ac::notify
