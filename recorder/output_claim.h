// The output file as this launch created it. The recorder never destroys
// data that was there before it: the path must name nothing at all (not a
// file, a directory, a FIFO, a device or a symbolic link, even a dangling
// one), and only the file created here is ever removed again.
#pragma once

#include <sys/types.h>

#include <string>

#include "support/unique_fd.h"

namespace ac {

class OutputClaim {
 public:
  // Creates an empty file at path exclusively. Throws CaptureError naming the
  // path when anything is already there or the file cannot be created.
  // Never blocks (a FIFO at the path is refused, not opened).
  static OutputClaim create(const std::string& path);

  // Unlinks path if it still names the file created here (the writer only
  // ever writes into it). 0, or the errno of a failed unlink; a path that is
  // gone or now names something else counts as done.
  int remove() const;

 private:
  OutputClaim(std::string path, UniqueFd fd, dev_t dev, ino_t ino)
      : path_(std::move(path)), fd_(std::move(fd)), dev_(dev), ino_(ino) {}

  std::string path_;
  // Held open for the claim's life: while it is, the file's inode cannot be
  // reused, so a file someone else puts at the path never looks like ours.
  UniqueFd fd_;
  dev_t dev_;
  ino_t ino_;
};

}  // namespace ac
