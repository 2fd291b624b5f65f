#include "e2e_recovery/log_lines.h"

#include <algorithm>
#include <chrono>
#include <sstream>
#include <thread>

#include "support/dispatch.h"

namespace ac::e2e {

std::vector<std::string> logLines(const std::string& log) {
  std::vector<std::string> lines;
  std::istringstream in(log);
  for (std::string line; std::getline(in, line);) {
    const size_t close = line.find("] ");
    lines.push_back(line.rfind('[', 0) == 0 && close != std::string::npos ? line.substr(close + 2) : line);
  }
  return lines;
}

size_t countLines(const std::string& log, const std::string& line) {
  const std::vector<std::string> lines = logLines(log);
  return size_t(std::count(lines.begin(), lines.end(), line));
}

size_t countPrefixed(const std::string& log, const std::string& prefix) {
  const std::vector<std::string> lines = logLines(log);
  return size_t(std::count_if(lines.begin(), lines.end(), [&](const std::string& l) { return l.rfind(prefix, 0) == 0; }));
}

std::string firstPrefixed(const std::string& log, const std::string& prefix) {
  for (const std::string& l : logLines(log))
    if (l.rfind(prefix, 0) == 0) return l;
  return {};
}

bool waitForLine(const Recording& recording, const std::string& line, double timeoutSeconds) {
  for (const double deadline = monotonicSeconds() + timeoutSeconds; countLines(recording.log(), line) == 0;) {
    if (monotonicSeconds() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

bool inOrder(const std::string& log, const std::vector<std::string>& wanted) {
  const std::vector<std::string> lines = logLines(log);
  auto at = lines.begin();
  for (const std::string& w : wanted) {
    at = std::find(at, lines.end(), w);
    if (at == lines.end()) return false;
    ++at;
  }
  return true;
}

}  // namespace ac::e2e
