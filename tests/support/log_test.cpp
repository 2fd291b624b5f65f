#include "support/log.h"

#include <gtest/gtest.h>

#include "support/paths.h"

namespace ac {
namespace {

TEST(Iso8601, WholeSecondsUTCWithZ) { EXPECT_EQ(iso8601UTC(1772719629), "2026-03-05T14:07:09Z"); }

TEST(FailureCountRate, LogsBelowElevenThenEveryTwoHundred) {
  std::vector<int64_t> logged;
  for (int64_t n = 1; n <= 1000; ++n)
    if (shouldLogFailureCount(n)) logged.push_back(n);
  std::vector<int64_t> expected = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 200, 400, 600, 800, 1000};
  EXPECT_EQ(logged, expected);
}

TEST(Paths, TildeExpansionAndLastComponent) {
  setenv("HOME", "/home/tester", 1);
  EXPECT_EQ(expandTilde("~"), "/home/tester");
  EXPECT_EQ(expandTilde("~/a.m4a"), "/home/tester/a.m4a");
  EXPECT_EQ(expandTilde("/abs/~x"), "/abs/~x");
  EXPECT_EQ(expandTilde("rel"), "rel");
  EXPECT_EQ(lastPathComponent("/x/y/call.m4a"), "call.m4a");
  EXPECT_EQ(lastPathComponent("call.m4a"), "call.m4a");
}

}  // namespace
}  // namespace ac
