// The microphone's source vanishing mid-recording on the real server:
// following the default, the track moves to the new default source; pinned
// with --mic-uid, the track ends early and system audio goes on, however
// often the microphone fails, with one notice, whatever is at the path of
// the click journal the notice goes through.
#include <signal.h>
#include <sys/stat.h>

#include <filesystem>

#include "e2e_recording/e2e_fixture.h"
#include "support/eventually.h"

namespace ac::e2e {
namespace {

constexpr double kSystemHz = 440, kMicHz = 1000, kLostMicHz = 700;

// A session bus of the test's own with a bare notification service on it
// (notification_service.py) that lists the titles it was given, in a file
// it creates once it serves: enough for a recorder's notices to be posted
// and seen, with no desktop.
struct NoticeBus {
  explicit NoticeBus(const Scratch& s) : address("unix:path=" + s.path("bus")), titlesFile(s.path("notices")) {
    std::filesystem::remove(s.path("bus"));
    std::filesystem::remove(titlesFile);
    bus = std::make_unique<RunningExe>(
        s, "/usr/bin/dbus-daemon", std::vector<std::string>{"--session", "--nofork", "--nopidfile", "--address=" + address});
    if (!test::eventually([&] { return std::filesystem::exists(s.path("bus")); })) return;
    service = std::make_unique<RunningExe>(s, "/usr/bin/python3", std::vector<std::string>{AC_NOTIFICATION_SERVICE, titlesFile},
                                            test::EnvChanges{{"DBUS_SESSION_BUS_ADDRESS", address}});
    ok = test::eventually([&] { return std::filesystem::exists(titlesFile); }, 10);
  }
  std::string titles() const { return Scratch::contents(titlesFile); }

  const std::string address, titlesFile;
  std::unique_ptr<RunningExe> bus, service;
  bool ok = false;
};

// A microphone that can be taken away: the source "lostmic" hears whatever
// plays into the sink "lostfeed".
class MicLossE2E : public E2E {
 protected:
  void SetUp() override {
    if (auto missing = test::privatePulseServerMissing(s)) GTEST_SKIP() << *missing;
    feed = std::make_unique<LoadedModule>(s, std::vector<std::string>{"module-null-sink", "sink_name=lostfeed"});
    ASSERT_TRUE(plugIn());
    keepLive({"speaker", "micfeed", "lostfeed"});
  }
  bool plugIn() {
    mic.reset();
    mic = std::make_unique<LoadedModule>(s, std::vector<std::string>{"module-remap-source", "master=lostfeed.monitor",
                                                                     "source_name=lostmic",
                                                                     "source_properties=device.description=Lost-microphone"});
    return feed->ok() && mic->ok();
  }

