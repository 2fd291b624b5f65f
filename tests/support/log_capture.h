// The log lines written while a LogCapture lives, without their time
// stamps: it takes over the log file descriptor and gives the previous one
// back when destroyed. Captures nest; the innermost one gets the lines.
#pragma once

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "support/log.h"

namespace ac::test {

class LogCapture {
 public:
  // An unlinked temporary file: portable where memfd_create is not.
  LogCapture() : file_(std::tmpfile()), previous_(logFileDescriptor()) { setLogFileDescriptor(::fileno(file_)); }
  ~LogCapture() {
    setLogFileDescriptor(previous_);
    std::fclose(file_);
  }
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::vector<std::string> lines() const {
    std::string all;
    char buf[4096];
    const int fd = ::fileno(file_);
    for (ssize_t n, at = 0; (n = ::pread(fd, buf, sizeof buf, at)) > 0; at += n) all.append(buf, size_t(n));
    std::vector<std::string> out;
    for (size_t start = 0, nl; (nl = all.find('\n', start)) != std::string::npos; start = nl + 1) {
      const std::string line = all.substr(start, nl - start);
      const size_t body = line.find("] ");
      out.push_back(body == std::string::npos ? line : line.substr(body + 2));
    }
    return out;
  }
  size_t count(const std::string& line) const {
    const auto all = lines();
    return size_t(std::count(all.begin(), all.end(), line));
  }
  bool has(const std::string& line) const { return count(line) > 0; }
  // The lines that start with `prefix`, in order.
  std::vector<std::string> matching(const std::string& prefix) const {
    std::vector<std::string> out;
    for (const auto& l : lines())
      if (l.rfind(prefix, 0) == 0) out.push_back(l);
    return out;
  }

 private:
  std::FILE* file_;
  int previous_;
};

}  // namespace ac::test
