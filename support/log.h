// Diagnostic lines and machine-read answers.
//
// log() writes "[<UTC ISO 8601>] <message>\n" to standard error and, once a
// log file is set, the same bytes to it, each destination in one write(2) so
// lines from different threads never interleave within a line. It takes no
// lock and never fails visibly; it is not meant for real-time threads except
// at the rate the callers limit themselves to.
//
// emit() prints one bare line on standard output and flushes it: only for
// answers a caller parses ("pid=", device names, status words).
#pragma once

#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>

namespace ac {

void log(std::string_view message);
void emit(std::string_view line);

// The descriptor log() copies every line to; -1 for none. The caller keeps it
// open for the life of the process.
void setLogFileDescriptor(int fd);
int logFileDescriptor();

// Opens path (already tilde-expanded) as the log file: write-only, created
// 0644, truncated so each recording starts a fresh log, in append mode so
// lines from different threads never overwrite each other. On failure logs
// "log file unavailable (<error>) — logging to stderr only: <path>" and
// returns false; later lines reach standard error only. The descriptor stays
// open for the life of the process.
bool openLogFile(const std::string& path);

// "2026-03-05T14:07:09Z" for the given time.
std::string iso8601UTC(std::time_t t);

// Lines that count failures are logged while the count is below 11 and then
// at every multiple of 200.
inline bool shouldLogFailureCount(int64_t n) { return n < 11 || n % 200 == 0; }

// A double as the diagnostics print rates: "48000.0", "44100.5", "nan".
std::string formatDouble(double v);
// A float as the shortest decimal that reads back as the same float, printed
// like formatDouble ("0.1", "1.0"), for sample levels.
std::string formatFloat(float v);

// Writes "notify: ..." style lines straight to standard error in one write.
void writeStderr(std::string_view text);

}  // namespace ac
