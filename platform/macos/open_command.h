// The arguments of /usr/bin/open for Workspace::openApplication.
//
// The seam passes one list for two things open tells apart: items for the
// application to open (a URL such as a note link) and the application's own
// command-line arguments (such as "--tab recordings"). Items come first;
// from the first argument that starts with "-" on, the rest are the
// application's arguments and follow open's "--args".
#pragma once

#include <string>
#include <vector>

namespace ac::platform::macos {

inline constexpr const char* kOpenTool = "/usr/bin/open";

// "-a", appPath, the items, then "--args" and the application's arguments
// when there are any.
std::vector<std::string> openArguments(const std::string& appPath, const std::vector<std::string>& args);

}  // namespace ac::platform::macos
