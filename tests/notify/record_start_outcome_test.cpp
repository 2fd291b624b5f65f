#include "notify/record_start_outcome.h"

#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/scratch_dir.h"

namespace ac::notify {
namespace {

using Outcome = RecordStartClickOutcome;

TEST(RecordStartOutcome, NarratedRefusalOutranksEverything) {
  const std::string lid = "> ❌ Lid closed with the built-in speakers as output.";
  struct Case {
    int status;
    std::string output;
    bool captured;
    bool live;
    Outcome expected;
  };
  const std::vector<Case> cases = {
      {1, lid, true, false, Outcome::refused("Lid closed with the built-in speakers as output.")},
      {0, "> ⚠️ A recording is already in progress. Stop it first.", true, true,
       Outcome::alreadyRecording("A recording is already in progress. Stop it first.")},
      {2, "bash: line 9: oops", true, true, Outcome::started()},
      {0, "", true, false, Outcome::started()},
      {0, "starting\n> ❌ Nope\n> ⚠️ A recording is already in progress.", true, false, Outcome::refused("Nope")},
      {1, "> no marker here", true, false, Outcome::refused("record-start exited with status 1.")},
      {1, "> ❌   \t", true, false, Outcome::refused("record-start exited with status 1.")},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(classifyRecordStartClick(c.status, c.output, c.captured, c.live), c.expected) << c.output;
  }
}

TEST(RecordStartOutcome, HeadlineIsTheFirstQuoteWithAMarker) {
  EXPECT_EQ(recordStartRefusalHeadline("  > ❌ indented is not a quote"), std::nullopt);
  EXPECT_EQ(recordStartRefusalHeadline("\n\n>\t ❌Lid closed.\r\n"),
            (RecordStartHeadline{RecordStartMarker::failure, "Lid closed."}));
  EXPECT_EQ(recordStartRefusalHeadline("> Default output is ⚠️ Speakers — system audio would be silent."),
            std::nullopt);
  EXPECT_EQ(recordStartRefusalHeadline("> ⚠️ Default output is ⚠️ Speakers.")->text, "Default output is ⚠️ Speakers.");
  // The first quote decides even when it carries no marker.
  EXPECT_EQ(recordStartRefusalHeadline("> plain\n> ❌ later"), std::nullopt);
}

TEST(RecordStartOutcome, LongReasonsAreCutToOneHundredSixtyCharacters) {
  std::string exact(160, 'x');
  EXPECT_EQ(recordStartRefusalHeadline("> ❌ " + exact)->text, exact);
  EXPECT_EQ(recordStartRefusalHeadline("> ❌ " + std::string(161, 'x'))->text, std::string(159, 'x') + "…");
  std::string accents;
  for (int i = 0; i < 200; ++i) accents += "e\u0301";  // two scalars, one character
  auto cut = recordStartRefusalHeadline("> ❌ " + accents)->text;
  EXPECT_EQ(cut, accents.substr(0, 159 * 3) + "…");
}

TEST(RecordStartOutcome, SanitizingDropsInvisiblesAndCollapsesWhitespace) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"Bad\a\x1b[31m device\b name.", "Bad[31m device name."},
      {"Output   is\t \vsilent.", "Output is silent."},
      {"\u202Eevil\u202C text", "evil text"},
      {"broken \xff byte", "broken \uFFFD byte"},  // repaired, not dropped
      {"zero\u200Bwidth b\uFEFFom", "zerowidth bom"},
      {"\u2066iso\u2069 \u200E", "iso"},
      {"Lid closed — switch outputs.", "Lid closed — switch outputs."},
  };
  for (const auto& [input, expected] : cases) EXPECT_EQ(recordStartSanitizedReason(input), expected) << input;
}

TEST(RecordStartOutcome, StateFilePid) {
  const std::vector<std::pair<std::string, std::optional<int32_t>>> cases = {
      {"started_at=x\npid=7\n", 7},
      {"pid=0\n", std::nullopt},
      {"pid=abc\npid=9\n", std::nullopt},  // the first pid line decides
      {"pid=99999999999\n", std::nullopt},
      {"pid= 7\n", std::nullopt},
      {"audio_file=/x/a.m4a\nmarker=TRANSCRIPT_PENDING_1_2\n", std::nullopt},
  };
  for (const auto& [file, pid] : cases) EXPECT_EQ(recordStartLivePID(file), pid) << file;
}

TEST(RecordStartOutcome, LiveRecordingIsAStateFileNamingARunningProcess) {
  test::ScratchDir dir;
  std::string path = dir.path("recording-state");
  EXPECT_FALSE(recordStartRecordingIsLive(path));
  test::ScratchDir::write(path, "pid=" + std::to_string(::getpid()) + "\n");
  EXPECT_TRUE(recordStartRecordingIsLive(path));
  test::ScratchDir::write(path, "pid=2147483646\n");
  EXPECT_FALSE(recordStartRecordingIsLive(path));

  ::setenv("VELA_STATE_DIR", "/some/dir", 1);
  EXPECT_EQ(recordStartStateFilePath(), "/some/dir/recording-state");
  ::unsetenv("VELA_STATE_DIR");
}

// The refusal banners themselves are proven where a click runs the script.
TEST(RecordStartOutcome, QuietOutcomesRaiseNoBanner) {
  for (const auto& quiet : {Outcome::alreadyRecording("a"), Outcome::started(), Outcome::stillRunning()}) {
    EXPECT_EQ(recordStartClickBanner(quiet), std::nullopt);
  }
}

TEST(RecordStartOutcome, CaptureIsReadUpToItsLimit) {
  test::ScratchDir dir;
  std::string path = dir.path("capture.log");
  EXPECT_EQ(recordStartCapturedPrefix(path), std::nullopt);
  test::ScratchDir::write(path, "");
  EXPECT_EQ(recordStartCapturedPrefix(path), "");
  test::ScratchDir::write(path, "> ❌ first line\n" + std::string(200000, 'y'));
  auto captured = recordStartCapturedPrefix(path);
  ASSERT_TRUE(captured);
  EXPECT_EQ(captured->size(), 65536u);
  EXPECT_EQ(classifyRecordStartClick(0, *captured, true, false), Outcome::refused("first line"));
}

}  // namespace
}  // namespace ac::notify
