// Path helpers shared by every mode.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace ac {

// The user's home directory: $HOME, else the password database; "" if neither.
std::string homeDirectory();

// "~" and "~/x" become the home directory (and x); "~user/x" is looked up in
// the password database; anything else is returned unchanged.
std::string expandTilde(std::string_view path);

// The last path component ("a.m4a" for "/x/a.m4a").
std::string lastPathComponent(std::string_view path);

// The first place on the way to path that someone other than this user or
// root could change: the path itself, or a directory that holds it or one of
// its parents, checked as written and again with symbolic links resolved.
// A world-writable sticky directory (/tmp) counts only through what is in it:
// others cannot replace an entry they do not own. Nothing when only this
// user or root can change what path names; the path when it cannot be read.
// Group write counts as others' write.
std::optional<std::string> changeableByOthers(const std::string& path);

// The system's text for an errno value.
std::string errnoText(int err);

}  // namespace ac
