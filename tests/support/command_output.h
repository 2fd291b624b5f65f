// A shell command's standard output, for tests that ask command-line tools
// (pactl, ffprobe, ffmpeg) about the world.
#pragma once

#include <stdio.h>

#include <string>

namespace ac::test {

// Runs `command` through /bin/sh and waits for it; `status` gets pclose's
// status (-1 when the shell could not start).
inline std::string commandOutput(const std::string& command, int* status = nullptr) {
  std::string out;
  FILE* p = ::popen(command.c_str(), "r");
  char buf[65536];
  for (size_t n; p && (n = fread(buf, 1, sizeof buf, p)) > 0;) out.append(buf, n);
  const int rc = p ? ::pclose(p) : -1;
  if (status) *status = rc;
  return out;
}

}  // namespace ac::test
