#include "recorder/level_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>

#include "support/paths.h"

namespace ac {

std::unique_ptr<MicLevelFile> MicLevelFile::open(const std::string& path, double interval) {
  const std::string expanded = expandTilde(path);
  // Non-blocking so a FIFO planted at the path cannot stall the recorder
  // here; no-follow so a link never redirects the truncation below.
  int fd = ::open(expanded.c_str(), O_WRONLY | O_CREAT | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (fd < 0) return nullptr;
  struct stat st {};
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || ::ftruncate(fd, 0) != 0) {
    ::close(fd);
    return nullptr;
  }
  return std::unique_ptr<MicLevelFile>(new MicLevelFile(fd, interval));
}

MicLevelFile::~MicLevelFile() {
  if (fd_ >= 0) ::close(fd_);
}

bool MicLevelFile::offer(float sample, double now) {
  if (pending_ < sample) pending_ = sample;
  // A clock that went backwards publishes at once and re-anchors the window,
  // rather than waiting out a window that may never close.
  if (lastWrite_ && *lastWrite_ <= now && now - *lastWrite_ < interval_) return false;
  lastWrite_ = now;
  const float peak = pending_;
  pending_ = 0;
  if (publish(peak)) return true;
  pending_ = std::max(pending_, peak);
  return false;
}

std::string MicLevelFile::record(float level) {
  // A non-finite reading is a broken one, not full scale.
  if (!std::isfinite(level)) level = 0;
  level = std::clamp(level, 0.0f, 1.0f);
  std::string out = tag;
  out += ' ';
  char digits[32];
  // to_chars ignores the process locale, so the separator is always '.'.
  auto res = std::to_chars(digits, digits + sizeof digits, static_cast<double>(level), std::chars_format::fixed, 6);
  out.append(digits, res.ptr);
  out.resize(recordWidth - 1, ' ');
  out += '\n';
  return out;
}

bool MicLevelFile::publish(float level) {
  const std::string rec = record(level);
  size_t written = 0;
  while (written < rec.size()) {
    ssize_t n = ::pwrite(fd_, rec.data() + written, rec.size() - written, static_cast<off_t>(written));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    written += static_cast<size_t>(n);
  }
  return written == rec.size();
}

}  // namespace ac
