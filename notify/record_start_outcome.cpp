#include "notify/record_start_outcome.h"

#include <signal.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <iterator>
#include <vector>

#include "notify/state_dir.h"
#include "notify/unicode_text.h"
#include "support/state_file.h"

namespace ac::notify {
namespace {

// The state file is a handful of short lines; anything longer is not ours.
constexpr std::size_t recordingStateMaxBytes = 65536;
constexpr std::string_view ellipsis = "\u2026";

std::vector<std::u32string> nonEmptyLines(std::string_view text) {
  std::vector<std::u32string> lines(1);
  for (char32_t c : text::scalars(text)) {
    if (text::isNewline(c)) {
      lines.emplace_back();
    } else {
      lines.back().push_back(c);
    }
  }
  std::erase_if(lines, [](const auto& line) { return line.empty(); });
  return lines;
}

bool isInvisible(char32_t c) {
  return std::find(std::begin(recordStartInvisibleScalars), std::end(recordStartInvisibleScalars), c) !=
         std::end(recordStartInvisibleScalars);
}

}  // namespace

RecordStartClickOutcome classifyRecordStartClick(int status, std::string_view output, bool captured,
                                                 bool recordingIsLive) {
  if (auto headline = recordStartRefusalHeadline(output)) {
    return headline->marker == RecordStartMarker::failure ? RecordStartClickOutcome::refused(headline->text)
                                                          : RecordStartClickOutcome::alreadyRecording(headline->text);
  }
  if (!captured) return RecordStartClickOutcome::stillRunning();
  if (status != 0 && !recordingIsLive) {
    return RecordStartClickOutcome::refused("record-start exited with status " + std::to_string(status) + ".");
  }
  return RecordStartClickOutcome::started();
}

std::optional<RecordStartHeadline> recordStartRefusalHeadline(std::string_view output) {
  auto lines = nonEmptyLines(output);
  auto quote = std::find_if(lines.begin(), lines.end(), [](const auto& line) { return line.front() == U'>'; });
  if (quote == lines.end()) return std::nullopt;
  std::u32string_view body(*quote);
  body.remove_prefix(1);
  while (!body.empty() && (body.front() == U' ' || body.front() == U'\t')) body.remove_prefix(1);

  std::string rest = text::utf8(body);
  RecordStartMarker marker;
  if (rest.starts_with(recordStartFailureMarker)) {
    marker = RecordStartMarker::failure;
    rest.erase(0, recordStartFailureMarker.size());
  } else if (rest.starts_with(recordStartAlreadyRecordingMarker)) {
    marker = RecordStartMarker::alreadyRecording;
    rest.erase(0, recordStartAlreadyRecordingMarker.size());
  } else {
    return std::nullopt;
  }
  std::string reason = recordStartSanitizedReason(rest);
  if (reason.empty()) return std::nullopt;
  if (text::characterCount(reason) > recordStartReasonMaxChars) {
    reason = text::firstCharacters(reason, recordStartReasonMaxChars - 1) + std::string(ellipsis);
  }
  return RecordStartHeadline{marker, std::move(reason)};
}

std::string recordStartSanitizedReason(std::string_view input) {
  std::u32string visible;
  for (char32_t c : text::scalars(input)) {
    if (!text::isControl(c) && !isInvisible(c)) visible.push_back(c);
  }
  std::string joined;
  for (const auto& piece : text::whitespaceSeparatedPieces(text::utf8(visible))) {
    if (!joined.empty()) joined += ' ';
    joined += piece;
  }
  return joined;
}

std::optional<int32_t> recordStartLivePID(std::string_view stateFile) {
  for (const auto& line : nonEmptyLines(stateFile)) {
    std::string trimmed = text::trimmed(text::utf8(line));
    if (!trimmed.starts_with("pid=")) continue;
    std::string_view number = std::string_view(trimmed).substr(4);
    if (number.starts_with('+')) number.remove_prefix(1);
    int32_t pid = 0;
    auto [end, ec] = std::from_chars(number.data(), number.data() + number.size(), pid);
    if (number.empty() || ec != std::errc() || end != number.data() + number.size() || pid <= 0) {
      return std::nullopt;
    }
    return pid;
  }
  return std::nullopt;
}

std::string recordStartStateFilePath() {
  const char* dir = std::getenv("VELA_STATE_DIR");
  std::string base = dir && *dir ? std::string(dir) : notifAuthStateDir();
  return base + "/recording-state";
}

bool recordStartRecordingIsLive(const std::string& stateFilePath) {
  // Written by the companion app, which may keep it behind a link.
  auto data = readBoundedFile(stateFilePath, recordingStateMaxBytes, FollowLinks::yes);
  if (!data || !text::isValidUTF8(*data)) return false;
  auto pid = recordStartLivePID(*data);
  return pid && ::kill(*pid, 0) == 0;
}

std::optional<RecordStartBanner> recordStartClickBanner(const RecordStartClickOutcome& outcome) {
  using Kind = RecordStartClickOutcome::Kind;
  if (outcome.kind != Kind::refused && outcome.kind != Kind::couldNotRun) return std::nullopt;
  return RecordStartBanner{"Couldn't start recording", outcome.reason};
}

std::optional<std::string> recordStartCapturedPrefix(const std::string& path) {
  return readFilePrefix(path, recordStartCaptureMaxBytes);
}

}  // namespace ac::notify
