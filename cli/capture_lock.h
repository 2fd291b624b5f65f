// The capture lock (one full recording per machine) and the pid file.
//
// The lock is an exclusive flock on a file the caller names; the recording
// process keeps the descriptor open for its whole life and never unlocks it,
// so the lock dies with the process however it ends. The lock file itself is
// created empty and never written, truncated or removed.
#pragma once

#include <string>
#include <sys/types.h>

namespace ac {

enum class CaptureLockState { held, free, error };

// Probes without keeping the lock (the probe itself holds it for an
// instant). path: already tilde-expanded.
CaptureLockState captureLockState(const std::string& path);

// --capture-active's exit status: held 0 (a capture is active), free 1,
// error 2.
int captureActiveExitStatus(CaptureLockState state);

struct CaptureLockAcquisition {
  int fd = -1;          // holds the lock on success; never closed
  int exitStatus = 0;   // 0 on success, else 74 (unusable) or 75 (contention)
  std::string logLine;  // the one line to log either way
};

// Takes the lock for a recording. path: already tilde-expanded.
CaptureLockAcquisition acquireCaptureLock(const std::string& path);

// Writes "<pid>\n" atomically. path: already tilde-expanded. False on
// failure, which the caller ignores.
bool writePidFile(const std::string& path, pid_t pid);

}  // namespace ac
