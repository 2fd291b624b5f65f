#include "notify/cold_route.h"

#include <deque>

#include "notify/click_payload.h"
#include "tests/notify_flows/notify_flow_fixture.h"

namespace ac::notify::testing {
namespace {

using ColdRoute = NotifyFlowTest;
using IDs = std::vector<std::string>;

NotifyClickJournalEntry entry(const std::string& id, std::optional<std::string> token,
                              std::optional<double> expiresAt = std::nullopt) {
  return {id, std::move(token), wallSeconds() - 600, expiresAt};
}

// Exactly one journalled banner gone is the click; two gone or no answer open
// Recordings, never a note; a click claimed elsewhere is not acted on twice.
TEST_F(ColdRoute, OnlyTheOneBannerGoneIsRoutedAndSettled) {
  const NotifyClickJournalEntries abc = {entry("A", "/tmp/a.md"), entry("B", "/tmp/b.md"), entry("C", std::nullopt)};
  const std::string route = "notify: cold route — journal=3 delivered=2 resolution=route\n";
  const std::string recordings =
      "notify: cold click could not be attributed to one banner — opening Recordings\n"
      "notify: no companion app to open\n";
  enum Twist { none, journalLocked, answeredByTheDelegate };
  struct Case {
    const char* what;
    NotifyClickJournalEntries snapshot;
    std::optional<IDs> delivered;  // absent: the centre does not answer
    std::string said;
    std::string journalLeft;
    bool opensNote = false;
    Twist twist = none;
    std::optional<NotifyClickJournalEntries> file = {};  // the journal by the time of the claim, when not the snapshot
  };
  const Case cases[] = {
      {"empty journal", {}, IDs{}, "notify: cold route — journal=0, nothing outstanding\n", ""},
      {"nothing gone", abc, IDs{"A", "B", "C"}, "notify: cold route — journal=3 delivered=3 resolution=nothing\n",
       "A,B,C"},
      {"a tokenless banner gone", abc, IDs{"A", "B"},
       "notify: cold route — journal=3 delivered=2 resolution=nothing\n", "A,B,C"},
      {"one gone", abc, IDs{"B", "C"}, route, "B,C", true},
      {"two gone", abc, IDs{"C"}, "notify: cold route — journal=3 delivered=1 resolution=recordings\n" + recordings,
       "A,B,C"},
      {"no answer", abc, std::nullopt,
       "notify: cold route — journal=3 delivered=no-answer resolution=recordings\n" + recordings, "A,B,C"},
      {"claimed by another launch", abc, IDs{"B", "C"}, route + "notify: cold click already claimed by another launch\n",
       "B,C", false, none, NotifyClickJournalEntries{abc[1], abc[2]}},
      {"journal locked", abc, IDs{"B", "C"},
       route +
           "notify: journal lock busy — leaving it to the holder\n"
           "notify: click claimed but the journal could not be updated — routing anyway\n",
       "A,B,C", true, journalLocked},
      {"the delegate answered first", abc, IDs{"B", "C"}, route, "B,C", false, answeredByTheDelegate},
      {"an expired prompt gone", {entry("P", "vela-app:record-start", wallSeconds() - 1), entry("B", "x")}, IDs{"B"},
       "notify: cold route — journal=2 delivered=1 resolution=route\n"
       "notify: journalled click carried no routable target (expired)\n",
       "B"},
      {"a silence warning gone", {entry("S", "vela-app:ignore-silence:TRANSCRIPT_PENDING_1_2"), entry("B", "x")},
       IDs{"B"},
       "notify: cold route — journal=2 delivered=1 resolution=route\n"
       "notify: journalled click carried no routable target (action-only-target)\n",
       "B"},
  };
  std::deque<NotifyClickOnce> onces;  // each outlives its route's queued work
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    std::vector<platform::DeliveredNotification> banners;
    for (const auto& id : c.delivered.value_or(IDs{})) banners.push_back(banner(id, nullptr));
    center_.delivered.set(banners);
    center_.script.with([&](auto& s) { s.answersDelivered = c.delivered.has_value(); });
    NotifyClickJournal::update(NotifyClickJournal::defaultURL(), [&](auto) { return c.file.value_or(c.snapshot); });
    auto lock = c.twist == journalLocked ? holdLock(NotifyClickJournal::lockFileName) : nullptr;
    auto& once = onces.emplace_back();
    if (c.twist == answeredByTheDelegate) once.take();
    const size_t opened = desk_.openedURLs.get().size();
    captureStderr();
    routeColdClickFromJournal(center_, once, c.snapshot);
    runMainQueueFor(c.delivered ? 0.3 : deliveredQueryTimeoutSeconds + 0.3);
    pumpUntil([&] {
      return journalIDs() == c.journalLeft && desk_.openedURLs.get().size() - opened == (c.opensNote ? 1u : 0u);
    });
    EXPECT_EQ(stderrText(), c.said);
    EXPECT_EQ(desk_.openedURLs.get().size() - opened, c.opensNote ? 1u : 0u);
    lock.reset();
    EXPECT_EQ(journalIDs(), c.journalLeft);
  }
  EXPECT_EQ(desk_.openedURLs.get().at(0), "obsidian://open?path=%2Ftmp%2Fa.md");
  EXPECT_EQ(desk_.distributed.get().size(), 2u);
}

}  // namespace
}  // namespace ac::notify::testing
