// The owner's side of an armed launch: both FIFOs made in a scratch
// directory, the go pipe held open for writing and the status pipe for
// reading, as the companion application holds them.
//
// Both descriptors are close-on-exec, so a launched recorder never inherits
// a writer of its own go pipe. One thread at a time.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "main/exe_runner.h"

namespace ac::e2e {

class ArmedOwner {
 public:
  explicit ArmedOwner(const test::Scratch& scratch);
  ~ArmedOwner();
  ArmedOwner(const ArmedOwner&) = delete;
  ArmedOwner& operator=(const ArmedOwner&) = delete;

  // The recorder's arguments naming both pipes.
  std::vector<std::string> armedArgs() const;

  void send(const std::string& bytes);
  // The owner leaving: the recorder's next read of the go pipe ends.
  void closeGo();
  // The next status line without its "\n"; nothing when none is complete
  // within timeoutSeconds.
  std::optional<std::string> nextLine(double timeoutSeconds = 15);

  const std::string goPath, statusPath;

 private:
  int goFD_ = -1, statusFD_ = -1;
  std::string pending_;
};

}  // namespace ac::e2e
