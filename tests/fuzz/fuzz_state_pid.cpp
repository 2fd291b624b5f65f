// The recording state file's pid reader on arbitrary bytes: a pid it
// returns is positive and is written in the file after "pid=".
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz_check.h"
#include "notify/record_start_outcome.h"

using namespace ac::notify;

namespace {

// Some "pid=" in the file is followed by an optional "+", leading zeros and
// these digits.
bool writtenAfterKey(const std::string& file, const std::string& digits) {
  for (auto at = file.find("pid="); at != std::string::npos; at = file.find("pid=", at + 1)) {
    std::size_t i = at + 4;
    if (i < file.size() && file[i] == '+') ++i;
    while (i < file.size() && file[i] == '0') ++i;
    if (file.compare(i, digits.size(), digits) == 0) return true;
  }
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  std::string file(reinterpret_cast<const char*>(data), size);
  auto pid = recordStartLivePID(file);
  if (pid) {
    FUZZ_CHECK(*pid > 0);
    FUZZ_CHECK(writtenAfterKey(file, std::to_string(*pid)));
  }
  return 0;
}
