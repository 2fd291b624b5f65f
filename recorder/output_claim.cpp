#include "recorder/output_claim.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "support/error.h"
#include "support/paths.h"
#include "support/unique_fd.h"

namespace ac {

OutputClaim OutputClaim::create(const std::string& path) {
  // O_EXCL fails on any existing name, a symbolic link included, without
  // following it or opening what is there.
  UniqueFd fd(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0644));
  if (!fd) {
    const int err = errno;
    if (err == EEXIST) throw CaptureError(err, "the output " + path + " already exists — refusing to overwrite it", "posix");
    throw CaptureError(err, "cannot create the output " + path + ": " + errnoText(err), "posix");
  }
  struct stat st {};
  if (::fstat(fd.get(), &st) != 0) {
    const int err = errno;
    ::unlink(path.c_str());
    throw CaptureError(err, "cannot create the output " + path + ": " + errnoText(err), "posix");
  }
  return OutputClaim(path, std::move(fd), st.st_dev, st.st_ino);
}

int OutputClaim::remove() const {
  struct stat st {};
  if (::lstat(path_.c_str(), &st) != 0) return errno == ENOENT ? 0 : errno;
  if (st.st_dev != dev_ || st.st_ino != ino_) return 0;  // not ours any more
  if (::unlink(path_.c_str()) != 0 && errno != ENOENT) return errno;
  return 0;
}

}  // namespace ac
