// MicLevelFile: publishes the loudest recent microphone sample as one
// fixed-width 32-byte text record, rewritten in place at most every
// `interval` seconds, for a meter in another process to poll.
//
// Thread contract: offer() is called from one queue only (the mic write
// queue); the object has no lock. It never blocks, never grows the file.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "support/dispatch.h"

namespace ac {

class MicLevelFile {
 public:
  static constexpr size_t recordWidth = 32;
  static constexpr const char* tag = "vela-level";

  // Null when the path cannot be used (missing directory, FIFO, symbolic
  // link, directory, device, truncation failure).
  static std::unique_ptr<MicLevelFile> open(const std::string& path, double interval);
  ~MicLevelFile();

  // Feeds one peak sample at time `now` (seconds); true when this call wrote
  // a record.
  bool offer(float sample, double now = wallSeconds());

  // The 32-byte record for a level, clamped as published.
  static std::string record(float level);

 private:
  MicLevelFile(int fd, double interval) : fd_(fd), interval_(interval) {}
  bool publish(float level);

  int fd_;
  double interval_;
  float pending_ = 0;
  std::optional<double> lastWrite_;
};

}  // namespace ac
