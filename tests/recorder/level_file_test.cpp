#include "recorder/level_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>

#include "tests/support/scratch_dir.h"

namespace ac {
namespace {

namespace fs = std::filesystem;

class LevelFileTest : public ::testing::Test {
 protected:
  static std::string rec(const std::string& number) { return "vela-level " + number + std::string(12, ' ') + "\n"; }
  static std::string contents(const fs::path& p) { return test::ScratchDir::contents(p); }
  test::ScratchDir scratch;
  const fs::path dir = scratch.root();
};

TEST_F(LevelFileTest, RecordIsThirtyTwoBytesClampedToZeroOne) {
  const struct {
    float level;
    const char* number;
  } cases[] = {{0.125f, "0.125000"}, {1.7f, "1.000000"}, {-0.3f, "0.000000"}, {std::nanf(""), "0.000000"},
               {std::numeric_limits<float>::infinity(), "0.000000"}};
  for (const auto& c : cases) EXPECT_EQ(MicLevelFile::record(c.level), rec(c.number)) << c.level;
}

TEST_F(LevelFileTest, HoldsThePeakAndPublishesAtMostEveryInterval) {
  const fs::path p = dir / "level";
  auto file = MicLevelFile::open(p.string(), 0.05);
  ASSERT_TRUE(file);
  const struct {
    double now;
    float sample;
    bool published;
    const char* content;
  } steps[] = {{100.00, 0.5f, true, "0.500000"}, {100.01, 0.9f, false, "0.500000"},
               {100.06, 0.1f, true, "0.900000"}, {100.12, 0.2f, true, "0.200000"},
               {100.20, 0.0f, true, "0.000000"}, {99.00, 0.3f, true, "0.300000"},  // clock went back
               {99.04, 0.4f, false, "0.300000"}, {99.06, 0.1f, true, "0.400000"}};
  for (const auto& s : steps) {
    EXPECT_EQ(file->offer(s.sample, s.now), s.published) << s.now;
    EXPECT_EQ(contents(p), rec(s.content)) << s.now;
  }
  EXPECT_EQ(fs::file_size(p), 32u);
  struct stat st {};
  ASSERT_EQ(::stat(p.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
}

TEST_F(LevelFileTest, OpensOnlyAPlainFileTruncatingItAndNeverBlocksOnAFifo) {
  const fs::path fifo = dir / "fifo", target = dir / "target", link = dir / "link", sub = dir / "sub";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  std::ofstream(target) << "keep";
  fs::create_symlink(target, link);
  fs::create_directory(sub);
  for (const fs::path& p : {dir / "missing" / "level", fifo, link, sub})
    EXPECT_FALSE(MicLevelFile::open(p.string(), 0.05)) << p;
  EXPECT_EQ(contents(target), "keep");
  ASSERT_TRUE(MicLevelFile::open(target.string(), 0.05));
  EXPECT_EQ(fs::file_size(target), 0u);
}

}  // namespace
}  // namespace ac
