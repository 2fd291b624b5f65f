#include "notify/state_dir.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "support/paths.h"

namespace ac::notify {

std::string notifAuthStateDir() { return homeDirectory() + "/.local/state/vela"; }

void secureStateDir(const std::string& path) {
  std::error_code ec;
  std::filesystem::create_directories(path, ec);
  tightenDirectoryPermissions(path);
}

void tightenDirectoryPermissions(const std::string& path) {
  // O_NOFOLLOW refuses a symbolic link at the path itself, so a link planted
  // there never redirects the chmod to someone else's directory.
  int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_DIRECTORY);
  if (fd < 0) return;
  struct stat st {};
  if (::fstat(fd, &st) == 0 && S_ISDIR(st.st_mode) && (st.st_mode & 077) != 0) {
    ::fchmod(fd, st.st_mode & 07700);
  }
  ::close(fd);
}

}  // namespace ac::notify
