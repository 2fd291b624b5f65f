// Where the click scripts come from: a script runs on a click with the
// user's rights, so one that another local user could plant or change is
// never run.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace ac::notify {

// The first executable candidate, in order. When that one, or a directory on
// its way, can be changed by someone other than this user or root, writes
// "notify: not running <script> — <place> can be changed by other users"
// and gives nothing, as if there were no script.
std::optional<std::string> trustedScript(const std::vector<std::string>& candidates);

}  // namespace ac::notify
