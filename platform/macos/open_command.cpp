#include "platform/macos/open_command.h"

#include <algorithm>

namespace ac::platform::macos {

std::vector<std::string> openArguments(const std::string& appPath, const std::vector<std::string>& args) {
  std::vector<std::string> out{"-a", appPath};
  auto firstOption = std::find_if(args.begin(), args.end(), [](const std::string& a) { return a.starts_with('-'); });
  out.insert(out.end(), args.begin(), firstOption);
  if (firstOption != args.end()) {
    out.push_back("--args");
    out.insert(out.end(), firstOption, args.end());
  }
  return out;
}

}  // namespace ac::platform::macos
