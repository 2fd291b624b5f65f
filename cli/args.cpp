#include "cli/args.h"

#include <string_view>

namespace ac {
namespace {

constexpr int kUsageStatus = 64;

// Where a value-taking option stores its value.
std::optional<std::string>* optionalSlot(Args& a, std::string_view opt) {
  if (opt == "--mic-uid") return &a.micUID;
  if (opt == "--log") return &a.logPath;
  if (opt == "--pidfile") return &a.pidPath;
  if (opt == "--lockfile") return &a.lockPath;
  if (opt == "--level-file") return &a.levelPath;
  if (opt == "--go-fifo") return &a.goFIFOPath;
  if (opt == "--status-fifo") return &a.statusFIFOPath;
  return nullptr;
}

ArgsError refuse(std::string message) { return ArgsError{std::move(message), kUsageStatus}; }

// The checks that need the whole line, in the order callers rely on.
std::optional<ArgsError> validate(const Args& a) {
  if (a.output.empty()) return refuse("--output is required");
  if (a.armed) {
    if (!a.goFIFOPath || !a.statusFIFOPath) return refuse("--armed requires --go-fifo and --status-fifo");
    // The quick-note recorder is a second, short-lived recorder the owner
    // drives through the pipes alone: it must not contend for the lock.
    if (a.lockPath || a.pidPath) return refuse("--armed is quick-note-only: refuse --lockfile/--pidfile");
  } else if (a.goFIFOPath || a.statusFIFOPath) {
    return refuse("--go-fifo/--status-fifo require --armed");
  }
  return std::nullopt;
}

}  // namespace

ParsedArgs parseArgs(const std::vector<std::string>& args) {
  if (args.empty()) return refuse("--output is required");
  Args a;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    const bool isOutput = arg == "--output" || arg == "-o";
    std::optional<std::string>* slot = isOutput ? nullptr : optionalSlot(a, arg);
    if (isOutput || slot) {
      // The value is taken verbatim, even when it looks like an option.
      if (i + 1 >= args.size()) return refuse(arg + " requires a value");
      const std::string& value = args[++i];
      if (isOutput)
        a.output = value;
      else
        *slot = value;
    } else if (arg == "--no-mic") {
      a.includeMic = false;
    } else if (arg == "--no-system") {
      a.includeSystem = false;
    } else if (arg == "--armed") {
      a.armed = true;
    } else if (arg == "--help" || arg == "-h") {
      return UsageRequest{};
    } else {
      return refuse("unknown arg: " + arg);
    }
  }
  if (auto err = validate(a)) return *err;
  return a;
}

const std::string& usageText() {
  static const std::string text =
      "usage: audio-capture --output FILE.m4a [--mic-uid UID] [--no-mic] [--no-system] [--lockfile FILE] "
      "[--level-file FILE] [--armed --go-fifo FIFO --status-fifo FIFO]\n"
      "       audio-capture --current-output\n"
      "       audio-capture --list-outputs\n"
      "       audio-capture --notify TITLE BODY "
      "[NOTE_PATH|vela-app:recordings|vela-app:open-note:MARKER|vela-app:ignore-silence:MARKER] [SOUND] "
      "[--no-prompt] [--meeting-prompt]\n"
      "       audio-capture --withdraw-meeting-prompt [--before=UNIX_SECONDS]\n"
      "       audio-capture --request-notif-auth\n"
      "       audio-capture --notif-auth-status\n"
      "       audio-capture                (no arguments: route a pending notification click, then exit)\n";
  return text;
}

}  // namespace ac
