// The modes the entry dispatches to. Each ends the process itself.
#pragma once

#include <string>
#include <vector>

#include "cli/mode_selection.h"

namespace ac::entry {

// args: the process arguments after the executable path.
[[noreturn]] void runDeviceQuery(Mode mode);
[[noreturn]] void runCaptureActive(const std::vector<std::string>& args);
[[noreturn]] void runNotifyMode(const std::vector<std::string>& args);
[[noreturn]] void runWithdrawMode(const std::vector<std::string>& args);
[[noreturn]] void runSelftest(Mode mode);
[[noreturn]] void runRecordingMode(const std::vector<std::string>& args);

}  // namespace ac::entry
