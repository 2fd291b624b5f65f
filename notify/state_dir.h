// The private per-user state directory that holds the click journal, the
// notify-side locks and the authorization files.
#pragma once

#include <string>

namespace ac::notify {

// $HOME/.local/state/vela
std::string notifAuthStateDir();

// Creates the directory with intermediate directories (an existing one is
// fine; errors are ignored), then tightens it.
void secureStateDir(const std::string& path);

// If path is a directory (not followed through a symbolic link) with any
// group or other permission bit set, clears those bits, keeping the owner and
// special bits. Anything else is left alone.
void tightenDirectoryPermissions(const std::string& path);

}  // namespace ac::notify
