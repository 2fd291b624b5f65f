#include "notify/bounded_read.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace ac::notify {

std::optional<std::string> readFilePrefix(const std::string& path, std::size_t maxBytes) {
  int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  struct stat st {};
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    ::close(fd);
    return std::nullopt;
  }
  std::string data;
  char buf[16384];
  while (data.size() < maxBytes) {
    std::size_t want = std::min(sizeof buf, maxBytes - data.size());
    ssize_t n = ::read(fd, buf, want);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      ::close(fd);
      return std::nullopt;
    }
    if (n == 0) break;
    data.append(buf, static_cast<std::size_t>(n));
  }
  ::close(fd);
  return data;
}

std::optional<std::string> readBoundedFile(const std::string& path, std::size_t limit) {
  auto data = readFilePrefix(path, limit + 1);
  if (!data || data->size() > limit) return std::nullopt;
  return data;
}

}  // namespace ac::notify
