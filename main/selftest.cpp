// Built-in consistency checks, one "ok   - " or "FAIL - " line each; exit 0
// only when every check passed. They exercise the real code paths on this
// machine without recording anything.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "capture/tap_buffer_selection.h"
#include "cli/armed_gate.h"
#include "cli/armed_phase.h"
#include "cli/device_queries.h"
#include "main/modes.h"
#include "notify/notify_modes.h"
#include "platform/audio_types.h"
#include "platform/mic_capture.h"
#include "recorder/level_file.h"
#include "support/process_exit.h"

namespace ac::entry {
namespace {

using Check = std::pair<std::string, std::function<bool()>>;

std::vector<Check> armedChecks() {
  using ArmedGate::decide;
  using ArmedGate::Decision;
  return {
      {"go line starts", [] { return decide("go") == Decision::go(); }},
      {"quit line releases with quit", [] { return decide("quit") == Decision::release("quit"); }},
      {"empty, CR-ended and upper-case lines are bad lines",
       [] {
         return decide("") == Decision::release("bad-line") && decide("go\r") == Decision::release("bad-line") &&
                decide("GO") == Decision::release("bad-line");
       }},
      {"status lines",
       [] {
         return ArmedGate::armedLine(4242) == "armed, pid=4242\n" &&
                ArmedGate::readyLine(4242) == "ready, pid=4242\n" &&
                ArmedGate::releasedLine("sigterm") == "released sigterm\n";
       }},
      {"two lines in one write are read one per call",
       [] {
         int fds[2];
         if (::pipe(fds) != 0) return false;
         bool ok = ::write(fds[1], "go\nquit\n", 8) == 8 && ArmedGate::readLine(fds[0]) == "go" &&
                   ArmedGate::readLine(fds[0]) == "quit";
         ::close(fds[1]);
         ok = ok && !ArmedGate::readLine(fds[0]);
         ::close(fds[0]);
         return ok;
       }},
      {"a signal while starting is deferred until running",
       [] {
         ArmedPhase phase;
         return phase.tryBeginStart() && phase.signalAction() == ArmedPhase::SignalAction::deferUntilRunning &&
                phase.markRunning() && phase.signalAction() == ArmedPhase::SignalAction::stopNow;
       }},
      {"a signal while armed wins over go",
       [] {
         ArmedPhase phase;
         return phase.signalAction() == ArmedPhase::SignalAction::release && !phase.tryBeginStart() &&
                !phase.tryBeginRelease();
       }},
  };
}

std::string levelRecord(const char* digits) {
  std::string r = std::string("vela-level ") + digits;
  r.resize(MicLevelFile::recordWidth - 1, ' ');
  return r + "\n";
}

std::vector<Check> levelChecks() {
  return {
      {"record of 0.5 is 32 bytes", [] { return MicLevelFile::record(0.5f) == levelRecord("0.500000"); }},
      {"levels clamp to 0...1 and NaN reads as 0",
       [] {
         return MicLevelFile::record(1.7f) == levelRecord("1.000000") &&
                MicLevelFile::record(-0.3f) == levelRecord("0.000000") &&
                MicLevelFile::record(std::nanf("")) == levelRecord("0.000000");
       }},
      {"offers publish at most once per interval and the file stays 32 bytes",
       [] {
         char path[] = "/tmp/audio-capture-selftest-level-XXXXXX";
         int fd = ::mkstemp(path);
         if (fd < 0) return false;
         ::close(fd);
         bool ok = false;
         if (auto file = MicLevelFile::open(path, 0.05)) {
           ok = file->offer(0.5f, 100.0) && !file->offer(0.9f, 100.01) && file->offer(0.1f, 100.06);
           struct stat st {};
           ok = ok && ::stat(path, &st) == 0 && st.st_size == 32;
         }
         ::unlink(path);
         return ok;
       }},
  };
}

std::vector<Check> micFormatChecks() {
  return {
      {"capture asks for 48 kHz mono 32-bit float interleaved PCM",
       [] {
         platform::CaptureAudioSettings s;
         return s.formatID == platform::kAudioFormatLinearPCM && s.sampleRate == 48000 && s.channels == 1 &&
                s.bitDepth == 32 && s.isFloat && !s.isBigEndian && !s.isNonInterleaved;
       }},
      {"mono float frames are 4 bytes",
       [] {
         auto f = platform::floatPCMFormat(48000, 1);
         return f.bytesPerFrame == 4 && f.bytesPerPacket == 4 && f.framesPerPacket == 1 &&
                (f.formatFlags & platform::kAudioFormatFlagIsFloat) != 0;
       }},
  };
}

std::vector<Check> topologyChecks() {
  using capture::TapBufferRange;
  using capture::TapBufferSelect;
  return {
      {"a measured sub-device puts the tap after its buffers",
       [] {
         const uint32_t channels[] = {2, 2};
         return capture::tapBufferRange(channels, 1, 2, true) == TapBufferRange{1, 1, TapBufferSelect::probe};
       }},
      {"without a measurement the shortest verifying trailing run is the tap",
       [] {
         const uint32_t channels[] = {2, 1, 1};
         return capture::tapBufferRange(channels, std::nullopt, 2, false) ==
                TapBufferRange{1, 2, TapBufferSelect::channelMatch};
       }},
      {"a list that cannot hold the tap stays undetermined",
       [] {
         const uint32_t channels[] = {1};
         return capture::tapBufferRange(channels, std::nullopt, 2, true).select == TapBufferSelect::undetermined;
       }},
      {"buffer lists use the 8-byte header and 16-byte entries",
       [] { return platform::audioBufferListBytes(1) == 24 && platform::audioBufferListBytes(3) == 56; }},
      {"output names sort case-insensitively, ties stable",
       [] {
         std::vector<std::string> names = {"speaker", "Headset", "headset", "Built-in"};
         sortDeviceNames(names);
         return names == std::vector<std::string>{"Built-in", "Headset", "headset", "speaker"};
       }},
  };
}

std::vector<Check> notifyRoutingChecks() {
  return {
      {"the recordings token is accepted", [] { return !notify::clickTokenRefusal("vela-app:recordings"); }},
      {"a relative note path is refused", [] { return notify::clickTokenRefusal("notes/call.md").has_value(); }},
      {"an unknown app token is refused", [] { return notify::clickTokenRefusal("vela-app:format-disk").has_value(); }},
  };
}

}  // namespace

void runSelftest(Mode mode) {
  std::vector<Check> checks;
  switch (mode) {
    case Mode::selftestArmed:
      checks = armedChecks();
      break;
    case Mode::selftestLevel:
      checks = levelChecks();
      break;
    case Mode::selftestMicFormat:
      checks = micFormatChecks();
      break;
    case Mode::selftestNotifyRouting:
      checks = notifyRoutingChecks();
      break;
    default:
      checks = topologyChecks();
      break;
  }
  bool allPassed = true;
  for (const auto& [name, run] : checks) {
    bool passed = run();
    allPassed = allPassed && passed;
    std::printf("%s - %s\n", passed ? "ok  " : "FAIL", name.c_str());
  }
  exitProcess(allPassed ? 0 : 1);
}

}  // namespace ac::entry
