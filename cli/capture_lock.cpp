#include "cli/capture_lock.h"

#include "support/state_file.h"

namespace ac {

CaptureLockState captureLockState(const std::string& path) {
  // The probe's own lock goes with the descriptor at the end of this call.
  switch (tryLockFile(path, 0644).outcome) {
    case FileLock::Outcome::held:
      return CaptureLockState::free;
    case FileLock::Outcome::busy:
      return CaptureLockState::held;
    case FileLock::Outcome::openFailed:
    case FileLock::Outcome::lockFailed:
      break;
  }
  return CaptureLockState::error;
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
  FileLock lock = tryLockFile(path, 0644);
  const std::string err = std::to_string(lock.err);
  switch (lock.outcome) {
    case FileLock::Outcome::held:
      return {lock.fd.release(), 0, "capture-lock: acquired " + path};
    case FileLock::Outcome::busy:
      return {-1, 75, "capture-lock: another capture is already active — exiting without recording"};
    case FileLock::Outcome::openFailed:
      return {-1, 74, "capture-lock: open(" + path + ") failed errno=" + err + refusing};
    case FileLock::Outcome::lockFailed:
      break;
  }
  return {-1, 74, "capture-lock: flock(" + path + ") failed errno=" + err + refusing};
}

bool writePidFile(const std::string& path, pid_t pid) {
  return writeFileAtomically(path, std::to_string(pid) + "\n", 0644) == 0;
}

}  // namespace ac
