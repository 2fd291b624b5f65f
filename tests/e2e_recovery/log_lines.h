// Reading a recorder's log the way the recovery tests check it: lines
// without their "[<time>] " stamps, counted exactly, waited for.
#pragma once

#include <string>
#include <vector>

#include "e2e_recording/e2e_harness.h"

namespace ac::e2e {

std::vector<std::string> logLines(const std::string& log);
// How many lines are exactly `line`.
size_t countLines(const std::string& log, const std::string& line);
// How many lines begin with `prefix`.
size_t countPrefixed(const std::string& log, const std::string& prefix);
// The first line beginning with `prefix`; empty when there is none.
std::string firstPrefixed(const std::string& log, const std::string& prefix);
// Waits until the recording's log holds `line` exactly; false on time-out.
bool waitForLine(const Recording& recording, const std::string& line, double timeoutSeconds = 10);
// Whether `lines` appear in the log in this order (others may come between).
bool inOrder(const std::string& log, const std::vector<std::string>& lines);

}  // namespace ac::e2e
