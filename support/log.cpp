#include "support/log.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

#include "support/paths.h"

namespace ac {
namespace {

std::atomic<int> gLogFD{-1};

void writeAll(int fd, const char* data, size_t size) {
  // One write call per destination; a short write is not retried because a
  // retried tail could interleave with another thread's line.
  ssize_t rc;
  do {
    rc = ::write(fd, data, size);
  } while (rc < 0 && errno == EINTR);
}

}  // namespace

std::string iso8601UTC(std::time_t t) {
  std::tm tm{};
  gmtime_r(&t, &tm);
  char buf[32];
  std::strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%SZ", &tm);
  return buf;
}

void log(std::string_view message) {
  std::string line;
  line.reserve(message.size() + 24);
  line += '[';
  line += iso8601UTC(std::time(nullptr));
  line += "] ";
  line += message;
  line += '\n';
  writeAll(STDERR_FILENO, line.data(), line.size());
  int fd = gLogFD.load(std::memory_order_acquire);
  if (fd >= 0) writeAll(fd, line.data(), line.size());
}

void emit(std::string_view line) {
  std::fwrite(line.data(), 1, line.size(), stdout);
  std::fputc('\n', stdout);
  std::fflush(stdout);
}

void setLogFileDescriptor(int fd) { gLogFD.store(fd, std::memory_order_release); }
int logFileDescriptor() { return gLogFD.load(std::memory_order_acquire); }

bool openLogFile(const std::string& path) {
  // Non-blocking only for the open: a FIFO without a reader at the path must
  // not hold up the recording (it fails with ENXIO and logging falls back).
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_NONBLOCK | O_CLOEXEC, 0644);
  if (fd >= 0) ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) & ~O_NONBLOCK);
  if (fd < 0) {
    log("log file unavailable (" + errnoText(errno) + ") — logging to stderr only: " + path);
    return false;
  }
  setLogFileDescriptor(fd);
  return true;
}

void writeStderr(std::string_view text) { writeAll(STDERR_FILENO, text.data(), text.size()); }

std::string formatDouble(double v) {
  // Shortest round-trip rendering with at least one fractional digit, the way
  // the log readers expect rates ("48000.0", "44100.5").
  if (std::isnan(v)) return "nan";
  if (std::isinf(v)) return v > 0 ? "inf" : "-inf";
  char buf[400];
  double mag = std::fabs(v);
  if (mag == 0 || (mag >= 1e-4 && mag < 1e16)) {
    for (int decimals = 1; decimals <= 20; ++decimals) {
      std::snprintf(buf, sizeof buf, "%.*f", decimals, v);
      if (std::strtod(buf, nullptr) == v) return buf;
    }
  }
  for (int precision = 1; precision <= 17; ++precision) {
    std::snprintf(buf, sizeof buf, "%.*g", precision, v);
    if (std::strtod(buf, nullptr) == v) break;
  }
  return buf;
}

std::string formatFloat(float v) {
  if (!std::isfinite(v)) return formatDouble(v);
  char buf[32];
  for (int precision = 1; precision <= 9; ++precision) {
    std::snprintf(buf, sizeof buf, "%.*g", precision, double(v));
    if (std::strtof(buf, nullptr) == v) break;
  }
  return formatDouble(std::strtod(buf, nullptr));
}

}  // namespace ac
