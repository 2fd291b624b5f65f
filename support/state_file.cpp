#include "support/state_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <random>
#include <thread>

#include <nlohmann/json.hpp>

#include "support/dispatch.h"

namespace ac {
namespace {

// O_NONBLOCK: opening a FIFO for reading would otherwise wait for a writer.
UniqueFd openRegularForReading(const std::string& path, FollowLinks follow, int& err) {
  int flags = O_RDONLY | O_NONBLOCK | O_CLOEXEC | (follow == FollowLinks::no ? O_NOFOLLOW : 0);
  UniqueFd fd(::open(path.c_str(), flags));
  if (!fd) {
    err = errno;
    return fd;
  }
  struct stat st {};
  if (::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode)) {
    err = EINVAL;
    fd.reset();
  }
  return fd;
}

// Up to maxBytes; false on a read error.
bool readUpTo(int fd, std::size_t maxBytes, std::string& out) {
  char buf[16384];
  while (out.size() < maxBytes) {
    ssize_t n = ::read(fd, buf, std::min(sizeof buf, maxBytes - out.size()));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    if (n == 0) break;
    out.append(buf, static_cast<std::size_t>(n));
  }
  return true;
}

std::string directoryOf(const std::string& path) {
  std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

int retryingFlock(int fd) {
  while (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
    if (errno != EINTR) return errno;
  }
  return 0;
}

}  // namespace

StateFileRead readStateFile(const std::string& path, std::size_t limit, FollowLinks follow) {
  int err = 0;
  UniqueFd fd = openRegularForReading(path, follow, err);
  if (!fd) return {err == ENOENT ? StateFileRead::Status::missing : StateFileRead::Status::unusable, {}};
  StateFileRead result{StateFileRead::Status::usable, {}};
  if (!readUpTo(fd.get(), limit + 1, result.data) || result.data.size() > limit) return {StateFileRead::Status::unusable, {}};
  return result;
}

std::optional<std::string> readFilePrefix(const std::string& path, std::size_t maxBytes, FollowLinks follow) {
  int err = 0;
  UniqueFd fd = openRegularForReading(path, follow, err);
  std::string data;
  if (!fd || !readUpTo(fd.get(), maxBytes, data)) return std::nullopt;
  return data;
}

std::optional<std::string> readBoundedFile(const std::string& path, std::size_t limit, FollowLinks follow) {
  StateFileRead read = readStateFile(path, limit, follow);
  if (!read.usable()) return std::nullopt;
  return std::move(read.data);
}

std::optional<nlohmann::json> parseBoundedJSON(std::string_view text, int maxDepth) {
  // The library's parser is iterative, but copying, comparing or dumping a
  // document recurses, so a deep one must never be built: values past the
  // limit are discarded as they are met and the whole document refused.
  bool tooDeep = false;
  using Event = nlohmann::json::parse_event_t;
  auto limit = [&](int depth, Event event, nlohmann::json&) {
    // A container starts at the depth of its parent: the outermost at 0.
    if ((event == Event::array_start || event == Event::object_start) && depth >= maxDepth) tooDeep = true;
    return !tooDeep;
  };
  nlohmann::json doc = nlohmann::json::parse(text, limit, /*allow_exceptions=*/false);
  if (tooDeep || doc.is_discarded()) return std::nullopt;
  return doc;
}

FileLock tryLockFile(const std::string& path, mode_t mode, double patienceSeconds) {
  FileLock lock;
  lock.fd.reset(::open(path.c_str(), O_RDWR | O_CREAT | O_NONBLOCK | O_CLOEXEC, mode));
  if (!lock.fd) {
    lock.err = errno;
    return lock;
  }
  const double deadline = monotonicSeconds() + patienceSeconds;
  for (;;) {
    lock.err = retryingFlock(lock.fd.get());
    if (lock.err == 0) {
      lock.outcome = FileLock::Outcome::held;
      return lock;
    }
    if (lock.err != EWOULDBLOCK || monotonicSeconds() >= deadline) break;
    // Bounded: a holder that is stuck costs at most the patience, never a wait.
    std::this_thread::sleep_for(std::chrono::milliseconds(3));
  }
  lock.outcome = lock.err == EWOULDBLOCK ? FileLock::Outcome::busy : FileLock::Outcome::lockFailed;
  lock.fd.reset();
  return lock;
}

int writeFileAtomically(const std::string& path, std::string_view data, mode_t mode) {
  std::random_device rd;
  const std::string tmp = path + ".tmp." + std::to_string(::getpid()) + "." + std::to_string(rd());
  UniqueFd fd(::open(tmp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
  if (!fd) return errno;
  auto fail = [&tmp](int err) {
    ::unlink(tmp.c_str());
    return err;
  };
  for (std::size_t off = 0; off < data.size();) {
    ssize_t n = ::write(fd.get(), data.data() + off, data.size() - off);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return fail(n < 0 ? errno : EIO);
    off += static_cast<std::size_t>(n);
  }
  ::fchmod(fd.get(), mode);  // the umask may have narrowed the create mode
  // Synced before the rename, so the name never points at unwritten blocks.
  if (::fsync(fd.get()) != 0) return fail(errno);
  if (::close(fd.release()) != 0) return fail(errno);
  if (::rename(tmp.c_str(), path.c_str()) != 0) return fail(errno);
  // The rename itself is durable only once the directory is synced; a failure
  // here leaves the new file in place, so it is not reported.
  if (UniqueFd dir(::open(directoryOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)); dir) ::fsync(dir.get());
  return 0;
}

LockedRewrite rewriteLocked(const std::string& lockPath, const std::string& path, mode_t mode,
                            const std::function<std::optional<std::string>(const StateFileRead&)>& change,
                            double lockPatienceSeconds) {
  FileLock lock = tryLockFile(lockPath, mode, lockPatienceSeconds);
  if (lock.outcome == FileLock::Outcome::busy) return {LockedRewrite::Outcome::busy, 0};
  if (lock.outcome != FileLock::Outcome::held) return {LockedRewrite::Outcome::lockUnusable, lock.err};
  std::optional<std::string> next = change(readStateFile(path));
  if (!next) return {LockedRewrite::Outcome::unchanged, 0};
  if (int err = writeFileAtomically(path, *next, mode); err != 0) return {LockedRewrite::Outcome::writeFailed, err};
  return {LockedRewrite::Outcome::written, 0};
}

}  // namespace ac
