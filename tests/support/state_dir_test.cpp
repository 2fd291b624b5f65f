#include "notify/state_dir.h"

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "notify/temp_dir.h"

namespace ac::notify {
namespace {

namespace fs = std::filesystem;

mode_t modeOf(const std::string& path) {
  struct stat st {};
  EXPECT_EQ(::lstat(path.c_str(), &st), 0) << path;
  return st.st_mode & 07777;
}

class StateDirTest : public ::testing::Test {
 protected:
  notify::testing::TempDir tmp_;
  const std::string dir_ = fs::path(tmp_.file("x")).parent_path();
};

TEST_F(StateDirTest, TighteningClearsGroupAndOtherBitsOnly) {
  struct Case {
    mode_t before, after;
  } cases[] = {
      {0755, 0700}, {0777, 0700}, {0700, 0700}, {0750, 0700}, {01777, 01700}, {02755, 02700}, {0705, 0700},
  };
  for (const auto& c : cases) {
    const std::string d = dir_ + "/d";
    fs::create_directory(d);
    ASSERT_EQ(::chmod(d.c_str(), c.before), 0);
    tightenDirectoryPermissions(d);
    EXPECT_EQ(modeOf(d), c.after) << std::oct << c.before;
    fs::remove(d);
  }
}

TEST_F(StateDirTest, LinksFilesAndMissingPathsAreLeftAlone) {
  const std::string target = dir_ + "/target", link = dir_ + "/link", file = dir_ + "/file";
  fs::create_directory(target);
  ::chmod(target.c_str(), 0755);
  fs::create_directory_symlink(target, link);
  tightenDirectoryPermissions(link);
  EXPECT_EQ(modeOf(target), 0755u);
  EXPECT_TRUE(fs::is_symlink(link));

  std::ofstream(file) << "x";
  ::chmod(file.c_str(), 0644);
  tightenDirectoryPermissions(file);
  EXPECT_EQ(modeOf(file), 0644u);

  tightenDirectoryPermissions(dir_ + "/missing");  // must not throw or create
  EXPECT_FALSE(fs::exists(dir_ + "/missing"));
}

TEST_F(StateDirTest, SecureCreatesIntermediatesAndTightensAnExistingDirectory) {
  const std::string state = dir_ + "/home/.local/state/vela";
  secureStateDir(state);
  ASSERT_TRUE(fs::is_directory(state));
  EXPECT_EQ(modeOf(state) & 077, 0u);

  ::chmod(state.c_str(), 0755);
  secureStateDir(state);
  EXPECT_EQ(modeOf(state), 0700u);

  // A link planted at the state path is not followed.
  const std::string other = dir_ + "/other", planted = dir_ + "/planted";
  fs::create_directory(other);
  ::chmod(other.c_str(), 0755);
  fs::create_directory_symlink(other, planted);
  secureStateDir(planted);
  EXPECT_EQ(modeOf(other), 0755u);
}

TEST_F(StateDirTest, LivesUnderHome) {
  const char* saved = std::getenv("HOME");
  std::string restore = saved ? saved : "";
  ::setenv("HOME", "/home/someone", 1);
  EXPECT_EQ(notifAuthStateDir(), "/home/someone/.local/state/vela");
  ::setenv("HOME", restore.c_str(), 1);
}

}  // namespace
}  // namespace ac::notify
