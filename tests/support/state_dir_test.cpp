#include "notify/state_dir.h"

#include <sys/stat.h>

#include <gtest/gtest.h>

#include <filesystem>

#include <nlohmann/json.hpp>

#include "support/state_file.h"
#include "tests/support/scratch_dir.h"

namespace ac::notify {
namespace {

namespace fs = std::filesystem;

mode_t modeOf(const std::string& path) {
  struct stat st {};
  EXPECT_EQ(::lstat(path.c_str(), &st), 0) << path;
  return st.st_mode & 07777;
}

TEST(StateDir, SecureCreatesAndTightensButNeverFollowsALinkOrTouchesAFile) {
  test::ScratchDir tmp;
  const std::string d = tmp.path("d");
  // Group and other bits go; owner and special bits stay.
  for (auto [before, after] : {std::pair{0777, 0700}, {01777, 01700}, {02750, 02700}}) {
    fs::create_directory(d);
    ::chmod(d.c_str(), before);
    tightenDirectoryPermissions(d);
    EXPECT_EQ(modeOf(d), mode_t(after)) << std::oct << before;
    fs::remove(d);
  }
  const std::string state = tmp.path("home/.local/state/vela");
  secureStateDir(state);
  EXPECT_EQ(modeOf(state), 0700u);

  const std::string other = tmp.path("other"), link = tmp.path("link"), file = tmp.path("file");
  fs::create_directory(other);
  ::chmod(other.c_str(), 0755);
  fs::create_directory_symlink(other, link);
  secureStateDir(link);
  EXPECT_EQ(modeOf(other), 0755u);
  test::ScratchDir::write(file, "x");
  ::chmod(file.c_str(), 0644);
  tightenDirectoryPermissions(file);
  EXPECT_EQ(modeOf(file), 0644u);
}

// A hostile document is refused by its depth while it is parsed: copying or
// comparing a deep one would overflow the stack.
TEST(StateFile, JSONNestedPastTheLimitIsRefused) {
  auto nested = [](int depth) { return std::string(depth, '[') + "1" + std::string(depth, ']'); };
  EXPECT_TRUE(parseBoundedJSON(nested(stateFileMaxJSONDepth)));
  EXPECT_FALSE(parseBoundedJSON(nested(stateFileMaxJSONDepth + 1)));
  EXPECT_FALSE(parseBoundedJSON(nested(1000000)));
  EXPECT_FALSE(parseBoundedJSON("{\"v\":"));
}

}  // namespace
}  // namespace ac::notify
