// Armed launches through the real FIFOs, as the owning application drives
// them: pipes it cannot use refuse to arm; "go" records until the owner
// closes the go pipe; and many launches, each with one rival of "go" (a stop
// signal, the owner leaving, the default input changing, a quit, a bad line
// or the end of input) at a random moment around it, each end exactly one
// way: one outcome line on the status pipe, exit status 0, and a file only
// when it recorded. Some of those signals land while the recorder is still
// starting: they must be honoured once it runs.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <map>
#include <random>

#include "e2e_recovery/armed_owner.h"
#include "e2e_recording/e2e_fixture.h"

namespace ac::e2e {
namespace {

constexpr double kSystemHz = 440, kMicHz = 1000;

enum class Rival { sigterm, sigint, sighup, ownerGone, inputChange, quit, badLine, eof };

// By Rival: its name, what a release it caused reads on the status pipe
// (nothing when it cannot release: the owner leaves only after go), and
// when it comes, in microseconds from go: up to 5 ms before (the owner's
// own lines only before, as it sends them) to 10 ms after: before the read,
// during the few milliseconds of the start, and after ready.
const struct {
  const char* name;
  std::optional<std::string> released;
  int earliestMicros, latestMicros;
} kRivals[] = {{"SIGTERM", "released sigterm", -5000, 10000},
               {"SIGINT", "released sigterm", -5000, 10000},
               {"SIGHUP", "released sigterm", -5000, 10000},
               {"owner gone", std::nullopt, 0, 10000},
               {"input change", "released input-device-changed", -5000, 10000},
               {"quit", "released quit", -5000, -1},
               {"bad line", "released bad-line", -5000, -1},
               {"end of input", "released eof", -5000, -1}};

// Sanitized builds launch several times slower.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int kDefaultLaunches = 40;
#else
constexpr int kDefaultLaunches = 100;
#endif

int envInt(const char* name, int fallback) {
  const char* value = std::getenv(name);
  return value ? std::atoi(value) : fallback;
}

class ArmedE2E : public E2E {
 protected:
  void SetUp() override { keepLive({"speaker", "micfeed"}); }
};

TEST_F(ArmedE2E, PipeProblemsRefuseToArm) {
  const std::string fifo = s.path("fifo"), file = s.path("file"), link = s.path("link");
  ::mkfifo(fifo.c_str(), 0600);
  Scratch::write(file, "");
  ::symlink(fifo.c_str(), link.c_str());
  auto armed = [&](const std::string& go, const std::string& status) {
    return std::make_unique<Recording>(s, std::vector<std::string>{"--no-mic", "--armed", "--go-fifo", go, "--status-fifo", status});
  };
  // Nobody reads the status FIFO yet: the owner is gone before we armed.
  auto gone = armed(fifo, fifo);
  EXPECT_EQ(gone->wait().status, 0);
  EXPECT_TRUE(inOrder(gone->log(), {"armed: status pipe has no reader — owner gone", "armed: released (eof)"}));

  int statusReader = ::open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  const struct {
    std::string go, status, line;
  } cases[] = {
      {fifo, file, "armed: status path " + file + " is not a FIFO — refusing to arm"},
      {fifo, link, "armed: cannot open the status path " + link + " (errno=40) — refusing to arm"},
      {s.path("none"), fifo, "armed: cannot open the go path " + s.path("none") + " (errno=2) — refusing to arm"},
      {file, fifo, "armed: go path " + file + " is not a FIFO — refusing to arm"},
  };
  for (const auto& c : cases) {
    auto r = armed(c.go, c.status);
    EXPECT_EQ(r->wait().status, 74) << c.line;
    EXPECT_EQ(countLines(r->log(), c.line), 1u) << r->log();
    EXPECT_FALSE(s.exists("call.m4a"));
  }
  ::close(statusReader);
}

// Only the default output chosen while armed plays: a recording of the old
// one would hold no tone.
TEST_F(ArmedE2E, GoRecordsBothSourcesFromTheOutputChosenWhileArmedUntilTheOwnerClosesTheGoPipe) {
  auto system = tone("headset", kSystemHz, 8);
  auto mic = tone("micfeed", kMicHz, 8);
  ArmedOwner owner(s);
  Recording r(s, owner.armedArgs());
  const std::string pid = std::to_string(r.pid());
  ASSERT_EQ(owner.nextLine(), "armed, pid=" + pid);
  ASSERT_TRUE(setDefault("sink", "headset"));
  ASSERT_TRUE(waitForLine(r, "aggregate rebuilt successfully (output=headset)", 5)) << r.log();
  owner.send("go\n");
  ASSERT_EQ(owner.nextLine(), "ready, pid=" + pid);
  const auto ready = std::chrono::steady_clock::now();
  sleepSeconds(2);
  owner.closeGo();
  const double recorded = secondsSince(ready);

  ExeResult result = r.wait(20);
  EXPECT_EQ(std::to_string(result.status) + " " + result.out, "0 pid=" + pid + "\n");
  const std::string log = r.log();
  EXPECT_TRUE(inOrder(log, {"aggregate rebuilt successfully (output=headset)", "system IOProc started",
                            "ready, pid=" + pid, "armed: owner gone after go — finalizing", "signal received",
                            "finalize-ok call.m4a pid=" + pid + ".", "exit"}))
      << log;
  std::vector<Pcm> tracks = decodeTracks(s, r.outputPath);
  ASSERT_EQ(tracks.size(), 2u);
  for (const Pcm& track : tracks) EXPECT_NEAR(track.seconds(), recorded, 0.15) << "track at " << track.rate << " Hz";
  EXPECT_GT(toneAmplitude(tracks[0], kSystemHz), 0.05);
  EXPECT_GT(toneAmplitude(tracks[1], kMicHz), 0.05);
}

TEST_F(ArmedE2E, EveryLaunchEndsOneWayWhateverArrivesAroundGo) {
  // A second microphone, for the default input to change to.
  LoadedModule second(s, {"module-remap-source", "master=micfeed.monitor", "source_name=mic2"});
  ASSERT_TRUE(second.ok());
  auto act = [&](Rival rival, ArmedOwner& owner, int pid) {
    switch (rival) {
      case Rival::sigterm: ::kill(pid, SIGTERM); break;
      case Rival::sigint: ::kill(pid, SIGINT); break;
      case Rival::sighup: ::kill(pid, SIGHUP); break;
      case Rival::quit: owner.send("quit\n"); break;
      case Rival::badLine: owner.send("go\r\n"); break;
      case Rival::eof: owner.send("go"), owner.closeGo(); break;
      case Rival::ownerGone: owner.closeGo(); break;
      case Rival::inputChange: pactl(s, {"set-default-source", "mic2"}); break;
    }
  };
  const int launches = envInt("AC_ARMED_STRESS_LAUNCHES", kDefaultLaunches);
  const unsigned seed = static_cast<unsigned>(envInt("AC_ARMED_STRESS_SEED", int(std::random_device{}() >> 1)));
  std::printf("%d launches, seed %u (AC_ARMED_STRESS_SEED repeats them)\n", launches, seed);
  std::mt19937 random(seed);
  std::map<std::string, int> outcomes;

  for (int i = 0; i < launches; ++i) {
    const auto rival = static_cast<Rival>(random() % std::size(kRivals));
    const int micros = std::uniform_int_distribution<int>(kRivals[int(rival)].earliestMicros,
                                                          kRivals[int(rival)].latestMicros)(random);
    SCOPED_TRACE(std::string("launch ") + std::to_string(i) + ": " + kRivals[int(rival)].name + " at " +
                 std::to_string(micros) + " us from go");
    std::filesystem::remove(s.path("call.m4a"));
    ArmedOwner owner(s);
    Recording r(s, owner.armedArgs());
    const std::string pid = std::to_string(r.pid());
    ASSERT_EQ(owner.nextLine(), "armed, pid=" + pid) << r.log();

    if (micros < 0) {
      act(rival, owner, r.pid());
      std::this_thread::sleep_for(std::chrono::microseconds(-micros));
      owner.send("go\n");
    } else {
      owner.send("go\n");
      std::this_thread::sleep_for(std::chrono::microseconds(micros));
      act(rival, owner, r.pid());
    }
    const std::optional<std::string> outcome = owner.nextLine();
    // A change of input after go is the recording's business: it goes on
    // until its owner leaves.
    if (rival == Rival::inputChange) owner.closeGo();
    const auto waited = std::chrono::steady_clock::now();
    ExeResult result = r.wait(10);
    EXPECT_LT(secondsSince(waited), 10) << "the launch did not end by itself";
    EXPECT_EQ(owner.nextLine(0.05), std::nullopt) << "a second outcome line";
    if (rival == Rival::inputChange) pactl(s, {"set-default-source", "mic"});

    const std::string log = r.log();
    EXPECT_TRUE(result.exited && result.status == 0) << result.status << "\n" << log;
    // Run from a sanitized build, the recorder is sanitized too.
    EXPECT_EQ(result.err.find("Sanitizer"), std::string::npos) << result.err;
    if (outcome == "ready, pid=" + pid) {
      // A signal that came while the recorder was starting says so.
      const bool deferred = countLines(log, "signal received during start — honoured once running") == 1;
      ++outcomes[std::string(kRivals[int(rival)].name) + (deferred ? " → ready, stop deferred" : " → ready")];
      EXPECT_EQ(result.out, "pid=" + pid + "\n");
      EXPECT_EQ(countLines(log, "signal received"), 1u) << log;
      EXPECT_EQ(logLines(log).back(), "exit") << log;
      EXPECT_TRUE(s.exists("call.m4a"));
    } else {
      ++outcomes[std::string(kRivals[int(rival)].name) + " → " + outcome.value_or("no line")];
      EXPECT_EQ(outcome, kRivals[int(rival)].released) << log;
      EXPECT_EQ(result.out, "");
      EXPECT_EQ(countPrefixed(log, "armed: released ("), 1u) << log;
      const std::string reason = kRivals[int(rival)].released.value_or("released ?").substr(9);
      EXPECT_EQ(countLines(log, "armed: released (" + reason + ")"), 1u) << log;
      EXPECT_FALSE(s.exists("call.m4a")) << "a released launch leaves no file";
    }
    if (HasFailure()) break;
  }
  for (const auto& [what, count] : outcomes) std::printf("%4d × %s\n", count, what.c_str());
}

}  // namespace
}  // namespace ac::e2e
