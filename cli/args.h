// The recording options and their parser.
//
// parseArgs is pure: it never logs and never exits. The entry turns an
// ArgsError into one log line and its exit status, and a UsageRequest into
// the usage text on standard output and exit 0.
#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace ac {

// The parsed options of a recording launch. Paths are kept exactly as given;
// whoever opens a path expands its tilde.
struct Args {
  std::string output;
  std::optional<std::string> micUID;
  bool includeMic = true;
  bool includeSystem = true;
  std::optional<std::string> logPath;
  std::optional<std::string> pidPath;
  std::optional<std::string> lockPath;
  std::optional<std::string> levelPath;
  bool armed = false;
  std::optional<std::string> goFIFOPath;
  std::optional<std::string> statusFIFOPath;

  bool operator==(const Args&) const = default;
};

struct UsageRequest {
  bool operator==(const UsageRequest&) const = default;
};

struct ArgsError {
  std::string message;  // the line to log
  int status = 64;
  bool operator==(const ArgsError&) const = default;
};

using ParsedArgs = std::variant<Args, UsageRequest, ArgsError>;

// args: the process arguments after the executable path.
ParsedArgs parseArgs(const std::vector<std::string>& args);

// The eight-line usage text, each line ending in "\n".
const std::string& usageText();

}  // namespace ac
