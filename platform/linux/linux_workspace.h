// The desktop on Linux (see platform/workspace.h for the mapping): URLs open
// through xdg-open, applications are desktop entries found in the XDG data
// directories and launched by their Exec line, and a distributed
// notification is a session-bus signal. No shell is ever involved.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ac::platform::linux_backend {

// The identifier this program has wherever it can reach the session bus.
inline constexpr const char* kLinuxBundleIdentifier = "com.quorlan.vela.audio-capture";

// Directories searched for "applications/<id>.desktop", in order:
// $XDG_DATA_HOME (default ~/.local/share), then $XDG_DATA_DIRS (default
// /usr/local/share:/usr/share).
std::vector<std::string> xdgDataDirectories();

// The Exec value of the [Desktop Entry] group, split into arguments by the
// desktop-entry quoting rules; field codes are dropped ("%k" becomes
// entryPath, "%%" a percent sign). Nothing without an Exec key.
std::optional<std::vector<std::string>> desktopEntryCommand(std::string_view entryText, const std::string& entryPath);

// A distributed notification "a.b.c.open-tab" as a signal: interface "a.b.c",
// member "OpenTab", object path "/a/b/c".
struct SignalName {
  std::string path;
  std::string interface;
  std::string member;
};
std::optional<SignalName> distributedNotificationSignal(std::string_view name);

// The first executable "name" in $PATH.
std::optional<std::string> findInPath(const std::string& name);

}  // namespace ac::platform::linux_backend
