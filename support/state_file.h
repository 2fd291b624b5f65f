// Files that several short-lived processes share, and files that other
// programs write: how they are read, locked and rewritten. Every state file
// goes through these helpers, so each gets the same guarantees:
// - a read never blocks (a FIFO planted at the path is refused, not opened
//   for a writer that never comes), never reads more than a cap, and takes
//   only a regular file;
// - JSON from such a file is parsed with a nesting limit, so a hostile
//   million-deep array is refused instead of overflowing the stack;
// - a rewrite happens under an exclusive, non-blocking flock and lands
//   atomically and durably (temporary file, fsync, rename, fsync of the
//   directory): a reader sees the old file or the new one, also after a crash.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

#include "support/unique_fd.h"

namespace ac {

// Plenty for any state file this program or its companion writes.
constexpr std::size_t stateFileMaxBytes = 1 << 20;
// Deeper than any file we read legitimately nests.
constexpr int stateFileMaxJSONDepth = 64;

enum class FollowLinks { no, yes };

// A state file as read: missing (nothing at the path), usable (`data` holds
// it whole), or unusable (a directory, FIFO, device, a symbolic link where
// none is followed, larger than the cap, or a failed read).
struct StateFileRead {
  enum class Status { missing, usable, unusable };
  Status status = Status::missing;
  std::string data;
  bool usable() const { return status == Status::usable; }
};
StateFileRead readStateFile(const std::string& path, std::size_t limit = stateFileMaxBytes,
                            FollowLinks follow = FollowLinks::no);

// At most maxBytes from the start of a regular file; nothing when it is
// missing, cannot be opened, or is not a regular file; empty for an empty
// file.
std::optional<std::string> readFilePrefix(const std::string& path, std::size_t maxBytes,
                                          FollowLinks follow = FollowLinks::yes);

// The whole file when readStateFile finds it usable; nothing otherwise.
std::optional<std::string> readBoundedFile(const std::string& path, std::size_t limit = stateFileMaxBytes,
                                           FollowLinks follow = FollowLinks::no);

// The document, or nothing when the text is not JSON or nests deeper than
// maxDepth. Never throws.
std::optional<nlohmann::json> parseBoundedJSON(std::string_view text, int maxDepth = stateFileMaxJSONDepth);

// An exclusive, non-blocking flock on a lock file (created with `mode` if
// missing). held: `fd` holds the lock until it is destroyed. busy: another
// holder kept it for the whole patience (0: one attempt). openFailed and
// lockFailed carry the errno in `err`.
struct FileLock {
  enum class Outcome { held, busy, openFailed, lockFailed };
  Outcome outcome = Outcome::openFailed;
  int err = 0;
  UniqueFd fd;
};
FileLock tryLockFile(const std::string& path, mode_t mode, double patienceSeconds = 0);

// Writes data to a temporary file beside path, syncs it, renames it over path
// and syncs the directory. `mode` is the new file's permissions. Returns 0 or
// the errno of the failed step; on failure path is left as it was.
int writeFileAtomically(const std::string& path, std::string_view data, mode_t mode = 0644);

// One locked read-modify-write of a state file. Under the lock at lockPath,
// reads path and passes what was found to `change`; a result is written
// atomically with `mode` (replacing an unusable file where rename can), no
// result leaves the file alone.
struct LockedRewrite {
  enum class Outcome { busy, lockUnusable, unchanged, written, writeFailed };
  Outcome outcome = Outcome::busy;
  int err = 0;  // errno for lockUnusable and writeFailed
};
LockedRewrite rewriteLocked(const std::string& lockPath, const std::string& path, mode_t mode,
                            const std::function<std::optional<std::string>(const StateFileRead&)>& change,
                            double lockPatienceSeconds = 0);

}  // namespace ac
