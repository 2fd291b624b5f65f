#include "cli/capture_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

#include "support/paths.h"

namespace ac {
namespace {

int openLockFile(const std::string& path) { return ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644); }

int tryExclusiveLock(int fd) {
  int rc;
  do {
    rc = ::flock(fd, LOCK_EX | LOCK_NB);
  } while (rc != 0 && errno == EINTR);
  return rc == 0 ? 0 : errno;
}

}  // namespace

CaptureLockState captureLockState(const std::string& path) {
  int fd = openLockFile(path);
  if (fd < 0) return CaptureLockState::error;
  int err = tryExclusiveLock(fd);
  ::close(fd);  // releases the probe's own lock
  if (err == 0) return CaptureLockState::free;
  return err == EWOULDBLOCK ? CaptureLockState::held : CaptureLockState::error;
}

int captureActiveExitStatus(CaptureLockState state) {
  switch (state) {
    case CaptureLockState::held:
      return 0;
    case CaptureLockState::free:
      return 1;
    case CaptureLockState::error:
      break;
  }
  return 2;
}

CaptureLockAcquisition acquireCaptureLock(const std::string& path) {
  const std::string refusing = " — refusing to record without a lock";
  int fd = openLockFile(path);
  if (fd < 0)
    return {-1, 74, "capture-lock: open(" + path + ") failed errno=" + std::to_string(errno) + refusing};
  int err = tryExclusiveLock(fd);
  if (err == 0) return {fd, 0, "capture-lock: acquired " + path};
  ::close(fd);
  if (err == EWOULDBLOCK) return {-1, 75, "capture-lock: another capture is already active — exiting without recording"};
  return {-1, 74, "capture-lock: flock(" + path + ") failed errno=" + std::to_string(err) + refusing};
}

bool writePidFile(const std::string& path, pid_t pid) {
  return writeFileAtomically(path, std::to_string(pid) + "\n", 0644) == 0;
}

}  // namespace ac
