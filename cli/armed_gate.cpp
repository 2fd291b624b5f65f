#include "cli/armed_gate.h"

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "support/log.h"
#include "support/process_exit.h"
#include "support/text.h"

namespace ac::ArmedGate {
namespace {

std::string pending;  // bytes of the go pipe not yet forming a line
std::atomic<int> gStatusFD{-1};

std::string trimLineBreaks(std::string s) {
  while (!s.empty() && (s.back() == '\n' || s.back() == '\r')) s.pop_back();
  size_t start = s.find_first_not_of("\r\n");
  return start == std::string::npos ? std::string() : s.substr(start);
}

}  // namespace

std::string armedLine(pid_t pid) { return "armed, pid=" + std::to_string(pid) + "\n"; }
std::string readyLine(pid_t pid) { return "ready, pid=" + std::to_string(pid) + "\n"; }
std::string releasedLine(const std::string& reason) { return "released " + reason + "\n"; }

std::optional<std::string> readLine(int fd) {
  for (;;) {
    if (size_t nl = pending.find('\n'); nl != std::string::npos) {
      std::string line = pending.substr(0, nl);
      pending.erase(0, nl + 1);
      return repairedUTF8(line);
    }
    if (pending.size() >= maxLineBytes) {
      std::string line;
      line.swap(pending);
      return repairedUTF8(line);
    }
    char byte;
    ssize_t n = ::read(fd, &byte, 1);
    if (n == 1) {
      pending.push_back(byte);
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    pending.clear();  // a partial line at end of input never leaks into a later read
    return std::nullopt;
  }
}

Decision decide(const std::string& line) {
  if (line == goLine) return Decision::go();
  if (line == quitLine) return Decision::release(reasonQuit);
  return Decision::release(reasonBadLine);
}

void setStatusFD(int fd) { gStatusFD.store(fd); }

bool writeStatusLine(const std::string& line) {
  int fd = gStatusFD.load();
  if (fd < 0) return false;
  errno = 0;  // a short write leaves errno alone; do not report a stale one
  ssize_t n = ::write(fd, line.data(), line.size());
  if (n == static_cast<ssize_t>(line.size())) return true;
  int err = errno;
  log("armed: status write '" + trimLineBreaks(line) + "' incomplete (" + std::to_string(n < 0 ? -1 : n) + " of " +
      std::to_string(line.size()) + " bytes, errno=" + std::to_string(err) + ")");
  return false;
}

void requireFIFO(int fd, const std::string& path, const std::string& label, const std::function<void()>& discard) {
  struct stat st {};
  if (::fstat(fd, &st) != 0) {
    log("armed: cannot fstat the " + label + " path " + path + " (errno=" + std::to_string(errno) +
        ") — refusing to arm");
  } else if (!S_ISFIFO(st.st_mode)) {
    log("armed: " + label + " path " + path + " is not a FIFO — refusing to arm");
  } else {
    return;
  }
  if (discard) discard();
  exitProcess(74);
}

}  // namespace ac::ArmedGate
