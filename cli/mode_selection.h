// Which face of the executable a launch shows. Pure: decided from the
// arguments alone, before anything is opened.
#pragma once

#include <string>
#include <vector>

namespace ac {

enum class Mode {
  currentOutput,
  listOutputs,
  captureActive,
  selftestTopology,
  selftestLevel,
  selftestArmed,
  selftestMicFormat,
  requestNotifAuth,
  notifAuthStatus,
  notify,
  withdrawMeetingPrompt,
  selftestNotifyRouting,
  coldRoute,
  record,
};

// args: the process arguments after the executable path. The device queries
// win from any position (--current-output over --list-outputs); the other
// modes are named by the first argument; a bare launch, or one carrying only
// the system's "-psn_" arguments, is a cold click route; anything else is a
// recording.
Mode selectMode(const std::vector<std::string>& args);

}  // namespace ac
