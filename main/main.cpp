// The executable's entry: one mode per launch, chosen from the arguments
// before anything is opened.
#include <string>
#include <vector>

#include "cli/mode_selection.h"
#include "main/modes.h"
#include "main/stop_signals.h"
#include "notify/notify_modes.h"
#include "platform/platform.h"

int main(int argc, char** argv) {
  using namespace ac;
  entry::ignoreBrokenPipes();
  std::vector<std::string> args(argv + 1, argv + argc);
  const Mode mode = selectMode(args);
  // Held since load so that no signal meets the default action while a
  // recording is being set up; every other mode lets them go now.
  entry::releaseUnlessRecording(mode == Mode::record);

  // Lives until the process exits; seams connect to their services lazily,
  // so modes that never touch audio never reach for the sound server.
  platform::setCurrent(platform::makePlatform().release());

  const std::vector<std::string> rest(args.empty() ? args.end() : args.begin() + 1, args.end());
  switch (mode) {
    case Mode::currentOutput:
    case Mode::listOutputs:
      entry::runDeviceQuery(mode);
    case Mode::captureActive:
      entry::runCaptureActive(rest);
    case Mode::selftestTopology:
    case Mode::selftestLevel:
    case Mode::selftestArmed:
    case Mode::selftestMicFormat:
    case Mode::selftestNotifyRouting:
      entry::runSelftest(mode);
    case Mode::requestNotifAuth:
      notify::runRequestNotifAuth();
    case Mode::notifAuthStatus:
      notify::runNotifAuthStatus();
    case Mode::notify:
      entry::runNotifyMode(rest);
    case Mode::withdrawMeetingPrompt:
      entry::runWithdrawMode(rest);
    case Mode::coldRoute:
      notify::runNotifyColdRoute();
    case Mode::record:
      break;
  }
  entry::runRecordingMode(args);
}
