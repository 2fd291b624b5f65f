#include "e2e_recovery/desktop_session.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>
#include <thread>

#include "e2e_recording/e2e_harness.h"
#include "support/dispatch.h"
#include "support/spawn.h"

namespace ac::e2e {
namespace {

constexpr double kStartSeconds = 10;
const char* const kTools[] = {"/usr/bin/Xvfb", "/usr/bin/dbus-daemon", "/usr/bin/dbus-send", "/usr/bin/dbus-monitor",
                              "/usr/bin/dunst"};

std::optional<std::string> getenvString(const char* name) {
  const char* value = std::getenv(name);
  return value ? std::optional<std::string>(value) : std::nullopt;
}

void restoreEnv(const char* name, const std::optional<std::string>& value) {
  value ? ::setenv(name, value->c_str(), 1) : ::unsetenv(name);
}

// The first line a child writes on `fd` within the start-up time.
std::optional<std::string> firstLine(int fd) {
  std::string text;
  const double deadline = monotonicSeconds() + kStartSeconds;
  while (text.find('\n') == std::string::npos && monotonicSeconds() < deadline) {
    struct pollfd p {fd, POLLIN, 0};
    if (::poll(&p, 1, 100) <= 0) continue;
    char chunk[256];
    const ssize_t n = ::read(fd, chunk, sizeof chunk);
    if (n <= 0) break;
    text.append(chunk, size_t(n));
  }
  if (text.find('\n') == std::string::npos) return std::nullopt;
  return text.substr(0, text.find('\n'));
}

template <class Done>
bool within(double seconds, Done done) {
  for (const double deadline = monotonicSeconds() + seconds; !done();) {
    if (monotonicSeconds() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return true;
}

}  // namespace

// A child that runs until the session goes; its standard output goes to a
// pipe (readable through `out`) or to a file.
struct DesktopSession::Daemon {
  std::optional<ChildProcess> child;
  int out = -1;

  Daemon(const std::vector<std::string>& command, const std::optional<std::string>& outFile = std::nullopt) {
    int pipeFDs[2] = {-1, -1};
    int childOut = -1;
    if (outFile) {
      childOut = ::open(outFile->c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    } else if (::pipe2(pipeFDs, O_CLOEXEC) == 0) {
      out = pipeFDs[0];
      childOut = pipeFDs[1];
    }
    SpawnResult spawned =
        spawnProcess({command[0], {command.begin() + 1, command.end()}, std::nullopt, -1, childOut, -1});
    if (childOut >= 0) ::close(childOut);
    child = spawned.child;
  }
  ~Daemon() {
    if (child) child->terminate(2);
    if (out >= 0) ::close(out);
  }
};

std::optional<std::string> DesktopSession::unavailable() {
  for (const char* tool : kTools)
    if (!isExecutableFile(tool)) return std::string("the notice tests need ") + tool + " (not installed)";
  return std::nullopt;
}

DesktopSession::DesktopSession(const test::Scratch& scratch)
    : witnessLog_(scratch.path("notify-calls.log")),
      savedBus_(getenvString("DBUS_SESSION_BUS_ADDRESS")),
      savedDisplay_(getenvString("DISPLAY")) {
  start(scratch);
}

void DesktopSession::start(const test::Scratch& scratch) {
  // -displayfd: Xvfb picks a free display and writes its number once ready.
  auto& x = daemons_.emplace_back(
      std::make_unique<Daemon>(std::vector<std::string>{"/usr/bin/Xvfb", "-displayfd", "1", "-screen", "0",
                                                        "640x480x24", "-nolisten", "tcp"}));
  std::optional<std::string> display = x->child ? firstLine(x->out) : std::nullopt;
  if (!display) return void(failure_ = "Xvfb did not start");
  ::setenv("DISPLAY", (":" + *display).c_str(), 1);

  auto& bus = daemons_.emplace_back(std::make_unique<Daemon>(
      std::vector<std::string>{"/usr/bin/dbus-daemon", "--session", "--nofork", "--nopidfile", "--print-address=1"}));
  std::optional<std::string> address = bus->child ? firstLine(bus->out) : std::nullopt;
  if (!address) return void(failure_ = "the session bus did not start");
  ::setenv("DBUS_SESSION_BUS_ADDRESS", address->c_str(), 1);

  // Banners stay until closed, so every one posted is still listed.
  const std::string config = scratch.path("dunstrc");
  test::Scratch::write(config, "[urgency_low]\n    timeout = 0\n[urgency_normal]\n    timeout = 0\n");
  daemons_.push_back(std::make_unique<Daemon>(std::vector<std::string>{"/usr/bin/dunst", "-config", config},
                                              scratch.path("dunst.log")));
  daemons_.push_back(std::make_unique<Daemon>(
      std::vector<std::string>{"/usr/bin/dbus-monitor", "--session",
                               "type='method_call',interface='org.freedesktop.Notifications',member='Notify'"},
      witnessLog_));

  const bool serving = within(kStartSeconds, [&] {
    return runTool(scratch, "/usr/bin/dbus-send",
                   {"--session", "--print-reply", "--dest=org.freedesktop.Notifications",
                    "/org/freedesktop/Notifications", "org.freedesktop.Notifications.GetServerInformation"})
               .status == 0;
  });
  if (!serving) return void(failure_ = "dunst did not take the notification service");
  // A monitor first acquires a name of its own, then gives it up as it
  // starts to watch.
  if (!within(kStartSeconds, [&] { return test::Scratch::contents(witnessLog_).find("NameLost") != std::string::npos; }))
    failure_ = "dbus-monitor did not start watching";
}

DesktopSession::~DesktopSession() {
  while (!daemons_.empty()) daemons_.pop_back();
  restoreEnv("DBUS_SESSION_BUS_ADDRESS", savedBus_);
  restoreEnv("DISPLAY", savedDisplay_);
}

std::vector<std::string> DesktopSession::noticeTitles() const {
  // Notify's arguments, one per line: app name, replaces id, icon, summary…
  std::istringstream lines(test::Scratch::contents(witnessLog_));
  std::vector<std::string> titles;
  int stringsSinceNotify = -1;
  for (std::string line; std::getline(lines, line);) {
    if (line.find("member=Notify") != std::string::npos) {
      stringsSinceNotify = 0;
      continue;
    }
    const size_t quote = line.find("string \"");
    if (stringsSinceNotify < 0 || quote == std::string::npos || line.find_first_not_of(' ') != quote) continue;
    if (++stringsSinceNotify == 3) {
      titles.push_back(line.substr(quote + 8, line.rfind('"') - quote - 8));
      stringsSinceNotify = -1;
    }
  }
  return titles;
}

}  // namespace ac::e2e
