#include "notify/notif_auth.h"

#include <sys/stat.h>

#include "tests/notify_flows/notify_flow_fixture.h"

namespace ac::notify::testing {
namespace {

using NotifAuth = NotifyFlowTest;

TEST(NotifAuthWords, MarkerIsKeptForDeliveryOrADefiniteAnswer) {
  struct Case {
    const char *before, *after;
    bool succeeded, keep;
  };
  const Case cases[] = {
      {"unknown", "authorized", false, true},   {"unknown", "provisional", false, true},
      {"notDetermined", "denied", true, true},  {"notDetermined", "denied", false, false},
      {"unknown", "denied", true, false},       {"denied", "notDetermined", true, false},
      {"denied", "ephemeral", true, true},      {"denied", "unknown", true, true},
  };
  for (const auto& c : cases)
    EXPECT_EQ(keepNotifAuthMarker(c.before, c.after, c.succeeded), c.keep) << c.before << " -> " << c.after;
}

TEST_F(NotifAuth, SilentCentreIsUnknownAndRecorded) {
  center_.script.with([&](auto& s) { s.status = std::nullopt; });
  EXPECT_EQ(queryAndRecordNotifAuthStatus(0.05), "unknown");
  EXPECT_EQ(contents(statePath("notif-auth-status")), "unknown");
}

TEST_F(NotifAuth, GrantedRequestWritesTheMarkerAndTightensTheDirectory) {
  std::filesystem::create_directories(stateDir());
  ::chmod(stateDir().c_str(), 0755);
  center_.script.with([&](auto& s) { s.status = 0; s.statusAfterRequest = 2; });
  captureStderr();
  EXPECT_EQ(requestNotifAuthAndRecord(), NotifAuthRequestRun::markerKept);
  std::string err = stderrText();
  EXPECT_EQ(contents(statePath(".notif-auth-requested")), "version=2\nstatus=authorized\napp_mtime=1700000000\n");
  EXPECT_EQ(contents(statePath("notif-auth-status")), "authorized");
  std::string log =
      "[notif-auth] start; bundleID=com.quorlan.vela.audio-capture path=/nonexistent/audio-capture-src/bin\n"
      "[notif-auth] status BEFORE = notDetermined\n"
      "[notif-auth] requestAuthorization granted = true\n"
      "[notif-auth] status AFTER = authorized\n"
      "[notif-auth] wrote marker " +
      statePath(".notif-auth-requested") +
      " (version=2 status=authorized app_mtime=1700000000)\n"
      "[notif-auth] done\n";
  EXPECT_EQ(contents(statePath("notif-auth.log")), log);
  EXPECT_EQ(err, log);
  struct stat st {};
  ASSERT_EQ(::stat(stateDir().c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0700u);
}

TEST_F(NotifAuth, DeniedWithoutADefiniteAnswerRemovesTheMarker) {
  write(statePath(".notif-auth-requested"), "version=2\nstatus=authorized\napp_mtime=1\n");
  center_.script.with([&](auto& s) {
    s.status = 0;
    s.statusAfterRequest = 1;
    s.grantsRequest = false;
    s.requestError = Error{"t", 1, "no"};
  });
  captureStderr();
  EXPECT_EQ(requestNotifAuthAndRecord(), NotifAuthRequestRun::markerDropped);
  std::string err = stderrText();
  EXPECT_FALSE(std::filesystem::exists(statePath(".notif-auth-requested")));
  EXPECT_NE(err.find("[notif-auth] notify: authorization error: no\n"), std::string::npos);
  EXPECT_NE(err.find("[notif-auth] marker REMOVED (before=notDetermined after=denied) requestSucceeded=false — will "
                     "re-check next run\n"),
            std::string::npos);
}

TEST_F(NotifAuth, ASecondConcurrentRequestLeavesAtOnce) {
  auto lock = holdLock(".notif-auth.lock");
  double start = monotonicSeconds();
  EXPECT_EQ(requestNotifAuthAndRecord(), NotifAuthRequestRun::busy);
  EXPECT_LT(monotonicSeconds() - start, 0.5);
  EXPECT_FALSE(center_.lastRequest.get());
  EXPECT_FALSE(std::filesystem::exists(statePath("notif-auth.log")));
}

}  // namespace
}  // namespace ac::notify::testing
