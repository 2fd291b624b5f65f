#include "notify/trusted_script.h"

#include "support/log.h"
#include "support/paths.h"
#include "support/spawn.h"

namespace ac::notify {

std::optional<std::string> trustedScript(const std::vector<std::string>& candidates) {
  for (const auto& candidate : candidates) {
    if (!isExecutableFile(candidate)) continue;
    if (auto place = changeableByOthers(candidate)) {
      writeStderr("notify: not running " + candidate + " — " + *place + " can be changed by other users\n");
      return std::nullopt;
    }
    return candidate;
  }
  return std::nullopt;
}

}  // namespace ac::notify
