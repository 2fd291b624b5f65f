#include "e2e_recovery/armed_owner.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "support/dispatch.h"

namespace ac::e2e {

ArmedOwner::ArmedOwner(const test::Scratch& scratch) : goPath(scratch.path("go")), statusPath(scratch.path("status")) {
  ::mkfifo(goPath.c_str(), 0600);
  ::mkfifo(statusPath.c_str(), 0600);
  statusFD_ = ::open(statusPath.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  goFD_ = ::open(goPath.c_str(), O_RDWR | O_CLOEXEC);  // needs no reader yet
}

ArmedOwner::~ArmedOwner() {
  closeGo();
  if (statusFD_ >= 0) ::close(statusFD_);
  ::unlink(goPath.c_str());
  ::unlink(statusPath.c_str());
}

std::vector<std::string> ArmedOwner::armedArgs() const {
  return {"--armed", "--go-fifo", goPath, "--status-fifo", statusPath};
}

void ArmedOwner::send(const std::string& bytes) {
  if (goFD_ >= 0) (void)!::write(goFD_, bytes.data(), bytes.size());
}

void ArmedOwner::closeGo() {
  if (goFD_ >= 0) ::close(goFD_);
  goFD_ = -1;
}

std::optional<std::string> ArmedOwner::nextLine(double timeoutSeconds) {
  const double deadline = monotonicSeconds() + timeoutSeconds;
  for (;;) {
    if (size_t nl = pending_.find('\n'); nl != std::string::npos) {
      std::string line = pending_.substr(0, nl);
      pending_.erase(0, nl + 1);
      return line;
    }
    const double left = deadline - monotonicSeconds();
    if (left <= 0) return std::nullopt;
    struct pollfd p {statusFD_, POLLIN, 0};
    if (::poll(&p, 1, static_cast<int>(left * 1000) + 1) < 0 && errno != EINTR) return std::nullopt;
    char chunk[256];
    const ssize_t n = ::read(statusFD_, chunk, sizeof chunk);
    if (n > 0) {
      pending_.append(chunk, size_t(n));
    } else if (n == 0 && (p.revents & POLLHUP)) {
      // Before the recorder opened its end there is no writer yet either:
      // wait for one a little instead of spinning.
      ::usleep(5000);
    }
  }
}

}  // namespace ac::e2e
