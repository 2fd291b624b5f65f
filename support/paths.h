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

// The system's text for an errno value.
std::string errnoText(int err);

}  // namespace ac