  std::unique_ptr<LoadedModule> feed, mic;
};

TEST_F(MicLossE2E, LosingTheDefaultMicrophoneMovesTheTrackToTheNewDefault) {
  ASSERT_TRUE(setDefault("source", "lostmic"));
  auto system = tone("speaker", kSystemHz, 10);
  auto lost = tone("lostfeed", kLostMicHz, 10);
  auto other = tone("micfeed", kMicHz, 10);
  Recording r(s, {});
  ASSERT_TRUE(r.waitReady());
  const auto ready = std::chrono::steady_clock::now();
  sleepSeconds(1.5);
  mic.reset();
  const double lostAt = secondsSince(ready);
  // Only "mic" is left that is no monitor: the server's new default (on
  // PipeWire a moment later).
  ASSERT_TRUE(test::eventually([&] { return pactl(s, {"get-default-source"}).out == "mic\n"; }));
  sleepSeconds(2);
  const double recorded = secondsSince(ready);
  ASSERT_EQ(r.stop(SIGTERM).status, 0);

  const std::string log = r.log();
  EXPECT_TRUE(inOrder(log, {"mic disconnect: mic device disconnected: Lost-microphone — attempting mic input rebuild",
                            "mic rebuild: swapped in Virtual-microphone [mic]", "mic input rebuilt successfully"}))
      << log;
  // The stream that ended with its source is no second loss.
  EXPECT_EQ(countPrefixed(log, "mic disconnect: "), 1u) << log;
  EXPECT_TRUE(test::contains(log, " micEndedEarly=false ")) << log;
  std::vector<Pcm> tracks = decodeTracks(s, r.outputPath);
  ASSERT_EQ(tracks.size(), 2u);
  const Pcm& micTrack = tracks[1];
  EXPECT_NEAR(micTrack.seconds(), recorded, 0.15) << "the mic track goes on to the end";
  expectSwitch(micTrack, kLostMicHz, kMicHz, lostAt);
}

// Each kind of journal in a recording of its own, on sinks made live afresh:
// a second recording in the same fixture starts a little after its "ready".
class PinnedMicLossE2E : public MicLossE2E, public ::testing::WithParamInterface<std::string> {};

TEST_P(PinnedMicLossE2E, LostTwiceEndsItsTrackEarlyWithOneNotice) {
  const std::string journal = s.path("home/.local/state/vela/notify-clicks.json");
  const std::string journalKind = GetParam();
  std::filesystem::create_directories(journal);
  if (journalKind == "fifo") {
    std::filesystem::remove(journal);
    ASSERT_EQ(::mkfifo(journal.c_str(), 0600), 0);
  }
  NoticeBus notices(s);
  ASSERT_TRUE(notices.ok) << "the notification service did not start";
  ASSERT_TRUE(plugIn());
  auto system = tone("speaker", kSystemHz, 10);
  auto lost = tone("lostfeed", kLostMicHz, 10);
  Recording r(s, {"--mic-uid", "lostmic"}, {{"DBUS_SESSION_BUS_ADDRESS", notices.address}});
  ASSERT_TRUE(r.waitReady());
  const auto ready = std::chrono::steady_clock::now();
  sleepSeconds(1.5);
  mic.reset();
  const double lostAt = secondsSince(ready);
  const std::string endedEarly =
      "mic input rebuild retry also failed — 'me' track ended early (system audio still recording)";
  ASSERT_TRUE(waitForLine(r, endedEarly, 5)) << r.log();
  // The same microphone comes back and fails again: a second failure of
  // the same kind.
  ASSERT_TRUE(plugIn());
  sleepSeconds(0.3);
  mic.reset();
  sleepSeconds(1);
  // The notice is posted off the recording's threads.
  EXPECT_TRUE(test::eventually([&] { return countPrefixed(r.err(), "notify: journal ") > 0; }, 5)) << r.err();
  const double recorded = secondsSince(ready);
  ExeResult result = r.stop(SIGTERM);
  ASSERT_EQ(result.status, 0);

  const std::string log = r.log();
  const std::string pinned = "mic rebuild: pinned mic lostmic not available — not falling back to a different device";
  EXPECT_TRUE(inOrder(log, {"mic disconnect: mic device disconnected: Lost-microphone — attempting mic input rebuild",
                            pinned, "mic input rebuild attempt 1 failed — retrying in 500ms", pinned, endedEarly}))
      << log;
  EXPECT_EQ(countPrefixed(log, "mic disconnect: "), 1u) << log;
  EXPECT_EQ(countLines(log, endedEarly), 1u) << log;
  EXPECT_TRUE(test::contains(log, " micEndedEarly=true ")) << log;
  EXPECT_EQ(notices.titles(), "Microphone disconnected\n");
  EXPECT_EQ(countPrefixed(result.err, "notify: journal "), 1u) << result.err;

  std::vector<Pcm> tracks = decodeTracks(s, r.outputPath);
  ASSERT_EQ(tracks.size(), 2u);
  EXPECT_NEAR(tracks[0].seconds(), recorded, 0.15) << "system audio records to the end";
  EXPECT_GT(toneAmplitude(tracks[0], kSystemHz, tracks[0].seconds() - 1, tracks[0].seconds()), 0.05);
  EXPECT_LT(tracks[1].seconds(), lostAt + 0.5) << "the mic track ends with its microphone";
  EXPECT_GT(toneAmplitude(tracks[1], kLostMicHz), 0.05);
}

// The notice goes through the click journal, whatever is at its path.
INSTANTIATE_TEST_SUITE_P(JournalA, PinnedMicLossE2E, ::testing::Values("directory", "fifo"));

}  // namespace
}  // namespace ac::e2e
