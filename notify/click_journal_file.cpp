// The journal's locked file operations.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <sstream>

#include "notify/click_journal.h"
#include "notify/state_dir.h"
#include "support/log.h"
#include "support/paths.h"

namespace ac::notify::NotifyClickJournal {
namespace {

std::string directoryOf(const std::string& path) {
  std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

enum class LockedWrite { busy, unchanged, written, failed };

// Writes atomically (a temporary file renamed over the journal), so a reader
// never sees half a file, then makes sure only the owner can read it.
bool writeLocked(const std::string& path, const NotifyClickJournalEntries& entries) {
  auto data = encode(entries);
  if (!data) {
    writeStderr("notify: journal encode produced nothing — leaving it as it was\n");
    return false;
  }
  if (int err = writeFileAtomically(path, *data, 0600); err != 0) {
    writeStderr("notify: journal write failed: " + errnoText(err) + "\n");
    return false;
  }
  ::chmod(path.c_str(), 0600);
  return true;
}

LockedWrite lockedChange(const std::string& path,
                         const std::function<NotifyClickJournalEntries(NotifyClickJournalEntries)>& change) {
  LockedWrite outcome = LockedWrite::busy;
  withLock(path, std::function<void()>([&] {
    NotifyClickJournalEntries before = read(path);
    NotifyClickJournalEntries after = change(before);
    if (after == before) {
      outcome = LockedWrite::unchanged;
    } else {
      outcome = writeLocked(path, after) ? LockedWrite::written : LockedWrite::failed;
    }
  }));
  return outcome;
}

}  // namespace

NotifyClickJournalEntries read(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return {};
  std::string data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  return decode(data).value_or(NotifyClickJournalEntries{});
}

bool withLock(const std::string& path, const std::function<void()>& body) {
  std::string dir = directoryOf(path);
  secureStateDir(dir);
  std::string lockPath = dir + "/" + lockFileName;
  int fd = ::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0) {
    writeStderr("notify: journal lock unusable (errno=" + std::to_string(errno) + ") — leaving it as it was\n");
    return false;
  }
  while (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
    if (errno == EINTR) continue;
    ::close(fd);
    writeStderr("notify: journal lock busy — leaving it to the holder\n");
    return false;
  }
  // Closing the descriptor releases the lock, also if body throws.
  struct Release {
    int fd;
    ~Release() { ::close(fd); }
  } release{fd};
  body();
  return true;
}

bool update(const std::string& path, const std::function<NotifyClickJournalEntries(NotifyClickJournalEntries)>& change) {
  return lockedChange(path, change) == LockedWrite::written;
}

bool record(const std::string& id, const std::optional<std::string>& token, const DeliveredIDs& delivered,
            double now, std::optional<double> expiresAt, const std::string& path) {
  NotifyClickJournalEntry entry{id, token, now, expiresAt};
  return update(path, [&](NotifyClickJournalEntries entries) {
    entries = adoptUnknown(entries, delivered, now);
    // Drop the row adoption may just have made for this very banner, so the
    // row carrying the real token is the one kept.
    std::erase_if(entries, [&](const auto& e) { return e.id == id; });
    entries.push_back(entry);
    return prune(entries, delivered, now);
  });
}

bool recordPosted(const std::string& id, const std::string& clickToken, bool addSucceeded,
                  const DeliveredIDs& delivered, double now, std::optional<double> expiresAt,
                  const std::string& path) {
  if (!shouldRecord(addSucceeded)) return false;
  std::optional<std::string> token;
  if (!clickToken.empty()) token = clickToken;
  return record(id, token, delivered, now, expiresAt, path);
}

bool forget(const std::vector<std::string>& ids, const std::string& path) {
  LockedWrite outcome = lockedChange(path, [&](NotifyClickJournalEntries entries) {
    std::erase_if(entries, [&](const auto& e) { return std::find(ids.begin(), ids.end(), e.id) != ids.end(); });
    return entries;
  });
  return outcome == LockedWrite::unchanged || outcome == LockedWrite::written;
}

NotifyClickClaim claimSettle(const std::optional<NotifyClickJournalEntry>& routing,
                             const NotifyClickJournalEntries& resolvedFrom, const DeliveredIDs& delivered,
                             const std::string& path) {
  if (!routing) return NotifyClickClaim::claimed;
  NotifyClickClaim claim = NotifyClickClaim::unrecorded;
  withLock(path, std::function<void()>([&] {
    NotifyClickJournalEntries current = read(path);
    if (std::find(current.begin(), current.end(), *routing) == current.end()) {
      claim = NotifyClickClaim::lost;
      return;
    }
    NotifyClickJournalEntries settled = settle(current, resolvedFrom, delivered);
    claim = writeLocked(path, settled) ? NotifyClickClaim::claimed : NotifyClickClaim::unrecorded;
  }));
  return claim;
}

}  // namespace ac::notify::NotifyClickJournal
