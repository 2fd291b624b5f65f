// The journal's locked file operations.
#include <algorithm>
#include <cerrno>

#include "notify/click_journal.h"
#include "notify/state_dir.h"
#include "support/log.h"
#include "support/paths.h"
#include "support/state_file.h"

namespace ac::notify::NotifyClickJournal {
namespace {

std::string directoryOf(const std::string& path) {
  std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string lockPathFor(const std::string& path) {
  std::string dir = directoryOf(path);
  secureStateDir(dir);
  return dir + "/" + lockFileName;
}

const char* const busyLine = "notify: journal lock busy — leaving it to the holder\n";

void reportUnusable(const std::string& path, const std::string& consequence) {
  writeStderr("notify: journal " + path + " is not a regular file of at most 1 MiB — " + consequence + "\n");
}

NotifyClickJournalEntries decodeRead(const StateFileRead& file) {
  if (!file.usable()) return {};
  return decode(file.data).value_or(NotifyClickJournalEntries{});
}

enum class LockedWrite { busy, unchanged, written, failed };

// One locked read-modify-write; `change` returns the journal to write, or
// nothing to leave the file alone. A journal that is not a usable file (a
// directory, a FIFO, an oversized file) reads as empty and is replaced by
// the write. Says on standard error, in one line, whatever went wrong.
LockedWrite rewrite(const std::string& path,
                    const std::function<std::optional<NotifyClickJournalEntries>(const NotifyClickJournalEntries&)>& change) {
  bool unusable = false;
  bool encodeFailed = false;
  LockedRewrite result = rewriteLocked(lockPathFor(path), path, 0600,
                                       [&](const StateFileRead& current) -> std::optional<std::string> {
    unusable = current.status == StateFileRead::Status::unusable;
    auto next = change(decodeRead(current));
    if (!next) return std::nullopt;
    auto data = encode(*next);
    encodeFailed = !data;
    return data;
  });
  switch (result.outcome) {
    case LockedRewrite::Outcome::busy:
      writeStderr(busyLine);
      return LockedWrite::busy;
    case LockedRewrite::Outcome::lockUnusable:
      writeStderr("notify: journal lock unusable (errno=" + std::to_string(result.err) + ") — leaving it as it was\n");
      return LockedWrite::busy;
    case LockedRewrite::Outcome::unchanged:
      if (!encodeFailed) return LockedWrite::unchanged;
      writeStderr("notify: journal encode produced nothing — leaving it as it was\n");
      return LockedWrite::failed;
    case LockedRewrite::Outcome::writeFailed:
      writeStderr("notify: journal write failed: " + errnoText(result.err) + "\n");
      return LockedWrite::failed;
    case LockedRewrite::Outcome::written:
      break;
  }
  if (unusable) reportUnusable(path, "replaced it");
  return LockedWrite::written;
}

LockedWrite lockedChange(const std::string& path,
                         const std::function<NotifyClickJournalEntries(NotifyClickJournalEntries)>& change) {
  return rewrite(path, [&](const NotifyClickJournalEntries& before) -> std::optional<NotifyClickJournalEntries> {
    NotifyClickJournalEntries after = change(before);
    if (after == before) return std::nullopt;
    return after;
  });
}

}  // namespace

NotifyClickJournalEntries read(const std::string& path) {
  StateFileRead file = readStateFile(path);
  if (file.status == StateFileRead::Status::unusable) reportUnusable(path, "reading it as empty");
  return decodeRead(file);
}

bool withLock(const std::string& path, const std::function<void()>& body) {
  FileLock lock = tryLockFile(lockPathFor(path), 0600);
  if (lock.outcome == FileLock::Outcome::busy) {
    writeStderr(busyLine);
    return false;
  }
  if (lock.outcome != FileLock::Outcome::held) {
    writeStderr("notify: journal lock unusable (errno=" + std::to_string(lock.err) + ") — leaving it as it was\n");
    return false;
  }
  body();  // the lock goes with `lock`, also if body throws
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
  bool lost = false;
  LockedWrite outcome =
      rewrite(path, [&](const NotifyClickJournalEntries& current) -> std::optional<NotifyClickJournalEntries> {
        lost = std::find(current.begin(), current.end(), *routing) == current.end();
        if (lost) return std::nullopt;  // another launch already took this click
        return settle(current, resolvedFrom, delivered);
      });
  if (lost) return NotifyClickClaim::lost;
  return outcome == LockedWrite::written ? NotifyClickClaim::claimed : NotifyClickClaim::unrecorded;
}

}  // namespace ac::notify::NotifyClickJournal
