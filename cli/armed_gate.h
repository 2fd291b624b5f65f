// The armed quick-note handshake: the lines exchanged on the go pipe (read)
// and the status pipe (written), the go-pipe line reader and the decision
// taken on each line.
//
// Threads: readLine keeps process-wide state (`pending`) and is called by one
// thread at a time (the main thread while armed, then the owner watch).
// writeStatusLine may be called from any thread.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <sys/types.h>

namespace ac::ArmedGate {

inline constexpr const char* goLine = "go";
inline constexpr const char* quitLine = "quit";

inline constexpr const char* reasonEOF = "eof";
inline constexpr const char* reasonQuit = "quit";
inline constexpr const char* reasonBadLine = "bad-line";
inline constexpr const char* reasonInputDeviceChanged = "input-device-changed";
inline constexpr const char* reasonDeviceDisconnected = "device-disconnected";
inline constexpr const char* reasonSigterm = "sigterm";
inline constexpr const char* reasonStartFailed = "start-failed";

// A line's text is at most maxLineBytes - 1 bytes; longer input is cut here
// and handed on as a (refused) line.
inline constexpr size_t maxLineBytes = 256;

struct Decision {
  enum class Kind { release, go };
  Kind kind = Kind::release;
  std::string reason;  // set for release

  static Decision go() { return {Kind::go, ""}; }
  static Decision release(std::string reason) { return {Kind::release, std::move(reason)}; }
  bool operator==(const Decision&) const = default;
};

std::string armedLine(pid_t pid);     // "armed, pid=<pid>\n"
std::string readyLine(pid_t pid);     // "ready, pid=<pid>\n"
std::string releasedLine(const std::string& reason);  // "released <reason>\n"

// The next complete line (without its "\n", invalid UTF-8 replaced), or
// nothing at end of input or on a read error. Reads one byte at a time so
// nothing beyond the current line leaves the pipe; a partial line at end of
// input is dropped.
std::optional<std::string> readLine(int fd);

// Exact matches only: "go" goes, "quit" releases with "quit", anything else
// releases with "bad-line".
Decision decide(const std::string& line);

// The status pipe's write end; -1 when not open (never opened, or closed
// after "ready").
void setStatusFD(int fd);

// One write of the whole line on the status pipe. False (after one log line
// when a write was attempted) when the pipe is closed or the write fell short.
bool writeStatusLine(const std::string& line);

// Returns when fd is a FIFO. Otherwise logs why, calls discard and ends the
// process with status 74. label: "status" or "go".
void requireFIFO(int fd, const std::string& path, const std::string& label, const std::function<void()>& discard);

}  // namespace ac::ArmedGate
